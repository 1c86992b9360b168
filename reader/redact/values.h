#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "identifier.h"
#include "key_set.h"

namespace reader {

// What is to be replaced, and by what.
class Values {
  public:
    struct Value {
        Kind kind;
        std::string text;  // as it was found first
        std::string stand_in;
        uint64_t places = 0;
        uint64_t found = 0;
        bool named = false;      // by its owner
        bool backwards = false;  // another's, in the other order of its bytes
    };
    // One way in which a value may be written.
    struct Form {
        uint32_t value;
        bool reversed;  // the order of its bytes, or of the digits in them
        bool borders;   // only as a word of its own
    };
    // A hostile input may make up as many as it likes.
    static constexpr size_t kMost = 1'000'000;

    // The value's number. Its stand-in is chosen when it is first asked for.
    uint32_t Learn(Kind kind, std::string_view text);
    // What its owner names: of the kind that it looks like, or an account. It is replaced wherever
    // it stands as a word of its own, unless it is very short.
    void LearnNamed(std::string_view text);
    // With a stand-in from an earlier time.
    void Remember(Kind kind, const std::string& text, const std::string& stand_in);
    // What was named as an identifier, but is too short or too common.
    void Refuse(Kind kind, std::string_view text) { refused_.emplace(kind, text); }
    // This can't be a stand-in, as it is there already.
    void Avoid(std::string_view text) { avoided_.emplace(text); }

    const std::vector<Value>& all() const { return values_; }
    const std::set<std::pair<Kind, std::string>>& refused() const { return refused_; }
    bool full() const { return values_.size() >= kMost; }
    void CountPlace(uint32_t value) { ++values_[value].places; }
    void ForgetPlaces();

    const std::string& StandInOf(uint32_t value);
    bool IsStandIn(std::string_view canonical) const {
        return stand_ins_.contains(std::string(canonical));
    }

    // How they may be written: as they are, but for case; as letters and digits, whatever stands
    // between those; as bytes.
    void Expand();
    const KeySet& texts() const { return texts_; }
    const KeySet& skeletons() const { return skeletons_; }
    const KeySet& bytes() const { return bytes_; }
    const Form& form(uint32_t number) const { return forms_[number]; }

  private:
    void MergeBackwards();
    void ExpandOne(uint32_t number);
    void AddSkeleton(const std::string& skeleton, uint32_t value, bool reversed);
    uint32_t AddForm(uint32_t value, bool reversed, bool borders);

    std::vector<Value> values_;
    std::unordered_map<std::string, uint32_t> by_canonical_;
    std::set<std::pair<Kind, std::string>> refused_;
    std::set<std::string, std::less<>> avoided_;
    std::set<std::string> stand_ins_;  // canonical
    std::array<uint32_t, kKinds> numbers_{};
    std::vector<Form> forms_;
    KeySet texts_;
    KeySet skeletons_;
    KeySet bytes_;
};

}  // namespace reader
