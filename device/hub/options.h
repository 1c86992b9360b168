#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "faults.h"
#include "sensor_data.h"

struct Options {
    std::string socket = "/dev/socket/chre";
    uint32_t records = 7500;  // two minutes
    StuckSensor stuck;
    FaultPlan plan;

    // Reads "--name value", "--name=value" and "--flag" words; of what is said twice the last
    // holds.
    // "" or the sentence for what is wrong with them.
    std::string Read(std::span<const std::string> words);

    static std::string Help();
};
