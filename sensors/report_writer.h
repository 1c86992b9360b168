#pragma once

#include <array>
#include <cstddef>

namespace tev::dumpstate {

// Everything here is written in full, or the report is cut there, which the log says: a reader that
// takes nothing for 30 s, or has gone away, is given up, and /dev/null takes its place in the
// descriptor. No call fails. SIGPIPE must not end the process.

// Writes a few lines straight to the report, of 511 characters together.
void PrintToReport(int fd, const char* format, ...) __attribute__((__format__(printf, 2, 3)));

// Gathers lines and writes them in large pieces.
class ReportWriter {
  public:
    static constexpr size_t kLongestLine = 512;

    // The descriptor stays the caller's and is not closed.
    explicit ReportWriter(int fd) : fd_(fd) {}
    ~ReportWriter() { Flush(); }
    ReportWriter(const ReportWriter&) = delete;
    ReportWriter& operator=(const ReportWriter&) = delete;

    // Room for kLongestLine characters, to be filled in place up to the end that EndLine() is told.
    char* BeginLine();
    void EndLine(const char* end) { size_ = static_cast<size_t>(end - text_.data()); }

    // At most kLongestLine characters.
    void Print(const char* format, ...) __attribute__((__format__(printf, 2, 3)));

    void Flush();

  private:
    const int fd_;
    bool lost_ = false;
    size_t size_ = 0;
    std::array<char, size_t{64} << 10> text_;  // left as it is found: most writers hold a few lines
};

}  // namespace tev::dumpstate
