#include "pattern.h"

#include <mutex>
#include <regex>

namespace {

// Compiling an expression looks at the locale, which is nothing that several threads may do at a
// time.
std::regex Compile(const std::string& pattern) {
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    return std::regex(pattern);
}

}  // namespace

bool IsMatch(const std::string& text, const std::string& pattern) {
    return std::regex_match(text, Compile(pattern));
}

bool HasMatch(const std::string& text, const std::string& pattern) {
    return std::regex_search(text, Compile(pattern));
}

std::vector<std::string> Matches(const std::string& text, const std::string& pattern) {
    const std::regex regex = Compile(pattern);
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        found.push_back((*match)[1]);
    }
    return found;
}
