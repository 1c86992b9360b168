#include <DumpstateUtil.h>

#include <chrono>
#include <string>
#include <string_view>

#include "copy.h"
#include "file_feeder.h"
#include "last_line.h"
#include "section_frame.h"

namespace android::os::dumpstate {
namespace {

constexpr std::chrono::seconds kTimeout{10};

// A section that takes longer to begin shows its header before, so that a reader sees what is
// waited for.
constexpr std::chrono::milliseconds kAtOnce{100};

struct Outcome {
    std::string_view separator;
    bool complete;
    std::string failure;
};

Outcome CannotOpen(const std::string& path, int error) {
    return {"", false, "cannot open " + path + ": " + Reason(error)};
}

std::chrono::seconds Begin(SectionFrame& frame) {
    return frame.Begin() ? kTimeout : std::chrono::seconds(0);
}

// What comes after the file's beginning.
CopyResult CopyRest(FileFeeder& feeder, SectionFrame& frame, int fd, platform::Deadline deadline,
                    LastLine& last_line) {
    const FileFeeder::Rest rest = feeder.TakeRest();
    if (rest.file.get() >= 0) {
        // The size bounds the copy: a log that grows as fast as it is read has no end.
        return CopyRegularFile(rest.file.get(), fd, rest.size, Begin(frame), last_line);
    }
    if (rest.pipe.get() < 0) return {.read_error = feeder.read_error()};
    if (!frame.Begin()) deadline = std::chrono::steady_clock::now();
    CopyResult copy = CopyPipe(rest.pipe.get(), fd, deadline, last_line);
    if (!copy.timed_out && copy.write_error == 0) copy.read_error = feeder.read_error();
    return copy;
}

Outcome Copy(SectionFrame& frame, int fd, const std::string& path) {
    FileFeeder feeder;
    if (const int error = feeder.Start(path); error != 0) return CannotOpen(path, error);
    const auto start = std::chrono::steady_clock::now();
    const platform::Deadline deadline = start + kTimeout;
    const bool answered =
            feeder.WaitUntil(start + kAtOnce) || feeder.WaitUntil(frame.Begin() ? deadline : start);
    if (answered && feeder.open_error() != 0) return CannotOpen(path, feeder.open_error());

    const std::string_view beginning = feeder.beginning();
    LastLine last_line;
    last_line.Add(beginning);
    frame.Hold(beginning);
    const CopyResult copy = answered ? CopyRest(feeder, frame, fd, deadline, last_line)
                                     : CopyResult{.timed_out = true};
    std::string failure;
    if (copy.timed_out) {
        failure = "timed out after " + std::to_string(kTimeout.count()) + " s, stopped";
    } else if (copy.read_error != 0) {
        failure = "cannot read " + path + ": " + Reason(copy.read_error);
    }
    return {last_line.Separator(), failure.empty() && copy.write_error == 0, failure};
}

}  // namespace

int DumpFileToFd(int fd, const std::string& title, const std::string& path) {
    SectionFrame frame(fd, title, path);
    const Outcome outcome = Copy(frame, fd, path);
    const int error = frame.Close(outcome.separator, outcome.failure);
    return outcome.complete && error == 0 ? 0 : -1;
}

}  // namespace android::os::dumpstate
