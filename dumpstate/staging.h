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

// The copy of a file or directory, with all it holds, into the staging directory.
constexpr Entry CopyToStaging(const char* title, const char* source, std::chrono::seconds timeout) {
    return Command(title, {"/vendor/bin/cp", "-r", source, kStagingDirectory}, timeout);
}

}  // namespace aidl::android::hardware::dumpstate
