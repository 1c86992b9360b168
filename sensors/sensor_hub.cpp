#include "sensor_hub.h"

namespace tev::dumpstate {

const char* getMcuLogDataPath() {
    return "/data/vendor/log/mcu";
}

}  // namespace tev::dumpstate
