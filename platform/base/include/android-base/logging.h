#pragma once

#include <ostream>
#include <sstream>

namespace android::base {

enum LogSeverity { VERBOSE, DEBUG, INFO, WARNING, ERROR, FATAL_WITHOUT_ABORT, FATAL };

// Collects one record of the system log; the destructor writes it. A FATAL record is followed by
// one that names the source location, and then by abort().
class LogMessage {
  public:
    // `error` of 0 or more appends ": " and its text; -1 appends nothing. A null tag is the
    // program's name.
    LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag,
               int error);
    ~LogMessage();
    LogMessage(const LogMessage&) = delete;
    LogMessage& operator=(const LogMessage&) = delete;

    std::ostream& stream() { return text_; }

  private:
    const char* const file_;
    const unsigned int line_;
    const LogSeverity severity_;
    const char* const tag_;
    const int error_;
    std::ostringstream text_;
};

}  // namespace android::base

// Ends the process with a fatal record that shows both values unless they are equal.
#define CHECK_EQ(left, right)                                                                    \
    do {                                                                                         \
        const auto checked_left = (left);                                                        \
        const auto checked_right = (right);                                                      \
        if (checked_left != checked_right) {                                                     \
            ::android::base::LogMessage(__FILE__, __LINE__, ::android::base::FATAL, nullptr, -1) \
                            .stream()                                                            \
                    << "Check failed: " #left " == " #right " (" #left "=" << checked_left       \
                    << ", " #right "=" << checked_right << ") ";                                 \
        }                                                                                        \
    } while (false)
