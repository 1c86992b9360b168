#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "files.h"

// Finished reports for the programs that read them.
struct Shape {
    const char* name;
    size_t records;
    size_t sections;
    size_t size;  // at least
};
inline constexpr Shape kOrdinary{"ordinary", 7500, 55, kMiB / 2};
inline constexpr Shape kBig{"big", 1'000'000, 50, 50 * kMiB};
inline constexpr Shape kHuge{"huge", 1, 1, 1024 * kMiB};

// In a folder of its own in memory. Made when first asked for, and removed at the end.
class Reports {
  public:
    struct Made {
        std::string path;
        size_t shown = 0;  // bytes of sections, and of records as a page may carry them
    };

    Reports() = default;
    ~Reports();
    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;

    const Made& operator[](const Shape& shape);
    static std::string PathOf(const std::string& name);

  private:
    std::map<std::string, Made> made_;
};
