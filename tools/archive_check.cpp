#include "archive_check.h"

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <system_error>

namespace {

struct Free {
    void operator()(archive* reader) const { archive_read_free(reader); }
};

// The end mark: two blocks of zeros.
constexpr int64_t kEndMark = 1024;

}  // namespace

ArchiveCheck CheckArchive(const std::string& path) {
    ArchiveCheck check;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        check.fault = "it can't be looked at: " + std::generic_category().message(errno);
        return check;
    }
    if (!S_ISREG(status.st_mode)) return check;

    const std::unique_ptr<archive, Free> reader(archive_read_new());
    archive_read_support_format_tar(reader.get());
    int result = archive_read_open_filename(reader.get(), path.c_str(), size_t{64} * 1024);
    archive_entry* entry = nullptr;
    while (result == ARCHIVE_OK || result == ARCHIVE_WARN) {
        result = archive_read_next_header(reader.get(), &entry);
        if (result == ARCHIVE_OK || result == ARCHIVE_WARN) {
            ++check.entries;
            result = archive_read_data_skip(reader.get());
        }
    }
    if (result != ARCHIVE_EOF) {
        const char* const message = archive_error_string(reader.get());
        check.fault = message == nullptr ? "unreadable" : message;
    } else if (archive_read_header_position(reader.get()) + kEndMark > status.st_size) {
        // The library takes the end of the file for the end of the archive, but an archive that was
        // cut between two entries looks the same without its end mark.
        check.fault = "its end is missing";
    }
    return check;
}
