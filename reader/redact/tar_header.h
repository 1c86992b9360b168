#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace reader {

// One block of a tar archive, as it stands there: what is not set stays as it is, to the byte.
class TarHeader {
  public:
    static constexpr size_t kBlock = 512;

    enum class Field { kName, kLink, kOwner, kGroup };
    static constexpr Field kTexts[] = {Field::kName, Field::kLink, Field::kOwner, Field::kGroup};

    // Nothing where the block is none: its checksum is wrong, or it has a size that can't be.
    static std::optional<TarHeader> Parse(std::string_view block);
    // Of PAX records for the member that follows.
    static TarHeader ForRecords(uint64_t size);

    const std::string& block() const { return block_; }
    char type() const { return block_[156]; }
    // Of what follows the header: 0 where the type has nothing.
    uint64_t size() const;
    void SetSize(uint64_t size);

    // A name with its prefix.
    std::string Text(Field field) const;
    // False where it has no room, and holds what there is room for.
    bool SetText(Field field, std::string_view text);
    // The checksum, after all else is set.
    void Seal();

  private:
    explicit TarHeader(std::string_view block) : block_(block) {}
    bool is_pax() const { return block_.compare(257, 6, std::string_view("ustar\0", 6)) == 0; }

    std::string block_;
};

// "LENGTH key=value\n", one after the other.
struct PaxRecord {
    std::string key;
    std::string value;
};
// Nothing where they are none.
std::optional<std::vector<PaxRecord>> ParsePax(std::string_view records);
std::string FormatPax(const std::vector<PaxRecord>& records);

}  // namespace reader
