#include "values.h"

#include <re2/re2.h>

#include <algorithm>
#include <tuple>

#include "patterns.h"

namespace reader {
namespace {

// What has as many letters and digits is itself, with whatever between them; shorter ones may come
// about by chance.
constexpr size_t kLongSkeleton = 10;

std::string Skeleton(std::string_view text) {
    std::string skeleton;
    std::ranges::copy_if(text, std::back_inserter(skeleton), IsAlnum);
    return Lower(skeleton);
}

// As a SIM and a modem store it: the digits of each byte swapped.
std::string Swapped(std::string digits) {
    if (digits.size() % 2 != 0) digits += 'f';
    for (size_t i = 0; i < digits.size(); i += 2) std::swap(digits[i], digits[i + 1]);
    return digits;
}

// The kind that a pattern takes the whole of it for.
Kind KindOf(std::string_view text) {
    for (const Pattern& pattern : Patterns()) {
        const re2::RE2 regex(pattern.regex, re2::RE2::Latin1);
        Candidate candidate{text, 0, 0, text.size()};
        if (regex.NumberOfCapturingGroups() == 0 &&
            re2::RE2::FullMatch({text.data(), text.size()}, regex) && pattern.judge(candidate) &&
            candidate.value() == text) {
            return pattern.kind;
        }
    }
    return Kind::kAccount;
}

}  // namespace

uint32_t Values::Learn(Kind kind, std::string_view text) {
    const auto [known, is_new] = by_canonical_.emplace(Canonical(kind, text), values_.size());
    if (is_new) values_.push_back({kind, std::string(text), ""});
    ++values_[known->second].found;
    return known->second;
}

void Values::LearnNamed(std::string_view text) {
    if (text.size() < KeySet::kShortest) return Refuse(Kind::kAccount, text);
    values_[Learn(KindOf(text), text)].named = true;
}

void Values::Remember(Kind kind, const std::string& text, const std::string& stand_in) {
    values_[Learn(kind, text)].stand_in = stand_in;
    stand_ins_.insert(Canonical(kind, stand_in));
}

void Values::ForgetPlaces() {
    for (Value& value : values_) value.places = 0;
}

const std::string& Values::StandInOf(uint32_t number) {
    Value& value = values_[number];
    while (value.stand_in.empty()) {
        const std::string next = StandIn(value.kind, ++numbers_[static_cast<size_t>(value.kind)]);
        const std::string canonical = Canonical(value.kind, next);
        if (avoided_.contains(next) || by_canonical_.contains(canonical)) continue;
        if (stand_ins_.insert(canonical).second) value.stand_in = next;
    }
    return value.stand_in;
}

uint32_t Values::AddForm(uint32_t value, bool reversed, bool borders) {
    forms_.push_back({value, reversed, borders});
    return static_cast<uint32_t>(forms_.size() - 1);
}

void Values::AddSkeleton(const std::string& skeleton, uint32_t value, bool reversed) {
    const bool borders = std::ranges::all_of(skeleton, IsDigit) || skeleton.size() < kLongSkeleton;
    skeletons_.Add(skeleton, AddForm(value, reversed, borders));
}

// An address that was found in both orders of its bytes is one value: the one that can be a
// device's, or else that was found more often.
void Values::MergeBackwards() {
    constexpr std::string_view kToMany = "13579bdf";  // the second digit of an address of several
    for (uint32_t number = 0; number < values_.size(); ++number) {
        Value& value = values_[number];
        if (value.kind != Kind::kMac || value.backwards) continue;
        const std::string canonical = Canonical(value.kind, value.text);
        const auto known = by_canonical_.find(ReversedBytes(canonical));
        if (known == by_canonical_.end() || known->second == number) continue;
        Value& other = values_[known->second];
        const auto rank = [&](const Value& its) {
            const bool one =
                    kToMany.find(Canonical(its.kind, its.text)[1]) == std::string_view::npos;
            return std::tuple(!its.stand_in.empty(), one, its.found);
        };
        if (other.kind != Kind::kMac || other.backwards || rank(other) > rank(value)) continue;
        other.backwards = true;
        known->second = number;
    }
}

void Values::Expand() {
    MergeBackwards();
    texts_ = {};
    skeletons_ = {};
    bytes_ = {};
    forms_.clear();
    for (uint32_t number = 0; number < values_.size(); ++number) ExpandOne(number);
}

void Values::ExpandOne(uint32_t number) {
    const Value& value = values_[number];
    if (value.backwards) return;
    const std::string canonical = Canonical(value.kind, value.text);
    if (!value.named && ReachOf(value.kind, canonical) != Reach::kAnywhere) return;
    switch (value.kind) {
        case Kind::kMac: {
            const std::string reversed = ReversedBytes(canonical);
            AddSkeleton(canonical, number, false);
            AddSkeleton(reversed, number, true);
            bytes_.Add(BytesOf(canonical), AddForm(number, false, false));
            bytes_.Add(BytesOf(reversed), AddForm(number, true, false));
            return;
        }
        case Kind::kIpv6: {
            const std::string hex = HexOfAddress(value.text);
            if (hex.empty()) return;
            AddSkeleton(hex, number, false);
            AddSkeleton(ReversedBytes(hex), number, true);
            bytes_.Add(BytesOf(hex), AddForm(number, false, false));
            return;
        }
        case Kind::kImei:
        case Kind::kImsi:
        case Kind::kIccid:
            AddSkeleton(canonical, number, false);
            AddSkeleton(Swapped(canonical), number, true);
            return;
        case Kind::kPhone:
            if (canonical.size() >= kLongSkeleton) return AddSkeleton(canonical, number, false);
            break;
        case Kind::kSerial: {
            const std::string skeleton = Skeleton(canonical);
            if (skeleton.size() >= kLongSkeleton) AddSkeleton(skeleton, number, false);
            if (skeleton.size() >= 8 && skeleton.size() % 2 == 0 &&
                std::ranges::all_of(skeleton, IsHex)) {
                AddSkeleton(ReversedBytes(skeleton), number, true);
            }
            break;
        }
        default:
            break;
    }
    const bool name = value.kind != Kind::kSerial && value.kind != Kind::kPhone;
    const bool plain = std::ranges::all_of(canonical, IsDigit) || canonical.size() < 8;
    texts_.Add(Lower(canonical), AddForm(number, false, name || plain));
}

}  // namespace reader
