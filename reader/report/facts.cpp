#include "facts.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "clock_time.h"
#include "report.h"

namespace reader {
namespace {

std::string_view Trim(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

// Calls take(line) until it returns true.
template <typename Take>
void ForEachLine(std::string_view text, Take take) {
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        if (take(text.substr(0, end))) return;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

bool SameIgnoringCase(std::string_view one, std::string_view other) {
    return std::ranges::equal(one, other, [](unsigned char a, unsigned char b) {
        return std::tolower(a) == std::tolower(b);
    });
}

// The value where the line is "NAME=value", "NAME: value" or "[NAME]: [value]".
std::optional<std::string_view> ValueIn(std::string_view line, std::string_view name) {
    line = Trim(line);
    const bool bracketed = line.starts_with('[');
    if (bracketed) line.remove_prefix(1);
    if (!SameIgnoringCase(line.substr(0, name.size()), name)) return {};
    line = Trim(line.substr(name.size()));
    if (bracketed) {
        if (!line.starts_with("]:")) return {};
        line = Trim(line.substr(2));
        if (!line.starts_with('[')) return {};
        // A value of several lines has its bracket on another.
        line.remove_prefix(1);
        if (line.ends_with(']')) line.remove_suffix(1);
        return line;
    }
    if (!line.starts_with('=') && !line.starts_with(':')) return {};
    return Trim(line.substr(1));
}

std::string_view FindValue(std::string_view text, std::string_view names) {
    std::string_view found;
    while (found.empty() && !names.empty()) {
        const std::string_view name = names.substr(0, names.find(' '));
        names.remove_prefix(std::min(name.size() + 1, names.size()));
        ForEachLine(text, [&](std::string_view line) {
            if (const auto value = ValueIn(line, name)) found = *value;
            return !found.empty();
        });
    }
    return found;
}

// The integer divided by 10^decimals, exactly: "-41809" and 3 make "-41.809".
std::string Divide(std::string_view text, size_t decimals) {
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return "";
    std::string digits = std::to_string(value);
    const size_t sign = value < 0 ? 1 : 0;
    if (digits.size() - sign <= decimals) {
        digits.insert(sign, decimals + 1 - (digits.size() - sign), '0');
    }
    if (decimals == 0) return digits;
    digits.insert(digits.size() - decimals, 1, '.');
    digits.erase(digits.find_last_not_of('0') + 1);
    if (digits.ends_with('.')) digits.pop_back();
    return digits;
}

template <size_t kDecimals>
std::string Decimal(const Report& /*report*/, std::string_view text) {
    return Divide(text, kDecimals);
}

std::string Time(const Report& /*report*/, std::string_view text) {
    const auto seconds = ParseTime(text);
    return seconds ? FormatTime(*seconds) : "";
}

std::string Uptime(const Report& report, std::string_view /*text*/) {
    const Fact* const boot = report.FindFact("boot.time");
    const Fact* const now = report.FindFact("report.time");
    if (boot == nullptr || now == nullptr) return "";
    return std::to_string(*ParseTime(now->value) - *ParseTime(boot->value));
}

// Who has the last word on charging: lines "CHG_FCC: min, result 290000 by PROFILE". The profile is
// the cell's own limit and none besides.
std::string ChargingLimit(const Report& /*report*/, std::string_view text) {
    struct Vote {
        const char* name;
        size_t decimals;
        const char* words[3];  // around the value, and after it
    };
    constexpr std::array<Vote, 3> kVotes = {{{"CHG_DISABLE", 0, {"off", "", ""}},
                                             {"CHG_FCC", 3, {"at most ", " mA", ""}},
                                             {"CHG_FV", 6, {"at most ", " V", ""}}}};
    std::string limits;
    bool said = false;
    for (const Vote& vote : kVotes) {
        std::string_view value = FindValue(text, vote.name);
        const size_t result = value.find("result ");
        const size_t by = value.find(" by ");
        if (result == std::string_view::npos || by == std::string_view::npos || by < result) {
            continue;
        }
        said = true;
        const std::string_view who = value.substr(by + 4);
        const std::string_view number = value.substr(result + 7, by - result - 7);
        if (who == "none" || who == "PROFILE") continue;
        limits += limits.empty() ? "" : ", ";
        limits += vote.words[0];
        if (*vote.words[1] != '\0') limits += Divide(number, vote.decimals) + vote.words[1];
        limits += " by " + std::string(who);
    }
    return !limits.empty() ? limits : said ? "none" : "";
}

// Each log's path stands on a line of its own before what is in it.
std::string CountRestarts(const Report& report, std::string_view text) {
    const auto section = std::ranges::find(report.sections, "Modem SSR history", &Section::title);
    if (!section->complete || !section->failure.empty()) return "";
    size_t logs = 0;
    ForEachLine(text, [&](std::string_view line) {
        line = Trim(line);
        const size_t name = line.rfind('/') + 1;
        if (line.starts_with('/') && line.substr(name).starts_with("ssr_log")) ++logs;
        return false;
    });
    return std::to_string(logs);
}

std::string Worn(const Report& report, std::string_view /*text*/) {
    if (!report.black_box) return "";
    for (const Sensor& sensor : report.black_box->sensors) {
        constexpr double kMost = 1e12;  // hostile ones are no time, and their millionths no integer
        if (!sensor.total_worn || !(std::fabs(*sensor.total_worn) < kMost)) continue;
        return Divide(std::to_string(std::llround(*sensor.total_worn * 1e6)), 6);
    }
    return "";
}

std::string CountSections(const Report& report, std::string_view /*text*/) {
    return std::to_string(report.sections.size());
}

std::string CountFailed(const Report& report, std::string_view /*text*/) {
    return std::to_string(report.failed());
}

std::string Slowest(const Report& report, std::string_view /*text*/) {
    const auto slowest = std::ranges::max_element(report.sections, {}, &Section::seconds);
    if (slowest == report.sections.end() || !slowest->complete) return "";
    std::array<char, 32> seconds;
    std::snprintf(seconds.data(), seconds.size(), " (%.3f s)", slowest->seconds);
    return slowest->title + seconds.data();
}

constexpr char kProperties[] = "VENDOR PROPERTIES";
constexpr char kTimes[] = "Power Stats Times";
constexpr char kBattery[] = "Power supply property battery";
constexpr char kModem[] = "Modem Stat";

// What the kernel gives in tenths of a degree, millionths of a volt and millionths of an ampere.
constexpr FactRow kFacts[] = {
        {"device", "Device", "", false, kProperties, "ro.product.model", nullptr},
        {"build", "Build", "", false, kProperties,
         "ro.build.fingerprint ro.vendor.build.fingerprint", nullptr},
        {"build.type", "Build type", "", false, kProperties, "ro.build.type", nullptr},
        {"serial", "Serial number", "", false, kProperties, "ro.serialno ro.boot.serialno", nullptr,
         "serial"},
        {"boot.reason", "Boot reason", "", false, kProperties, "ro.boot.bootreason sys.boot.reason",
         nullptr},
        {"boot.time", "Booted", "", false, kTimes, "Boot", Time},
        {"report.time", "Reported", "", false, kTimes, "Now", Time},
        {"uptime", "Uptime", "s", true, "", "", Uptime},
        {"battery.level", "Battery level", "%", true, kBattery, "POWER_SUPPLY_CAPACITY",
         Decimal<0>},
        {"battery.status", "Battery status", "", false, kBattery, "POWER_SUPPLY_STATUS", nullptr},
        {"battery.health", "Battery health", "", false, kBattery, "POWER_SUPPLY_HEALTH", nullptr},
        {"battery.temperature", "Battery temperature", "°C", true, kBattery, "POWER_SUPPLY_TEMP",
         Decimal<1>},
        {"battery.voltage", "Battery voltage", "V", true, kBattery, "POWER_SUPPLY_VOLTAGE_NOW",
         Decimal<6>},
        {"battery.current", "Battery current", "mA", true, kBattery, "POWER_SUPPLY_CURRENT_NOW",
         Decimal<3>},
        {"battery.cycles", "Battery cycles", "", true, kBattery, "POWER_SUPPLY_CYCLE_COUNT",
         Decimal<0>},
        {"charging.limit", "Charging limited", "", false, "nvotables", "", ChargingLimit},
        {"charging.stop", "Charging stops at", "%", true, "DWELL-DEFEND Config",
         "charge_stop_level", Decimal<0>},
        {"modem.state", "Modem state", "", false, kModem, "state modem_state operating_mode",
         nullptr},
        {"modem.restarts", "Restart logs", "", true, "Modem SSR history", "", CountRestarts},
        {"worn", "Worn", "s", true, "", "", Worn},
        {"sections", "Sections", "", true, "", "", CountSections},
        {"failed", "Failed", "", true, "", "", CountFailed},
        {"slowest", "Slowest section", "", false, "", "", Slowest},
};

std::string ReadFact(const Report& report, const FactRow& row, std::string_view text) {
    if (*row.names != '\0') {
        text = FindValue(text, row.names);
        if (text.empty()) return "";
    }
    return row.read == nullptr ? std::string(text) : row.read(report, text);
}

}  // namespace

bool IsFactSection(std::string_view title) {
    return !title.empty() &&
           std::ranges::find(kFacts, title, &FactRow::section) != std::end(kFacts);
}

void FindFacts(Report& report) {
    for (const FactRow& row : kFacts) {
        std::string value;
        if (*row.section == '\0') value = ReadFact(report, row, "");
        for (const Section& section : report.sections) {
            if (!value.empty()) break;
            if (section.title == row.section) value = ReadFact(report, row, section.captured);
        }
        if (!value.empty()) report.facts.push_back({&row, value});
    }
}

}  // namespace reader
