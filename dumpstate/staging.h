#pragma once

#include <chrono>

#include "section.h"

namespace aidl::android::hardware::dumpstate {

// Where the log bundle is put together. What is in the temporary folder lives from the beginning of
// a report with a bundle to the end of its packing.
inline constexpr char kTemporaryFolder[] = "/data/vendor/log/dumpstate";
// Every copied log goes here, under its source's name; the root of the archive.
inline constexpr char kStagingDirectory[] = "/data/vendor/log/dumpstate/log";
// Beside the staging directory, so that it doesn't hold itself.
inline constexpr char kBundleArchive[] = "/data/vendor/log/dumpstate/combined.tar";

// To be called before the copies begin: what is still in the temporary folder then, because
// removing it failed or took too long or the service was killed, is not to be taken for this
// report's. Logs are moved aside in the folder, whose removal ends them, and the system log says
// so; an archive, which packing is about to write anew, is named there. The folder is closed to
// other users, as it may be an older service's. Takes a moment, however many logs there are.
void setLeftoversAside();

// The copy of a file or directory, with all it holds, into the staging directory.
constexpr Entry CopyToStaging(const char* title, const char* source, std::chrono::seconds timeout) {
    return Command(title, {"/vendor/bin/cp", "-r", source, kStagingDirectory}, timeout);
}

}  // namespace aidl::android::hardware::dumpstate
