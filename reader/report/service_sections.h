#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace reader {

// The titles that the service writes itself, in its order: what a whole report ends with, and what
// of a report within a log may be this report's own.

inline constexpr size_t kServiceSections = 51;

// Those that every report has, on every build and with a bundle or without.
inline constexpr size_t kSectionsOfAll = 36;
bool IsOfAll(size_t service_section);

std::string_view ServiceTitle(size_t service_section);

// Which of them the title is.
std::optional<size_t> ServiceSection(std::string_view title);

// The one that is written last, whatever the build and whatever was left out.
std::string_view LastServiceSection();

// Whether the service writes the line outside of sections and black box.
bool IsServiceLine(std::string_view line);

bool IsSeparator(std::string_view line);
// Of the headings of statistics, which stand between separators: from 1; 0 of any other line.
size_t HeadingNumber(std::string_view line);

// The section behind the black box.
inline constexpr std::string_view kAfterBlackBox = "USF stat";

inline constexpr size_t kHeadings = 2;
inline constexpr std::string_view kLastHeading =
        "------------------- USF Stats (2/2) -------------------";

// The section that tells when the device booted and when the report was made.
inline constexpr std::string_view kTimesSection = "Power Stats Times";

}  // namespace reader
