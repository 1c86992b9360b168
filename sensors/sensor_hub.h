#pragma once

namespace tev::dumpstate {

// Writes the sensor hub section: the sensor black box's data, the sensor framework's statistics,
// metrics, registers and registry. fd stays the caller's. What fails shows in the report or the
// log, and the next step follows. Takes two seconds plus what the commands take and, where the
// black box doesn't answer, five seconds more. Nothing of it is left when it returns.
void dump(int fd);

// The directory of the MCU's log files; a constant.
const char* getMcuLogDataPath();

}  // namespace tev::dumpstate
