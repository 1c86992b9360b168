#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace reader {

// What identifies a device or a person.
enum class Kind : uint8_t {
    kSerial,
    kImei,
    kImsi,
    kIccid,
    kPhone,
    kMac,
    kIpv4,
    kIpv6,
    kEmail,
    kSsid,
    kLocation,
    kAccount,
    kPathUser,
};
inline constexpr size_t kKinds = 13;

// "serial", as it is named on the command line and in stand-ins.
std::string_view KindName(Kind kind);
std::optional<Kind> KindNamed(std::string_view name);

// The one text for all notations of a value: a MAC as 12 lower-case hexadecimal digits, numbers as
// their digits, an IPv6 address in its short form, names without regard to case where none is kept.
std::string Canonical(Kind kind, std::string_view text);

// The number-th stand-in of a kind, from 1: "serial-1", "02:00:00:00:00:01", "192.0.2.1".
std::string StandIn(Kind kind, uint32_t number);

// Whether no device's and no person's identifier looks like this, but a stand-in does. Addresses of
// stand-ins may be real ones.
bool IsOnlyStandIn(Kind kind, std::string_view text);

// Where a value is replaced.
enum class Reach {
    kNowhere,     // too short or too common, wherever it stands
    kWhereFound,  // only where a pattern finds it: elsewhere it may be a word like any other
    kAnywhere,
};
Reach ReachOf(Kind kind, std::string_view canonical);

// A word that logs are full of: "root", "unknown", "guest". In lower case.
bool IsCommonWord(std::string_view word);

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool IsAlnum(char c) {
    return IsDigit(c) || IsLetter(c);
}
constexpr bool IsHex(char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
constexpr char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}
std::string Lower(std::string_view text);
std::string DigitsOf(std::string_view text);
// Of pairs of hexadecimal digits: the last pair first, and the bytes that they stand for.
std::string ReversedBytes(std::string_view digits);
std::string BytesOf(std::string_view digits);
// The digits of an IPv6 address, all 32; "" when it is none.
std::string HexOfAddress(const std::string& text);

}  // namespace reader
