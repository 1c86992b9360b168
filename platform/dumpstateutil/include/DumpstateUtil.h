#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The report's primitives on a plain Linux host.
//
// Both write one section into `fd`, at its position, and never close it:
//
//   ------ TITLE (argv joined by blanks, or the file's path) ------
//   what the command writes to standard output and error, or the file's bytes
//   *** what went wrong, if anything
//   ------ 0.012s was the duration of 'TITLE' ------
//
// Control characters of the title, the arguments and the path are escaped, so each of these lines
// is one line. They begin a line: after a command, whose output can't be seen from here, one
// newline is written first.
//
// They return normally whatever happens and are bounded in time whatever the command, the file or
// the reader of `fd` does. Any thread may call them, several at once. No signal disposition or mask
// of the caller changes, and of its descriptors only `fd`: where its reader takes nothing for 30 s
// (5 s where it is standard output), or is gone, it becomes /dev/null. SIGPIPE must not end the
// process.

namespace android::os::dumpstate {

class CommandOptions {
  public:
    class CommandOptionsBuilder {
      public:
        explicit CommandOptionsBuilder(int64_t timeout_seconds) : timeout_(timeout_seconds) {}
        CommandOptions Build() const { return CommandOptions(timeout_); }

      private:
        int64_t timeout_;
    };

    static CommandOptionsBuilder WithTimeout(int64_t timeout_seconds) {
        return CommandOptionsBuilder(timeout_seconds);
    }

    int64_t Timeout() const { return timeout_; }

    static const CommandOptions DEFAULT;  // 10 s

  private:
    explicit constexpr CommandOptions(int64_t timeout_seconds) : timeout_(timeout_seconds) {}

    int64_t timeout_;
};

// Runs the program at full_command[0], an absolute path, with its output going straight into `fd`.
// It leads a process group of its own, with standard input from /dev/null, default signals, an
// empty mask and no descriptors but 0 to 2. Returns after it has ended, or at the time-out, when
// the whole group is terminated and shortly after killed. Members of the group that outlive the
// command are killed as well. Returns the exit status, 128 plus the signal that killed it, or -1
// when it could not be run or timed out.
//
// An `fd` that is no open descriptor loses the section, but the command runs all the same: others
// wait for its effects.
int RunCommandToFd(int fd, const std::string& title, const std::vector<std::string>& full_command,
                   const CommandOptions& options = CommandOptions::DEFAULT);

// Copies the file at `path`, for which it is waited for 10 s, the time not counted in which the
// reader of `fd` takes nothing. Returns 0, or -1 when not all could be copied.
int DumpFileToFd(int fd, const std::string& title, const std::string& path);

class PropertiesHelper {
  public:
    // ro.build.type is "user", read afresh on each call.
    static bool IsUserBuild();
};

}  // namespace android::os::dumpstate
