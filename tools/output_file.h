#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

// A file that receives what the service sends, or what was made of it: identifiers and logs of a
// whole device, for its owner alone.
//
// What is made here has mode 0600. A regular file that is there already has to be the caller's own,
// and keeps its mode. Until Commit() it stays as it is: what arrives is gathered beside it, under
// its name with ".partial" behind, and stays there if nobody commits it, until the next one fills
// it anew. What is locked (another one is at work there), somebody else's or a link is passed over
// for ".partial.2" to ".partial.9", and then for a name that nobody can guess. Only where no file
// can be made beside it, it is overwritten at the first byte.
//
// A terminal, a pipe and a device are written to as they are, where they are the caller's own, or
// /dev/null or /dev/tty. A symbolic link is refused, whatever it leads to: somebody else may have
// put it there. An open descriptor is written to as it is: "-" and /dev/stdout are standard output,
// /dev/fd/N any other.
//
// Opened before the call, so that a path that can't be written is known before anything runs. What
// was made here and received nothing is removed again.
class OutputFile {
  public:
    explicit OutputFile(std::string name);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // What would block writes for no longer than until this descriptor can be read: then it fails
    // with EINTR. The descriptor is the caller's.
    void GiveUpWhen(int readable) { give_up_ = readable; }

    // The errno of the first step that failed; nothing is written after that.
    int error() const { return error_; }
    // "cannot write report.txt: No space left on device; the first 4.0 KiB are kept in ..."
    std::string Sentence() const;

    bool Write(std::string_view bytes);
    // Once all is written: puts it in its place. False when it has to stay where it is.
    bool Commit();

    // Whether what is written here would replace, or come out of, the regular file that is open as
    // this descriptor, by whatever names the two were opened: no input may be its own output.
    bool Replaces(int input) const;
    // Whether both would be written to one place; two to /dev/null harm nobody.
    bool IsSameAs(const OutputFile& other) const;

    bool is_standard_output() const { return name_ == "-" || name_ == "/dev/stdout"; }
    // For messages.
    std::string name() const;
    // Where the bytes are: until Commit() that may be beside name().
    const std::string& path() const { return path_; }
    // Whether they can be read again there.
    bool is_kept() const { return kept_; }
    uint64_t size() const { return size_; }
    // Whether what is there was there before, and is left alone.
    bool is_older() const { return exists_ && size_ == 0; }

  private:
    void OpenExisting(int there);
    void OpenBeside();
    bool TakePartial();
    void Refuse(const char* why);
    bool MayWrite() const;
    void Close();

    const std::string name_;
    std::string path_;
    int fd_ = -1;
    int error_ = 0;
    int give_up_ = -1;
    const char* refusal_ = nullptr;
    bool kept_ = false;
    bool beside_ = false;    // path_ is not in its place yet
    bool leftover_ = false;  // and holds what an earlier one left, until the first byte
    bool exists_ = false;    // what named_ tells is a regular file
    struct stat named_ {};   // what was there under the name or is behind the descriptor; or zeros
    uint64_t size_ = 0;
};
