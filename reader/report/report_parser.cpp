#include "report_parser.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstring>
#include <utility>

namespace reader {
namespace {

constexpr std::string_view kRule = "------ ";
constexpr std::string_view kRuleEnd = " ------";
constexpr std::string_view kStars = "*** ";
constexpr std::string_view kDuration = "s was the duration of '";
constexpr std::string_view kBlackBox = "------ Sensor Black Box ------";
constexpr std::string_view kNoBlackBox = "*** no sensor black box";
constexpr std::string_view kSensor = "*** Sensor ";
constexpr std::string_view kVerbose = "verbose logging: ";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Longer lines are content; a header holds at most a script.
constexpr size_t kLongestLine = 8192;
constexpr size_t kToldOfLine = 60;
// A section whose footer was lost may hold a log of headers. So many are waited for at once.
constexpr size_t kMostOpen = 64;
// What is remembered of what has begun within a section, so that hostile content fills no memory.
constexpr size_t kMostItems = 65536;
constexpr size_t kMostPendingBytes = size_t{16} << 20;
constexpr size_t kMostPendingRecords = 1'000'000;
constexpr size_t kMostCaptured = size_t{256} << 10;

constexpr std::array<std::string_view, 6> kFailures = {
        "cannot run ",  "cannot open ",      "cannot read ",
        "exit status ", "killed by signal ", "timed out after ",
};

// "TITLE (argv or path)"
std::optional<std::string_view> ParseHeader(std::string_view line) {
    if (!line.starts_with(kRule) || !line.ends_with(kRuleEnd)) return {};
    if (line.size() < kRule.size() + kRuleEnd.size()) return {};
    line.remove_prefix(kRule.size());
    line.remove_suffix(kRuleEnd.size());
    const size_t detail = line.find(" (");
    if (!line.ends_with(')') || detail == std::string_view::npos || detail == 0) return {};
    return line;
}

std::string_view ApparentTitle(std::string_view header) {
    return header.substr(0, header.find(" ("));
}

bool IsTitle(std::string_view title, std::string_view header) {
    return header.starts_with(title) && header.substr(title.size()).starts_with(" (");
}

// Where in the line, from there on, the header of a section begins that the service writes: what
// stood between it and the text before is lost. npos where none does.
size_t FindGluedHeader(std::string_view line, size_t from) {
    constexpr size_t kLongestTitle = 64;
    if (!line.ends_with(kRuleEnd)) return std::string_view::npos;
    size_t found = std::string_view::npos;
    for (size_t at; (at = line.find(kRule, from)) != std::string_view::npos; from = at + 1) {
        const std::string_view title = line.substr(at + kRule.size(), kLongestTitle);
        if (ServiceSection(title.substr(0, title.find(" ("))) && ParseHeader(line.substr(at))) {
            found = at;
        }
    }
    return found;
}

// What the header says beside the title: programs are called by their path in some bin folder.
void SetDetail(Section& section, std::string_view header) {
    std::string_view detail = header.substr(section.title.size() + 2);
    detail.remove_suffix(1);
    section.detail = detail;
    const std::string_view program = detail.substr(0, detail.find(' '));
    const bool command = program.find("bin/") != std::string_view::npos ||
                         (!program.empty() && !program.starts_with('/'));
    section.kind = command ? Section::Kind::kCommand : Section::Kind::kFile;
}

// The failures that tell the kind by themselves.
void CorrectKind(Section& section) {
    const std::string_view failure = section.failure;
    if (failure.starts_with("cannot open ") || failure.starts_with("cannot read ")) {
        section.kind = Section::Kind::kFile;
    } else if (failure.starts_with("cannot run ") || failure.starts_with("exit status ") ||
               failure.starts_with("killed by ")) {
        section.kind = Section::Kind::kCommand;
    }
}

// Whether a line begins in the 64 bytes behind `at` with one of these, or a rule may end its dashes
// there. Without a branch, so that it becomes a few vector instructions.
bool MayHoldLine(const char* at) {
    unsigned char found = 0;
    for (size_t i = 0; i < 64; ++i) {
        const bool end = at[i] == '\n';
        const char first = at[i + 1];
        const bool matters = (first == '-') | (first == '*') | (first == 'v');
        const bool rule = (at[i] == '-') & (first == '-') & (at[i + 2] == ' ');
        found = static_cast<unsigned char>(found | (end & matters) | rule);
    }
    return found != 0;
}

// Where in a line's text a rule begins, or may: its last dashes may go on in what follows. Only
// where the line may still end before it is too long. The size when none does.
size_t FindRule(std::string_view text, size_t from, bool ended) {
    if (text.size() > kLongestLine) from = std::max(from, text.size() - kLongestLine);
    const size_t rule = text.find(kRule, from);
    if (rule != std::string_view::npos || ended) return std::min(rule, text.size());
    size_t dashes = 0;
    while (dashes < kRule.size() - 1 && from + dashes < text.size() &&
           text[text.size() - 1 - dashes] == '-') {
        ++dashes;
    }
    return text.size() - dashes;
}

}  // namespace

ReportParser::ReportParser(Listener listener) : listener_(std::move(listener)) {}

bool ReportParser::MayMatter(char first) const {
    return EveryLineMatters() || first == '-' || first == '*' || first == 'v';
}

// Where the next line begins that may matter, or within a line a rule that has lost its beginning;
// the size when none does.
size_t ReportParser::FindLine(std::string_view bytes) {
    size_t at = 0;
    while (at < bytes.size()) {
        size_t from = at;
        if (!EveryLineMatters()) {
            while (at + 65 < bytes.size() && !MayHoldLine(&bytes[at])) at += 64;
            from = std::max(from, at - std::min(at, kRule.size()));
        }
        const void* const end = std::memchr(&bytes[at], '\n', bytes.size() - at);
        if (!EveryLineMatters()) {
            const std::string_view text =
                    end == nullptr
                            ? bytes
                            : bytes.substr(0, static_cast<size_t>(static_cast<const char*>(end) -
                                                                  bytes.data()));
            const size_t rule = FindRule(text, from, end != nullptr);
            glued_ = rule < text.size();
            if (glued_) return rule;
        }
        if (end == nullptr) return bytes.size();
        at = static_cast<size_t>(static_cast<const char*>(end) - bytes.data()) + 1;
        if (at < bytes.size() && MayMatter(bytes[at])) return at;
    }
    return at;
}

void ReportParser::Feed(std::string_view bytes) {
    const uint64_t base = fed_;
    size_t at = 0;
    while (at < bytes.size()) {
        const std::string_view rest = bytes.substr(at);
        size_t used = 0;
        if (line_start_ && (!partial_.empty() || MayMatter(rest[0]))) {
            const size_t end = std::min(rest.find('\n'), rest.size());
            const std::string_view piece = rest.substr(0, end);
            if (partial_.size() + end > kLongestLine) {
                const std::string beginning = std::exchange(partial_, {});
                Capture(beginning);
                TakeLongLine(beginning + std::string(piece.substr(0, kToldOfLine)),
                             base + at - beginning.size());
                line_start_ = glued_ = false;
                continue;
            }
            if (end == rest.size()) {
                partial_ += piece;
                at = bytes.size();
                break;
            }
            used = end + 1;
            const uint64_t after = base + at + used;
            const bool glued = std::exchange(glued_, false);
            if (partial_.empty()) {
                TakeLine({piece, base + at, after, glued});
            } else {
                partial_ += piece;
                const std::string line = std::exchange(partial_, {});
                TakeLine({line, after - 1 - line.size(), after, glued});
            }
        } else {
            used = FindLine(rest);
            Capture(rest.substr(0, used));
            line_start_ = used < rest.size() || rest.back() == '\n';
        }
        fed_ = base + at + used;
        at += used;
    }
    fed_ = base + bytes.size();
}

void ReportParser::Finish() {
    cut_ = !line_start_ || !partial_.empty();
    const std::string line = std::exchange(partial_, {});
    // Nothing but its newline may lack from a rule. A record would be wrong without its last digit.
    if (line.starts_with('-')) {
        const uint64_t begin = fed_ - line.size();
        TakeLine({line, begin, fed_, glued_});
        if (stray_ && stray_->where.begin == begin)
            stray_.reset();  // a header's beginning, perhaps
    } else {
        Capture(line);
    }
    if (in_black_box_) {
        // Nothing follows it: whether there was more, nobody knows.
        items_.back().black_box->End(fed_);
        items_.back().after = fed_;
        in_black_box_ = false;
    }
    if (open_.empty()) TellStray();
    open_.clear();
    TellResolved(fed_);
    TellOutside(fed_);
}

void ReportParser::Capture(std::string_view bytes) {
    if (!capturing_) return;
    std::string& captured = items_[*capturing_].section.captured;
    const std::string_view taken = bytes.substr(0, kMostCaptured - captured.size());
    captured += taken;
    pending_bytes_ += taken.size();
    if (captured.size() == kMostCaptured) capturing_.reset();
}

void ReportParser::TakeLine(const Line& line) {
    if (capturing_) {
        Capture(line.text);
        if (line.end - line.begin > line.text.size()) Capture("\n");
    }
    const size_t glued = FindGluedHeader(line.text, line.glued ? 0 : 1);
    if (glued != std::string_view::npos) return TakeGluedHeader(line, glued);
    if (line.glued) return;  // content
    if (line.text.starts_with('-')) return TakeRule(line);
    std::string_view text = line.text;
    if (line.begin == 0 && text.starts_with(kByteOrderMark)) {
        text.remove_prefix(kByteOrderMark.size());
    }
    if (text.starts_with(kVerbose)) return TakeFirstLine(line, text.substr(kVerbose.size()));
    if (line.text.starts_with(kStars)) TakeStars(line);
    if (in_black_box_) {
        TakeBlackBoxLine(line);
    } else if (open_.empty()) {
        TakeOutside(line);
    }
}

// A line that lost its end, and a header that lost what stood before it.
void ReportParser::TakeGluedHeader(const Line& line, size_t at) {
    const uint64_t begin = line.begin + at;
    if (in_black_box_) {
        BlackBox& black_box = *items_.back().black_box;
        black_box.TakeLine("", {line.begin, begin});
        black_box.ended = true;
        EndBlackBox(begin);
    } else if (open_.empty()) {
        const std::string_view before = line.text.substr(0, at);
        if (before.starts_with(kVerbose) && told_ == 0 && !has_first_line_) {
            TakeFirstLine({before, line.begin, begin}, before.substr(kVerbose.size()));
        }
        SetStray({before, line.begin, begin});
    }
    TakeHeader({line.text.substr(at), begin, line.end}, *ParseHeader(line.text.substr(at)));
}

// A report's first line: of this one, of another in the same file, or of an older one in a log.
void ReportParser::TakeFirstLine(const Line& line, std::string_view setting) {
    if (!open_.empty()) {
        older_ = line.begin;
        return;
    }
    EndBlackBox(line.begin);
    TellStray();
    if (!has_first_line_ && told_ == 0) {
        if (setting == "enabled" || setting == "disabled") verbose_ = setting == "enabled";
        has_first_line_ = true;
        TellOutside(line.begin);
        told_ = line.end;
    } else if (!std::exchange(at_end_, false)) {
        TellLoss(Loss::Kind::kBeginning, "", {line.begin, line.end});
    }
    headings_ = 0;
}

// Between the first line and the last section nothing stands outside but what the service writes.
void ReportParser::TakeOutside(const Line& line) {
    const size_t heading = HeadingNumber(line.text);
    const bool after_heading = std::exchange(after_heading_, heading > 0);
    const bool after_separator = std::exchange(after_separator_, IsSeparator(line.text));
    if (!has_first_line_ || at_end_) return;
    // Each heading stands between separators, and behind the one before it.
    const bool torn = (after_heading && !after_separator_) ||
                      (heading > 0 && (!after_separator || headings_ + 1 != heading));
    if (heading > 0) headings_ = heading;
    if (torn || !IsServiceLine(line.text)) SetStray(line);
}

void ReportParser::SetStray(const Line& line) {
    if (!stray_) {
        stray_ = {Loss::Kind::kAround,
                  std::string(line.text.substr(0, kToldOfLine)),
                  {line.begin, line.begin}};
    }
    stray_->where.end = line.end;
}

void ReportParser::TakeLongLine(std::string_view beginning, uint64_t begin) {
    if (in_black_box_) {
        items_.back().black_box->TakeLine("", {begin, begin});
    } else if (open_.empty()) {
        TakeOutside({beginning, begin, begin});
    }
}

void ReportParser::TellStray() {
    if (stray_ && listener_.on_loss) listener_.on_loss(*stray_);
    stray_.reset();
}

void ReportParser::TakeRule(const Line& line) {
    if (!line.text.starts_with("------")) {
        if (in_black_box_) TakeBlackBoxLine(line);
        if (!in_black_box_ && open_.empty()) TakeOutside(line);
        return;
    }
    const auto footer = ParseFooter(line.text);
    const auto header = ParseHeader(line.text);
    if (in_black_box_) {
        BlackBox& black_box = *items_.back().black_box;
        // A footer is one of a section whose header was lost, and more of the block with it.
        black_box.ended = !footer;
        const std::string_view next = header ? ApparentTitle(*header) : kAfterBlackBox;
        black_box.torn = next != kAfterBlackBox && ServiceSection(next);
        EndBlackBox(line.begin);
    }
    if (footer) {
        TakeFooter(line, *footer);
    } else if (header) {
        TakeHeader(line, *header);
    } else if (line.text == kBlackBox) {
        BeginBlackBox(line);
    } else if (open_.empty()) {
        TakeOutside(line);
    } else if (line.text == kLastHeading && headings_ < kHeadings) {
        own_heading_ = line.begin;
    }
}

std::optional<ReportParser::Footer> ReportParser::ParseFooter(std::string_view line) {
    if (!line.starts_with(kRule) || !line.ends_with(kRuleEnd)) return {};
    line.remove_prefix(kRule.size());
    const size_t duration = line.find(kDuration);
    if (duration == std::string_view::npos) return {};
    const std::string_view seconds = line.substr(0, duration);
    line.remove_prefix(duration + kDuration.size());
    if (line.size() <= kRuleEnd.size()) return {};
    line.remove_suffix(kRuleEnd.size());
    if (!line.ends_with('\'')) return {};
    line.remove_suffix(1);
    const size_t point = seconds.find('.');
    const bool is_number = point != 0 && point + 4 == seconds.size() &&
                           std::ranges::count_if(seconds, [](unsigned char c) {
                               return std::isdigit(c) == 0;
                           }) == 1;
    if (!is_number) return {};
    Footer footer{line, 0};
    // No section takes years; what says so still ends it.
    constexpr double kMostSeconds = 1e9;
    const auto error =
            std::from_chars(seconds.data(), seconds.data() + seconds.size(), footer.seconds).ec;
    if (error != std::errc() || footer.seconds > kMostSeconds) footer.seconds = kMostSeconds;
    return footer;
}

ReportParser::Item& ReportParser::AddItem(uint64_t begin, std::string_view header) {
    capturing_.reset();
    // Whose content this would be has lost its footer: that is rather believed than that so much is
    // content.
    while (!open_.empty() && (items_.size() >= kMostItems || pending_bytes_ > kMostPendingBytes ||
                              pending_records_ > kMostPendingRecords)) {
        GiveUp(0, begin);
    }
    if (items_.empty()) {
        if (after_heading_) SetStray({kLastHeading, begin, begin});
        TellStray();
        TellOutside(begin);
    }
    after_heading_ = after_separator_ = false;
    pending_bytes_ += header.size();
    items_.push_back({begin, 0, std::string(header), older_, {}, {}, {}});
    return items_.back();
}

void ReportParser::TakeHeader(const Line& line, std::string_view header) {
    Item& item = AddItem(line.begin, header);
    item.section.title = ApparentTitle(header);
    item.section.text = {line.end, line.end};
    SetDetail(item.section, header);
    if (open_.size() == kMostOpen) open_.pop_back();
    open_.push_back(items_.size() - 1);
    const std::string& title = item.section.title;
    if (items_.size() == 1 && listener_.on_begin) listener_.on_begin(title);
    if (listener_.wants_text && listener_.wants_text(title)) capturing_ = items_.size() - 1;
}

void ReportParser::TakeFooter(const Line& line, const Footer& footer) {
    const auto closed = std::find_if(open_.rbegin(), open_.rend(), [&](size_t index) {
        return IsTitle(footer.title, items_[index].header);
    });
    if (closed == open_.rend()) {
        if (!open_.empty()) return;
        stray_.reset();  // its text
        TellLoss(Loss::Kind::kHeader, footer.title, {line.begin, line.end});
        return;
    }
    capturing_.reset();
    const size_t index = *closed;
    const auto open = static_cast<size_t>(open_.rend() - closed) - 1;
    if (HoldsOwnSections(index)) {
        TellLoss(Loss::Kind::kFooter, footer.title, {line.begin, line.end});
        return GiveUp(open, line.begin);
    }
    Drop(index + 1);
    open_.resize(open);
    Item& item = items_.back();
    CloseSection(item, line, footer);
    item.service = ServiceSection(item.section.title);
    if (item.service) ++seen_[*item.service];
    TellResolved(line.end);
}

// Whether what seems to be the item's content is what the service writes, and has not come before
// it.
bool ReportParser::HoldsOwnSections(size_t index) const {
    const uint64_t begin = items_[index].begin;
    std::array<size_t, kServiceSections> within{};
    bool holds = own_heading_ > begin && older_ <= begin;
    for (size_t i = index + 1; i < items_.size(); ++i) {
        if (items_[i].service) ++within[*items_[i].service];
    }
    for (size_t i = index + 1; i < items_.size() && !holds; ++i) {
        const Item& item = items_[i];
        holds = item.service && item.older <= begin &&
                seen_[*item.service] == within[*item.service];
    }
    return holds;
}

// Takes the items from there on for content.
void ReportParser::Drop(size_t from) {
    for (size_t i = from; i < items_.size(); ++i) {
        if (items_[i].service) --seen_[*items_[i].service];
        pending_bytes_ -= items_[i].header.size() + items_[i].section.captured.size();
    }
    items_.resize(from);
}

// Believes no longer that the section's footer will come, and that what follows is its content.
void ReportParser::GiveUp(size_t open, uint64_t at) {
    open_.erase(open_.begin() + static_cast<std::ptrdiff_t>(open));
    TellResolved(at);
}

void ReportParser::CloseSection(Item& item, const Line& line, const Footer& footer) const {
    Section& section = item.section;
    section.title = footer.title;
    SetDetail(section, item.header);
    section.seconds = footer.seconds;
    section.complete = true;
    section.text.end = line.begin;
    if (failure_line_.end == line.begin && failure_line_.begin >= section.text.begin) {
        section.failure = failure_;
        section.text.end = failure_line_.begin;
        CorrectKind(section);
    }
    if (section.kind == Section::Kind::kCommand && section.text.size() > 0) --section.text.end;
    item.after = line.end;
}

void ReportParser::TakeStars(const Line& line) {
    const std::string_view text = line.text.substr(kStars.size());
    const bool known = std::ranges::any_of(
            kFailures, [text](std::string_view form) { return text.starts_with(form); });
    if (known) {
        failure_ = text;
        failure_line_ = {line.begin, line.end};
    }
    if (in_black_box_) return;
    const bool headless = open_.empty() && line.text.starts_with(kSensor);
    if (headless || line.text.starts_with(kNoBlackBox)) BeginBlackBox(line);
    if (headless) items_.back().black_box->headless = true;
}

void ReportParser::TakeBlackBoxLine(const Line& line) {
    if (line.text.empty()) return;
    if (!open_.empty() && line.text.starts_with('T')) ++pending_records_;
    // A section's failure is none of the block's: what was between is lost.
    const bool of_section = failure_line_.end == line.end;
    items_.back().black_box->TakeLine(of_section ? "" : line.text, {line.begin, line.end});
}

void ReportParser::BeginBlackBox(const Line& line) {
    AddItem(line.begin, {}).black_box.emplace().text.begin = line.begin;
    in_black_box_ = true;
}

void ReportParser::EndBlackBox(uint64_t at) {
    if (!in_black_box_) return;
    in_black_box_ = false;
    items_.back().black_box->End(at);
    items_.back().after = at;
    TellResolved(at);
}

// Tells the items before the first that is still open, up to `at` at most.
void ReportParser::TellResolved(uint64_t at) {
    size_t resolved = open_.empty() ? items_.size() : open_.front();
    if (in_black_box_) resolved = std::min(resolved, items_.size() - 1);
    if (resolved == 0) return;
    for (size_t i = 0; i < resolved; ++i) {
        Item& item = items_[i];
        pending_bytes_ -= item.header.size() + item.section.captured.size();
        // What lost its footer ends where the next begins.
        const uint64_t next = i + 1 < items_.size() ? items_[i + 1].begin : at;
        const uint64_t end = item.after != 0 ? item.after : next;
        if (item.after == 0) item.section.text.end = end;
        if (item.black_box) pending_records_ = 0;
        Tell(std::move(item), end);
    }
    items_.erase(items_.begin(), items_.begin() + static_cast<std::ptrdiff_t>(resolved));
    for (size_t& index : open_) index -= resolved;
    if (capturing_) *capturing_ -= resolved;
}

void ReportParser::TellLoss(Loss::Kind kind, std::string_view title, TextRange where) {
    if (listener_.on_loss) listener_.on_loss({kind, std::string(title), where});
}

void ReportParser::Tell(Item&& item, uint64_t end) {
    TellOutside(item.begin);
    told_ = end;
    if (std::exchange(at_end_, false) && (item.service || item.black_box)) {
        TellLoss(Loss::Kind::kFirstLine, item.section.title, {item.begin, end});
    }
    if (item.black_box) {
        if (listener_.on_black_box) listener_.on_black_box(std::move(*item.black_box));
        return;
    }
    Section& section = item.section;
    at_end_ = section.complete && section.title == LastServiceSection();
    if (at_end_ && headings_ > 0 && headings_ < kHeadings) {
        TellLoss(Loss::Kind::kAround, kLastHeading, {item.begin, item.begin});
    }
    if (section.captured.size() > section.text.size()) {
        section.captured.resize(static_cast<size_t>(section.text.size()));
    }
    if (listener_.on_section) listener_.on_section(std::move(section));
}

void ReportParser::TellOutside(uint64_t until) {
    if (told_ < until && listener_.on_outside) listener_.on_outside({told_, until});
    told_ = until;
}

}  // namespace reader
