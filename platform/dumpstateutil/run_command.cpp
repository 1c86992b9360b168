#include <DumpstateUtil.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "child_process.h"
#include "section_frame.h"

namespace android::os::dumpstate {

const CommandOptions CommandOptions::DEFAULT = CommandOptions::WithTimeout(10).Build();

namespace {

struct Outcome {
    int status;
    std::string failure;
};

std::string Join(const std::vector<std::string>& command) {
    std::string line;
    for (const std::string& argument : command) {
        if (!line.empty()) line += ' ';
        line += argument;
    }
    return line;
}

int Start(ChildProcess& child, const std::vector<std::string>& command, int fd) {
    const int error = child.Start(command, fd);
    if (error != EBADF) return error;
    const base::unique_fd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    return child.Start(command, null.get());
}

// What holds a command for so long may be its own output, in a pipe that nobody reads. The
// command's effects are wanted all the same.
std::optional<ChildProcess::End> WaitForEnd(const ChildProcess& child, int fd,
                                            platform::Deadline start, platform::Deadline deadline) {
    if (const auto end = child.WaitUntil(std::min(start + kReportPatience, deadline))) return end;
    platform::MakeRoom(fd);
    return child.WaitUntil(deadline);
}

Outcome Run(int fd, const std::vector<std::string>& command, int64_t timeout_seconds,
            platform::Deadline start) {
    // A year is for ever, and can be added to any time of the clock.
    constexpr int64_t kMost = int64_t{365} * 24 * 3600;
    const int64_t timeout = std::clamp<int64_t>(timeout_seconds, 0, kMost);

    ChildProcess child;
    if (const int error = Start(child, command, fd); error != 0) {
        const std::string program = command.empty() ? "nothing" : command[0];
        return {-1, "cannot run " + program + ": " + Reason(error)};
    }
    const auto end = WaitForEnd(child, fd, start, start + std::chrono::seconds(timeout));
    if (!end) {
        child.Stop();
        return {-1, "timed out after " + std::to_string(timeout) + " s, stopped"};
    }
    if (!end->exited) {
        return {128 + end->status, "killed by signal " + std::to_string(end->status)};
    }
    if (end->status != 0) return {end->status, "exit status " + std::to_string(end->status)};
    return {0, ""};
}

}  // namespace

int RunCommandToFd(int fd, const std::string& title, const std::vector<std::string>& full_command,
                   const CommandOptions& options) {
    SectionFrame frame(fd, title, Join(full_command));
    // A command that would wait for a stuck reader runs for its effects alone.
    const int output = frame.Begin() ? fd : -1;
    const Outcome outcome =
            Run(output, full_command, options.Timeout(), std::chrono::steady_clock::now());
    frame.Close("\n", outcome.failure);
    return outcome.status;
}

}  // namespace android::os::dumpstate
