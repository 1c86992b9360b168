#pragma once

#include <string>

namespace aidl::android::hardware::dumpstate {

// Copies into the staging directory. Commands write under their titles to fd, never into a report
// whose reader hasn't asked for them, so callers pass standard output. A failing copy shows there
// and the next one follows. Nothing is kept between calls; several threads may call with different
// destinations. destDir has to exist.

// Copies those files of srcDir whose names begin with prefix, from the highest name to the lowest:
// loggers number their files or put a time in the name, so these are the newest. At most maxFiles
// are tried, none for 0 and below, all for -1. A directory that can't be listed is an empty one.
void dumpLogs(int fd, std::string srcDir, std::string destDir, int maxFiles, const char* prefix);

// Copies the radio's and the network manager's logs, the current and the old one of each.
void dumpRilLogs(int fd, std::string destDir);

}  // namespace aidl::android::hardware::dumpstate
