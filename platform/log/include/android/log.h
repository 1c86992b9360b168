#pragma once

#include <cstdarg>

// The system log of a plain Linux host: one line a record on standard error,
//
//   MM-DD HH:MM:SS.mmm  PID  TID P tag: message
//
// in local time, P one of V D I W E F. A null tag is the program's name. Trailing newlines of the
// message are dropped and any other control character is escaped, so a record is always one line.
// A record is one write(2): records of several threads or processes never mix, on a pipe up to
// PIPE_BUF bytes. Any thread may log.
// A log reader that has stopped costs one caller 100 ms, and then every record until it takes
// something again. Of one tag and priority, 10,000 may come at once and 100 a second after that.
// How many are missing is told by a line of its own before the next record. No exception leaves.

extern "C" {

enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
};

// Both return 1 when the record was written, 0 when it was one too many, a negative errno when it
// was lost. errno stays as it is.
int __android_log_print(int priority, const char* tag, const char* format, ...)
        __attribute__((__format__(printf, 3, 4)));
int __android_log_vprint(int priority, const char* tag, const char* format, va_list arguments)
        __attribute__((__format__(printf, 3, 0)));

}  // extern "C"
