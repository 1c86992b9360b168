#include <DumpstateUtil.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <string>
#include <string_view>

#include "file_reader.h"
#include "last_line.h"
#include "platform/bounded_write.h"
#include "section_frame.h"

namespace android::os::dumpstate {
namespace {

using std::chrono::steady_clock;

// How long a file may keep the report waiting, its reader's pauses not counted.
constexpr std::chrono::seconds kTimeout{10};

// A file that takes longer to begin shows its header before, so that a reader sees what is waited
// for.
constexpr std::chrono::milliseconds kAtOnce{100};

// What goes out in one write, more or less.
constexpr size_t kPiece = size_t{64} * 1024;

class Copy {
  public:
    Copy(SectionFrame& frame, const std::string& path) : frame_(frame), path_(path) {}

    // Copies the file. Returns the failure, or "".
    std::string Run() {
        if (const int error = reader_.Start(path_); error != 0) return CannotOpen(error);
        while (WaitForInput()) {
            const ssize_t size = read(reader_.pipe(), buffer_.data(), buffer_.size());
            if (size < 0 && errno == EINTR) continue;
            if (size <= 0) return AtEnd();
            if (!Deliver({buffer_.data(), static_cast<size_t>(size)})) return "";
        }
        reader_.Abandon();
        return "timed out after " + std::to_string(kTimeout.count()) + " s, stopped";
    }

    std::string_view separator() const { return last_line_.Separator(); }

  private:
    std::string CannotOpen(int error) const {
        return "cannot open " + path_ + ": " + Reason(error);
    }

    std::string AtEnd() const {
        if (reader_.open_error() != 0) return CannotOpen(reader_.open_error());
        if (reader_.read_error() == 0) return "";
        return "cannot read " + path_ + ": " + Reason(reader_.read_error());
    }

    // False at the time-out.
    bool WaitForInput() {
        const bool ready = Poll(std::min(start_ + kAtOnce, deadline_));
        if (ready) return steady_clock::now() < deadline_;
        return Flush() && Poll(deadline_);
    }

    bool Poll(platform::Deadline until) const {
        pollfd readable{reader_.pipe(), POLLIN, 0};
        int ready;
        do {
            ready = poll(&readable, 1, platform::PollTimeout(until));
        } while (ready < 0 && errno == EINTR);
        return ready != 0;
    }

    // False when the rest is lost.
    bool Deliver(std::string_view bytes) {
        last_line_.Add(bytes);
        return frame_.Add(bytes) < kPiece || Flush();
    }

    bool Flush() {
        const auto begin = steady_clock::now();
        const bool whole = frame_.Flush() == 0;
        deadline_ += steady_clock::now() - begin;
        return whole;
    }

    const steady_clock::time_point start_ = steady_clock::now();
    platform::Deadline deadline_ = start_ + kTimeout;
    SectionFrame& frame_;
    const std::string& path_;
    FileReader reader_;
    LastLine last_line_;
    std::array<char, kPiece> buffer_;
};

}  // namespace

int DumpFileToFd(int fd, const std::string& title, const std::string& path) {
    SectionFrame frame(fd, title, path);
    Copy copy(frame, path);
    const std::string failure = copy.Run();
    const int error = frame.Close(copy.separator(), failure);
    return failure.empty() && error == 0 ? 0 : -1;
}

}  // namespace android::os::dumpstate
