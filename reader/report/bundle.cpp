#include "bundle.h"

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "temporary_file.h"

namespace reader {
namespace {

struct Free {
    void operator()(archive* reader) const { archive_read_free(reader); }
};

// The end mark: two blocks of zeros.
constexpr int64_t kEndMark = 1024;

Bundle::Member MemberOf(archive_entry* entry) {
    const char* const name = archive_entry_pathname(entry);
    const int64_t modified = archive_entry_mtime_is_set(entry) ? archive_entry_mtime(entry) : 0;
    return {name == nullptr ? "" : name,
            static_cast<uint64_t>(std::max<la_int64_t>(0, archive_entry_size(entry))),
            archive_entry_filetype(entry) == AE_IFDIR,
            modified > 0 ? std::optional(modified) : std::nullopt};
}

int ReadData(archive* reader, size_t member, const BundleData& data) {
    const void* piece = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    int result = ARCHIVE_OK;
    do {
        result = archive_read_data_block(reader, &piece, &size, &offset);
        if (result != ARCHIVE_OK && result != ARCHIVE_WARN) break;
    } while (data(member, static_cast<uint64_t>(offset),
                  std::string_view(static_cast<const char*>(piece), size)));
    return result == ARCHIVE_EOF ? ARCHIVE_OK : result;
}

}  // namespace

Bundle ReadBundle(const std::string& path, const BundleData& data) {
    Bundle bundle;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        bundle.fault = "it can't be looked at: " + Reason(errno);
        return bundle;
    }
    if (!S_ISREG(status.st_mode)) {
        bundle.fault = "it is no file";
        return bundle;
    }

    const std::unique_ptr<archive, Free> reader(archive_read_new());
    archive_read_support_format_tar(reader.get());
    int result = archive_read_open_filename(reader.get(), path.c_str(), size_t{64} * 1024);
    archive_entry* entry = nullptr;
    while (result == ARCHIVE_OK || result == ARCHIVE_WARN) {
        result = archive_read_next_header(reader.get(), &entry);
        if (result == ARCHIVE_OK || result == ARCHIVE_WARN) {
            bundle.members.push_back(MemberOf(entry));
            if (data && archive_entry_filetype(entry) == AE_IFREG) {
                result = ReadData(reader.get(), bundle.members.size() - 1, data);
                if (result != ARCHIVE_OK && result != ARCHIVE_WARN) break;
            }
            result = archive_read_data_skip(reader.get());
        }
    }
    if (result != ARCHIVE_EOF) {
        const char* const message = archive_error_string(reader.get());
        bundle.fault = message == nullptr ? "unreadable" : message;
    } else if (archive_read_header_position(reader.get()) + kEndMark > status.st_size) {
        // The library takes the end of the file for the end of the archive, but an archive that was
        // cut between two entries looks the same without its end mark.
        bundle.fault = "its end is missing";
    }
    return bundle;
}

}  // namespace reader
