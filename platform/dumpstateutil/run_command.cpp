#include <DumpstateUtil.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>

#include "child_process.h"
#include "platform/bounded_write.h"
#include "section_frame.h"

namespace android::os::dumpstate {

const CommandOptions CommandOptions::DEFAULT = CommandOptions::WithTimeout(10).Build();

namespace {

// A program that a time-out doesn't even let begin would tell nothing.
constexpr std::chrono::seconds kLeastStart{1};

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

int Start(ChildProcess& child, const std::vector<std::string>& command, int fd,
          platform::Deadline deadline) {
    const int error = child.Start(command, fd, deadline);
    if (error != EBADF) return error;
    const base::unique_fd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    return child.Start(command, null.get(), deadline);
}

Outcome OutcomeOf(const ChildProcess::End& end) {
    if (!end.exited) return {128 + end.status, "killed by signal " + std::to_string(end.status)};
    if (end.status != 0) return {end.status, "exit status " + std::to_string(end.status)};
    return {0, ""};
}

Outcome Run(int fd, const std::vector<std::string>& command, int64_t timeout_seconds) {
    // A year is for ever, and can be added to any time of the clock.
    constexpr int64_t kMost = int64_t{365} * 24 * 3600;
    const std::chrono::seconds timeout(std::clamp<int64_t>(timeout_seconds, 0, kMost));
    const auto start = std::chrono::steady_clock::now();

    ChildProcess child;
    const int error = Start(child, command, fd, start + std::max(timeout, kLeastStart));
    if (error == 0) {
        if (const auto end = child.WaitUntil(start + timeout)) return OutcomeOf(*end);
        child.Stop();
    } else if (error != ETIMEDOUT) {
        const std::string program = command.empty() ? "nothing" : command[0];
        return {-1, "cannot run " + program + ": " + Reason(error)};
    }
    return {-1, "timed out after " + std::to_string(timeout.count()) + " s, stopped"};
}

}  // namespace

int RunCommandToFd(int fd, const std::string& title, const std::vector<std::string>& full_command,
                   const CommandOptions& options) {
    SectionFrame frame(fd, title, Join(full_command));
    frame.Flush();
    const Outcome outcome = Run(fd, full_command, options.Timeout());
    frame.Close("\n", outcome.failure);
    return outcome.status;
}

}  // namespace android::os::dumpstate
