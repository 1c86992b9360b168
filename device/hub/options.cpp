#include "options.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <optional>
#include <vector>

namespace {

using Sentence = std::string;  // what is wrong, or ""

struct Option {
    std::string name;
    std::string value;  // what the help calls it; "" for a flag
    std::string help;
    std::function<Sentence(std::string_view value)> read;
};

std::string Types() {
    std::string types;
    for (const uint32_t type : SensorTypes()) {
        types += (types.empty() ? "" : ", ") + std::to_string(type);
    }
    return types;
}

// What each row reads into outlives it.

Option Flag(const char* name, bool& flag, const char* help) {
    const auto read = [&flag](std::string_view /*value*/) {
        flag = true;
        return Sentence();
    };
    return {name, "", help, read};
}

Option Number(const std::string& name, const char* value, uint32_t& number, uint32_t least,
              uint32_t most, const std::string& help) {
    const auto read = [&number, least, most](std::string_view text) -> Sentence {
        const char* const end = text.data() + text.size();
        const auto [rest, error] = std::from_chars(text.data(), end, number);
        if (error == std::errc() && rest == end && number >= least && number <= most) return "";
        return "'" + std::string(text) + "' is no number from " + std::to_string(least) + " to " +
               std::to_string(most);
    };
    return {name, value, help, read};
}

Option At(const char* name, std::optional<Moment>& moment, const char* help) {
    const auto read = [&moment](std::string_view text) -> Sentence {
        moment = Moment::Parse(text);
        if (moment) return "";
        return "'" + std::string(text) + "' is no MESSAGE[:N]; --help lists the messages";
    };
    return {name, "MESSAGE[:N]", help, read};
}

Option Type(const char* name, uint32_t& type, const char* help) {
    const auto read = [&type](std::string_view text) -> Sentence {
        for (const uint32_t one : SensorTypes()) {
            if (text != std::to_string(one)) continue;
            type = one;
            return "";
        }
        return "'" + std::string(text) + "' is no sensor's type, which are " + Types();
    };
    return {name, "TYPE", help, read};
}

std::vector<Option> Rows(Options& options) {
    FaultPlan& plan = options.plan;
    const auto socket = [&options](std::string_view path) {
        options.socket = path;
        return Sentence();
    };
    std::vector<Option> rows = {
            {"--socket", "PATH", "Where to listen (/dev/socket/chre)", socket},
            Number("--records", "N", options.records, kFewestRecords, 10'000'000,
                   "How many sensor records a snapshot holds (7500)"),
            Flag("--absent", plan.absent, "The black box isn't in the list of nanoapps"),
            Flag("--disabled", plan.disabled, "The list says that the black box is disabled"),
            Flag("--no-sensors", plan.no_sensors, "The black box counts 0 sensors"),
            At("--hang-at", plan.hang_at, "Stop reading and answering there"),
            At("--hang-up-at", plan.hang_up_at, "Close the connection there"),
            Number("--delay", "MS", plan.delay_ms, 0, 600'000,
                   "Wait so many milliseconds before each message"),
            Type("--freeze", options.stuck.type,
                 "That sensor's records go on, their values stand still"),
            Number("--freeze-after", "S", options.stuck.after, 0, UINT32_MAX,
                   "They do once it has recorded so many seconds (0)"),
    };
    for (size_t row = 0; row < kPieceFaults.size(); ++row) {
        rows.push_back(Number("--" + std::string(kPieceFaults.at(row).option), "N",
                              plan.pieces.at(row), 0, UINT32_MAX,
                              std::string("Every Nth piece of data ") + kPieceFaults.at(row).help));
    }
    return rows;
}

}  // namespace

std::string Options::Read(std::span<const std::string> words) {
    const std::vector<Option> rows = Rows(*this);
    bool freezes_later = false;
    for (size_t i = 0; i < words.size(); ++i) {
        const size_t equals = words[i].find('=');
        const std::string name = words[i].substr(0, equals);
        const auto option = std::ranges::find(rows, name, &Option::name);
        if (option == rows.end()) return "there is no option " + name + "; --help lists them";
        std::string value;
        if (equals != std::string::npos) {
            if (option->value.empty()) return name + " takes no value";
            value = words[i].substr(equals + 1);
        } else if (!option->value.empty()) {
            if (++i == words.size()) return name + " wants a value, " + option->value;
            value = words[i];
        }
        const Sentence wrong = option->read(value);
        if (!wrong.empty()) return name + ": " + wrong;
        freezes_later = freezes_later || name == "--freeze-after";
    }
    if (freezes_later && stuck.type == 0) {
        return "--freeze-after without --freeze TYPE, which says which sensor: " + Types();
    }
    return "";
}

std::string Options::Help() {
    std::string help =
            "usage: contexthubd [OPTION]...\n"
            "A context hub for the simulated wearable, with a sensor black box.\n\n";
    Options unused;
    for (const Option& one : Rows(unused)) {
        std::string left = "  " + one.name + (one.value.empty() ? "" : " ") + one.value;
        left.resize(28, ' ');
        help += left + one.help + "\n";
    }
    help += "\nTYPE is one of " + Types() + ", MESSAGE one of\n";
    for (const std::string_view name : kMessageNames) help.append("  ").append(name).append("\n");
    return help +
           "With :N it is the connection's Nth of its kind, else the first; \"received\" and\n"
           "\"sent\" are any. What is to be sent is stopped before it goes out.\n";
}
