#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "report.h"
#include "sink.h"
#include "verdict.h"

namespace reader {

struct PageOptions {
    static constexpr uint64_t kBundleSize = uint64_t{16} << 20;

    bool whole = false;                  // show all of every text, however large
    std::optional<std::string> bundle;   // the archive that came with the first report
    uint64_t bundle_size = kBundleSize;  // what its texts may take of the page, unless whole
    // How long the first report took to make, where this is known; what its sections don't account
    // for is shown too.
    std::optional<double> total_seconds;
};

// Writes one HTML file that shows the report, or several beside one another, the first being what
// the others are compared with, and what each is found to be. They have been read with their texts.
// Returns "" or a sentence that says what is wrong, other than with the sink.
std::string WritePage(std::span<const Report> reports, std::span<const Verdict> verdicts,
                      const PageOptions& options, const Sink& sink);

}  // namespace reader
