#include "recorded_report.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "dumpstate.h"
#include "program.h"
#include "recording_platform.h"

namespace {

void CopyFile(const std::string& path, int out) {
    const int in = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (in < 0) return;
    std::array<char, size_t{64} * 1024> buffer;
    for (ssize_t size; (size = read(in, buffer.data(), buffer.size())) > 0;) {
        if (write(out, buffer.data(), static_cast<size_t>(size)) != size) break;
    }
    close(in);
}

void Replace(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
}

std::string Quoted(std::string word) {
    Replace(word, "'", "'\\''");
    return " '" + word + "'";
}

}  // namespace

RecordedReport::RecordedReport() {
    using aidl::android::hardware::dumpstate::Dumpstate;
    ThePlatform() = {};
    for (const auto& property : std::filesystem::directory_iterator("/dev/__properties__")) {
        std::getline(std::ifstream(property.path()),
                     ThePlatform().properties[property.path().filename()]);
    }
    std::vector<ndk::ScopedFileDescriptor> fds;
    fds.emplace_back(open("/dev/null", O_WRONLY | O_CLOEXEC));
    ndk::SharedRefBase::make<Dumpstate>()->dumpstateBoard(fds, {}, 0);
    for (std::string request : ThePlatform().requests) {
        if (request.starts_with("stdout ")) request.erase(0, 7);
        std::istringstream words(request);
        Step step;
        for (std::string word; std::getline(words, word, '\t');) {
            Replace(word, "\\n", "\n");
            step.push_back(word);
        }
        steps_.push_back(step);
    }
}

void RecordedReport::Replay(int out) const {
    for (const Step& step : steps_) {
        if (step[0] == "command") {
            SpawnAndWait({step.begin() + 3, step.end()}, out, out);
        } else if (step[0] == "file") {
            CopyFile(step[3], out);
        } else if (step[0] == "sleep") {
            // The recording platform has the C library's other ways to sleep.
            const timespec time{std::stol(step[1]), 0};
            clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
        }
    }
}

std::string RecordedReport::Script() const {
    std::string script = R"(
entry() { # TITLE SECONDS ARGV...
    title=$1 seconds=$2; shift 2
    print -r -- "------ $title ($*) ------"
    start=$EPOCHREALTIME
    timeout $seconds "$@" 2>&1 </dev/null || print "*** exit status $?"
    print -r -- "------ $start to $EPOCHREALTIME was '$title' ------"
}
print 'verbose logging: disabled'
)";
    for (const Step& step : steps_) {
        if (step[0] == "sleep") script += "sleep " + step[1] + "\n";
        if (step[0] != "command" && step[0] != "file") continue;
        script += "entry" + Quoted(step[1]);
        script += step[2] == "default" || step[2] == "-" ? " 10" : " " + step[2];
        if (step[0] == "file") script += " /vendor/bin/cat";
        for (size_t i = 3; i < step.size(); ++i) script += Quoted(step[i]);
        script += '\n';
    }
    return script + "exit 0\n";
}
