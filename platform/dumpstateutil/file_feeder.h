#pragma once

#include <android-base/unique_fd.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <string>

namespace android::os::dumpstate {

// Opens and reads a file on a thread of its own and feeds it into a pipe.
//
// A driver may hold whoever opens or reads its file for as long as it likes, and no signal need
// help. That may cost the report this one thread, but never the report's own: the thread touches
// nothing but the pipe and what it shares with this object, and ends as soon as the driver lets go
// of it.
class FileFeeder {
  public:
    // Returns an errno when no pipe or thread was to be had.
    int Start(const std::string& path);
    ~FileFeeder();

    // The pipe's read end; its end of file means that the file has been read or has failed.
    int pipe() const { return read_end_.get(); }

    // Once the pipe has ended: the errno with which opening or reading failed, or 0.
    int open_error() const { return shared_->open_error; }
    int read_error() const { return shared_->read_error; }

  private:
    struct Shared {
        std::string path;
        base::unique_fd write_end;
        std::atomic<int> open_error = 0;  // both written before the write end is closed
        std::atomic<int> read_error = 0;
    };
    static void* Run(void* shared);
    static void Feed(Shared& shared);

    std::shared_ptr<Shared> shared_;
    base::unique_fd read_end_;
    pthread_t thread_{};
    bool started_ = false;
};

}  // namespace android::os::dumpstate
