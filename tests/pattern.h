#pragma once

#include <string>
#include <vector>

// Regular expressions as ECMAScript has them, in one place: they take the compiler seconds in each
// file that has some. For any thread.

bool IsMatch(const std::string& text, const std::string& pattern);   // the whole text
bool HasMatch(const std::string& text, const std::string& pattern);  // somewhere in it
// What the pattern's first group matched, each time.
std::vector<std::string> Matches(const std::string& text, const std::string& pattern);
