#include "service_sections.h"

#include <algorithm>
#include <array>

namespace reader {
namespace {

struct Row {
    std::string_view title;
    bool of_all;  // else a user build leaves it out, or a report without a bundle
};
constexpr std::array<Row, kServiceSections> kSections = {{
        {"RM DUMPSTATE BIN DIR", false},
        {"MKDIR DUMPSTATE BIN DIR", true},
        {"VENDOR PROPERTIES", true},
        {"FLUSH DLS", true},
        {"USF stat", true},
        {"TEV Metrics", true},
        {"Register dump for IMU", true},
        {"Register dump for ALS", true},
        {"Register dump for MAG", true},
        {"Register dump for BARO", true},
        {"Register dump for AFE", true},
        {"USF registry dump", true},
        {"CP MCU LOG", false},
        {"CP TZ LOG", false},
        {"TAR LOG", false},
        {"CHG PERM", false},
        {"Touch Stats", true},
        {"INTERRUPTS", true},
        {"Power Stats Times", true},
        {"Power supply property battery", true},
        {"Power supply property bms", true},
        {"Power supply property sw5100_bms", true},
        {"Power supply property usb", true},
        {"BMS", true},
        {"TTF", true},
        {"TTF stats", true},
        {"TRICKLE-DEFEND Config", true},
        {"DWELL-DEFEND Config", true},
        {"TEMP-DEFEND Config", true},
        {"Charging table dump", false},
        {"Charger Stats", true},
        {"Norvel Charger", false},
        {"Norvel Battery", false},
        {"nvotables", false},
        {"QBG Interrupt Stats", true},
        {"iio devices", true},
        {"Extcon states", true},
        {"Velora recent statuses", true},
        {"Velora moisture detect mitigation state", true},
        {"Velora event faking", false},
        {"Velora extcon spoofing", false},
        {"Velora moisture detect mitigation parameters", false},
        {"Velora periodic reauth parameters", false},
        {"Sleep Stats", true},
        {"Bootloader Log file of current boot", false},
        {"Bootloader Log", false},
        {"DUMP EMMC VENDOR", true},
        {"DUMP EMMC VERSION", true},
        {"WLAN FW Log Symbol Table", true},
        {"Modem Stat", true},
        {"Modem SSR history", true},
}};
static_assert(std::ranges::count(kSections, true, &Row::of_all) == kSectionsOfAll);

constexpr std::string_view kSeparator = "-------------------------------------------------------";
constexpr std::array<std::string_view, kHeadings> kHeadingLines = {
        "------------------- USF Stats (1/2) -------------------", kLastHeading};

}  // namespace

std::optional<size_t> ServiceSection(std::string_view title) {
    const auto* const found = std::ranges::find(kSections, title, &Row::title);
    if (found == kSections.end()) return {};
    return static_cast<size_t>(found - kSections.begin());
}

bool IsOfAll(size_t service_section) {
    return kSections[service_section].of_all;
}

std::string_view ServiceTitle(size_t service_section) {
    return kSections[service_section].title;
}

std::string_view LastServiceSection() {
    return kSections.back().title;
}

bool IsServiceLine(std::string_view line) {
    return line.empty() || IsSeparator(line) || HeadingNumber(line) > 0;
}

bool IsSeparator(std::string_view line) {
    return line == kSeparator;
}

size_t HeadingNumber(std::string_view line) {
    const auto* const found = std::ranges::find(kHeadingLines, line);
    return found == kHeadingLines.end() ? 0
                                        : static_cast<size_t>(found - kHeadingLines.begin()) + 1;
}

}  // namespace reader
