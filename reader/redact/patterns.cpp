#include "patterns.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace reader {
namespace {

using Words = std::initializer_list<std::string_view>;

bool IsOneOf(std::string_view word, Words words) {
    return std::ranges::find(words, word) != words.end();
}

// The words of the name before the value, as in "firmware.version]: [", in lower case: whether one
// of them is among these.
bool IsNamed(const Candidate& candidate, Words words) {
    constexpr std::string_view kBetween = " \t=:\"'[](<#";
    constexpr size_t kFar = 40;
    size_t end = candidate.begin;
    const size_t least = end - std::min(end, kFar);
    while (end > least && kBetween.find(candidate.text[end - 1]) != std::string_view::npos) --end;
    std::string word;
    bool found = false;
    const auto take = [&] {
        std::ranges::reverse(word);
        found = found || IsOneOf(Lower(word), words);
        word.clear();
    };
    for (; end > least; --end) {
        const char c = candidate.text[end - 1];
        if (IsLetter(c)) {
            word += c;
            // "versionName" is two words.
            if (c >= 'A' && c <= 'Z' && end >= 2 && !(candidate.text[end - 2] <= 'Z')) take();
        } else if (c == '.' || c == '_' || c == '-') {
            take();
        } else {
            break;
        }
    }
    take();
    return found;
}

bool HasUnit(const Candidate& candidate) {
    size_t begin = candidate.end;
    if (candidate.at(begin) == ' ') ++begin;
    size_t end = begin;
    while (IsLetter(candidate.at(end))) ++end;
    return IsOneOf(
            Lower(candidate.text.substr(std::min(begin, candidate.text.size()), end - begin)),
            {"ns",  "us",  "ms", "s",  "nsec", "usec", "msec", "sec",   "seconds", "hz",
             "khz", "mhz", "b",  "kb", "mb",   "kib",  "mib",  "bytes", "ticks",   "cycles",
             "ppm", "mv",  "uv", "ma", "ua",   "mah",  "uah",  "pct"});
}

bool IsTimeOrAmount(const Candidate& candidate) {
    return HasUnit(candidate) || IsNamed(candidate, {"time",
                                                     "ts",
                                                     "timestamp",
                                                     "stamp",
                                                     "ns",
                                                     "nsec",
                                                     "nanos",
                                                     "clock",
                                                     "uptime",
                                                     "elapsed",
                                                     "elapsedrealtime",
                                                     "delta",
                                                     "offset",
                                                     "adj",
                                                     "drift",
                                                     "tick",
                                                     "ticks",
                                                     "latency",
                                                     "duration",
                                                     "bytes",
                                                     "count",
                                                     "size",
                                                     "seq",
                                                     "counter"});
}

// No letter, digit or part of a longer number stands beside it.
bool StandsAlone(const Candidate& candidate) {
    const char before = candidate.before(candidate.begin);
    const char after = candidate.at(candidate.end);
    const bool fraction =
            before == '.' && candidate.begin > 1 && IsDigit(candidate.text[candidate.begin - 2]);
    const bool integer = after == '.' && IsDigit(candidate.at(candidate.end + 1));
    return !IsAlnum(before) && !IsAlnum(after) && !fraction && !integer;
}

// The name that a match begins with isn't the end of a longer word: "tel" but not "hotel"; of
// "deviceSerial" it is a word of its own.
bool NameBegins(const Candidate& candidate) {
    const char before = candidate.before(candidate.match);
    const char first = candidate.at(candidate.match);
    if (!IsAlnum(before)) return true;
    return before >= 'a' && before <= 'z' && first >= 'A' && first <= 'Z';
}

bool HasLuhnDigit(std::string_view digits) {
    unsigned sum = 0;
    bool twice = false;
    for (size_t i = digits.size(); i-- > 0; twice = !twice) {
        unsigned digit = static_cast<unsigned>(digits[i] - '0');
        if (twice) digit = digit * 2 > 9 ? digit * 2 - 9 : digit * 2;
        sum += digit;
    }
    return sum % 10 == 0;
}

bool IsImei(Candidate& candidate) {
    const std::string digits = DigitsOf(candidate.value());
    // Who gives out the numbers of devices that there are.
    return digits.size() == 15 && StandsAlone(candidate) &&
           candidate.before(candidate.begin) != '+' &&
           IsOneOf(std::string_view(digits).substr(0, 2),
                   {"01", "33", "35", "44", "45", "49", "50", "51", "52", "53", "86", "91", "98",
                    "99"}) &&
           HasLuhnDigit(digits) && !IsTimeOrAmount(candidate);
}

bool IsIccid(Candidate& candidate) {
    const std::string digits = DigitsOf(candidate.value());
    return (digits.size() == 19 || digits.size() == 20) && digits.starts_with("89") &&
           StandsAlone(candidate) && HasLuhnDigit(digits) && !IsTimeOrAmount(candidate);
}

// Named as what it is, and of a length that it may have.
bool IsNamedNumber(Candidate& candidate) {
    return NameBegins(candidate) && !IsAlnum(candidate.at(candidate.end));
}

bool IsProperty(Candidate& candidate) {
    return !IsCommonWord(Lower(candidate.value()));
}

bool IsMac(Candidate& candidate) {
    const std::string_view value = candidate.value();
    const std::string digits = Canonical(Kind::kMac, value);
    const char separator = value[2];
    if (!StandsAlone(candidate)) return false;
    for (size_t i = 2; i < value.size(); i += 3) {
        if (value[i] != separator) return false;
    }
    for (const size_t outside : {candidate.begin, candidate.end + 1}) {
        const bool before = outside == candidate.begin;
        const char beside = before ? candidate.before(outside) : candidate.at(candidate.end);
        const char next =
                before ? (outside > 1 ? candidate.text[outside - 2] : '\n') : candidate.at(outside);
        if (beside == separator && IsHex(next)) return false;
    }
    // Nobody's, everybody's, and what stands for one that isn't told.
    if (IsOneOf(digits, {"000000000000", "ffffffffffff", "020000000000"})) return false;
    // 26-11-25-07-29-07
    if (!std::ranges::all_of(digits, IsDigit)) return true;
    const auto pair = [&digits](size_t i) {
        return (digits[2 * i] - '0') * 10 + digits[2 * i + 1] - '0';
    };
    return !(pair(1) >= 1 && pair(1) <= 12 && pair(2) >= 1 && pair(2) <= 31 && pair(3) <= 23 &&
             pair(4) <= 59 && pair(5) <= 60);
}

bool IsDottedMac(Candidate& candidate) {
    const std::string_view value = candidate.value();
    return StandsAlone(candidate) && candidate.at(candidate.end) != '.' &&
           candidate.before(candidate.begin) != '.' && std::ranges::any_of(value, IsDigit) &&
           std::ranges::any_of(value, IsLetter);
}

// A dotted number is an address unless it is named or placed as a version.
bool IsIpv4(Candidate& candidate) {
    const std::string address(candidate.value());
    std::array<uint8_t, 4> bytes;
    if (!StandsAlone(candidate) || inet_pton(AF_INET, address.c_str(), bytes.data()) != 1) {
        return false;
    }
    const char before = candidate.before(candidate.begin);
    const char after = candidate.at(candidate.end);
    const char beyond = candidate.before(candidate.begin - (candidate.begin > 0 ? 1 : 0));
    if (before == '.' || before == '_' || after == '_') return false;
    if ((before == '-' && !IsDigit(beyond)) ||
        (after == '-' && !IsDigit(candidate.at(candidate.end + 1)))) {
        return false;
    }
    if (before == '/' && IsLetter(beyond)) {
        // "agent/1.2.3.4" is a version, "host.name/10.0.0.1" is none.
        size_t begin = candidate.begin - 1;
        bool dotted = false;
        while (begin > 0 &&
               (IsAlnum(candidate.text[begin - 1]) || candidate.text[begin - 1] == '.')) {
            dotted = dotted || candidate.text[--begin] == '.';
        }
        if (!dotted && candidate.text.substr(begin, candidate.begin - 1 - begin) != "localhost") {
            return false;
        }
    }
    // Nobody's, one's own, everybody's, and masks.
    const bool nobody = bytes[0] == 0 || bytes[0] == 127 || bytes[0] >= 224;
    if (nobody || IsNamed(candidate, {"version", "versions", "ver", "v", "fw", "firmware", "build",
                                      "release", "rev", "revision", "sw", "hw", "sdk", "software",
                                      "patch", "baseband", "bootloader", "oid"})) {
        return false;
    }
    // These have versions as well, but "kernel: 10.0.0.12 is up" is a line of theirs.
    const size_t name = candidate.text.find_last_not_of(" \t", candidate.begin - 1);
    const bool speaks =
            candidate.begin > 0 && name != std::string_view::npos && candidate.text[name] == ':';
    return speaks || !IsNamed(candidate, {"kernel", "driver", "lib", "library", "api", "package",
                                          "module", "app", "rom", "nvm", "tag"});
}

bool IsIpv6(Candidate& candidate) {
    const std::string address(candidate.value());
    const char before = candidate.before(candidate.begin);
    const char after = candidate.at(candidate.end);
    if (!StandsAlone(candidate) || before == ':' || before == '.' || before == '_' ||
        after == '_' || (after == ':' && IsHex(candidate.at(candidate.end + 1)))) {
        return false;
    }
    std::array<uint8_t, 16> bytes;
    if (inet_pton(AF_INET6, address.c_str(), bytes.data()) != 1) return false;
    // What is given out: 2001 to 2003, 2400 to 2cff in steps, what is local to a link or a site.
    // Words of a register dump begin otherwise.
    const bool global = (bytes[0] == 0x20 && bytes[1] >= 1 && bytes[1] <= 3) ||
                        (bytes[0] >= 0x24 && bytes[0] <= 0x2c && bytes[0] % 2 == 0) ||
                        (bytes[0] == 0x3f && bytes[1] == 0xff);
    const bool local = (bytes[0] == 0xfe && (bytes[1] & 0xc0) == 0x80) || (bytes[0] & 0xfe) == 0xfc;
    return (global || local) && address.find(':') == 4 && std::ranges::any_of(address, IsDigit);
}

bool IsEmail(Candidate& candidate) {
    while (candidate.begin < candidate.end &&
           IsOneOf(candidate.text.substr(candidate.begin, 1), {".", "-", "%", "+"})) {
        ++candidate.begin;
    }
    const std::string_view value = candidate.value();
    const size_t at = value.find('@');
    if (at == 0 || at == std::string_view::npos) return false;
    const std::string_view domain = value.substr(at + 1);
    const size_t dot = domain.rfind('.');
    // "power@1.3-service.pixel" names a version, "sdhci@7c4000.bus" a place on a bus,
    // "user@1.slice" what a service manager runs.
    if (IsDigit(domain[0]) && domain.find('.') < dot && IsDigit(domain[domain.find('.') + 1])) {
        return false;
    }
    const std::string_view host = domain.substr(0, dot);
    const bool address = std::ranges::all_of(host, IsHex) &&
                         (host.size() >= 6 || std::ranges::any_of(host, IsDigit));
    const std::string last = Lower(domain.substr(dot + 1));
    return !(address && !IsOneOf(last, {"com", "net", "org", "cn", "de", "invalid", "example"})) &&
           !IsOneOf(last,
                    {"service", "socket", "target", "mount", "timer", "slice", "scope", "device",
                     "path",    "swap",   "so",     "ko",    "c",     "h",     "cc",    "cpp",
                     "java",    "kt",     "bin",    "txt",   "log",   "xml",   "json",  "html",
                     "apk",     "jar",    "dex",    "oat",   "odex",  "vdex",  "rc"}) &&
           !IsAlnum(candidate.at(candidate.end)) && candidate.at(candidate.end) != '@';
}

bool IsPhone(Candidate& candidate) {
    const std::string_view value = candidate.value();
    constexpr size_t kEnough = 11;
    constexpr size_t kMost = 15;
    // What follows a number that is long enough is no part of it.
    size_t digits = 0;
    size_t end = 0;
    size_t groups = 0;
    for (size_t i = 0; i < value.size();) {
        if (!IsDigit(value[i])) {
            ++i;
            continue;
        }
        size_t group = i;
        while (group < value.size() && IsDigit(value[group])) ++group;
        if (digits >= kEnough || (digits >= 7 && digits + group - i > kMost)) break;
        digits += group - i;
        ++groups;
        end = group;
        i = group;
    }
    candidate.end = candidate.begin + end;
    const bool plus = value.starts_with('+');
    const std::string_view number = candidate.value();
    if (digits > kMost || digits < 7 || (plus && digits < (groups == 1 ? size_t{10} : size_t{8})))
        return false;
    // "+1.234567890" is a number with a fraction.
    if (groups == 2 && number.find('.') != std::string_view::npos) return false;
    if (number.find("  ") != std::string_view::npos ||
        number.find("..") != std::string_view::npos ||
        number.find("--") != std::string_view::npos) {
        return false;
    }
    return candidate.before(candidate.begin) != '+' && StandsAlone(candidate) &&
           !IsTimeOrAmount(candidate);
}

bool IsNamedPhone(Candidate& candidate) {
    return NameBegins(candidate) && IsPhone(candidate);
}

// The network's name ends where the line goes on with another name, as in "Home RSSI: -60".
bool IsSsid(Candidate& candidate) {
    if (!NameBegins(candidate)) return false;
    std::string_view value = candidate.value();
    const bool quoted = IsOneOf(candidate.text.substr(candidate.begin - 1, 1), {"\"", "'"});
    if (!quoted) {
        const size_t name = value.find_first_of(":=");
        if (name != std::string_view::npos) value = value.substr(0, value.rfind(' ', name));
        while (!value.empty() &&
               IsOneOf(value.substr(value.size() - 1), {" ", "\t", "\r", ")", "]", "}"})) {
            value.remove_suffix(1);
        }
    }
    candidate.end = candidate.begin + value.size();
    const bool hidden = value.starts_with('<') || value.starts_with("0x");
    return !value.empty() && !hidden &&
           !IsOneOf(Lower(value), {"null", "none", "any", "unknown", "hidden", "true", "false", "0",
                                   "1", "\"\""});
}

bool IsCoordinate(Candidate& candidate) {
    if (!NameBegins(candidate) || HasUnit(candidate) || IsAlnum(candidate.at(candidate.end)) ||
        candidate.at(candidate.end) == '.') {
        return false;
    }
    const std::string_view value = candidate.value();
    const size_t whole = value.find('.') - (value.starts_with('-') ? 1 : 0);
    return whole >= 1;
}

bool IsAccount(Candidate& candidate) {
    std::string_view value = candidate.value();
    while (value.ends_with('.') || value.ends_with('-')) value.remove_suffix(1);
    candidate.end = candidate.begin + value.size();
    const char after = candidate.at(candidate.end);
    const bool telling = std::ranges::any_of(value, [](char c) { return !IsLetter(c); });
    const bool ends =
            IsOneOf(std::string(1, after), {"\n", "\r", ",", ";", "\"", "'", ")", "}", "]"}) ||
            candidate.before(candidate.begin) == '=';
    return NameBegins(candidate) && std::ranges::any_of(value, IsLetter) && value.size() >= 3 &&
           !IsCommonWord(Lower(value)) && (telling || ends);
}

bool IsNamedAccount(Candidate& candidate) {
    return !IsCommonWord(Lower(candidate.value()));
}

bool IsPathUser(Candidate& candidate) {
    const char before = candidate.before(candidate.match);
    return !IsAlnum(before) && before != '_' && before != '-' &&
           !IsCommonWord(Lower(candidate.value()));
}

bool IsWindowsUser(Candidate& candidate) {
    return !IsCommonWord(Lower(candidate.value()));
}

// Where a serial number is named as such it is believed, however short: it is for whoever asks to
// say that it can't be replaced.
bool IsNamedSerial(Candidate& candidate) {
    std::string_view value = candidate.value();
    while (value.ends_with('.') || value.ends_with(':') || value.ends_with('-')) {
        value.remove_suffix(1);
    }
    candidate.end = candidate.begin + value.size();
    return NameBegins(candidate) && !IsCommonWord(Lower(value)) &&
           std::ranges::any_of(value, IsDigit) && !Lower(value).starts_with("tty");
}

// "serial" alone is a port, a counter or a device; what looks like neither is a serial number.
bool IsBareSerial(Candidate& candidate) {
    const std::string_view value = candidate.value();
    return IsNamedSerial(candidate) && value.size() >= 8 && std::ranges::any_of(value, IsLetter) &&
           DigitsOf(value).size() >= 3 && !value.starts_with("0x0");
}

bool IsFileSerial(Candidate& candidate) {
    while (candidate.end > candidate.begin && candidate.text[candidate.end - 1] <= ' ')
        --candidate.end;
    const std::string_view value = candidate.value();
    return value.find(' ') == std::string_view::npos && !value.starts_with("***") &&
           std::ranges::any_of(value, IsDigit);
}

// Between a name and its value: "]: [", "\": \"", " = ", ": ".
#define NAMED_BY R"(["'\])]*[ \t]*[:=]+[ \t]*["'\[(<]*)"

const Pattern kPatterns[] = {
        // Places where the device's own identifiers are known to stand.
        {Kind::kSerial,
         R"(\[[\w.]*(?:serial(?:no|_?number|num)?|android_id)\]: \[([^\]\n]+)\])",
         IsProperty,
         {"[ro.serialno]: [`NVW26A1180457`]", "[ro.boot.serialno]: [`12345678`]"},
         {"[ro.serialno]: [unknown]", "[ro.serialno]: []"}},
        {Kind::kImei,
         R"(\[[\w.]*imei[\w.]*\]: \[([0-9]{14,17})\])",
         IsProperty,
         {"[persist.radio.imei]: [`356938035643809`]",
          "[persist.radio.imei2]: [`356938035643800`]"},
         {"[persist.radio.imei]: [0]"}},
        {Kind::kImsi,
         R"(\[[\w.]*imsi[\w.]*\]: \[([0-9]{14,15})\])",
         IsProperty,
         {"[gsm.sim.imsi]: [`262011234567890`]"},
         {"[gsm.sim.imsi]: []"}},
        {Kind::kIccid,
         R"(\[[\w.]*iccid[\w.]*\]: \[([0-9]{18,22})\])",
         IsProperty,
         {"[persist.sim.iccid]: [`8949020000123456780`]"},
         {"[persist.sim.iccid]: [1]"}},
        {Kind::kPhone,
         R"(\[[\w.]*(?:msisdn|phone_?number|line1)[\w.]*\]: \[(\+?[0-9]{7,15})\])",
         IsProperty,
         {"[gsm.line1]: [`+491701234567`]"},
         {"[gsm.line1]: [1]"}},
        {Kind::kMac,
         R"(\[[\w.]*(?:mac(?:_?addr(?:ess)?)?|bd_?addr(?:ess)?)\]: \[([0-9A-Fa-f]{12})\])",
         IsProperty,
         {"[ro.boot.wifimacaddr]: [`3c28d1a0b1c2`]"},
         {"[ro.mac]: [0011]"}},
        {Kind::kSerial,
         R"((?i:serial(?:no|[ _-]?(?:number|num|no)))" NAMED_BY R"()([0-9A-Za-z][0-9A-Za-z._:-]*))",
         IsNamedSerial,
         {"POWER_SUPPLY_SERIAL_NUMBER=`NV0626A1180457`", "androidboot.serialno=`NVW26A1180457` ro",
          "SerialNumber: `A1-22-B3`", "\"deviceSerialNumber\":\"`X9000123`\""},
         {"serial number: none", "serialno=unknown"}},
        {Kind::kSerial,
         R"((?i:serial)" NAMED_BY R"()([0-9A-Za-z][0-9A-Za-z-]*))",
         IsBareSerial,
         {"mmc0: serial: `0xdc23a1f4`", "usb: Serial=`R58M123ABC`"},
         {"serial: ttyMSM0", "serial=1234567", "serial: 8250", "serial=console1"}},
        {Kind::kSerial,
         R"(\b(?:S/N|SN)[:#=] ?([0-9A-Za-z][0-9A-Za-z-]{5,}))",
         IsNamedSerial,
         {"S/N: `AB123456`"},
         {"SN=abcdefgh", "SSN:abc1234"}},
        {Kind::kSerial,
         R"((?i:\bcid)" NAMED_BY R"()([0-9A-Fa-f]{32}))",
         IsNamedNumber,
         {"mmc0 cid: `150100444a344d4231071d5dd3c1a7f3`"},
         {"cid: 12", "acid: 150100444a344d42"}},
        {Kind::kSerial,
         R"(/(?:cid|serial|serialno|serial_number|iserial|unique_?(?:id|number))\)? ------\n([^\n]{1,64})\n)",
         IsFileSerial,
         {"------ X (/sys/block/mmcblk0/device/cid) ------\n`150100444a344d4231071d5dd3c1a7f3`\n"},
         {"------ X (/sys/a/name) ------\nDV4016x\n",
          "------ X (/a/cid) ------\n*** cannot open 1\n"}},

        // Numbers, by their check digits or their names.
        {Kind::kImei,
         R"([0-9]{15})",
         IsImei,
         {"modem: `356938035643809` up", "modem_`490154203237518`.log", "(imei=`356938035643809`)"},
         {"356938035643800", "1356938035643809", "Time: 356938035643809, Value",
          "356938035643809 ns", "0.356938035643809", "356938035643809.5", "0x356938035643809",
          "ts=356938035643809", "123456789012345"}},
        {Kind::kImei,
         R"([0-9]{2}(?:-[0-9]{6}-[0-9]{6}-| [0-9]{6} [0-9]{6} )[0-9])",
         IsImei,
         {"`35-693803-564380-9`", "IMEI `35 693803 564380 9`"},
         {"35-693803-564380-0"}},
        {Kind::kImei,
         R"((?i:imei(?:sv)?)[0-9]?)" NAMED_BY R"(([0-9]{14}|[0-9]{16}))",
         IsNamedNumber,
         {"IMEISV: `3569380356438012`", "imei=`35693803564380`"},
         {"imei=356938035643800", "imei: 0"}},
        {Kind::kImsi,
         R"((?i:imsi|subscriber_?id)["'\])]*[ \t]*[:=]*[ \t]*["'\[(<]*([0-9]{14,15}|[0-9]{3}[- ][0-9]{2,3}[- ][0-9]{9,10}))",
         IsNamedNumber,
         {"IMSI: `262011234567890`", "imsi=`262-01-1234567890`",
          "\"subscriberId\":\"`26201123456789`\""},
         {"262011234567890", "imsi=2620112345678901", "imsi: null"}},
        {Kind::kIccid,
         R"([0-9]{19,20})",
         IsIccid,
         {"sim `8949020000123456788` ok", "iccid:`8944500102198304826`"},
         {"8949020000123456789", "1794211200000000000", "89490200001234567882",
          "t=8949020000123456788ns"}},
        {Kind::kIccid,
         R"(89[0-9]{2}(?:[ -][0-9]{4}){3}[ -][0-9]{3,4})",
         IsIccid,
         {"`8949 0200 0012 3456 788`"},
         {"8949 0200 0012 3456 789"}},
        {Kind::kPhone,
         R"(\+[1-9][0-9 ().-]{6,18}[0-9])",
         IsPhone,
         {"call to `+491701234567`", "`+1 (650) 253-0000`, 3", "from `+49 170 1234567` ok",
          "`+442079460958` 12 times"},
         {"+12345678", "a+491701234567", "+1.23456789012", "offset +1234567890", "+1234567890 ns",
          "+4917012345671234567"}},
        {Kind::kPhone,
         R"((?i:tel|sms|phone|phone[ _]?n(?:umber|o)|msisdn|line1[ _]?number|mobile[ _]?number|caller(?:[ _]?id)?|callee|dial(?:ed|ing)?|incoming[ _]?number|outgoing[ _]?number))" NAMED_BY
         R"((\+?[0-9(][0-9 ().-]{5,18}[0-9]))",
         IsNamedPhone,
         {"tel:`01701234567`", "phoneNumber=`0170 1234567`", "msisdn: `491701234567`"},
         {"hotel: 12345678", "phone: 3", "tel: 123"}},

        // Addresses.
        {Kind::kMac,
         R"([0-9A-Fa-f]{2}(?:[:-][0-9A-Fa-f]{2}){5})",
         IsMac,
         {"wlan0 `3c:28:d1:a0:b1:c2`: up", "`3C-28-D1-A0-B1-C2`", "dev_`3c:28:d1:a0:b1:c2`"},
         {"3c:28:d1:a0:b1:c2:d3", "00:00:00:00:00:00", "ff:ff:ff:ff:ff:ff", "26-11-25-07-29-07",
          "3c:28-d1:a0:b1:c2", "03c:28:d1:a0:b1:c2", "07:29:07"}},
        {Kind::kMac,
         R"([0-9A-Fa-f]{4}\.[0-9A-Fa-f]{4}\.[0-9A-Fa-f]{4})",
         IsDottedMac,
         {"port `3c28.d1a0.b1c2` up"},
         {"1234.5678.9012", "3c28.d1a0.b1c2.0011", "dead.beef.cafe"}},
        {Kind::kMac,
         R"((?i:mac|mac[ _]?addr(?:ess)?|bssid|bd_?addr(?:ess)?|hwaddr|ether))" NAMED_BY
         R"(([0-9A-Fa-f]{12}))",
         IsNamedNumber,
         {"mac=`3c28d1a0b1c2`", "bdaddr: `3C28D1A0B1C2`"},
         {"mac=3c28d1a0b1c2d3", "imac: 12"}},
        {Kind::kIpv4,
         R"([0-9]{1,3}(?:\.[0-9]{1,3}){3})",
         IsIpv4,
         {"from `10.0.0.12`:443", "server=`192.168.1.7`", "/`172.16.0.3`", "http://`203.0.113.9`/a",
          "`10.0.0.1`-`10.0.0.9`", "inet `10.1.2.3`/24", "I kernel: `10.1.2.3` up",
          "name=`10.1.2.3`", "::ffff:`10.0.0.1`"},
         {"version 10.0.0.12", "v1.2.3.4", "driver 1.2.3.4", "fw=3.1.0.41", "1.2.3.4.5",
          "127.0.0.1", "255.255.255.0", "0.0.0.0", "300.1.2.3", "curl/7.88.1.2", "pkg-1.2.3.4",
          "1.2.3.4-rc1", "01.2.3.4", "versionName=4.1.2.3",
          "[vendor.wlan.firmware.version]: [3.1.0.18]"}},
        {Kind::kIpv6,
         R"((?:[0-9A-Fa-f]{1,4}:){7}[0-9A-Fa-f]{1,4})",
         IsIpv6,
         {"`2001:0db8:0:0:0:0:0:1`"},
         {"0000:0001:0002:0003:0004:0005:0006:0007", "2001:db8:0:0:0:0:0:1:2"}},
        {Kind::kIpv6,
         R"([0-9A-Fa-f]{1,4}(?::[0-9A-Fa-f]{1,4}){0,6}::(?:[0-9A-Fa-f]{1,4}(?::[0-9A-Fa-f]{1,4}){0,6})?)",
         IsIpv6,
         {"inet6 `fe80::3e28:d1ff:fea0:b1c2`/64", "[`2001:db8::7`]:443", "`fe80::1`%wlan0"},
         {"std::string", "dead::beef", "::1", "a1::b2", "07:29::", "Fade::add"}},

        // What names a person.
        {Kind::kEmail,
         R"([0-9A-Za-z._%+\x80-\xff-]{1,64}@[0-9A-Za-z-]+(?:\.[0-9A-Za-z-]+)*\.[A-Za-z]{2,24})",
         IsEmail,
         {"to <`anna.meier@mail.example.com`>", "`a+b@163.com`,", "mailto:`x_y@example.org`."},
         {"power@1.3-service.pixel", "user@1000.service", "sdhci@7c4000.bus", "pm5100@0:qpnp",
          "a@b"}},
        {Kind::kSsid,
         R"re((?i:ssid))re" NAMED_BY R"re("([^"\n]{1,32})")re",
         IsSsid,
         {"SSID: \"`Villa Kunterbunt`\", x"},
         {"SSID: \"null\""}},
        {Kind::kSsid,
         R"re((?i:ssid)(?:["']?[:=]| ?: | ?= |: )([^"'\[\s,;][^",;\n\\]{0,63}))re",
         IsSsid,
         {"SSID: `Villa Kunterbunt`, BSSID", "ssid=`Nordstern`", "SSID: `Nordstern` RSSI: -60"},
         {"BSSID: 3c28", "SSID: <unknown ssid>", "ssid=null", "SSID: 0x1234"}},
        {Kind::kSsid,
         R"re((?i:ssid) ?['"]([^'"\n]{1,32})['"])re",
         IsSsid,
         {"Trying to associate with SSID '`Nordstern`'"},
         {"SSID ''"}},
        {Kind::kLocation,
         R"((?i:latitude|longitude))" NAMED_BY R"((-?[0-9]{1,3}\.[0-9]{2,}))",
         IsCoordinate,
         {"latitude: `48.1371`", "\"longitude\":`-11.57612`"},
         {"latitude: 48"}},
        {Kind::kLocation,
         R"((?i:lat|lon|lng|long))" NAMED_BY R"((-?[0-9]{1,3}\.[0-9]{4,}))",
         IsCoordinate,
         {"lat=`48.137154`"},
         {"lat=12.3456 ms", "flat=1.23456", "lat=1.25"}},
        {Kind::kLocation,
         R"(\bLocation\[[A-Za-z]+ (-?[0-9]{1,3}[.,][0-9]+),(-?[0-9]{1,3}[.,][0-9]+))",
         IsCoordinate,
         {"Location[gps `48.137154`,`11.576124` hAcc=5"},
         {"Location[gps]"}},
        {Kind::kLocation,
         R"(\bgeo:(-?[0-9]{1,3}\.[0-9]+),(-?[0-9]{1,3}\.[0-9]+))",
         IsCoordinate,
         {"geo:`48.137154`,`11.576124`"},
         {"geo:1,2"}},
        {Kind::kLocation,
         R"(\$G[NPLAB](?:GGA,[0-9.]*|GLL|RMC,[0-9.]*,A),([0-9]{4}\.[0-9]+),[NS],([0-9]{5}\.[0-9]+),[EW])",
         IsCoordinate,
         {"$GPGGA,123519,`4807.038`,N,`01131.000`,E,1"},
         {"$GPGGA,123519,,,,,0"}},
        {Kind::kAccount,
         R"(Account ?\{ ?name=([^,}\n]{1,64}), ?type=)",
         IsNamedAccount,
         {"Account {name=`anna.m`, type=com.example}"},
         {"Account {name=, type=x}"}},
        {Kind::kAccount,
         R"((?i:account(?:[ _]?name)?|user_?name|login(?:_?name)?)["']?[ \t]*[:=][ \t]*["']?([0-9A-Za-z._+@-]{3,64}))",
         IsAccount,
         {"account: `anna.meier` synced", "userName=`ameier`", "\"account\":\"`annameier`\""},
         {"account: 3", "login: failed", "username=root", "account: syncing now", "discount=abc1"}},
        {Kind::kPathUser,
         R"re(/(?:home|Users)/([^/\s"':;,\\()<>|]{1,32}))re",
         IsPathUser,
         {"/home/`ameier`/src", "file:///Users/`Anna`/x"},
         {"/data/home/x", "/home/runner/", "/Users/Shared"}},
        {Kind::kPathUser,
         R"re([A-Za-z]:\\Users\\([^\\/:*?"<>|\n]{1,32})\\)re",
         IsWindowsUser,
         {"C:\\Users\\`Anna Meier`\\log.txt"},
         {"C:\\Users\\Public\\x"}},
};
#undef NAMED_BY

}  // namespace

std::span<const Pattern> Patterns() {
    return kPatterns;
}

}  // namespace reader
