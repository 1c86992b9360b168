#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <string>

// A listening sequenced-packet socket at a path, which is removed with the object.
class ListeningSocket {
  public:
    ListeningSocket() = default;
    ~ListeningSocket();
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    // The path appears once the socket listens: whoever sees it can connect. What a daemon that is
    // gone has left there is replaced; one that is alive is left alone. "" or the sentence.
    std::string Open(const std::string& path);

    int fd() const { return fd_.get(); }

  private:
    android::base::unique_fd fd_;
    std::string path_;  // "" when there is nothing to remove
    dev_t device_ = 0;  // what was made there
    ino_t inode_ = 0;
};
