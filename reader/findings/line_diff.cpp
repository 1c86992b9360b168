#include "line_diff.h"

#include <algorithm>
#include <cstdint>
#include <dtl/dtl.hpp>
#include <unordered_map>

namespace reader {
namespace {

using Lines = std::vector<std::string_view>;
using Diff = dtl::Diff<int>;

// How many pairs of lines may have to be compared: a tenth of a second.
constexpr uint64_t kMostPairs = uint64_t{64} << 20;
// The library keeps this many points at most, and isn't right beyond them.
constexpr uint64_t kMostPoints = 1'900'000;

Lines SplitLines(std::string_view text) {
    Lines lines;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.push_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return lines;
}

class Runs {
  public:
    void Add(DiffRun::Kind kind, std::string_view line) {
        if (runs_.empty() || runs_.back().kind != kind) runs_.push_back({kind, {}});
        runs_.back().lines.push_back(line);
    }
    void Add(DiffRun::Kind kind, const Lines& lines) {
        for (const std::string_view line : lines) Add(kind, line);
    }
    std::vector<DiffRun> Take() { return std::move(runs_); }

  private:
    std::vector<DiffRun> runs_;
};

// The lines as numbers, equal lines the same number.
std::vector<int> Numbers(const Lines& lines, std::unordered_map<std::string_view, int>& known) {
    std::vector<int> numbers;
    numbers.reserve(lines.size());
    for (const std::string_view line : lines) {
        numbers.push_back(known.try_emplace(line, static_cast<int>(known.size())).first->second);
    }
    return numbers;
}

// Whether the library can tell the difference: the distance alone is cheap, and says how many
// points the way there has.
bool Affordable(const std::vector<int>& before, const std::vector<int>& after) {
    if (uint64_t{before.size()} * after.size() > kMostPairs) return false;
    Diff distance(before, after);
    distance.onOnlyEditDistance();
    distance.compose();
    const auto [fewer, more] = std::minmax({before.size(), after.size()});
    const uint64_t delta = more - fewer;
    const uint64_t turns = (static_cast<uint64_t>(distance.getEditDistance()) - delta) / 2 + 1;
    return turns * (delta + turns) <= kMostPoints;
}

}  // namespace

std::optional<std::vector<DiffRun>> DiffLines(std::string_view before, std::string_view after) {
    using enum DiffRun::Kind;
    Lines old_lines = SplitLines(before);
    Lines new_lines = SplitLines(after);

    // Most of two reports' sections differ in a few lines, if at all.
    const auto head_end = std::ranges::mismatch(old_lines, new_lines);
    const Lines head(old_lines.begin(), head_end.in1);
    old_lines.erase(old_lines.begin(), head_end.in1);
    new_lines.erase(new_lines.begin(), head_end.in2);
    Lines tail;
    while (!old_lines.empty() && !new_lines.empty() && old_lines.back() == new_lines.back()) {
        tail.push_back(old_lines.back());
        old_lines.pop_back();
        new_lines.pop_back();
    }
    std::ranges::reverse(tail);

    Runs runs;
    runs.Add(kCommon, head);
    if (old_lines.empty() || new_lines.empty()) {
        runs.Add(kRemoved, old_lines);
        runs.Add(kAdded, new_lines);
    } else {
        std::unordered_map<std::string_view, int> known;
        const std::vector<int> old_numbers = Numbers(old_lines, known);
        const std::vector<int> new_numbers = Numbers(new_lines, known);
        if (!Affordable(old_numbers, new_numbers)) return {};
        Diff diff(old_numbers, new_numbers);
        diff.compose();
        size_t at_old = 0;
        size_t at_new = 0;
        for (const auto& [number, edit] : diff.getSes().getSequence()) {
            if (edit.type == dtl::SES_ADD) {
                runs.Add(kAdded, new_lines[at_new++]);
            } else {
                if (edit.type == dtl::SES_COMMON) ++at_new;
                runs.Add(edit.type == dtl::SES_COMMON ? kCommon : kRemoved, old_lines[at_old++]);
            }
        }
    }
    runs.Add(kCommon, tail);
    return runs.Take();
}

}  // namespace reader
