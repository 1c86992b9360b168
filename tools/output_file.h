#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// A file that receives what the service sends. Opened before the call, so that a path that can't be
// written is known before anything runs, but emptied only when the first byte arrives: a call that
// is refused costs no older file. One that was made here and received nothing is removed again.
class OutputFile {
  public:
    // "-" is standard output.
    explicit OutputFile(std::string path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // The errno of the open or of the first write that failed; nothing is written after that.
    int error() const { return error_; }
    bool Write(std::string_view bytes);

    bool is_standard_output() const { return path_ == "-"; }
    // For messages.
    std::string name() const { return is_standard_output() ? "standard output" : path_; }
    const std::string& path() const { return path_; }
    uint64_t size() const { return size_; }

  private:
    const std::string path_;
    int fd_ = -1;
    int error_ = 0;
    bool created_ = false;
    uint64_t size_ = 0;
};
