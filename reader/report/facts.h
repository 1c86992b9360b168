#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace reader {

struct Report;

// What a report says about its device in a word or a number. Rows of one table in facts.cpp: a new
// fact is a new row there.
struct FactRow {
    const char* key;      // "battery.level"
    const char* label;    // "Battery level"
    const char* unit;     // "%", or ""
    bool number;          // the value is a decimal number
    const char* section;  // the title of the section that it stands in; "" for the whole report
    // What the line with it begins with, as NAME=value, NAME: value or [NAME]: [value]; several
    // with blanks between them, the best first. "" for the section's whole text.
    const char* names;
    // The fact's value in that text; "" when it doesn't say. Null when it is the text itself.
    std::string (*read)(const Report& report, std::string_view text);
    // It tells this device from all others: the kind of identifier that it is, else null.
    const char* identifies = nullptr;
};

struct Fact {
    const FactRow* row;
    std::string value;  // without its unit; bytes as in the report, never empty
};

// Whether a fact stands in the section of that title.
bool IsFactSection(std::string_view title);

// The facts that the report tells, in the table's order, from its sections' captured texts.
void FindFacts(Report& report);

}  // namespace reader
