#include "board_call.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "bundle.h"
#include "dumpstate_client.h"
#include "output_file.h"
#include "progress.h"
#include "read_reports.h"
#include "report_parser.h"
#include "rule_files.h"
#include "temporary_file.h"
#include "units.h"

namespace {

using reader::HumanSize;
using reader::Reason;

constexpr int kRedrawMillis = 500;
constexpr size_t kBuffer = size_t{256} * 1024;

void Complain(const std::string& sentence) {
    std::fprintf(stderr, "boardreport: %s\n", sentence.c_str());
}

// The first SIGINT, SIGTERM or SIGHUP makes a descriptor readable and ends what blocks; the second
// ends the process, as if nobody had caught it. What was ignored stays so. One of these at a time.
class Interruption {
  public:
    Interruption() {
        event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        struct sigaction action {};
        action.sa_handler = Take;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            struct sigaction before {};
            sigaction(signal, nullptr, &before);
            if (before.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
        }
    }
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    bool happened() const { return taken; }
    int fd() const { return event; }

  private:
    static void Take(int /*signal*/) {
        const int error = errno;
        taken = true;
        eventfd_write(event, 1);
        errno = error;
    }

    static inline std::atomic<bool> taken;
    static inline std::atomic<int> event;
};

// One file that the service fills through a pipe.
class Stream {
  public:
    Stream(const std::string& path, const char* option) : file_(path), option_(option) {}
    ~Stream() {
        CloseOurs();
        CloseTheirs();
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    // "" or the sentence.
    std::string Open() {
        if (file_.error() != 0) {
            return file_.Sentence() + "; " + option_ + " chooses another file";
        }
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) return "cannot make a pipe: " + Reason(errno);
        ours_ = ends[0];
        theirs_ = ends[1];
        // Ours alone: the service may want to block, and this side must not.
        fcntl(ours_, F_SETFL, O_NONBLOCK);
        fcntl(ours_, F_SETPIPE_SZ, static_cast<int>(kBuffer));  // saves turns; never mind if not
        return "";
    }

    int ours() const { return ours_; }  // -1 when nothing more will come
    int theirs() const { return theirs_; }
    const OutputFile& file() const { return file_; }
    void GiveUpWhen(int readable) { file_.GiveUpWhen(readable); }
    bool Commit() { return file_.Commit(); }
    void CloseTheirs() { Close(theirs_); }

    // Receives what is there. A file that can't be written closes the pipe, so that the service
    // doesn't wait for it, and leaves the other stream alone.
    template <typename Take>
    void Receive(std::vector<char>& buffer, Take take) {
        while (ours_ >= 0) {
            const ssize_t size = read(ours_, buffer.data(), buffer.size());
            if (size < 0 && errno == EINTR) continue;
            if (size < 0 && errno == EAGAIN) return;
            const std::string_view bytes(buffer.data(), size > 0 ? static_cast<size_t>(size) : 0);
            take(bytes);
            if (bytes.empty() || !file_.Write(bytes)) CloseOurs();
        }
    }

  private:
    static void Close(int& fd) {
        if (fd >= 0) close(fd);
        fd = -1;
    }
    void CloseOurs() { Close(ours_); }

    OutputFile file_;
    const char* const option_;
    int ours_ = -1;
    int theirs_ = -1;
};

class BoardCall {
  public:
    explicit BoardCall(const BoardOptions& options)
        : mode_(options.mode), report_(options.report, "-o"), parser_(progress_.Listener()) {
        if (!options.no_bundle) bundle_.emplace(options.bundle, "-b");
        if (!options.page.empty()) page_.emplace(options.page);
    }

    // "" or the sentence for what keeps the call from being made.
    std::string Start() {
        // Only now, so that until here a FIFO that nobody reads keeps no signal from ending this.
        interruption_.emplace();
        std::string sentence = report_.Open();
        if (sentence.empty() && bundle_) sentence = bundle_->Open();
        if (sentence.empty()) sentence = CheckNames();
        if (sentence.empty()) sentence = client_.Connect();
        if (!sentence.empty()) return sentence;
        std::vector<int> fds{report_.theirs()};
        report_.GiveUpWhen(interruption_->fd());
        if (bundle_) {
            fds.push_back(bundle_->theirs());
            bundle_->GiveUpWhen(interruption_->fd());
        }
        if (page_) page_->GiveUpWhen(interruption_->fd());
        sentence = client_.StartReport(fds, mode_);
        report_.CloseTheirs();
        if (bundle_) bundle_->CloseTheirs();
        return sentence;
    }

    // All that the service wrote is in the pipes once it has answered. Their end is not waited for:
    // a process that the service left behind may hold it open for ever.
    void Run() {
        while (!outcome_ && !interruption_->happened() && ReceivingSomething()) {
            Wait();
            outcome_ = client_.Process();
            Receive();
        }
        parser_.Finish();
        progress_.Finish(parser_);
        progress_.Clear();
    }

    // Puts what is whole in its place, shows it, and says how it went; true when all is well. What
    // is not whole stays beside, and is told last.
    bool Finish() {
        std::string report = ReportFault();
        if (report.empty() && !report_.Commit()) report = report_.file().Sentence();
        std::string bundle = BundleFault(report.empty());
        if (report.empty() && bundle.empty() && bundle_ && !bundle_->Commit()) {
            bundle = bundle_->file().Sentence();
        }
        Judge();
        const bool page = MakePage(report.empty());
        if (report.empty()) {
            Summarize(page);
        } else {
            Complain(report);
        }
        if (!bundle.empty()) Complain(bundle);
        if (report.empty() && !progress_.Host().empty()) {
            std::fprintf(stderr, "%s\n", progress_.Host().c_str());
        }
        return report.empty() && bundle.empty() && page;
    }

  private:
    bool HasBundle() const { return bundle_ && bundle_->file().size() > 0; }

    bool ReceivingSomething() const {
        return report_.file().error() == 0 || (bundle_ && bundle_->file().error() == 0);
    }

    // "" or why the files can't be what they are asked to be together.
    std::string CheckNames() const {
        if (bundle_ && bundle_->file().IsSameAs(report_.file())) {
            return "the report and the bundle can't both go to " + report_.file().name() +
                   "; -o and -b choose other files";
        }
        if (!page_) return "";
        const std::string choice = "; --page chooses another file";
        if (page_->error() != 0) return page_->Sentence() + choice;
        if (page_->IsSameAs(report_.file()) || (bundle_ && page_->IsSameAs(bundle_->file()))) {
            return "the page can't go to " + page_->name() + " too" + choice;
        }
        if (!report_.file().is_kept()) return "a page is made of a report in a file; -o names one";
        return "";
    }

    void Wait() {
        std::array<pollfd, 4> waits{pollfd{client_.fd(), client_.events(), 0},
                                    pollfd{interruption_->fd(), POLLIN, 0},
                                    pollfd{report_.ours(), POLLIN, 0},
                                    pollfd{bundle_ ? bundle_->ours() : -1, POLLIN, 0}};
        poll(waits.data(), waits.size(), client_.TimeoutMillis(kRedrawMillis));
    }

    void Receive() {
        report_.Receive(buffer_, [this](std::string_view bytes) { parser_.Feed(bytes); });
        if (bundle_) bundle_->Receive(buffer_, [](std::string_view) {});
        progress_.Redraw(bundle_ ? bundle_->file().size() : 0);
    }

    // "" or what is wrong with the report, and where what came of it is.
    std::string ReportFault() const {
        const OutputFile& file = report_.file();
        if (file.error() == EINTR || (!outcome_ && interruption_->happened())) {
            return "interrupted" + Kept();
        }
        if (file.error() != 0) return file.Sentence();
        if (outcome_ && !outcome_->empty()) return *outcome_ + Kept();
        if (file.size() == 0) return "the call was accepted, but no report came";
        const std::string missing = progress_.WhatIsMissing();
        return missing.empty() ? "" : missing + Kept();
    }

    // The same of the bundle. Beside a report that is not whole it stays, too, and why none came
    // or could be written is told by the report's fault.
    std::string BundleFault(bool report_is_whole) const {
        if (!bundle_) return "";
        const OutputFile& file = bundle_->file();
        if (!report_is_whole && (file.size() == 0 || file.error() == EINTR)) return "";
        if (file.error() != 0) return file.Sentence();
        if (file.size() == 0) {
            return "the service sent no bundle; its log says why" + WhereTheLogIs() +
                   ", and --no-bundle asks for none" +
                   (file.is_older() ? "; " + file.name() + " is an older one's" : "");
        }
        if (!file.is_kept()) return "";  // gone, and can't be read again
        const reader::Bundle bundle = reader::ReadBundle(file.path());
        const std::string kept = "kept in " + file.path() + " (" +
                                 std::to_string(bundle.members.size()) + " entries, " +
                                 HumanSize(file.size()) + ")";
        if (!bundle.fault.empty()) {
            return "the bundle is not whole: " + bundle.fault + "; what came is " + kept;
        }
        return report_is_whole ? "" : "the bundle is whole, and " + kept;
    }

    // Where to find what came of a report that is not whole.
    std::string Kept() const {
        const OutputFile& file = report_.file();
        if (file.size() == 0 || !file.is_kept()) return "";
        return "; the partial report is kept in " + file.path() + " (" +
               std::to_string(progress_.sections()) + " sections, " + HumanSize(file.size()) + ")";
    }

    // What came of the report is judged anew once it is in its file, where its lines can be looked
    // at.
    void Judge() {
        if (!report_.file().is_kept() || report_.file().size() == 0) return;
        reader::Report report;
        reader::Verdict verdict;
        if (ReadAndJudge(report_.file().path(), rules_, false, report, verdict).empty()) {
            progress_.Take(std::move(verdict));
        }
    }

    // Shows what came of the report, whole or not; true when that is done or not wanted.
    bool MakePage(bool whole) {
        if (!page_ || report_.file().size() == 0) return true;
        reader::PageOptions options;
        options.total_seconds = Seconds();
        if (HasBundle() && bundle_->file().is_kept()) {
            options.bundle = bundle_->file().path();
        }
        return WritePageFile({report_.file().path()}, rules_, options, *page_, whole) == 0;
    }

    static reader::Rules InstalledRules() {
        reader::Rules rules;
        LoadRules({}, rules);
        return rules;
    }

    double Seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

    // The closing line of a whole report.
    void Summarize(bool page_is_there) const {
        std::string bundle;
        if (HasBundle()) {
            bundle = ", " + HumanSize(bundle_->file().size()) + " in " + bundle_->file().path();
        }
        std::fprintf(stderr, "%s; %s in %s%s; %.1f s\n", progress_.Verdict().c_str(),
                     HumanSize(report_.file().size()).c_str(), report_.file().name().c_str(),
                     bundle.c_str(), Seconds());
        if (page_ && page_is_there && page_->is_kept()) {
            std::fprintf(stderr, "%s shows it in a browser\n", page_->name().c_str());
        }
        std::fprintf(stderr, "%s\n", progress_.Findings().c_str());
    }

    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    const int mode_;
    Stream report_;
    std::optional<Stream> bundle_;
    std::optional<OutputFile> page_;
    const reader::Rules rules_ = InstalledRules();
    Progress progress_{rules_};
    reader::ReportParser parser_;
    DumpstateClient client_;
    std::optional<Interruption> interruption_;
    std::vector<char> buffer_ = std::vector<char>(kBuffer);
    std::optional<std::string> outcome_;
};

}  // namespace

int RunBoardReport(const BoardOptions& options) {
    BoardCall call(options);
    if (const std::string sentence = call.Start(); !sentence.empty()) {
        Complain(sentence);
        return 1;
    }
    call.Run();
    return call.Finish() ? 0 : 1;
}

int RunVerbose(const std::string& word) {
    DumpstateClient client;
    bool enabled = false;
    std::string sentence = client.Connect();
    if (sentence.empty() && word != "show") sentence = client.SetVerbose(word == "on");
    if (sentence.empty()) sentence = client.GetVerbose(&enabled);
    if (!sentence.empty()) {
        Complain(sentence);
        return 1;
    }
    std::printf("verbose logging: %s\n", enabled ? "enabled" : "disabled");
    if (word == "show" || enabled == (word == "on")) return 0;
    Complain(
            "the service took the setting but doesn't show it; its property may not be "
            "writable");
    return 1;
}
