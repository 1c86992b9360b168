#include "board_call.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "bundle.h"
#include "dumpstate_client.h"
#include "output_file.h"
#include "progress.h"
#include "read_reports.h"
#include "report_parser.h"
#include "rule_files.h"
#include "units.h"

namespace {

using reader::HumanSize;

constexpr int kRedrawMillis = 500;
constexpr size_t kBuffer = size_t{256} * 1024;

void Complain(const std::string& sentence) {
    std::fprintf(stderr, "boardreport: %s\n", sentence.c_str());
}

std::string Reason(int error) {
    return std::generic_category().message(error);
}

// One file that the service fills through a pipe.
class Stream {
  public:
    explicit Stream(const std::string& path) : file_(path) {}
    ~Stream() {
        CloseOurs();
        CloseTheirs();
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    // "" or the sentence.
    std::string Open() {
        if (file_.error() != 0) {
            return file_.Sentence() + "; -o and -b choose other files";
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
    int ours_ = -1;
    int theirs_ = -1;
};

int OpenSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

class BoardCall {
  public:
    explicit BoardCall(const BoardOptions& options)
        : mode_(options.mode),
          report_(options.report),
          parser_(progress_.Listener()) {
        if (!options.no_bundle) bundle_.emplace(options.bundle);
        if (!options.page.empty()) page_.emplace(options.page);
    }

    // "" or the sentence for what keeps the call from being made.
    std::string Start() {
        if (bundle_ && SameFile(report_.file(), bundle_->file())) {
            return "the report and the bundle can't both go to " + report_.file().name() +
                   "; -o and -b choose other files";
        }
        if (page_ &&
            (SameFile(*page_, report_.file()) || (bundle_ && SameFile(*page_, bundle_->file())))) {
            return "the page can't go to " + page_->name() + " too; --page chooses another file";
        }
        if (page_ && page_->error() != 0) {
            return page_->Sentence() + "; --page chooses another file";
        }
        if (page_ && !report_.file().is_kept() && report_.file().error() == 0) {
            return "a page is made of a report in a file; -o names one";
        }
        std::string sentence = report_.Open();
        if (sentence.empty() && bundle_) sentence = bundle_->Open();
        if (sentence.empty()) sentence = client_.Connect();
        if (!sentence.empty()) return sentence;
        std::vector<int> fds{report_.theirs()};
        if (bundle_) fds.push_back(bundle_->theirs());
        sentence = client_.StartReport(fds, mode_);
        report_.CloseTheirs();
        if (bundle_) bundle_->CloseTheirs();
        return sentence;
    }

    void Run() {
        while (!outcome_ && !interrupted_ && ReceivingSomething()) {
            Wait();
            outcome_ = client_.Process();
            Receive();
        }
        // All that the service wrote is in the pipes by now. Their end is not waited for: a process
        // that the service left behind may hold it open for ever.
        Receive();
        parser_.Finish();
        progress_.Finish(parser_);
        progress_.Clear();
    }

    // Puts the files in their places once the call has ended well; the bundle only beside its
    // report.
    void Commit() {
        if (interrupted_ || !outcome_ || !outcome_->empty()) return;
        committed_ = report_.Commit();
        if (committed_ && bundle_) bundle_->Commit();
    }

    // Judges what came of the report once it is in its file, where its lines can be looked at.
    void Judge() {
        LoadRules({}, rules_);
        if (!report_.file().is_kept() || report_.file().size() == 0) return;
        reader::Report report;
        reader::Verdict verdict;
        if (ReadAndJudge(report_.file().path(), rules_, false, report, verdict).empty()) {
            progress_.Take(std::move(verdict));
        }
    }

    // Shows what came of the report, whole or not; true when that is done or not wanted.
    bool MakePage() {
        if (!page_ || report_.file().size() == 0) return true;
        reader::PageOptions options;
        options.total_seconds = Seconds();
        if (HasBundle() && bundle_->file().is_kept()) {
            options.bundle = bundle_->file().path();
        }
        return WritePageFile({report_.file().path()}, rules_, options, *page_, committed_) == 0;
    }

    // Says how it went; true when all is well.
    bool Conclude() const {
        bool good = Check(report_);
        if (bundle_) good = Check(*bundle_) && good;
        // A bundle that began has to be whole, whatever else went wrong.
        if (HasBundle()) good = BundleIsWhole() && good;
        if (interrupted_) {
            Complain("interrupted" + Partial());
        } else if (outcome_ && !outcome_->empty()) {
            Complain(*outcome_ + Partial());
        } else if (!good) {
            if (!committed_ && HasBundle() && bundle_->file().error() == 0) {
                Complain("the bundle is kept in " + bundle_->file().path());
            }
        } else if (!progress_.all_finished()) {
            Complain("the report has sections that never ended; it is kept in " +
                     report_.file().path());
        } else if (report_.file().size() == 0 && report_.file().error() == 0) {
            Complain("the call was accepted, but no report came");
        } else {
            Summarize();
            if (page_ && page_->size() > 0) {
                std::fprintf(stderr, "%s shows it in a browser\n", page_->name().c_str());
            }
            const bool whole = HasBundle() || BundleIsWhole();
            if (const std::string host = progress_.Host(); !host.empty()) {
                std::fprintf(stderr, "%s\n", host.c_str());
            }
            return whole;
        }
        return false;
    }

  private:
    bool HasBundle() const { return bundle_ && bundle_->file().size() > 0; }

    bool ReceivingSomething() const {
        return report_.file().error() == 0 || (bundle_ && bundle_->file().error() == 0);
    }

    static bool SameFile(const OutputFile& one, const OutputFile& other) {
        if (one.is_standard_output()) return other.is_standard_output();
        if (!one.is_kept() || !other.is_kept()) return false;
        namespace fs = std::filesystem;
        std::error_code neither;
        const auto whole = [&neither](const OutputFile& file) {
            return fs::weakly_canonical(fs::absolute(file.name(), neither), neither);
        };
        return whole(one) == whole(other) || fs::equivalent(one.name(), other.name(), neither);
    }

    void Wait() {
        std::array<pollfd, 4> waits{pollfd{client_.fd(), client_.events(), 0},
                                    pollfd{signals_, POLLIN, 0}, pollfd{report_.ours(), POLLIN, 0},
                                    pollfd{bundle_ ? bundle_->ours() : -1, POLLIN, 0}};
        poll(waits.data(), waits.size(), client_.TimeoutMillis(kRedrawMillis));
        if ((waits[1].revents & POLLIN) != 0) interrupted_ = true;
    }

    void Receive() {
        report_.Receive(buffer_, [this](std::string_view bytes) { parser_.Feed(bytes); });
        if (bundle_) bundle_->Receive(buffer_, [](std::string_view) {});
        progress_.Redraw(bundle_ ? bundle_->file().size() : 0);
    }

    static bool Check(const Stream& stream) {
        const OutputFile& file = stream.file();
        if (file.error() == 0) return true;
        Complain(file.Sentence());
        return false;
    }

    bool BundleIsWhole() const {
        if (!bundle_ || bundle_->file().error() != 0) return true;  // said already
        const OutputFile& file = bundle_->file();
        if (file.size() == 0) {
            Complain("the service sent no bundle; its log says why, and --no-bundle asks for none" +
                     (file.is_older() ? "; " + file.name() + " is an older one's" : ""));
            return false;
        }
        if (!file.is_kept()) return true;  // gone, and can't be read again
        const reader::Bundle bundle = reader::ReadBundle(file.path());
        if (bundle.fault.empty()) return true;
        Complain("the bundle is not whole: " + bundle.fault + "; what came is kept in " +
                 file.path() + " (" + std::to_string(bundle.members.size()) + " entries, " +
                 HumanSize(file.size()) + ")");
        return false;
    }

    // What to add to the sentence for a call that didn't end well.
    std::string Partial() const {
        const OutputFile& report = report_.file();
        if (report.size() == 0) return "";
        return "; the partial report is kept in " + report.path() + " (" +
               std::to_string(progress_.sections()) + " sections, " + HumanSize(report.size()) +
               ")" + (HasBundle() ? ", its bundle in " + bundle_->file().path() : "");
    }

    double Seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

    void Summarize() const {
        const std::string bundle = HasBundle() ? ", " + HumanSize(bundle_->file().size()) + " in " +
                                                         bundle_->file().name()
                                               : "";
        std::fprintf(stderr, "%s; %s in %s%s; %.1f s\n", progress_.Verdict().c_str(),
                     HumanSize(report_.file().size()).c_str(), report_.file().name().c_str(),
                     bundle.c_str(), Seconds());
    }

    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    const int mode_;
    Stream report_;
    std::optional<Stream> bundle_;
    std::optional<OutputFile> page_;
    reader::Rules rules_;
    Progress progress_;
    reader::ReportParser parser_;
    DumpstateClient client_;
    const int signals_ = OpenSignals();
    std::vector<char> buffer_ = std::vector<char>(kBuffer);
    std::optional<std::string> outcome_;
    bool interrupted_ = false;
    bool committed_ = false;
};

}  // namespace

int RunBoardReport(const BoardOptions& options) {
    BoardCall call(options);
    if (const std::string sentence = call.Start(); !sentence.empty()) {
        Complain(sentence);
        return 1;
    }
    call.Run();
    call.Commit();
    call.Judge();
    const bool page = call.MakePage();
    return call.Conclude() && page ? 0 : 1;
}
