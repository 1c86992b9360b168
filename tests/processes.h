#pragma once

#include <sys/types.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

// Whether this is a sanitizer's build. A sanitizer holds memory of its own, needs all the addresses
// there are, and descriptors to ask whether memory is there.
#if defined(SANITIZED)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

// What this pid namespace and this process held when the census was taken.
class ProcessCensus {
  public:
    ProcessCensus();

    // The processes, and this process's descriptors and threads, that have come since and don't go
    // away within a few seconds; "" when there are none.
    std::string Newcomers() const;

  private:
    static std::set<std::string> Take();
    std::set<std::string> before_;
};

// What is there now, "" where nothing can be read.
std::string ReadFile(const std::string& path);
// The same of what is open: of a file from its beginning, of a pipe to its end.
std::string ReadFd(int fd);
// Whether a descriptor is /dev/null, and not for children.
bool IsNull(int fd);

// A terminal's two ends.
struct Terminal {
    int master;
    int terminal;
};
Terminal OpenTerminal();

// A vendor tool that is a shell's script for a while; without one, it is gone.
class SwappedTool {
  public:
    explicit SwappedTool(const std::string& name, const std::string& script = "");
    ~SwappedTool();
    SwappedTool(const SwappedTool&) = delete;
    SwappedTool& operator=(const SwappedTool&) = delete;

    // Where the tool itself is.
    const std::string& aside() const { return aside_; }

  private:
    const std::string tool_;
    const std::string aside_;
};

// Starts a program with files for what it prints. What can't be started fails the running test.
pid_t Spawn(const std::vector<std::string>& command, const std::string& errors,
            const std::string& output = "/dev/null");
// Sends the signal, 0 for none, waits for the end, a minute at most, and forgets the child. How it
// ended, as waitpid(2) tells; -1 where there is none.
int EndChild(pid_t& child, int signal);

// Looks until the condition holds; a minute without fails the running test.
void Await(const std::function<bool()>& condition);

// For what can't be asked whether it will end: a scope that lasts for longer than a minute ends the
// test program, saying what was waited for. One at a time. A case that outlasts its program's time
// ends the same way.
class WithinAMinute {
  public:
    explicit WithinAMinute(const char* what);
    ~WithinAMinute();
    WithinAMinute(const WithinAMinute&) = delete;
    WithinAMinute& operator=(const WithinAMinute&) = delete;

  private:
    const char* const before_;
};

// The socket, of which no receive and no accept waits for longer than a minute.
int Bounded(int socket);

// From here on this process has no rights that an ordinary user has not. What it needs to write to
// is given to it before.
void BeAnOrdinaryUser(const std::vector<std::string>& belongings);
