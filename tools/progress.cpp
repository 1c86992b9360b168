#include "progress.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

// The length of the character at the front of a text that a terminal may be shown: a printable one
// of ASCII, or a UTF-8 sequence beyond the control characters; 0 where there is none.
size_t PrintableLength(std::string_view text) {
    const auto byte = [text](size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned lead = byte(0);
    if (lead >= 0x20 && lead < 0x7f) return 1;
    const size_t length = lead < 0xc2 || lead > 0xf4 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    // The second byte's bounds keep controls, overlong forms, surrogates and what is beyond
    // U+10FFFF out.
    const unsigned least = lead == 0xc2 || lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
    const unsigned most = lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
    if (length == 0 || byte(1) < least || byte(1) > most) return 0;
    for (size_t i = 2; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return 0;
    }
    return length;
}

// What a section prints must not steer the terminal; headers are escaped by the service, but who
// knows what has answered.
std::string Printable(std::string_view text) {
    std::string printable;
    while (!text.empty()) {
        const size_t length = PrintableLength(text);
        printable += length > 0 ? text.substr(0, length) : "?";
        text.remove_prefix(length > 0 ? length : 1);
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
