#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "report.h"
#include "verdict.h"

namespace reader {

// How often which numbers came, to one percent: bins that each are so much wider than the one
// before. Two of them make one by addition.
class Spread {
  public:
    void Add(double number);
    void Add(const Spread& other);

    uint64_t count() const { return count_; }
    double least() const { return least_; }
    double most() const { return most_; }
    // The number that so large a part of them, 0 to 1, doesn't exceed; 0 when there is none.
    double Quantile(double part) const;

    std::map<int, uint64_t> bins;  // 0 is zero, -1 the negative ones next to it

    // Takes them from a file. False when that can't be.
    bool Restore(double least, double most);

  private:
    uint64_t count_ = 0;
    double least_ = 0;
    double most_ = 0;
};

// How the sections of a title were in one report.
struct SectionSeen {
    double seconds = 0;  // the slowest's, and which it is
    size_t index = 0;
    size_t count = 0;
    std::map<std::string, size_t> failures;
};
using SectionsSeen = std::map<std::string, SectionSeen, std::less<>>;

void Add(SectionsSeen& seen, const Section& section);

// What is usual of the reports of healthy devices: doc/baseline.md. A file holds it as one JSON
// object.
class Baseline {
  public:
    // Adds a whole report and its sections; false when it is not complete and so tells nothing.
    bool Learn(const Report& report, const SectionsSeen& sections);
    void Merge(const Baseline& other);

    // Reads what Write() gave. "" or what is wrong with it.
    std::string Read(std::string_view json);
    std::string Write() const;
    static bool IsBaseline(std::string_view beginning);

    uint64_t reports() const { return reports_; }
    bool Knows(std::string_view title) const { return sections_.contains(title); }
    // "95 of 100 reports of healthy devices have it too", or "".
    std::string WhyExpected(const Section& section) const;
    // What the report has that is unlike these, what is furthest from them first.
    std::vector<Finding> Unusual(const Report& report, const SectionsSeen& seen,
                                 bool complete) const;

  private:
    struct SectionUsage {
        uint64_t reports = 0;
        std::map<std::string, uint64_t> failures;
        Spread seconds;
    };
    struct FactUsage {
        uint64_t reports = 0;
        bool varied = false;  // too many values to be kept: it is different everywhere
        std::map<std::string, uint64_t> values;
        Spread numbers;
    };
    struct Model {
        uint64_t reports = 0;
        std::map<std::string, FactUsage, std::less<>> facts;
        std::map<std::string, Spread, std::less<>> rates;  // by the sensor's name
    };
    using Models = std::map<std::string, Model, std::less<>>;

    friend class UnusualFinder;
    uint64_t reports_ = 0;
    std::map<std::string, SectionUsage, std::less<>> sections_;
    Models models_;
};

}  // namespace reader
