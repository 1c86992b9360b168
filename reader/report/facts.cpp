#include "facts.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <utility>

#include "clock_time.h"
#include "report.h"
#include "units.h"
#include "utf8.h"

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
std::string Decimal(const Section& /*section*/, std::string_view text) {
    return Divide(text, kDecimals);
}

std::string Time(const Section& /*section*/, std::string_view text) {
    const auto seconds = ParseTime(text);
    return seconds ? FormatTime(*seconds) : "";
}

std::string Zone(const Section& /*section*/, std::string_view text) {
    return std::string(ZoneOf(text));
}

std::string Uptime(const Report& report) {
    const auto seconds = report.UptimeSeconds();
    return seconds ? std::to_string(*seconds) : "";
}

std::string Verbose(const Report& report) {
    return !report.verbose ? "" : *report.verbose ? "enabled" : "disabled";
}

// Who has the last word on charging: lines "CHG_FCC: min, result 290000 by PROFILE". The profile is
// the cell's own limit and none besides.
std::string ChargingLimit(const Section& /*section*/, std::string_view text) {
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
std::string CountRestarts(const Section& section, std::string_view text) {
    if (!section.complete || !section.failure.empty()) return "";
    size_t logs = 0;
    ForEachLine(text, [&](std::string_view line) {
        line = Trim(line);
        const size_t name = line.rfind('/') + 1;
        if (line.starts_with('/') && line.substr(name).starts_with("ssr_log")) ++logs;
        return false;
    });
    return std::to_string(logs);
}

// "2026-11-24 07:31:15 modem: err_fatal, ERR_FATAL no memory, 5120 bytes asked of heap 0": of the
// lines "DATE TIME subsystem=modem count=4 reason=err_fatal" the latest, with the message after it.
std::string LastRestart(const Section& section, std::string_view text) {
    if (!section.complete || !section.failure.empty()) return "";
    const auto after = [](std::string_view line, std::string_view name) {
        const size_t at = line.find(name);
        if (at == std::string_view::npos) return std::string_view();
        line.remove_prefix(at + name.size());
        return name.starts_with(" message") ? line : line.substr(0, line.find(' '));
    };
    std::string_view newest;
    std::string told;
    bool taken = false;
    ForEachLine(text, [&](std::string_view line) {
        constexpr size_t kTime = 19;
        const std::string_view subsystem = after(line, " subsystem=");
        if (!subsystem.empty()) {
            // Times in this form are in order when their letters are.
            taken = ParseTime(line.substr(0, kTime)) && line.substr(0, kTime) > newest;
            if (taken) {
                newest = line.substr(0, kTime);
                told = std::string(newest) + " " + std::string(subsystem) + ": " +
                       std::string(after(line, " reason="));
            }
        } else if (const std::string_view message = after(line, " message="); taken) {
            if (!message.empty()) told += ", " + std::string(message);
        }
        return false;
    });
    return told;
}

// What the cell still holds, in percent of what it was made for.
std::string Capacity(const Section& /*section*/, std::string_view text) {
    const auto number = [text](std::string_view name) {
        const std::string_view value = FindValue(text, name);
        double parsed = 0;
        std::from_chars(value.data(), value.data() + value.size(), parsed);
        return parsed;
    };
    const double full = number("POWER_SUPPLY_CHARGE_FULL");
    const double design = number("POWER_SUPPLY_CHARGE_FULL_DESIGN");
    if (!(full > 0) || !(design > 0) || full > 10 * design) return "";
    return std::to_string(std::lround(100 * full / design));
}

std::string Worn(const Report& report) {
    for (const BlackBox& black_box : report.black_boxes) {
        for (const Sensor& sensor : black_box.sensors) {
            constexpr double kMost = 1e12;  // more is no time, and its millionths no integer
            if (!sensor.total_worn || !(std::fabs(*sensor.total_worn) < kMost)) continue;
            return Divide(std::to_string(std::llround(*sensor.total_worn * 1e6)), 6);
        }
    }
    return "";
}

std::string CountSections(const Report& report) {
    return std::to_string(report.tally.sections);
}

std::string CountFailed(const Report& report) {
    return std::to_string(report.tally.failed);
}

std::string Slowest(const Report& report) {
    if (report.tally.slowest_seconds < 0) return "";
    return report.tally.slowest + " (" + Fixed(report.tally.slowest_seconds, 3) + " s)";
}

constexpr char kProperties[] = "VENDOR PROPERTIES";
constexpr const char* kTimes = kTimesSection.data();
constexpr char kSupply[] = "Power supply property battery";
constexpr char kUsb[] = "Power supply property usb";
constexpr char kIio[] = "iio devices";

// What the kernel gives in tenths of a degree, millionths of a volt and millionths of an ampere.
using enum FactRow::Group;
constexpr FactRow kFacts[] = {
        {"device", "Device", "", false, kDevice, kProperties, "ro.product.model"},
        {"build", "Build", "", false, kDevice, kProperties,
         "ro.build.fingerprint ro.vendor.build.fingerprint"},
        {"build.type", "Build type", "", false, kDevice, kProperties, "ro.build.type"},
        {"serial", "Serial number", "", false, kDevice, kProperties, "ro.serialno ro.boot.serialno",
         nullptr, nullptr, 0, "serial"},
        {"boot.reason", "Boot reason", "", false, kDevice, kProperties,
         "ro.boot.bootreason sys.boot.reason"},
        // Counted back from the time, which is told in whole seconds.
        {"boot.time", "Booted", "", false, kDevice, kTimes, "Boot", Time, nullptr, 2},
        {"report.time", "Reported", "", false, kDevice, kTimes, "Now", Time},
        {"time.zone", "Time zone", "", false, kDevice, kTimes, "Now", Zone},
        {"uptime", "Uptime", "s", true, kDevice, "", "", nullptr, Uptime},
        {"battery.level", "Battery level", "%", true, kBattery, kSupply, "POWER_SUPPLY_CAPACITY",
         Decimal<0>},
        {"battery.status", "Battery status", "", false, kBattery, kSupply, "POWER_SUPPLY_STATUS"},
        {"battery.health", "Battery health", "", false, kBattery, kSupply, "POWER_SUPPLY_HEALTH"},
        {"battery.temperature", "Battery temperature", "°C", true, kBattery, kSupply,
         "POWER_SUPPLY_TEMP", Decimal<1>},
        {"battery.voltage", "Battery voltage", "V", true, kBattery, kSupply,
         "POWER_SUPPLY_VOLTAGE_NOW", Decimal<6>},
        {"battery.current", "Battery current", "mA", true, kBattery, kSupply,
         "POWER_SUPPLY_CURRENT_NOW", Decimal<3>},
        {"battery.cycles", "Battery cycles", "", true, kBattery, kSupply,
         "POWER_SUPPLY_CYCLE_COUNT", Decimal<0>},
        {"battery.capacity", "Of its capacity left", "%", true, kBattery, kSupply, "", Capacity},
        {"battery.gauge", "Level by the gauge", "%", true, kBattery, "Power supply property bms",
         "POWER_SUPPLY_CAPACITY", Decimal<0>},
        {"battery.thermistor", "Battery thermistor", "°C", true, kBattery, kIio,
         "in_temp_batt_therm_input", Decimal<3>},
        {"skin.temperature", "Skin temperature", "°C", true, kBattery, kIio,
         "in_temp_skin_therm_input", Decimal<3>},
        {"die.temperature", "Chip temperature", "°C", true, kBattery, kIio,
         "in_temp_die_temp_input", Decimal<3>},
        {"charger.temperature", "Charger temperature", "°C", true, kBattery, kIio,
         "in_temp_charger_input", Decimal<3>},
        {"usb.online", "Charger present", "", true, kBattery, kUsb, "POWER_SUPPLY_ONLINE",
         Decimal<0>},
        {"usb.voltage", "Charger voltage", "V", true, kBattery, kUsb, "POWER_SUPPLY_VOLTAGE_NOW",
         Decimal<6>},
        {"charging.limit", "Charging limited", "", false, kBattery, "nvotables", "", ChargingLimit},
        {"charging.stop", "Charging stops at", "%", true, kBattery, "DWELL-DEFEND Config",
         "charge_stop_level", Decimal<0>},
        {"modem.state", "Modem state", "", false, kModem, "Modem Stat",
         "state modem_state operating_mode"},
        {"modem.restarts", "Restart logs", "", true, kModem, "Modem SSR history", "",
         CountRestarts},
        {"modem.last_restart", "Newest restart", "", false, kModem, "Modem SSR history", "",
         LastRestart},
        {"modem.crashes", "Restarts since power-on", "", true, kModem, "Modem Stat", "ssr_count",
         Decimal<0>},
        {"worn", "Worn", "s", true, kReport, "", "", nullptr, Worn},
        {"verbose", "Verbose logging", "", false, kReport, "", "", nullptr, Verbose},
        {"sections", "Sections", "", true, kReport, "", "", nullptr, CountSections},
        {"failed", "Failed", "", true, kReport, "", "", nullptr, CountFailed},
        {"slowest", "Slowest section", "", false, kReport, "", "", nullptr, Slowest},
};

// A value that is empty is no fact.
Fact ReadFact(const Section& section, const FactRow& row) {
    const std::string_view all = section.captured;
    std::string_view text = all;
    Fact fact{&row, "", section.index};
    if (*row.names != '\0') {
        text = FindValue(all, row.names);
        if (text.empty()) return fact;
        const auto at = static_cast<size_t>(text.data() - all.data());
        const size_t begin = all.rfind('\n', at) + 1;
        fact.line = 1 + static_cast<uint64_t>(std::ranges::count(all.substr(0, at), '\n'));
        constexpr size_t kMostShown = 1000;
        const std::string_view line = Trim(all.substr(begin, all.find('\n', at) - begin));
        fact.evidence = line.substr(0, WholeCharacters(line.substr(0, kMostShown)));
    }
    fact.value = row.read == nullptr ? std::string(text) : row.read(section, text);
    return fact;
}

}  // namespace

const FactRow* FindFactRow(std::string_view key) {
    const auto* const row = std::ranges::find(kFacts, key, &FactRow::key);
    return row == std::end(kFacts) ? nullptr : row;
}

bool SameFact(const Fact& one, const Fact& other) {
    if (one.value == other.value) return true;
    if (one.row->precision == 0) return false;
    const auto a = ParseTime(one.value);
    const auto b = ParseTime(other.value);
    return a && b && std::abs(*a - *b) <= one.row->precision;
}

bool IsFactSection(std::string_view title) {
    return !title.empty() &&
           std::ranges::find(kFacts, title, &FactRow::section) != std::end(kFacts);
}

void TakeFacts(const Section& section, std::vector<Fact>& facts) {
    for (const FactRow& row : kFacts) {
        if (row.tell != nullptr || section.title != row.section) continue;
        if (std::ranges::find(facts, &row, &Fact::row) != facts.end()) continue;
        Fact fact = ReadFact(section, row);
        if (!fact.value.empty()) facts.push_back(std::move(fact));
    }
}

void FinishFacts(Report& report) {
    for (const FactRow& row : kFacts) {
        if (row.tell == nullptr) continue;
        std::string value = row.tell(report);
        if (!value.empty()) report.facts.push_back({&row, std::move(value)});
    }
    std::ranges::sort(report.facts, {}, &Fact::row);
}

}  // namespace reader
