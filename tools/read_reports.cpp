#include "read_reports.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "json.h"
#include "report.h"
#include "summary.h"
#include "temporary_file.h"
#include "terminal.h"
#include "watch.h"

namespace {

// 0, or the exit status after it has said what is wrong.
int Read(const std::vector<std::string>& files, const reader::Rules& rules, bool texts,
         std::vector<reader::Report>& reports, std::vector<reader::Verdict>& verdicts) {
    if (std::ranges::count(files, "-") > 1) {
        Complain("standard input is one report; name the others by their files");
        return kBadUsage;
    }
    reports.resize(files.size());
    verdicts.resize(files.size());
    int status = 0;
    for (size_t i = 0; i < files.size(); ++i) {
        const std::string sentence = ReadAndJudge(files[i], rules, texts, reports[i], verdicts[i]);
        if (sentence.empty()) continue;
        Complain(sentence);
        status = kUnreadable;
    }
    return status;
}

// Whether all was written. Who reads a pipe no longer has had enough, which is nothing to tell.
bool Written(const OutputFile& file) {
    if (file.error() == 0) return true;
    if (file.error() != EPIPE) Complain(file.Sentence());
    return false;
}

// Whether two names, "-" standing for the descriptor, are of one file.
bool SameFile(const std::string& one, int one_fd, const std::string& other, int other_fd) {
    struct stat a {};
    struct stat b {};
    const auto look = [](const std::string& name, int fd, struct stat& status) {
        return (name == "-" ? fstat(fd, &status) : stat(name.c_str(), &status)) == 0;
    };
    return look(one, one_fd, a) && look(other, other_fd, b) && a.st_dev == b.st_dev &&
           a.st_ino == b.st_ino && S_ISREG(a.st_mode);
}

bool IsOneOf(const std::string& output, const std::vector<std::string>& files) {
    return std::ranges::any_of(files, [&](const std::string& file) {
        return SameFile(file, STDIN_FILENO, output, STDOUT_FILENO);
    });
}

// What a signal finds half written is removed: a page can be made anew.
class RemovedOnSignal {
  public:
    explicit RemovedOnSignal(const OutputFile& file) : path_(file.path()) {
        if (path_ == file.name()) return;  // nothing that is only on its way there
        removed = path_.c_str();
        struct sigaction action {};
        action.sa_handler = Remove;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            struct sigaction before {};
            sigaction(signal, nullptr, &before);
            if (before.sa_handler == SIG_DFL) sigaction(signal, &action, nullptr);
        }
    }
    ~RemovedOnSignal() { removed = nullptr; }
    RemovedOnSignal(const RemovedOnSignal&) = delete;
    RemovedOnSignal& operator=(const RemovedOnSignal&) = delete;

  private:
    static void Remove(int signal) {
        if (const char* const path = removed) unlink(path);
        raise(signal);  // which ends the process, as if nobody had caught it
    }

    const std::string path_;
    static inline std::atomic<const char*> removed;
};

}  // namespace

bool Readable(const std::string& file) {
    struct stat status {};
    int error = 0;
    if (access(file.c_str(), R_OK) != 0 || stat(file.c_str(), &status) != 0) {
        error = errno;
    } else if (S_ISDIR(status.st_mode)) {
        error = EISDIR;
    }
    if (error != 0) Complain("cannot read " + file + ": " + reader::Reason(error));
    return error == 0;
}

std::string ReadAndJudge(const std::string& file, const reader::Rules& rules, bool texts,
                         reader::Report& report, reader::Verdict& verdict) {
    reader::Watch watch(rules, report);
    const std::string sentence = reader::ReadReport(
            file, texts, report, [&watch](reader::Section& section) { watch.Take(section); });
    if (sentence.empty()) verdict = reader::Judge(report, watch);
    return sentence;
}

int PrintSummary(const std::vector<std::string>& files, const reader::Rules& rules) {
    std::vector<reader::Report> reports;
    std::vector<reader::Verdict> verdicts;
    if (const int status = Read(files, rules, false, reports, verdicts); status != 0) {
        return status;
    }
    const bool colour = isatty(STDOUT_FILENO) == 1 && WantsColour();
    const reader::Summary summary = reader::Summarize(reports, verdicts, colour);
    OutputFile output("-");
    output.Write(summary.text);
    return Written(output) && summary.good ? 0 : 1;
}

int PrintRecords(const std::vector<std::string>& files, const reader::Rules& rules) {
    OutputFile output("-");
    const reader::Sink sink = [&output](std::string_view bytes) { return output.Write(bytes); };
    int status = 0;
    for (const std::string& file : files) {
        const std::string sentence = reader::WriteJson(file, rules, sink);
        if (!Written(output)) return 1;
        if (sentence.empty()) continue;
        Complain(sentence);
        status = kUnreadable;
    }
    return status;
}

int WritePageFile(const std::vector<std::string>& files, const reader::Rules& rules,
                  const reader::PageOptions& options, const std::string& output) {
    std::vector<std::string> read = files;
    if (options.bundle) read.push_back(*options.bundle);
    if (IsOneOf(output, read)) {
        Complain("the page can't take the place of " + output + "; -o chooses another file");
        return kBadUsage;
    }
    if (options.bundle && !Readable(*options.bundle)) return kUnreadable;
    OutputFile file(output);
    const RemovedOnSignal unfinished(file);
    return WritePageFile(files, rules, options, file, true);
}

int WritePageFile(const std::vector<std::string>& files, const reader::Rules& rules,
                  const reader::PageOptions& options, OutputFile& output, bool whole) {
    if (!Written(output)) return 1;
    std::vector<reader::Report> reports;
    std::vector<reader::Verdict> verdicts;
    if (const int status = Read(files, rules, true, reports, verdicts); status != 0) return status;
    const std::string sentence =
            reader::WritePage(reports, verdicts, options,
                              [&output](std::string_view bytes) { return output.Write(bytes); });
    if (whole && sentence.empty()) output.Commit();
    if (!Written(output)) return 1;
    if (!sentence.empty()) {
        Complain(sentence);
        return kUnreadable;
    }
    if (!whole && output.is_kept()) {
        Complain("the page of the partial report is kept in " + output.path());
    }
    return 0;
}
