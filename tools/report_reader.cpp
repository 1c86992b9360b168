#include "report_reader.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <utility>

namespace {

constexpr std::string_view kRule = "------ ";
constexpr std::string_view kRuleEnd = " ------";
constexpr std::string_view kStars = "*** ";
constexpr std::string_view kDuration = "s was the duration of '";

constexpr std::array<std::string_view, 6> kFailures = {
        "cannot run ",  "cannot open ",      "cannot read ",
        "exit status ", "killed by signal ", "timed out after ",
};

// Whether a line that begins like this can be a header, a footer or a failure line.
bool MayMatter(std::string_view beginning) {
    return beginning.starts_with(kRule.substr(0, beginning.size())) ||
           beginning.starts_with(kStars.substr(0, beginning.size()));
}

}  // namespace

ReportReader::ReportReader(OnBegin on_begin, OnEnd on_end)
    : on_begin_(std::move(on_begin)), on_end_(std::move(on_end)) {}

void ReportReader::Feed(std::string_view bytes) {
    while (!bytes.empty()) {
        const size_t end = bytes.find('\n');
        const std::string_view piece = bytes.substr(0, end);
        if (!skipping_ && (!MayMatter(partial_.empty() ? piece : partial_) ||
                           partial_.size() + piece.size() > kLongestLine)) {
            skipping_ = true;
        }
        if (end == std::string_view::npos) {
            if (!skipping_) partial_ += piece;
            return;
        }
        if (skipping_) {
            failure_.clear();
        } else if (partial_.empty()) {
            TakeLine(piece);
        } else {
            partial_ += piece;
            TakeLine(partial_);
        }
        partial_.clear();
        skipping_ = false;
        bytes.remove_prefix(end + 1);
    }
}

void ReportReader::Finish() {
    if (!open_) return;
    on_end_({std::string(open_->ApparentTitle()), 0, "", false});
    if (inner_) within_.push_back({std::string(inner_->ApparentTitle()), 0, "", false});
    for (const Section& section : within_) {
        on_begin_(section.title);
        on_end_(section);
    }
    open_.reset();
}

void ReportReader::TakeLine(std::string_view line) {
    std::string failure;
    if (const auto footer = ParseFooter(line)) {
        TakeFooter(*footer);
    } else if (const auto header = ParseHeader(line)) {
        TakeHeader(*header);
    } else if (line.starts_with(kStars)) {
        line.remove_prefix(kStars.size());
        const bool known = std::ranges::any_of(
                kFailures, [line](std::string_view form) { return line.starts_with(form); });
        if (known) failure = line;
    }
    failure_ = std::move(failure);
}

std::optional<std::string_view> ReportReader::ParseHeader(std::string_view line) {
    if (!line.starts_with(kRule) || !line.ends_with(')' + std::string(kRuleEnd))) return {};
    line.remove_prefix(kRule.size());
    line.remove_suffix(kRuleEnd.size());
    const size_t detail = line.find(" (");
    if (detail == std::string_view::npos || detail == 0) return {};
    return line;
}

std::optional<ReportReader::Footer> ReportReader::ParseFooter(std::string_view line) {
    if (!line.starts_with(kRule) || !line.ends_with('\'' + std::string(kRuleEnd))) return {};
    line.remove_prefix(kRule.size());
    line.remove_suffix(kRuleEnd.size() + 1);
    const size_t duration = line.find(kDuration);
    if (duration == std::string_view::npos) return {};
    const std::string seconds(line.substr(0, duration));
    const size_t point = seconds.find('.');
    const bool is_number = point != 0 && point + 4 == seconds.size() &&
                           std::ranges::count_if(seconds, [](unsigned char c) {
                               return std::isdigit(c) == 0;
                           }) == 1;
    if (!is_number) return {};
    return Footer{line.substr(duration + kDuration.size()), std::strtod(seconds.c_str(), nullptr)};
}

bool ReportReader::Closes(const Footer& footer, const std::optional<Open>& open) {
    if (!open || !open->header.starts_with(footer.title)) return false;
    return std::string_view(open->header).substr(footer.title.size()).starts_with(" (");
}

ReportReader::Section ReportReader::Ended(const Footer& footer) {
    return {std::string(footer.title), footer.seconds, failure_, true};
}

void ReportReader::TakeHeader(std::string_view header) {
    if (open_) {
        if (inner_ && within_.size() < kMostInner) {
            within_.push_back({std::string(inner_->ApparentTitle()), 0, "", false});
        }
        inner_ = Open{std::string(header)};
        return;
    }
    open_ = Open{std::string(header)};
    on_begin_(open_->ApparentTitle());
}

void ReportReader::TakeFooter(const Footer& footer) {
    if (Closes(footer, open_)) {
        open_.reset();
        inner_.reset();
        within_.clear();
        on_end_(Ended(footer));
    } else if (Closes(footer, inner_)) {
        inner_.reset();
        if (within_.size() < kMostInner) within_.push_back(Ended(footer));
    }
}
