#include "tar_header.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <limits>
#include <span>

namespace reader {
namespace {

struct Extent {
    size_t at;
    size_t size;
};
constexpr Extent kName{0, 100};
constexpr Extent kSize{124, 12};
constexpr Extent kChecksum{148, 8};
constexpr Extent kLink{157, 100};
constexpr Extent kOwner{265, 32};
constexpr Extent kGroup{297, 32};
constexpr Extent kPrefix{345, 155};

Extent ExtentOf(TarHeader::Field field) {
    constexpr Extent kExtents[] = {kName, kLink, kOwner, kGroup};
    return kExtents[static_cast<size_t>(field)];
}

std::string_view UpToZero(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

// Octal with blanks around it, or big-endian behind a set bit where that has no room.
std::optional<uint64_t> ParseNumber(std::string_view field) {
    if ((static_cast<unsigned char>(field[0]) & 0x80) != 0) {
        uint64_t number = static_cast<unsigned char>(field[0]) & 0x7f;
        for (const char c : field.substr(1)) {
            if (number >> 55 != 0) return {};
            number = number << 8 | static_cast<unsigned char>(c);
        }
        return number;
    }
    field = UpToZero(field);
    while (field.starts_with(' ')) field.remove_prefix(1);
    while (field.ends_with(' ')) field.remove_suffix(1);
    uint64_t number = 0;
    if (field.empty()) return 0;
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), number, 8);
    if (error != std::errc() || end != field.data() + field.size()) return {};
    return number;
}

uint32_t Checksum(std::string_view block) {
    uint32_t sum = 0;
    for (size_t i = 0; i < block.size(); ++i) {
        const bool own = i >= kChecksum.at && i < kChecksum.at + kChecksum.size;
        sum += own ? uint32_t{' '} : static_cast<unsigned char>(block[i]);
    }
    return sum;
}

}  // namespace

std::optional<TarHeader> TarHeader::Parse(std::string_view block) {
    if (block.size() != kBlock) return {};
    const auto sum = ParseNumber(block.substr(kChecksum.at, kChecksum.size));
    const auto size = ParseNumber(block.substr(kSize.at, kSize.size));
    constexpr uint64_t kMost = uint64_t{1} << 62;
    if (!sum || *sum != Checksum(block) || !size || *size > kMost) return {};
    return TarHeader(block);
}

TarHeader TarHeader::ForRecords(uint64_t size) {
    TarHeader header(std::string(kBlock, '\0'));
    header.SetText(Field::kName, "PaxHeaders/long");
    header.block_.replace(100, 8, std::string_view("0000600\0", 8));
    for (const size_t at : {size_t{108}, size_t{116}}) {
        header.block_.replace(at, 8, std::string_view("0000000\0", 8));
    }
    header.block_.replace(136, 12, std::string_view("00000000000\0", 12));
    header.block_[156] = 'x';
    header.block_.replace(257, 8,
                          std::string_view("ustar\0"
                                           "00",
                                           8));
    header.SetSize(size);
    header.Seal();
    return header;
}

uint64_t TarHeader::size() const {
    // Links, devices, folders and FIFOs have no bytes, whatever size they give.
    if (type() >= '1' && type() <= '6') return 0;
    return ParseNumber(std::string_view(block_).substr(kSize.at, kSize.size)).value_or(0);
}

void TarHeader::SetSize(uint64_t size) {
    constexpr uint64_t kMostOctal = (uint64_t{1} << 33) - 1;
    if (size > kMostOctal) {
        for (size_t i = 0; i < kSize.size; ++i, size >>= 8) {
            block_[kSize.at + kSize.size - 1 - i] = static_cast<char>(size & 0xff);
        }
        block_[kSize.at] = static_cast<char>(0x80);
        return;
    }
    std::array<char, kSize.size> octal;
    std::snprintf(octal.data(), octal.size(), "%011llo", static_cast<unsigned long long>(size));
    block_.replace(kSize.at, kSize.size - 1, octal.data(), kSize.size - 1);
    if (block_[kSize.at + kSize.size - 1] != ' ') block_[kSize.at + kSize.size - 1] = '\0';
}

std::string TarHeader::Text(Field field) const {
    const Extent extent = ExtentOf(field);
    std::string text(UpToZero(std::string_view(block_).substr(extent.at, extent.size)));
    if (field == Field::kName && is_pax()) {
        const auto prefix = UpToZero(std::string_view(block_).substr(kPrefix.at, kPrefix.size));
        if (!prefix.empty()) text = std::string(prefix) + "/" + text;
    }
    return text;
}

bool TarHeader::SetText(Field field, std::string_view text) {
    const Extent extent = ExtentOf(field);
    std::string_view prefix;
    if (field == Field::kName && is_pax()) {
        if (text.size() > extent.size) {
            const size_t slash = text.find('/', text.size() - extent.size - 1);
            if (slash != std::string_view::npos && slash > 0 && slash <= kPrefix.size &&
                slash + 1 < text.size()) {
                prefix = text.substr(0, slash);
                text.remove_prefix(slash + 1);
            }
        }
        std::string field_bytes(prefix);
        field_bytes.resize(kPrefix.size);
        block_.replace(kPrefix.at, kPrefix.size, field_bytes);
    }
    std::string field_bytes(text.substr(0, extent.size));
    field_bytes.resize(extent.size);
    block_.replace(extent.at, extent.size, field_bytes);
    return text.size() <= extent.size;
}

void TarHeader::Seal() {
    std::array<char, kChecksum.size> octal;
    std::snprintf(octal.data(), octal.size(), "%06o", Checksum(block_));
    octal[7] = ' ';
    block_.replace(kChecksum.at, kChecksum.size, octal.data(), octal.size());
}

std::optional<std::vector<PaxRecord>> ParsePax(std::string_view records) {
    std::vector<PaxRecord> parsed;
    while (!records.empty() && records.front() != '\0') {
        size_t length = 0;
        const auto [end, error] =
                std::from_chars(records.data(), records.data() + records.size(), length);
        const size_t digits = static_cast<size_t>(end - records.data());
        if (error != std::errc() || length > records.size() || length < digits + 3 ||
            records[digits] != ' ' || records[length - 1] != '\n') {
            return {};
        }
        const std::string_view record = records.substr(digits + 1, length - digits - 2);
        const size_t equals = record.find('=');
        if (equals == std::string_view::npos) return {};
        parsed.push_back(
                {std::string(record.substr(0, equals)), std::string(record.substr(equals + 1))});
        records.remove_prefix(length);
    }
    return parsed;
}

std::string FormatPax(const std::vector<PaxRecord>& records) {
    std::string text;
    for (const PaxRecord& record : records) {
        // The length counts its own digits.
        const size_t rest = record.key.size() + record.value.size() + 3;
        size_t length = rest + 1;
        while (length != rest + std::to_string(length).size()) ++length;
        text += std::to_string(length) + " " + record.key + "=" + record.value + "\n";
    }
    return text;
}

}  // namespace reader
