#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "terminal.h"
#include "units.h"
#include "utf8.h"

using reader::Printable;

namespace {

// The closing line names no more of what failed.
constexpr size_t kMostNamed = 5;

}  // namespace

Progress::Progress(const reader::Rules& rules)
    : live_(isatty(STDERR_FILENO) == 1), colour_(live_ && WantsColour()), watch_(rules, report_) {}

reader::ReportParser::Listener Progress::Listener() {
    reader::ReportParser::Listener listener = builder_.Listener();
    listener.on_begin = [this](std::string_view title) {
        running_ = Printable(title);
        since_ = std::chrono::steady_clock::now();
    };
    listener.on_section = [this](reader::Section&& section) {
        End(section);
        section.index = report_.tally.sections;
        section.text = {};  // passing by, it can't be read again for what is in its lines
        watch_.Take(section);
        builder_.Add(std::move(section));
    };
    listener.on_black_box = [this](reader::BlackBox&& black_box) {
        builder_.Add(std::move(black_box));
        EndBlackBox();
    };
    return listener;
}

void Progress::Finish(const reader::ReportParser& parser) {
    builder_.Finish(parser);
    verdict_ = reader::Judge(report_, watch_);
}

void Progress::End(const reader::Section& section) {
    Line(section.seconds, section.title, std::string(section.Trouble()));
}

// It has no footer: it took from the end of what came before it until now.
void Progress::EndBlackBox() {
    const reader::Verdict verdict = reader::Judge(report_);
    const std::string described = reader::DescribeBlackBoxes(report_, verdict);
    const bool good = verdict.black_box.empty();
    Line(SecondsSince(), good ? "Sensor Black Box: " + described : "Sensor Black Box",
         good ? "" : described);
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

std::string Progress::WhatIsMissing() const {
    if (verdict_.complete) return "";
    if (report_.tally.unfinished > 0) return "the report has sections that never ended";
    if (!report_.at_end || report_.cut) return "the report's end is missing";
    return "text of the report is lost";
}

std::string Progress::Verdict() const {
    std::string names;
    const size_t failed = report_.tally.failed;
    size_t named = 0;
    for (const reader::Section& section : report_.sections) {
        if (section.failure.empty()) continue;
        if (named == kMostNamed) {
            names += " and " + std::to_string(failed - named) + " more";
            break;
        }
        names += (named++ == 0 ? " (" : ", ") + Printable(section.title);
    }
    if (named > 0) names += ")";
    return std::to_string(sections()) + " sections, " + std::to_string(failed) +
           " failed or timed out" + names +
           "; black box: " + Printable(reader::DescribeBlackBoxes(report_, verdict_));
}

std::string Progress::Findings() const {
    if (verdict_.findings.empty()) return "Nothing is wrong";
    return verdict_.Counts() + "; the worst: " + Printable(verdict_.findings.front().says);
}
