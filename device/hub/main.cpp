#include <android-base/properties.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "options.h"
#include "server.h"

namespace {

constexpr char kProperty[] = "vendor.sim.contexthubd.args";
constexpr int kBadUsage = 2;

int Run(std::vector<std::string> words) {
    const std::string property = android::base::GetProperty(kProperty, "");
    std::istringstream stream(property);
    for (std::string word; stream >> word;) words.push_back(word);
    if (std::ranges::find(words, "--help") != words.end()) {
        std::printf(
                "%s\nThe words of the property %s are added to the\ncommand line. The socket "
                "appears once the hub listens; SIGTERM ends the hub.\n",
                Options::Help().c_str(), kProperty);
        return 0;
    }
    // Never destroyed, as threads may be left when the process ends.
    static auto& options = *new Options;
    const std::string wrong = options.Read(words);
    if (!wrong.empty()) {
        std::fprintf(stderr, "contexthubd: %s\n", wrong.c_str());
        if (!property.empty()) {
            std::fprintf(stderr, "The property %s added \"%s\".\n", kProperty, property.c_str());
        }
        return kBadUsage;
    }
    static auto& hub = *new Hub{Recording(options.records, options.stuck)};
    return Serve(options.socket, hub, options.plan);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run({argv + 1, argv + argc});
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "contexthubd: %s\n", failure.what());
        return 1;
    }
}
