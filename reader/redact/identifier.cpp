#include "identifier.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

namespace reader {
namespace {

constexpr std::array<std::string_view, kKinds> kNames = {
        "serial", "imei",  "imsi", "iccid",    "phone",   "mac",      "ipv4",
        "ipv6",   "email", "ssid", "location", "account", "path-user"};

constexpr std::string_view kCommonWords[] = {
        "added",     "admin",     "administrator", "all",     "android",  "anonymous", "any",
        "bluetooth", "build",     "bluetoothle",   "config",  "console",  "daemon",    "default",
        "device",    "disabled",  "emulated",      "enabled", "error",    "failed",    "failure",
        "false",     "google",    "guest",         "hidden",  "internet", "invalid",   "kernel",
        "local",     "media",     "modem",         "network", "nobody",   "none",      "null",
        "office",    "owner",     "private",       "product", "public",   "radio",     "removed",
        "root",      "runner",    "service",       "shared",  "shell",    "success",   "system",
        "true",      "undefined", "unknown",       "unset",   "user",     "username",  "users",
        "vendor",    "wifi",      "wireless"};

// The addresses that documents and tests may use, of which none is a device's.
std::string Ipv4StandIn(uint32_t number) {
    constexpr uint32_t kNets[] = {0xC0000200, 0xC6336400, 0xCB007100};  // 192.0.2.0 and so on
    constexpr uint32_t kHosts = 254;
    const uint32_t net = (number - 1) / kHosts;
    const uint32_t address = net < std::size(kNets)
                                     ? kNets[net] + (number - 1) % kHosts + 1
                                     : 0xC6120000 + number;  // 198.18.0.0/15 and behind it
    std::array<char, 16> text;
    std::snprintf(text.data(), text.size(), "%u.%u.%u.%u", address >> 24, address >> 16 & 0xff,
                  address >> 8 & 0xff, address & 0xff);
    return text.data();
}

bool AllTheSame(std::string_view text) {
    return text.find_first_not_of(text.substr(0, 1)) == std::string_view::npos;
}

}  // namespace

std::string_view KindName(Kind kind) {
    return kNames[static_cast<size_t>(kind)];
}

std::optional<Kind> KindNamed(std::string_view name) {
    const auto at = std::ranges::find(kNames, name);
    if (at == kNames.end()) return {};
    return static_cast<Kind>(at - kNames.begin());
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](char c) { return Lower(c); });
    return lower;
}

std::string DigitsOf(std::string_view text) {
    std::string digits;
    std::ranges::copy_if(text, std::back_inserter(digits), IsDigit);
    return digits;
}

std::string ReversedBytes(std::string_view digits) {
    std::string reversed;
    for (size_t i = digits.size(); i >= 2; i -= 2) reversed += digits.substr(i - 2, 2);
    return reversed;
}

std::string BytesOf(std::string_view digits) {
    std::string bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        unsigned byte = 0;
        std::from_chars(&digits[i], &digits[i] + 2, byte, 16);
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

std::string HexOfAddress(const std::string& text) {
    std::array<unsigned char, sizeof(in6_addr)> address{};
    if (inet_pton(AF_INET6, text.c_str(), address.data()) != 1) return "";
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    for (const unsigned char byte : address) {
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 15];
    }
    return hex;
}

bool IsCommonWord(std::string_view word) {
    return std::ranges::find(kCommonWords, word) != std::end(kCommonWords);
}

std::string Canonical(Kind kind, std::string_view text) {
    std::string canonical;
    switch (kind) {
        case Kind::kMac:
            std::ranges::copy_if(text, std::back_inserter(canonical), IsHex);
            return Lower(canonical);
        case Kind::kImei:
        case Kind::kImsi:
        case Kind::kIccid:
        case Kind::kPhone:
            canonical = DigitsOf(text);
            return canonical.empty() ? std::string(text) : canonical;
        case Kind::kIpv6: {
            std::array<unsigned char, sizeof(in6_addr)> address;
            std::array<char, INET6_ADDRSTRLEN> shortest;
            const std::string whole(text);
            if (inet_pton(AF_INET6, whole.c_str(), address.data()) != 1) return Lower(text);
            return inet_ntop(AF_INET6, address.data(), shortest.data(), shortest.size());
        }
        case Kind::kSerial:
        case Kind::kEmail:
        case Kind::kAccount:
            return Lower(text);
        default:
            return std::string(text);
    }
}

std::string StandIn(Kind kind, uint32_t number) {
    std::array<char, 32> text;
    switch (kind) {
        case Kind::kMac:
            std::snprintf(text.data(), text.size(), "02:00:%02x:%02x:%02x:%02x", number >> 24,
                          number >> 16 & 0xff, number >> 8 & 0xff, number & 0xff);
            return text.data();
        case Kind::kIpv4:
            return Ipv4StandIn(number);
        case Kind::kIpv6:
            std::snprintf(text.data(), text.size(), "2001:db8::%x:%x", number >> 16,
                          number & 0xffff);
            return Canonical(kind, text.data());
        case Kind::kEmail:
            return "user" + std::to_string(number) + "@example.invalid";
        default:
            return std::string(KindName(kind)) + "-" + std::to_string(number);
    }
}

bool IsOnlyStandIn(Kind kind, std::string_view text) {
    if (kind == Kind::kMac || kind == Kind::kIpv4 || kind == Kind::kIpv6) return false;
    constexpr std::string_view kDigits = "0123456789";
    const std::string first = StandIn(kind, 1);
    const size_t number = first.find('1');
    const std::string_view end = std::string_view(first).substr(number + 1);
    if (text.size() <= first.size() - 1 || !text.starts_with(first.substr(0, number)) ||
        !text.ends_with(end))
        return false;
    text = text.substr(number, text.size() - number - end.size());
    return !text.empty() && text.find_first_not_of(kDigits) == std::string_view::npos;
}

Reach ReachOf(Kind kind, std::string_view canonical) {
    constexpr size_t kShortest = 6;
    constexpr size_t kPlainWord = 8;  // a shorter one of small letters alone may be any word
    switch (kind) {
        case Kind::kSerial:
            return canonical.size() < kShortest || AllTheSame(canonical) ||
                                   std::ranges::none_of(canonical, IsDigit)
                           ? Reach::kNowhere
                           : Reach::kAnywhere;
        case Kind::kPhone:
            return canonical.size() < 9 ? Reach::kWhereFound : Reach::kAnywhere;
        case Kind::kSsid:
        case Kind::kAccount:
        case Kind::kPathUser: {
            const bool plain = std::ranges::all_of(canonical, [](char c) { return IsLetter(c); });
            return canonical.size() < kShortest || IsCommonWord(Lower(canonical)) ||
                                   (plain && canonical.size() < kPlainWord)
                           ? Reach::kWhereFound
                           : Reach::kAnywhere;
        }
        case Kind::kLocation:  // a sensor's value may be the same number
        case Kind::kIpv4:      // a version may be the same numbers
            return Reach::kWhereFound;
        default:
            return Reach::kAnywhere;
    }
}

}  // namespace reader
