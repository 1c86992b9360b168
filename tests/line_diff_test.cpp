#include "line_diff.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace reader {
namespace {

struct Told {
    std::string before;  // from the common and the removed lines
    std::string after;   // from the common and the added lines
    size_t changed = 0;
};

Told Tell(const std::vector<DiffRun>& runs) {
    Told told;
    for (const DiffRun& run : runs) {
        for (const std::string_view line : run.lines) {
            if (run.kind != DiffRun::Kind::kAdded) told.before += line;
            if (run.kind != DiffRun::Kind::kRemoved) told.after += line;
        }
        if (run.kind != DiffRun::Kind::kCommon) told.changed += run.lines.size();
    }
    return told;
}

TEST(LineDiff, TellsBothTextsAndTheFewestChanges) {
    const struct {
        std::string before;
        std::string after;
        size_t changed;
    } rows[] = {
            {"", "", 0},
            {"a\nb\n", "a\nb\n", 0},
            {"", "a\nb", 2},
            {"a\nb\nc\n", "a\nc\n", 1},
            {"a\nb\nc\n", "a\nx\nc\n", 2},
            {"end", "end\n", 2},  // a newline more is a difference
            {"a\nb\nc\nd\n", "c\nd\na\nb\n", 4},
            {"x\na\nb\nc\ny\n", "a\nz\nb\nc\n", 3},
    };
    for (const auto& row : rows) {
        const auto runs = DiffLines(row.before, row.after);
        ASSERT_TRUE(runs);
        const Told told = Tell(*runs);
        EXPECT_EQ(told.before, row.before);
        EXPECT_EQ(told.after, row.after);
        EXPECT_EQ(told.changed, row.changed) << row.before << "->\n" << row.after;
    }
}

// Whatever the texts, what is told is either right or nothing; texts that differ in little are told
// however large they are.
TEST(LineDiff, IsRightOrSilent) {
    std::mt19937 random(1);
    for (const size_t lines : {10U, 200U, 1500U, 6000U}) {
        for (const unsigned alphabet : {2U, 40U, 1000000U}) {
            std::string before;
            std::string after;
            for (size_t i = 0; i < lines; ++i) {
                before += std::to_string(random() % alphabet) + "\n";
                after += std::to_string(random() % alphabet) + "\n";
            }
            const auto runs = DiffLines(before, after);
            EXPECT_TRUE(runs || lines > 1000);
            if (!runs) continue;
            EXPECT_EQ(Tell(*runs).before, before);
            EXPECT_EQ(Tell(*runs).after, after);
        }
    }
    std::string large;
    for (size_t i = 0; i < 7000; ++i) large += "line " + std::to_string(i) + "\n";
    const std::string before = "first\n" + large + "x\n";
    const std::string after = large + "last\n";
    const auto runs = DiffLines(before, after);
    ASSERT_TRUE(runs);
    EXPECT_EQ(Tell(*runs).changed, 3U);
}

}  // namespace
}  // namespace reader
