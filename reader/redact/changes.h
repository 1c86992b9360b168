#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bytes.h"
#include "sink.h"

namespace reader {

// What was written in the place of what: with it, the original comes back to the byte, whatever the
// bytes are.
struct Changes {
    struct Place {
        uint64_t at;  // in what was written
        uint32_t spelling;
    };
    // Of originals that are kept; what is beyond isn't, and complete is false from then on.
    static constexpr size_t kMostBytes = size_t{256} << 20;

    std::vector<Place> places;                                   // in their order
    std::vector<std::pair<std::string, std::string>> spellings;  // written, original
    bool complete = true;
    uint64_t size = 0;  // of what was written

    uint32_t Spell(std::string_view written, std::string_view original);

  private:
    std::unordered_map<std::string, uint32_t> known_;
    size_t bytes_ = 0;
};

// What is written, and what it is in the place of. Without a sink nothing is.
class Output {
  public:
    // The changes are kept where `spellings` isn't null.
    Output(Sink sink, Changes* spellings) : sink_(std::move(sink)), changes_(spellings) {}

    bool writes() const { return static_cast<bool>(sink_); }
    void Write(std::string_view bytes);
    void Replace(std::string_view written, std::string_view original);
    // Of the same length: only where they differ.
    void ReplaceDifferences(std::string_view written, std::string_view original);
    // The same of what may be large.
    void ReplaceAll(Spool& written, Spool& original);
    void Copy(Spool& bytes);
    // What another one has gathered, changes and all.
    void Append(Spool& bytes, const Output& from);

    uint64_t size() const { return size_; }
    bool failed() const { return failed_; }
    bool changed() const { return changed_; }
    Changes* spellings() const { return changes_; }
    std::vector<Changes::Place>& places() { return places_; }

  private:
    void Put(std::string_view bytes);

    const Sink sink_;
    Changes* const changes_;
    std::vector<Changes::Place> places_;
    uint64_t size_ = 0;
    bool failed_ = false;
    bool changed_ = false;
};

// Takes the bytes back to what they were. False when they aren't those that the changes are of,
// which the first of them tell that differ.
bool Undo(ByteSource& from, const Changes& changes, const Sink& sink);

}  // namespace reader
