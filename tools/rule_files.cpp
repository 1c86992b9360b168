#include "rule_files.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

#include "output_file.h"
#include "read_reports.h"
#include "report.h"
#include "terminal.h"
#include "utf8.h"

namespace {

namespace fs = std::filesystem;

// The folder's files in the order of their names.
std::vector<std::string> FilesIn(const fs::path& folder) {
    std::vector<std::string> files;
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(folder, none)) {
        if (entry.path().extension() == ".toml") files.push_back(entry.path());
    }
    std::ranges::sort(files);
    return files;
}

std::vector<std::string> InstalledFiles() {
    std::vector<std::string> files = FilesIn("/etc/boardreport/checks.d");
    const char* const home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') return files;
    std::ranges::move(FilesIn(fs::path(home) / ".config/boardreport/checks.d"),
                      std::back_inserter(files));
    return files;
}

// Whether nothing was wrong in them.
bool LoadChecks(std::vector<std::string> files, const std::vector<std::string>& named,
                bool examples, reader::Checks& checks) {
    std::ranges::copy(named, std::back_inserter(files));
    bool good = true;
    for (const std::string& file : files) {
        for (const std::string& sentence : checks.Load(file, examples)) {
            Complain(sentence);
            good = false;
        }
    }
    return good;
}

// "" or the sentence.
std::string ReadBaseline(const std::string& file, reader::Baseline& baseline) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    const std::string sentence = baseline.Read(text.str());
    return sentence.empty() ? "" : file + ": " + sentence;
}

// Reads a report, or a baseline, into what is usual; "" or the sentence.
std::string Learn(const std::string& file, reader::Baseline& baseline) {
    std::ifstream stream(file, std::ios::binary);
    std::string beginning(200, '\0');
    stream.read(beginning.data(), static_cast<std::streamsize>(beginning.size()));
    if (reader::Baseline::IsBaseline(beginning)) {
        reader::Baseline other;
        const std::string sentence = ReadBaseline(file, other);
        if (sentence.empty()) baseline.Merge(other);
        return sentence;
    }
    reader::Report report;
    reader::SectionsSeen seen;
    const std::string sentence = reader::ReadReport(
            file, false, report, [&](reader::Section& section) { reader::Add(seen, section); });
    if (!sentence.empty()) return sentence;
    if (baseline.Learn(report, seen)) return "";
    return file + " is not a whole report, and is left out";
}

}  // namespace

int LoadRules(const RuleOptions& options, reader::Rules& rules) {
    if (!std::ranges::all_of(options.checks, Readable)) return kUnreadable;
    LoadChecks(InstalledFiles(), options.checks, false, rules.checks);
    if (options.baseline.empty()) return 0;
    if (!Readable(options.baseline)) return kUnreadable;
    const std::string sentence = ReadBaseline(options.baseline, rules.baseline.emplace());
    if (sentence.empty()) return 0;
    Complain(sentence);
    return kUnreadable;
}

int PrintChecks(const std::vector<std::string>& files) {
    if (!std::ranges::all_of(files, Readable)) return kUnreadable;
    reader::Checks checks;
    const bool good = LoadChecks(InstalledFiles(), files, true, checks);
    OutputFile output("-");
    const auto line = [&output](std::string_view id, reader::Severity severity,
                                std::string_view origin, std::string_view about) {
        std::string text(id);
        text.resize(std::max<size_t>(28, text.size() + 1), ' ');
        text += reader::WordOf(severity);
        text.resize(std::max<size_t>(37, text.size() + 1), ' ');
        text += about;
        if (origin != "built in") (text += "  (") += std::string(origin) + ")";
        output.Write(reader::Printable(text) + "\n");
    };
    for (const reader::Check& check : checks.all()) {
        line(check.id, check.severity, check.origin, check.says);
    }
    for (const auto& code : reader::Checks::CodeChecks()) {
        const auto* const weight = checks.WeightOf(code.id);
        if (checks.IsReplaced(code.id)) continue;
        line(code.id, weight == nullptr ? code.severity : *weight->severity, "built in",
             code.about);
    }
    return output.error() == 0 && good ? 0 : 1;
}

int WriteBaseline(const std::vector<std::string>& files, const std::string& output) {
    reader::Baseline baseline;
    int status = 0;
    for (const std::string& file : files) {
        const std::string sentence = Learn(file, baseline);
        if (sentence.empty()) continue;
        Complain(sentence);
        status = kUnreadable;
    }
    if (baseline.reports() == 0) {
        Complain("there is nothing that a baseline could be made of");
        return kUnreadable;
    }
    OutputFile written(output);
    written.Write(baseline.Write());
    written.Commit();
    if (written.error() == 0) return status;
    Complain(written.Sentence());
    return 1;
}
