#pragma once

#include <android-base/unique_fd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/bounded_write.h"

namespace android::os::dumpstate {

// Opens and reads a file on another thread.
//
// A driver or a file system may hold whoever looks at, opens or reads its file for as long as it
// likes, and no signal need help. That may cost the report that thread, but never the report's own:
// the thread touches nothing but what it shares with this object, and ends as soon as it is let go.
//
// A thread that is done waits a moment for another file, so that most files cost a hand-over and
// not the making of a thread.
class FileFeeder {
  public:
    // Most of the report's files are no longer than this. Such a one comes as a whole.
    static constexpr size_t kSmall = 4096;

    FileFeeder() = default;
    ~FileFeeder();
    FileFeeder(const FileFeeder&) = delete;
    FileFeeder& operator=(const FileFeeder&) = delete;

    // Returns an errno when no thread was to be had.
    int Start(const std::string& path);

    // Waits until the file has been read, or its beginning where there is more. False when the
    // deadline has passed before.
    bool WaitUntil(platform::Deadline deadline) const;

    // What has been read by now, valid as long as this object.
    std::string_view beginning() const;

    // What follows the beginning. At most one of the two is there.
    struct Rest {
        // A file on a disk or in memory that goes on from here, and how much there was of it.
        base::unique_fd file;
        uint64_t size = 0;
        // Anything else. The end of the pipe means that the file has been read or has failed.
        base::unique_fd pipe;
    };
    // To be called once, after WaitUntil() has said true.
    Rest TakeRest();

    // The errno with which opening or reading failed, or 0; the latter may come with the pipe's
    // end.
    int open_error() const;
    int read_error() const;

  private:
    struct Job;
    class Threads;

    std::shared_ptr<Job> job_;
};

}  // namespace android::os::dumpstate
