#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include "board_call.h"
#include "dumpstate_client.h"

namespace {

constexpr int kBadUsage = 2;

int Verbose(const std::string& word) {
    DumpstateClient client;
    bool enabled = false;
    std::string sentence = client.Connect();
    if (sentence.empty() && word != "show") sentence = client.SetVerbose(word == "on");
    if (sentence.empty()) sentence = client.GetVerbose(&enabled);
    if (!sentence.empty()) {
        std::fprintf(stderr, "boardreport: %s\n", sentence.c_str());
        return 1;
    }
    std::printf("verbose logging: %s\n", enabled ? "enabled" : "disabled");
    if (word == "show" || enabled == (word == "on")) return 0;
    std::fputs(
            "boardreport: the service took the setting but doesn't show it; its property may "
            "not be writable\n",
            stderr);
    return 1;
}

int Run(int argc, char** argv) {
    BoardOptions options;
    std::string word;
    CLI::App app("Asks the dumpstate service for a board report.", "boardreport");
    app.add_option("-o", options.report, "The file that receives the report")
            ->type_name("FILE")
            ->capture_default_str();
    app.add_option("-b", options.bundle, "The file that receives the log bundle")
            ->type_name("FILE")
            ->capture_default_str();
    app.add_flag("--no-bundle", options.no_bundle, "Ask for no log bundle");
    app.add_option("--mode", options.mode, "What the report is for, 0 to 7; all give the same")
            ->type_name("N")
            ->capture_default_str();
    CLI::App* const verbose = app.add_subcommand("verbose", "Show or change verbose logging");
    verbose->add_option("STATE", word, "on, off or show")
            ->required()
            ->check(CLI::IsMember({"on", "off", "show"}));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kBadUsage;
    }
    return verbose->parsed() ? Verbose(word) : RunBoardReport(options);
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a closed terminal or pipe is a failed write
    try {
        return Run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "boardreport: %s\n", failure.what());
        return 1;
    }
}
