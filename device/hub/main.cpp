#include <android-base/properties.h>
#include <android-base/unique_fd.h>
#include <sys/signalfd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "conversation.h"
#include "faults.h"
#include "listening_socket.h"
#include "sensor_data.h"
#include "server.h"

namespace {

constexpr char kProperty[] = "vendor.sim.contexthubd.args";
constexpr int kBadUsage = 2;
constexpr uint32_t kMostRecords = 10'000'000;
constexpr uint32_t kMostDelay = 600'000;

struct Options {
    std::string socket = "/dev/socket/chre";
    uint64_t seed = 1;
    uint32_t records = 7500;  // two minutes
    Order order = Order::kShuffled;
    StuckSensor stuck;
    Server::Misbehaviour misbehaviour;
};

std::string Span(uint32_t least, uint32_t most) {
    return std::to_string(least) + " to " + std::to_string(most);
}

void AddBasics(CLI::App& app, Options& options) {
    app.add_option("--socket", options.socket, "Where to listen")
            ->type_name("PATH")
            ->capture_default_str();
    app.add_option("--seed", options.seed, "Chooses the data; the same seed gives the same bytes")
            ->type_name("N")
            ->capture_default_str();
    app.add_option("--records", options.records, "How many sensor records a snapshot holds")
            ->type_name("N")
            ->check(CLI::Range(kFewestRecords, kMostRecords, Span(kFewestRecords, kMostRecords)))
            ->capture_default_str();
    app.add_option_function<std::string>(
               "--order",
               [&options](const std::string& order) {
                   options.order = order == "sorted" ? Order::kSorted : Order::kShuffled;
               },
               "The order of the pieces that the data is sent in")
            ->type_name("ORDER")
            ->check(CLI::IsMember({"shuffled", "sorted"}))
            ->default_str("shuffled");
}

void AddMoment(CLI::App& app, const std::string& name, std::optional<Moment>& moment,
               const std::string& help) {
    app.add_option_function<std::string>(
               name, [&moment](const std::string& text) { moment = Moment::Parse(text); }, help)
            ->type_name("MESSAGE[:N]")
            ->group("Misbehaviour")
            ->check(
                    [](const std::string& text) {
                        return Moment::Parse(text) ? ""
                                                   : "'" + text +
                                                             "' is no MESSAGE[:N]; --help lists "
                                                             "the messages";
                    },
                    "");
}

void AddMisbehaviour(CLI::App& app, Server::Misbehaviour& misbehaviour) {
    FaultPlan& plan = misbehaviour.plan;
    const char* const group = "Misbehaviour";
    app.add_flag("--absent", plan.absent, "The black box isn't in the list of nanoapps")
            ->group(group);
    app.add_flag("--disabled", plan.disabled, "The list says that the black box is disabled")
            ->group(group);
    app.add_flag("--no-sensors", plan.no_sensors, "The black box counts 0 sensors")->group(group);
    AddMoment(app, "--hang-at", plan.hang_at, "Stop reading and answering there");
    AddMoment(app, "--hang-up-at", plan.hang_up_at, "Close the connection there");
    app.add_option_function<uint32_t>(
               "--delay", [&plan](uint32_t ms) { plan.delay = std::chrono::milliseconds(ms); },
               "Wait so many milliseconds before each message")
            ->type_name("MS")
            ->group(group)
            ->check(CLI::Range(uint32_t{0}, kMostDelay, Span(0, kMostDelay)));
    app.add_option("--garbage", plan.garbage,
                   "Random bytes go out before every Nth message to a client")
            ->type_name("N")
            ->group(group);
    app.add_option("--faulty-clients", misbehaviour.clients,
                   "Only the first N clients see any of this, and of what follows")
            ->type_name("N")
            ->group(group);
    for (size_t row = 0; row < kPieceFaults.size(); ++row) {
        app.add_option("--" + std::string(kPieceFaults[row].option), plan.pieces[row],
                       std::string("It ") + kPieceFaults[row].help)
                ->type_name("N")
                ->group("Misbehaviour of every Nth piece of data to a client");
    }
}

// What a stuck sensor leaves is in the recording, which all clients share.
void AddStuckSensor(CLI::App& app, StuckSensor& stuck) {
    const char* const group = "Misbehaviour of a sensor, which every client sees";
    std::vector<std::string> types;
    for (const uint32_t type : SensorTypes()) types.push_back(std::to_string(type));
    app.add_option("--freeze", stuck.type, "That sensor's records go on, their values stand still")
            ->type_name("TYPE")
            ->check(CLI::IsMember(types))
            ->group(group);
    app.add_option("--freeze-after", stuck.after, "They do once it has recorded so many seconds")
            ->type_name("S")
            ->capture_default_str()
            ->group(group);
}

std::string Footer() {
    std::string footer = "MESSAGE is one of";
    size_t column = footer.size();
    for (const std::string_view name : kMessageNames) {
        const bool breaks = column + 1 + name.size() > 78;
        column = (breaks ? 2 : column + 1) + name.size();
        footer.append(breaks ? "\n  " : " ").append(name);
    }
    return footer +
           ".\nWith :N it is the connection's Nth of its kind, else the first; \"received\" and\n"
           "\"sent\" are any. What is to be sent is stopped before it goes out.\n\n"
           "The words of the property " +
           kProperty +
           " are added to the\ncommand line. The socket appears once the hub listens; "
           "SIGTERM ends the hub.";
}

android::base::unique_fd OpenSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return android::base::unique_fd(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

int Serve(const Options& options) {
    const android::base::unique_fd stop = OpenSignals();
    Hub hub{Recording(options.seed, options.records, options.order, options.stuck)};
    ListeningSocket socket;
    std::string sentence = socket.Open(options.socket);
    if (sentence.empty()) {
        std::fprintf(stderr, "contexthubd: listening at %s\n", options.socket.c_str());
        sentence = Server(socket.fd(), hub, options.misbehaviour).Run(stop.get());
    }
    if (sentence.empty()) return 0;
    std::fprintf(stderr, "contexthubd: %s\n", sentence.c_str());
    return 1;
}

int Run(int argc, char** argv) {
    Options options;
    CLI::App app("A context hub for the simulated wearable, with a sensor black box.",
                 "contexthubd");
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    AddBasics(app, options);
    AddMisbehaviour(app, options.misbehaviour);
    AddStuckSensor(app, options.stuck);
    app.footer(Footer());
    app.get_formatter()->column_width(34);

    std::vector<std::string> words(argv + 1, argv + argc);
    const std::string property = android::base::GetProperty(kProperty, "");
    std::istringstream stream(property);
    for (std::string word; stream >> word;) words.push_back(word);
    std::ranges::reverse(words);  // the parser takes them from the end
    try {
        app.parse(words);
    } catch (const CLI::ParseError& error) {
        if (app.exit(error) == 0) return 0;
        if (!property.empty()) {
            std::fprintf(stderr, "The property %s added \"%s\".\n", kProperty, property.c_str());
        }
        return kBadUsage;
    }
    return Serve(options);
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a closed terminal or pipe is a failed write
    try {
        return Run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "contexthubd: %s\n", failure.what());
        return 1;
    }
}
