// What of a redaction a whole run can't tell apart: each pattern by its own examples, and what is
// packed.

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "bytes.h"
#include "packed.h"
#include "patterns.h"
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

TEST(RedactPacked, UnpacksWhatWasPackedAndNoBomb) {
    using reader::Packing;
    for (const Packing packing : {Packing::kGzip, Packing::kXz, Packing::kZstd}) {
        for (const size_t size : {size_t{0}, size_t{100'000}, size_t{80} << 20}) {
            const bool bomb = size > size_t{64} << 20;
            const std::string original(size, 'a');
            reader::TextBytes bytes(original);
            std::string packed;
            const auto keep = [&packed](std::string_view piece) {
                packed += piece;
                return true;
            };
            ASSERT_EQ(reader::Pack(bytes, packing, keep), "");
            EXPECT_EQ(reader::PackingOf(packed), packing);
            reader::TextBytes again(packed);
            reader::UnpackedBytes unpacked(again, packed.size());
            EXPECT_EQ(reader::ReadExactly(unpacked, size + 1) == original, !bomb);
            EXPECT_EQ(unpacked.error().empty(), !bomb) << unpacked.error();
        }
    }
}

}  // namespace
