#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace reader {

struct Report;
struct Section;

// What a report says about its device in a word or a number. Rows of one table in facts.cpp: a new
// fact is a new row there.
struct FactRow {
    enum class Group { kDevice, kBattery, kModem, kReport };

    const char* key;    // "battery.level"
    const char* label;  // "Battery level"
    const char* unit;   // "%", or ""
    bool number;        // the value is a decimal number
    Group group;
    const char* section;  // the title of the section that it stands in; "" for the whole report
    // What the line with it begins with, as NAME=value, NAME: value or [NAME]: [value]; several
    // with blanks between them, the best first. "" for the section's whole text.
    const char* names;
    // The fact's value in that text; "" when it doesn't say. Null when it is the text itself.
    std::string (*read)(const Section& section, std::string_view text) = nullptr;
    // The same of what is no section's; then the others are not used.
    std::string (*tell)(const Report& report) = nullptr;
    // A time by which two reports may differ that say the same, in seconds.
    int precision = 0;
    // It tells this device from all others: the kind of identifier that it is, else null.
    const char* identifies = nullptr;
};

struct Fact {
    const FactRow* row;
    std::string value;  // without its unit; bytes as in the report, never empty
    // Where it stands: of which section, and where one line tells it, that one, from 1.
    std::optional<size_t> section = {};
    uint64_t line = 0;
    std::string evidence = {};
};

// Null when there is no such fact.
const FactRow* FindFactRow(std::string_view key);

// Whether two reports say the same, within what can be known.
bool SameFact(const Fact& one, const Fact& other);

// Whether a fact stands in the section of that title.
bool IsFactSection(std::string_view title);

// Adds what the section's captured text tells that no section before it has told.
void TakeFacts(const Section& section, std::vector<Fact>& facts);

// Adds the facts about the whole report to those of its sections, and puts all in the table's
// order.
void FinishFacts(Report& report);

}  // namespace reader
