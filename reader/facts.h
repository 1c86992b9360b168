#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace reader {

struct Report;

// What a report says about its device in one word. Rows of one table in facts.cpp: a new fact is a
// new row.
struct FactRow {
    const char* key;      // "battery.level"
    const char* label;    // "Battery level"
    const char* unit;     // "%", or ""
    bool number;          // its value is a decimal number
    const char* section;  // the title that it stands in; "" for what is counted over the report
    const char* name;     // of the line that holds it: NAME=value, NAME: value or [NAME]: [value]
    // The value, from the line's value or from the section's whole text, as the row needs it; ""
    // when that doesn't say. Null for the value as it stands.
    std::string (*read)(const Report& report, std::string_view text);
};

struct Fact {
    const FactRow* row;
    std::string value;  // without its unit; never empty
};

// Whether a fact stands in the section of that title.
bool IsFactSection(std::string_view title);

// The facts that the report tells, in the table's order. From its sections' captured texts.
std::vector<Fact> FindFacts(const Report& report);

}  // namespace reader
