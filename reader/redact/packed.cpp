#include "packed.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>

namespace reader {
namespace {

constexpr size_t kPiece = size_t{64} * 1024;

// Logs shrink to a twentieth. What grows by more than this, and beyond what any log has, is made
// to.
constexpr uint64_t kMostGrowth = 300;
constexpr uint64_t kHarmless = uint64_t{64} << 20;

std::string Message(archive* any, const char* otherwise) {
    const char* const message = archive_error_string(any);
    return message == nullptr ? otherwise : message;
}

la_ssize_t Give(archive* /*writer*/, void* sink, const void* bytes, size_t size) {
    const auto& give = *static_cast<const Sink*>(sink);
    return give({static_cast<const char*>(bytes), size}) ? static_cast<la_ssize_t>(size) : -1;
}

}  // namespace

Packing PackingOf(std::string_view beginning) {
    using namespace std::string_view_literals;
    if (beginning.starts_with("\x1f\x8b\x08"sv)) return Packing::kGzip;
    if (beginning.starts_with("\xfd"
                              "7zXZ\0"sv)) {
        return Packing::kXz;
    }
    if (beginning.starts_with("\x28\xb5\x2f\xfd"sv)) return Packing::kZstd;
    return Packing::kNone;
}

UnpackedBytes::UnpackedBytes(ByteSource& packed, uint64_t packed_size)
    : packed_(packed),
      most_(std::max(kHarmless, packed_size * kMostGrowth)),
      reader_(archive_read_new(), archive_read_free) {
    archive* const reader = reader_.get();
    archive_read_support_filter_gzip(reader);
    archive_read_support_filter_xz(reader);
    archive_read_support_filter_zstd(reader);
    archive_read_support_format_raw(reader);
    archive_read_support_format_empty(reader);
    archive_entry* entry = nullptr;
    if (archive_read_open(reader, this, nullptr, Take, nullptr) != ARCHIVE_OK) {
        error_ = Message(reader, "it can't be unpacked");
        return;
    }
    const int result = archive_read_next_header(reader, &entry);
    empty_ = result == ARCHIVE_EOF;  // after which it may not be asked
    if (result != ARCHIVE_OK && result != ARCHIVE_EOF)
        error_ = Message(reader, "it can't be unpacked");
}

UnpackedBytes::~UnpackedBytes() = default;

ssize_t UnpackedBytes::Take(archive* /*reader*/, void* self, const void** bytes) {
    const std::string_view piece = static_cast<UnpackedBytes*>(self)->packed_.Read(kPiece);
    *bytes = piece.data();
    return static_cast<ssize_t>(piece.size());
}

std::string_view UnpackedBytes::Read(size_t most) {
    if (!error_.empty() || empty_) return {};
    buffer_.resize(most);
    const la_ssize_t size = archive_read_data(reader_.get(), buffer_.data(), most);
    if (size < 0) {
        error_ = Message(reader_.get(), "it can't be unpacked");
        return {};
    }
    given_ += static_cast<uint64_t>(size);
    if (given_ > most_) {
        error_ = "it unpacks to far more than a log would";
        return {};
    }
    return {buffer_.data(), static_cast<size_t>(size)};
}

std::string Pack(ByteSource& bytes, Packing packing, const Sink& sink) {
    const std::unique_ptr<archive, int (*)(archive*)> writer(archive_write_new(),
                                                             archive_write_free);
    switch (packing) {
        case Packing::kGzip:
            archive_write_add_filter_gzip(writer.get());
            archive_write_set_filter_option(writer.get(), "gzip", "timestamp", nullptr);
            break;
        case Packing::kXz:
            archive_write_add_filter_xz(writer.get());
            break;
        case Packing::kZstd:
            archive_write_add_filter_zstd(writer.get());
            break;
        case Packing::kNone:
            archive_write_add_filter_none(writer.get());
            break;
    }
    archive_write_set_format_raw(writer.get());
    archive_write_set_bytes_in_last_block(writer.get(), 1);
    Sink give = sink;
    const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(),
                                                                         archive_entry_free);
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    bool good = archive_write_open(writer.get(), &give, nullptr, Give, nullptr) == ARCHIVE_OK &&
                archive_write_header(writer.get(), entry.get()) == ARCHIVE_OK;
    while (good) {
        const std::string_view piece = bytes.Read(kPiece);
        if (piece.empty()) break;
        good = archive_write_data(writer.get(), piece.data(), piece.size()) >= 0;
    }
    good = good && archive_write_close(writer.get()) == ARCHIVE_OK;
    return good ? "" : Message(writer.get(), "it can't be packed again");
}

}  // namespace reader
