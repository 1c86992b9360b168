#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "identifier.h"
#include "notation.h"
#include "values.h"

namespace reader {

// Finds identifiers in bytes: those that are known, in all their notations, and what looks like
// one.
class Scanner {
  public:
    enum class What { kKnown, kPattern, kStandIn, kSensorRecord, kWornRecord };
    struct Hit {
        size_t begin;  // within the text
        size_t end;
        What what;
        Kind kind{};                         // of a pattern
        std::string text{};                  // of a pattern or stand-in: the value, decoded
        uint32_t form = 0;                   // of a known value
        bool bytes = false;                  // a known one that stands there as bytes
        const Notation* notation = nullptr;  // valid until the next Scan()
        size_t first = 0;                    // where in it
        size_t last = 0;

        bool IsRecord() const { return what == What::kSensorRecord || what == What::kWornRecord; }
    };

    // The values are the caller's, and may change between two calls.
    explicit Scanner(const Values& values);

    // What there is in the text, in order, none within another. No hit is longer than kLongest, nor
    // is it judged by more than that around it. With `records`, lines of the sensors are told,
    // those that follow one another together, and nothing is looked for within them.
    static constexpr size_t kLongest = 4096;
    const std::vector<Hit>& Scan(std::string_view text, bool records);

    // What the hit's place is to hold instead, in its notation. Before the next Scan().
    std::string Write(const Hit& hit, std::string_view stand_in) const;

  private:
    struct Engine;
    static const Engine& TheEngine();

    void ScanSegment(std::string_view text, size_t offset);
    void ScanNotation(const Notation& notation);
    void FindPatterns(const Notation& notation);
    size_t TryPatterns(const Notation& notation, size_t at);
    void FindKnown(const Notation& notation);
    void AddKnown(const Notation& notation, size_t begin, size_t end, uint32_t form);
    void Add(Hit&& hit);

    const Values& values_;
    const Engine& engine_;
    std::string_view scanned_;
    std::deque<Notation> notations_;
    std::vector<Hit> hits_;
    std::string folded_;
    std::string skeleton_;
    std::vector<uint32_t> skeleton_at_;
};

}  // namespace reader
