#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

// A file that receives what the service sends, or what was made of it: identifiers and logs of a
// whole device, for its owner alone.
//
// What is made here has mode 0600. A regular file that is there already has to be the caller's own,
// not behind a symbolic link, and keeps its mode. Until Commit() it stays as it is: what arrives is
// gathered beside it, under its name with ".partial" behind (or ".partial.2", ...), and stays there
// if nobody commits it. Only where no file can be made beside it, it is overwritten at the first
// byte. A terminal, a pipe and a device are written to as they are, and so is an open descriptor:
// "-" and /dev/stdout are standard output, /dev/fd/N any other.
//
// Opened before the call, so that a path that can't be written is known before anything runs. What
// was made here and received nothing is removed again.
class OutputFile {
  public:
    explicit OutputFile(std::string name);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // The errno of the first step that failed; nothing is written after that.
    int error() const { return error_; }
    // "cannot write report.txt: No space left on device; the first 4.0 KiB are kept in ..."
    std::string Sentence() const;

    bool Write(std::string_view bytes);
    // Once all is written: puts it in its place. False when it has to stay where it is.
    bool Commit();

    bool is_standard_output() const { return name_ == "-" || name_ == "/dev/stdout"; }
    // For messages.
    std::string name() const { return is_standard_output() ? "standard output" : name_; }
    // Where the bytes are: until Commit() that may be beside name().
    const std::string& path() const { return path_; }
    // Whether they can be read again there.
    bool is_kept() const { return kept_; }
    uint64_t size() const { return size_; }
    // Whether what is there was there before, and is left alone.
    bool is_older() const { return exists_ && size_ == 0; }

  private:
    void OpenExisting(const struct stat& named);
    void OpenBeside();
    void Refuse(const char* why);
    void Close();

    const std::string name_;
    std::string path_;
    int fd_ = -1;
    int error_ = 0;
    const char* refusal_ = nullptr;
    bool kept_ = false;
    bool beside_ = false;  // path_ is not in its place yet
    bool exists_ = false;  // and has this mode and group
    mode_t mode_ = 0;
    gid_t group_ = 0;
    uint64_t size_ = 0;
};
