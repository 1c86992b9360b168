#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

// The word "redact" and its options.
struct RedactCommand {
    explicit RedactCommand(CLI::App& app);
    // The exit status, once the word was said: 0 when what was written was read again and names
    // nobody, 1 when it does or can't be written, 2 for bad usage, 3 when something can't be read.
    std::optional<int> Run() const;

    std::string report;
    std::string bundle;
    std::string output;
    std::string bundle_output;
    std::string map;
    std::string undo;
    std::vector<std::string> keep;
    std::vector<std::string> also;
    std::vector<std::string> without;
    CLI::App* word;
};
