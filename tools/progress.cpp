#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "units.h"
#include "utf8.h"

using reader::Printable;

namespace {

// The closing line names no more of what failed.
constexpr size_t kMostNamed = 5;

}  // namespace

Progress::Progress()
    : live_(isatty(STDERR_FILENO) == 1), colour_(live_ && std::getenv("NO_COLOR") == nullptr) {}

void Progress::Begin(std::string_view title) {
    running_ = Printable(title);
    since_ = std::chrono::steady_clock::now();
}

void Progress::End(const reader::Section& section) {
    ++sections_;
    host_.Add(section);
    if (!section.complete) {
        ++unfinished_;
    } else if (!section.failure.empty()) {
        failed_.push_back(Printable(section.title));
    }
    Line(section.seconds, section.title, std::string(section.Trouble()));
}

// It has no footer: it took from the end of what came before it until now.
void Progress::End(const reader::BlackBox& black_box) {
    black_box_ = reader::DescribeBlackBox(&black_box);
    const bool good = black_box.Trouble().empty();
    Line(SecondsSince(), good ? "Sensor Black Box: " + black_box_ : "Sensor Black Box",
         good ? "" : black_box_);
}

void Progress::Line(double seconds, const std::string& what, const std::string& trouble) {
    Clear();
    running_.clear();
    since_ = std::chrono::steady_clock::now();
    const bool coloured = colour_ && !trouble.empty();
    std::fprintf(stderr, "%8.3f s  %s%s%s%s%s\n", seconds, coloured ? "\x1b[31m" : "",
                 Printable(what).c_str(), trouble.empty() ? "" : ": ", Printable(trouble).c_str(),
                 coloured ? "\x1b[0m" : "");
}

double Progress::SecondsSince() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since_).count();
}

void Progress::Redraw(uint64_t bundle_size) {
    if (!live_) return;
    const std::string bundle =
            bundle_size > 0 ? "  [bundle " + reader::HumanSize(bundle_size) + "]" : "";
    if (running_.empty()) {
        std::fprintf(stderr, "\r\x1b[K%s", bundle.c_str());
    } else {
        std::fprintf(stderr, "\r\x1b[K%8.0f s  %s ...%s", SecondsSince(), running_.c_str(),
                     bundle.c_str());
    }
}

void Progress::Clear() {
    if (live_) std::fputs("\r\x1b[K", stderr);
}

std::string Progress::Verdict() const {
    std::string names;
    const size_t named = std::min(failed_.size(), kMostNamed);
    for (size_t i = 0; i < named; ++i) names += (i == 0 ? " (" : ", ") + failed_[i];
    if (named < failed_.size()) {
        names += " and " + std::to_string(failed_.size() - named) + " more";
    }
    if (named > 0) names += ")";
    return std::to_string(sections_) + " sections, " + std::to_string(failed_.size()) +
           " failed or timed out" + names + "; black box: " + Printable(black_box_);
}
