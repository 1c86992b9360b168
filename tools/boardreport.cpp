#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "board_call.h"
#include "read_reports.h"
#include "redact_command.h"
#include "rule_files.h"
#include "terminal.h"

namespace {

// The words that read finished reports, and what they are given.
struct ReadingWords {
    explicit ReadingWords(CLI::App& app);
    // The exit status, once one of them was said.
    std::optional<int> Run() const;

    std::vector<std::string> files;
    std::string output = "report.html";
    std::string bundle;
    bool whole = false;
    uint64_t bundle_mib = reader::PageOptions::kBundleSize >> 20;
    std::vector<std::string> check_files;
    std::string baseline_file = "-";
    RuleOptions rules;
    CLI::App* summary;
    CLI::App* page;
    CLI::App* json;
    CLI::App* checks;
    CLI::App* baseline;
};

ReadingWords::ReadingWords(CLI::App& app)
    : summary(app.add_subcommand("summary",
                                 "Print what is wrong with a finished report, or what differs "
                                 "between it and others")),
      page(app.add_subcommand("page",
                              "Write a page for a browser that shows a finished report, or several "
                              "beside one another")),
      json(app.add_subcommand("json", "Print finished reports as one JSON object a line")),
      checks(app.add_subcommand("checks",
                                "List what reports are checked for, and try the examples in files "
                                "of checks")),
      baseline(app.add_subcommand(
              "baseline", "Learn what is usual from reports of healthy devices, for --baseline")) {
    checks->add_option("FILE", check_files, "Files of checks, over those that are in force")
            ->type_name("FILE");
    checks->footer(
            "Exit status: 0 when nothing is wrong in the files, else 1; 2 for bad usage, 3 when "
            "one can't be read.");
    baseline->footer(
            "Exit status: 0; 1 when the baseline can't be written, 2 for bad usage, 3 when a "
            "report can't be read or is not whole.");
    baseline->add_option("REPORT", files, "The reports, and baselines made before")
            ->type_name("FILE")
            ->required();
    baseline->add_option("-o", baseline_file, "The baseline; - is standard output")
            ->type_name("FILE")
            ->capture_default_str();
    for (CLI::App* const word : {summary, page, json}) {
        word->add_option("--checks", rules.checks,
                         "A file of checks to judge by as well; several may be given")
                ->type_name("FILE")
                ->expected(1)
                ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        word->add_option("--baseline", rules.baseline, "What is usual, to judge by as well")
                ->type_name("FILE");
        word->add_option("REPORT", files, "The reports; - is standard input")
                ->type_name("FILE")
                ->required();
    }
    summary->footer(
            "Exit status: 0 without an error or a warning and when nothing differs, else 1; 2 for "
            "bad usage, 3 when a report can't be read.");
    json->footer(
            "Exit status: 0; 1 when standard output can't be written, 2 for bad usage, 3 when a "
            "report can't be read.");
    page->footer(
            "Exit status: 0; 1 when the page can't be written, 2 for bad usage, 3 when a report "
            "can't be read.");
    page->add_option("-o", output, "The page; - is standard output")
            ->type_name("FILE")
            ->capture_default_str();
    page->add_option("-b", bundle,
                     "The log bundle that came with the first report, to be read in the page")
            ->type_name("FILE");
    page->add_flag("--whole", whole, "Show all of every section and log, however long");
    page->add_option("--bundle-size", bundle_mib,
                     "How many MiB of the page the bundle's texts may take")
            ->type_name("MIB")
            ->check(CLI::Range(0, 4096))
            ->capture_default_str();
}

std::optional<int> ReadingWords::Run() const {
    if (checks->parsed()) return PrintChecks(check_files);
    if (baseline->parsed()) return WriteBaseline(files, baseline_file);
    if (!summary->parsed() && !json->parsed() && !page->parsed()) return {};
    reader::Rules judged_by;
    if (const int status = LoadRules(rules, judged_by); status != 0) return status;
    if (summary->parsed()) return PrintSummary(files, judged_by);
    if (json->parsed()) return PrintRecords(files, judged_by);
    reader::PageOptions options;
    options.whole = whole;
    options.bundle_size = bundle_mib << 20;
    if (!bundle.empty()) options.bundle = bundle;
    return WritePageFile(files, judged_by, options, output);
}

// A variable of a shell that isn't set names no file, and is not as good as no option.
void RefuseEmptyNames(CLI::App& app) {
    for (CLI::Option* const option : app.get_options()) {
        if (option->get_type_name() != "FILE") continue;
        option->check([](const std::string& name) {
            return name.empty() ? "the file's name is empty" : "";
        });
    }
    for (CLI::App* const word : app.get_subcommands([](CLI::App*) { return true; })) {
        RefuseEmptyNames(*word);
    }
}

// Names what was typed or is missing, and where to read about it.
std::string BadUsage(const CLI::App* app, const CLI::Error& error) {
    std::string what = error.what();
    // "-o: 1 required FILE missing"
    constexpr std::string_view kMissing = ": 1 required ";
    if (const size_t at = what.find(kMissing); at != std::string::npos) {
        what.replace(at, kMissing.size(), " wants a value: ");
        what.erase(what.rfind(" missing"));
    }
    // Before what is missing: it is an option misspelt, perhaps.
    if (const std::vector<std::string> extra = app->remaining(true); !extra.empty()) {
        what = "there is no use for '" + extra.front() + "'";
    }
    std::string words = app->get_name();
    for (const CLI::App* const word : app->get_subcommands()) {
        words += " " + word->get_name();
        for (const CLI::Option* const option : word->get_options()) {
            if (what == option->get_name() + " is required") {
                what += ": " + option->get_description();
            }
        }
    }
    return "boardreport: " + what + "; " + words + " --help tells what it takes\n";
}

int Run(int argc, char** argv) {
    BoardOptions options;
    std::string state;
    CLI::App app("Asks the dumpstate service for a board report, and reads finished ones.",
                 "boardreport");
    app.set_version_flag("--version", "boardreport " DUMPSTATE_VERSION,
                         "Print the version and exit");
    app.add_option("-o", options.report, "The file that receives the report; - is standard output")
            ->type_name("FILE")
            ->capture_default_str();
    app.add_option("-b", options.bundle, "The file that receives the log bundle")
            ->type_name("FILE")
            ->capture_default_str();
    app.add_flag("--no-bundle", options.no_bundle, "Ask for no log bundle");
    app.add_option("--page", options.page, "Make a page for a browser that shows the report")
            ->type_name("FILE");
    app.add_option("--mode", options.mode, "What the report is for, 0 to 7; all give the same")
            ->type_name("N")
            ->check(CLI::Range(0, 7).description(""))
            ->capture_default_str();
    const ReadingWords words(app);
    const RedactCommand redact(app);
    CLI::App* const verbose = app.add_subcommand("verbose", "Show or change verbose logging");
    verbose->add_option("STATE", state, "on, off or show")
            ->required()
            ->check(CLI::IsMember({"on", "off", "show"}));
    verbose->footer(
            "Exit status: 0; 1 when the service can't be asked or the setting doesn't take, 2 for "
            "bad usage.");
    app.footer(
            "Exit status: 0 when the call was accepted and all files are whole, else 1; 2 for bad "
            "usage; of a word, what its --help says.");
    RefuseEmptyNames(app);
    app.failure_message(BadUsage);
    app.require_subcommand(0, 1);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kBadUsage;
    }
    // A word takes its own, and would do without these.
    for (const CLI::App* const word : app.get_subcommands()) {
        for (const CLI::Option* const option : app.parse_order()) {
            Complain("'" + option->get_name() + "' stands before " + word->get_name() +
                     ", which has no use for it there; boardreport " + word->get_name() +
                     " --help tells what it takes");
            return kBadUsage;
        }
    }
    if (const std::optional<int> status = words.Run()) return *status;
    if (const std::optional<int> status = redact.Run()) return *status;
    return verbose->parsed() ? RunVerbose(state) : RunBoardReport(options);
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
