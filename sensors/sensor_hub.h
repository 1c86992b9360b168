#pragma once

namespace tev::dumpstate {

// The directory that holds the MCU's log files. Static storage.
const char* getMcuLogDataPath();

}  // namespace tev::dumpstate
