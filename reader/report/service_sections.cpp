#include "service_sections.h"

#include <algorithm>
#include <array>

namespace reader {
namespace {

constexpr std::array<std::string_view, kServiceSections> kTitles = {
        "RM DUMPSTATE BIN DIR",
        "MKDIR DUMPSTATE BIN DIR",
        "VENDOR PROPERTIES",
        "FLUSH DLS",
        "USF stat",
        "TEV Metrics",
        "Register dump for IMU",
        "Register dump for ALS",
        "Register dump for MAG",
        "Register dump for BARO",
        "Register dump for AFE",
        "USF registry dump",
        "CP MCU LOG",
        "CP TZ LOG",
        "TAR LOG",
        "CHG PERM",
        "Touch Stats",
        "INTERRUPTS",
        "Power Stats Times",
        "Power supply property battery",
        "Power supply property bms",
        "Power supply property sw5100_bms",
        "Power supply property usb",
        "BMS",
        "TTF",
        "TTF stats",
        "TRICKLE-DEFEND Config",
        "DWELL-DEFEND Config",
        "TEMP-DEFEND Config",
        "Charging table dump",
        "Charger Stats",
        "Norvel Charger",
        "Norvel Battery",
        "nvotables",
        "QBG Interrupt Stats",
        "iio devices",
        "Extcon states",
        "Velora recent statuses",
        "Velora moisture detect mitigation state",
        "Velora event faking",
        "Velora extcon spoofing",
        "Velora moisture detect mitigation parameters",
        "Velora periodic reauth parameters",
        "Sleep Stats",
        "Bootloader Log file of current boot",
        "Bootloader Log",
        "DUMP EMMC VENDOR",
        "DUMP EMMC VERSION",
        "WLAN FW Log Symbol Table",
        "Modem Stat",
        "Modem SSR history"};

constexpr std::array<std::string_view, 4> kLines = {
        "", "-------------------------------------------------------",
        "------------------- USF Stats (1/2) -------------------", kLastHeading};

}  // namespace

std::optional<size_t> ServiceSection(std::string_view title) {
    const auto* const found = std::ranges::find(kTitles, title);
    if (found == kTitles.end()) return {};
    return static_cast<size_t>(found - kTitles.begin());
}

std::string_view LastServiceSection() {
    return kTitles.back();
}

bool IsServiceLine(std::string_view line) {
    return std::ranges::find(kLines, line) != kLines.end();
}

}  // namespace reader
