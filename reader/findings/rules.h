#pragma once

#include <optional>

#include "baseline.h"
#include "checks.h"

namespace reader {

// What a report is judged by.
struct Rules {
    Checks checks;
    std::optional<Baseline> baseline;
};

}  // namespace reader
