#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "report.h"

namespace reader {

enum class Severity { kNone, kNote, kWarning, kError };

// "error", "warning", "note", "none"
std::string_view WordOf(Severity severity);

// Where to look when data of the sensors is missing.
std::string SensorHint(const Tally& tally);

// Something that is wrong, or worth a look: a check that holds of a report.
struct Finding {
    // Of the report's black boxes, and of that one's sensors.
    struct SensorPlace {
        size_t black_box;
        size_t sensor;
        bool operator==(const SensorPlace&) const = default;
    };

    std::string check;  // "sensor-frozen"
    Severity severity = Severity::kError;
    // What it is about, the same in every report: "USF stat", "Accelerometer"; and what of it.
    std::string subject;
    std::string what;
    std::string says;  // both, as a sentence
    std::string hint;  // what to do, or where to look; "" when there is nothing to add
    // Where: in which section, and at which line of its text, from 1; or of which sensor.
    std::string section;
    std::optional<size_t> index;
    std::optional<uint64_t> line;
    std::optional<SensorPlace> sensor;
    std::string evidence;               // the very line; "" where it is no line that shows it
    std::vector<const FactRow*> facts;  // that it rests on
};

// What is wrong with a report: one list, which everything shows and counts.
struct Verdict {
    std::vector<Finding> findings;  // the gravest first, else as they stand in the report
    // Nothing of the report is missing that can be known to be missing, whatever is silenced.
    bool complete = true;
    // What is wrong with the black box, in few words; "" when nothing is.
    std::string black_box;

    // Seconds before the times section that no section accounts for, where that is found.
    double unaccounted = 0;

    size_t Count(Severity severity) const;
    // No error and no warning.
    bool good() const { return Count(Severity::kError) + Count(Severity::kWarning) == 0; }
    // "2 errors"
    std::string CountOf(Severity severity) const;
    // "2 errors, 1 warning"; "nothing is wrong"
    std::string Counts() const;
    // What is wrong with the sensor: "froze at ..., 2 gaps"; "" when nothing is.
    std::string WordsOf(Finding::SensorPlace sensor) const;

    void Add(Finding finding);
    // Gives all findings of a check this severity; none takes them away.
    void Weigh(std::string_view check, Severity severity);
    // Once all have been added or weighed.
    void Sort();

  private:
    std::map<std::pair<size_t, size_t>, std::string> words_;  // by black box and sensor
};

class Watch;

// What the report is found to be by what the rules say, and by what its sections showed to the
// watch when it was read. Of its sections only those that have failed or are not finished need be
// there, of its sensors what they are like.
Verdict Judge(const Report& report, const Watch& watch);
// The same by the checks alone that are code, whose findings have all to be told.
Verdict Judge(const Report& report);

// "7 sensors, 7,495 records", or why there are none.
std::string DescribeBlackBoxes(const Report& report, const Verdict& verdict);

// "" or the sentence that says that the report is of a host and of no wearable: nearly everything
// fails there, for one reason.
std::string HostSentence(const Tally& tally);

// "2026-11-25 07:29:12 UTC" where the report says when the device booted, else "49.131 s after
// boot". The boot's time is known to a second or two, and so is this.
std::string Moment(const Report& report, uint64_t nanoseconds);

}  // namespace reader
