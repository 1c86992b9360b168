// What came with the report in its log bundle: each member, and the texts among them to be read.

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <tuple>
#include <utility>

#include <span>

#include "bundle.h"
#include "clock_time.h"
#include "page_parts.h"
#include "units.h"
#include "utf8.h"

namespace reader {
namespace {

// Nobody reads more names, and a browser takes long to lay them out.
constexpr size_t kMostListed = 5000;
constexpr uint64_t kShownOfLarge = uint64_t{1} << 20;  // at either end
constexpr int64_t kTimeOfCopying = 120;                // seconds
constexpr size_t kLookedAt = size_t{64} << 10;         // of what may be a text

// The files of one series differ in their numbers alone.
std::string SeriesOf(std::string_view name) {
    constexpr std::string_view kDigits = "0123456789";
    const size_t base = name.rfind('/') + 1;  // 0 when there is none
    const size_t first = name.find_first_of(kDigits, base);
    if (first == std::string_view::npos) return std::string(name);
    return std::string(name.substr(0, first)) + "*" +
           std::string(name.substr(name.find_last_of(kDigits) + 1));
}

std::string FolderOf(std::string_view name) {
    return std::string(name.substr(0, name.rfind('/') + 1));
}

// The name with its numbers so padded that their order is that of the letters.
std::string NaturalKey(std::string_view name) {
    std::string key;
    for (size_t i = 0; i < name.size();) {
        const size_t end = std::min(name.find_first_not_of("0123456789", i), name.size());
        if (end == i) {
            key += name[i++];
            continue;
        }
        std::string_view digits = name.substr(i, end - i);
        digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size() - 1));
        key.append(20 - std::min<size_t>(20, digits.size()), '0').append(digits);
        i = end;
    }
    return key;
}

// Whether people can read what begins so: no NUL, and hardly a byte that is no character.
bool IsText(std::string_view bytes) {
    bytes = bytes.substr(0, WholeCharacters(bytes));
    const size_t size = bytes.size();
    size_t odd = 0;
    while (!bytes.empty()) {
        const Utf8Step step = NextUtf8(bytes);
        const char c = bytes.front();
        if (c == '\0') return false;
        const bool control = static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t' &&
                             c != '\r' && c != '\x1b';
        if (!step.valid || control) odd += step.size;
        bytes.remove_prefix(step.size);
    }
    return odd * 50 <= size;
}

// What stands where in the archive, and of what is shown where it is kept meanwhile.
struct Log {
    Bundle::Member member;
    std::string beginning;
    bool text = false;
    bool shown = false;
    TextRange head;  // in the file of what is kept
    TextRange tail;  // empty when the head is all
};

class BundleWriter {
  public:
    BundleWriter(Html& html, const PageOptions& options) : html_(html), options_(options) {}

    void Write();

  private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    uint64_t BytesShown(const Log& log) const {
        return IsCut(log) ? 2 * kShownOfLarge : log.member.size;
    }
    bool IsCut(const Log& log) const {
        return !options_.whole && log.member.size > PageContent::kLargestText;
    }
    void List();
    void Sort();
    void Choose();
    void Keep();
    void KeepPiece(Log& log, uint64_t offset, std::string_view data);
    void WriteMembers();
    void WriteSeries(std::span<const size_t> members);
    void WriteMember(const Log& log, std::string_view why_newest);
    void WriteText(const Log& log);
    void WriteKept(TextRange range);
    std::string ReadKept(TextRange range);

    Html& html_;
    const PageOptions& options_;
    std::vector<Log> logs_;  // as they stand in the archive
    std::string fault_;
    std::vector<std::vector<size_t>> series_;  // by folder and name; in each the newest first
    std::unique_ptr<std::FILE, Close> kept_{std::tmpfile()};
    uint64_t kept_size_ = 0;
    bool real_times_ = false;  // and not only when the archive was made
};

// Its members, and how each begins.
void BundleWriter::List() {
    std::map<size_t, std::string> beginnings;
    Bundle bundle =
            ReadBundle(*options_.bundle, [&](size_t member, uint64_t, std::string_view data) {
                std::string& begin = beginnings[member];
                begin += data.substr(0, kLookedAt - begin.size());
                return begin.size() < kLookedAt;
            });
    fault_ = std::move(bundle.fault);
    for (size_t i = 0; i < bundle.members.size(); ++i) {
        logs_.push_back(
                {std::move(bundle.members[i]), std::move(beginnings[i]), false, false, {}, {}});
        logs_.back().text = !logs_.back().member.directory && IsText(logs_.back().beginning);
    }
}

void BundleWriter::Sort() {
    int64_t first = std::numeric_limits<int64_t>::max();
    int64_t last = 0;
    for (const Log& log : logs_) {
        if (log.member.directory) continue;
        first = std::min(first, log.member.modified.value_or(0));
        last = std::max(last, log.member.modified.value_or(0));
    }
    real_times_ = first > 0 && last - first > kTimeOfCopying;
    std::map<std::pair<std::string, std::string>, std::vector<size_t>> series;
    for (size_t i = 0; i < logs_.size(); ++i) {
        const std::string& name = logs_[i].member.name;
        if (!logs_[i].member.directory) series[{FolderOf(name), SeriesOf(name)}].push_back(i);
    }
    for (auto& [name, members] : series) {
        std::ranges::stable_sort(members, std::ranges::greater(),
                                 [this](size_t i) { return NaturalKey(logs_[i].member.name); });
        series_.push_back(std::move(members));
    }
}

// The newest of every series come before the second newest, until the page is full.
void BundleWriter::Choose() {
    std::vector<std::pair<size_t, size_t>> order;  // by its place in its series
    for (const auto& members : series_) {
        for (size_t i = 0; i < members.size(); ++i) order.emplace_back(i, members[i]);
    }
    std::ranges::stable_sort(order, {}, &std::pair<size_t, size_t>::first);
    double room = static_cast<double>(options_.bundle_size);
    for (const auto& [place, i] : order) {
        Log& log = logs_[i];
        if (!log.text) continue;
        // What its characters take once they are written so that nothing in them is obeyed.
        const Sink nowhere = [](std::string_view) { return true; };
        Html measured(nowhere);
        measured.Text(log.beginning);
        const double growth = log.beginning.empty()
                                      ? 1
                                      : static_cast<double>(measured.written()) /
                                                static_cast<double>(log.beginning.size());
        const double wanted = static_cast<double>(BytesShown(log)) * growth + 1000;
        log.shown = options_.whole || wanted <= room;
        if (log.shown) room -= wanted;
        log.beginning.clear();
    }
}

void BundleWriter::KeepPiece(Log& log, uint64_t offset, std::string_view data) {
    const auto keep = [&](TextRange& range, uint64_t from, uint64_t to) {
        const uint64_t begin = std::max(from, offset);
        const uint64_t end = std::min(to, offset + data.size());
        if (begin >= end) return;
        if (range.size() == 0) range = {kept_size_, kept_size_};
        const std::string_view piece =
                data.substr(static_cast<size_t>(begin - offset), static_cast<size_t>(end - begin));
        const size_t written = std::fwrite(piece.data(), 1, piece.size(), kept_.get());
        kept_size_ += written;
        range.end = kept_size_;
    };
    if (!IsCut(log)) return keep(log.head, 0, log.member.size);
    keep(log.head, 0, kShownOfLarge);
    keep(log.tail, log.member.size - kShownOfLarge, log.member.size);
}

void BundleWriter::Keep() {
    if (kept_ == nullptr) return;
    ReadBundle(*options_.bundle, [this](size_t member, uint64_t offset, std::string_view data) {
        if (member >= logs_.size() || !logs_[member].shown) return false;
        KeepPiece(logs_[member], offset, data);
        return true;
    });
}

std::string BundleWriter::ReadKept(TextRange range) {
    std::string bytes(static_cast<size_t>(range.size()), '\0');
    if (fseeko(kept_.get(), static_cast<off_t>(range.begin), SEEK_SET) != 0) return "";
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), kept_.get()));
    return bytes;
}

void BundleWriter::WriteKept(TextRange range) {
    html_ << "<pre>\n";
    std::string bytes;
    while (range.size() > 0) {
        const TextRange piece{range.begin, std::min(range.end, range.begin + kShownOfLarge)};
        range.begin = piece.end;
        bytes += ReadKept(piece);
        const size_t whole = range.size() > 0 ? WholeCharacters(bytes) : bytes.size();
        html_.Text(std::string_view(bytes).substr(0, whole));
        bytes.erase(0, whole);
    }
    html_ << "</pre>\n";
}

void BundleWriter::WriteText(const Log& log) {
    if (log.head.size() == 0) {
        html_ << "<p class=\"note\">Empty.</p><pre></pre>\n";
        return;
    }
    TextRange head = log.head;
    TextRange tail = log.tail;
    if (tail.size() == 0) return WriteKept(head);
    // From line to line, where there are lines.
    if (const size_t last = ReadKept(head).rfind('\n'); last != std::string::npos) {
        head.end = head.begin + last + 1;
    }
    if (const size_t first = ReadKept(tail).find('\n');
        first != std::string::npos && first + 1 < tail.size()) {
        tail.begin += first + 1;
    }
    WriteKept(head);
    const uint64_t left_out = log.member.size - head.size() - tail.size();
    html_ << "<p class=\"left-out\">";
    html_.Text(Grouped(left_out) + " bytes (" + HumanSize(left_out) +
               ") are left out here; the bundle has them, and boardreport page --whole shows them");
    html_ << "</p>\n";
    WriteKept(tail);
}

void BundleWriter::WriteMember(const Log& log, std::string_view why_newest) {
    html_ << (log.shown ? Markup("<details") : Markup("<div"));
    html_ << " id=\"log-" << static_cast<size_t>(&log - logs_.data()) << "\"";
    html_.Attribute("data-member", log.member.name)
            << ">\n"
            << (log.shown ? Markup("<summary>") : Markup("<p class=\"head\">"))
            << "<span class=\"title\">";
    html_.Text(BaseName(log.member.name)) << "</span>";
    if (!why_newest.empty()) {
        html_ << " <span class=\"differing\">";
        html_.Text("newest: " + std::string(why_newest)) << "</span>";
    }
    if (!log.shown) {
        html_ << " <span class=\"note\">"
              << (log.text ? Markup("not shown here, to keep the page small") : Markup("no text"))
              << "</span>";
    }
    if (real_times_) {
        html_ << " <span class=\"note\">";
        html_.Text(FormatTime(log.member.modified.value_or(0)) + " UTC") << "</span>";
    }
    html_ << " <span class=\"number size\">";
    html_.Text(HumanSize(log.member.size)) << "</span>";
    if (!log.shown) {
        html_ << "</p></div>\n";
        return;
    }
    html_ << "</summary>\n<div class=\"text\">\n";
    WriteText(log);
    html_ << "</div></details>\n";
}

void BundleWriter::WriteSeries(std::span<const size_t> members) {
    const bool several = members.size() > 1;
    if (several) {
        html_ << "<details open class=\"series\"><summary><span class=\"title\">";
        html_.Text(BaseName(SeriesOf(logs_[members.front()].member.name)))
                << "</span> <span class=\"number\">" << members.size()
                << " files</span></summary>\n";
    }
    // The archive's times say it where they agree with nothing else; numbers are all there is
    // mostly.
    const auto time = [this](size_t i) { return logs_[i].member.modified.value_or(0); };
    size_t newest = members.front();
    for (const size_t i : members) {
        if (real_times_ && time(i) > time(newest)) newest = i;
    }
    const std::string_view why = newest == members.front() ? "highest number" : "latest time";
    for (const size_t i : members) {
        WriteMember(logs_[i], several && i == newest ? why : "");
    }
    if (several) html_ << "</details>\n";
}

void BundleWriter::WriteMembers() {
    size_t listed = 0;
    size_t left = 0;
    std::string folder;
    for (const auto& members : series_) {
        if (listed + members.size() > kMostListed) {
            left += members.size();
            continue;
        }
        listed += members.size();
        const std::string here = FolderOf(logs_[members.front()].member.name);
        if (here != folder) {
            html_ << "<h3>";
            html_.Text(here) << "</h3>\n";
            folder = here;
        }
        WriteSeries(members);
    }
    if (left > 0) {
        html_ << "<p class=\"left-out\">";
        html_.Text(Grouped(left) + " files more are not listed here; tar -tvf lists them");
        html_ << "</p>\n";
    }
}

void BundleWriter::Write() {
    List();
    Sort();
    Choose();
    Keep();
    uint64_t files = 0;
    uint64_t size = 0;
    uint64_t unshown = 0;
    for (const Log& log : logs_) {
        if (log.member.directory) continue;
        ++files;
        size += log.member.size;
        if (log.text && !log.shown) ++unshown;
    }
    html_ << "<section id=\"bundle\">\n<h2>Bundle</h2>\n<p class=\"note\">";
    html_.Text(BaseName(*options_.bundle) + ": " + Grouped(files) + " files, " + HumanSize(size) +
               "; ");
    if (fault_.empty()) {
        html_ << "the archive is whole";
    } else {
        html_ << "<strong class=\"trouble\">not whole: ";
        html_.Text(fault_) << "</strong>";
    }
    html_ << "</p>\n";
    if (unshown > 0) {
        html_ << "<p class=\"left-out\">";
        html_.Text(
                Grouped(unshown) + " texts are only listed, as the page takes " +
                HumanSize(options_.bundle_size) +
                " of them, the newest first; boardreport page --bundle-size allows more, --whole "
                "all");
        html_ << "</p>\n";
    }
    WriteMembers();
    html_ << "</section>\n";
}

}  // namespace

void WriteBundle(Html& html, const PageOptions& options) {
    BundleWriter(html, options).Write();
}

}  // namespace reader
