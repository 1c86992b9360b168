#pragma once

#include <android-base/unique_fd.h>

#include <memory>
#include <string>

namespace android::os::dumpstate {

// Opens and reads a file on another thread, in pieces of 64 KiB: a driver may hand out whole
// records only. What it reads comes through a pipe.
class FileReader {
  public:
    // Returns an errno when reading couldn't be begun: EALREADY while the file still holds the
    // thread of a reader that was abandoned. The thread ends when nobody reads the pipe any more,
    // as soon as the file lets it.
    int Start(const std::string& path);
    // To be told of a reader that was waited for in vain.
    void Abandon() const;

    // Its end means that the file has been read or has failed.
    int pipe() const { return pipe_.get(); }

    // The errno with which opening or reading failed, or 0. To be asked after the pipe's end.
    int open_error() const;
    int read_error() const;

  private:
    struct Job;

    std::shared_ptr<Job> job_;
    base::unique_fd pipe_;
};

}  // namespace android::os::dumpstate
