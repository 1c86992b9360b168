#include "progress.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

// What a section prints must not steer the terminal; headers are escaped by the service, but who
// knows what has answered.
std::string Printable(std::string_view text) {
    std::string printable(text);
    for (char& c : printable) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
    }
    return printable;
}

}  // namespace

Progress::Progress()
    : live_(isatty(STDOUT_FILENO) == 1), colour_(live_ && std::getenv("NO_COLOR") == nullptr) {}

void Progress::Begin(std::string_view title) {
    running_ = Printable(title);
    since_ = std::chrono::steady_clock::now();
}

void Progress::End(const ReportReader::Section& section) {
    Clear();
    running_.clear();
    ++sections_;
    std::string note;
    if (!section.finished) {
        ++unfinished_;
        note = "not finished";
    } else if (!section.failure.empty()) {
        ++failed_;
        note = Printable(section.failure);
    }
    const char* const on = colour_ && !note.empty() ? "\x1b[31m" : "";
    const char* const off = colour_ && !note.empty() ? "\x1b[0m" : "";
    std::printf("%8.3f s  %s%s%s%s%s\n", section.seconds, on, Printable(section.title).c_str(),
                note.empty() ? "" : ": ", note.c_str(), off);
    std::fflush(stdout);
}

void Progress::Redraw(uint64_t bundle_size) {
    if (!live_) return;
    const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - since_).count();
    const std::string bundle = bundle_size > 0 ? "  [bundle " + HumanSize(bundle_size) + "]" : "";
    if (running_.empty()) {
        std::printf("\r\x1b[K%s", bundle.c_str());
    } else {
        std::printf("\r\x1b[K%8.0f s  %s ...%s", seconds, running_.c_str(), bundle.c_str());
    }
    std::fflush(stdout);
}

void Progress::Clear() {
    if (live_) std::fputs("\r\x1b[K", stdout);
}

std::string HumanSize(uint64_t bytes) {
    constexpr std::array<const char*, 4> kUnits = {"bytes", "KiB", "MiB", "GiB"};
    size_t unit = 0;
    auto size = static_cast<double>(bytes);
    while (size >= 1024 && unit + 1 < kUnits.size()) {
        size /= 1024;
        ++unit;
    }
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", size, kUnits[unit]);
    return text.data();
}
