// What of a redaction a whole run can't tell apart: each pattern by its own examples, and the
// bounds of what is read in pieces.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "bytes.h"
#include "changes.h"
#include "patterns.h"
#include "redaction.h"
#include "scanner.h"
#include "values.h"

namespace {

using reader::Scanner;

// The text with what was found of one kind in backticks.
std::string Marked(Scanner& scanner, std::string_view text, reader::Kind kind) {
    std::string marked;
    size_t at = 0;
    for (const Scanner::Hit& hit : scanner.Scan(text, true)) {
        if (hit.what != Scanner::What::kPattern || hit.kind != kind) continue;
        marked += std::string(text.substr(at, hit.begin - at)) + "`" +
                  std::string(text.substr(hit.begin, hit.end - hit.begin)) + "`";
        at = hit.end;
    }
    return marked + std::string(text.substr(at));
}

TEST(RedactPatterns, ExamplesAreFoundAndCounterexamplesAreNot) {
    reader::Values values;
    Scanner scanner(values);
    for (const reader::Pattern& pattern : reader::Patterns()) {
        ASSERT_GT(pattern.examples.size(), 0U) << pattern.regex;
        ASSERT_GT(pattern.counterexamples.size(), 0U) << pattern.regex;
        for (const std::string_view example : pattern.examples) {
            std::string text(example);
            std::erase(text, '`');
            EXPECT_EQ(Marked(scanner, text, pattern.kind), example) << pattern.regex;
        }
        for (const std::string_view text : pattern.counterexamples) {
            EXPECT_EQ(Marked(scanner, text, pattern.kind), text) << pattern.regex;
        }
    }
}

}  // namespace
