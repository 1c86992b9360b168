// boardreport as people run it, against the real service inside the simulated wearable, and against
// one that says what it is told to.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "pattern.h"
#include "processes.h"
#include "service_client.h"

namespace fs = std::filesystem;

namespace {

struct Result {
    int status;
    std::string output;
};

// What it waits for with await comes within a minute.
Result Shell(const std::string& command) {
    const std::string before =
            "cd /tmp/out; exec 2>&1; await() { n=0; until \"$@\"; do n=$((n + 1)); "
            "[ $n -lt 1200 ] || { echo \"a minute without: $*\"; exit 99; }; sleep 0.05; done; }; ";
    FILE* const pipe = popen((before + command).c_str(), "r");
    Result result{};
    char part[4096];
    for (size_t size; (size = fread(part, 1, sizeof part, pipe)) > 0;) {
        result.output.append(part, size);
    }
    result.status = WEXITSTATUS(pclose(pipe));
    return result;
}

// As the closing line names it.
std::string SizeOf(const std::string& file) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f KiB in ",
                  static_cast<double>(fs::file_size("/tmp/out/" + file)) / 1024);
    return text + file;
}

// A service in the place of the real one, which may begin anew after it. It writes what it is told
// to and answers well, and holds the pipes for longer, as a process that a service left behind may
// do.
class StandIn {
  public:
    StandIn(std::string report, std::string bundle, std::function<void()> meanwhile)
        : texts_{std::move(report), std::move(bundle)}, meanwhile_(std::move(meanwhile)) {
        static constexpr sd_bus_vtable kMethods[] = {
                SD_BUS_VTABLE_START(0),
                SD_BUS_METHOD("dumpstateBoard", "ahix", "", Serve, SD_BUS_VTABLE_UNPRIVILEGED),
                SD_BUS_VTABLE_END};
        constexpr const char* kName = ServiceClient::kName;
        EXPECT_GE(sd_bus_open_system(&bus_), 0);
        EXPECT_GE(sd_bus_add_object_vtable(bus_, nullptr, "/default", kName, kMethods, this), 0);
        Await([&] {
            Shell("pkill -x dumpstate-servi");
            return sd_bus_request_name(bus_, kName, 0) >= 0;
        });
        thread_ = std::thread([this] {
            while (!stop_) {
                if (sd_bus_process(bus_, nullptr) == 0) sd_bus_wait(bus_, 10'000);
            }
        });
    }
    ~StandIn() {
        stop_ = true;
        thread_.join();
        for (const int fd : held_) close(fd);
        sd_bus_flush_close_unref(bus_);
    }
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

  private:
    static int Serve(sd_bus_message* call, void* object, sd_bus_error* /*error*/) {
        StandIn& self = *static_cast<StandIn*>(object);
        sd_bus_message_enter_container(call, 'a', "h");
        int fd = -1;
        for (const std::string& text : self.texts_) {
            if (sd_bus_message_read_basic(call, 'h', &fd) <= 0) break;
            self.held_.push_back(dup(fd));
            EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        }
        if (self.meanwhile_) self.meanwhile_();
        return sd_bus_reply_method_return(call, "");
    }

    const std::string texts_[2];
    const std::function<void()> meanwhile_;
    sd_bus* bus_ = nullptr;
    std::vector<int> held_;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

std::string Section(const std::string& title, const std::string& body) {
    return "------ " + title + " (x) ------\n" + body + "------ 0.001s was the duration of '" +
           title + "' ------\n";
}

// What a report begins and ends with.
constexpr char kBegin[] = "verbose logging: disabled\n";
const std::string kEnd = Section("Modem SSR history", "");

class BoardreportTest : public testing::Test {
  protected:
    BoardreportTest() {
        // Whatever a shell's background or nohup has left ignored: who is started here is
        // interrupted.
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) signal(number, SIG_DFL);
        fs::create_directory("/tmp/out");
    }
    // A service that still writes a report which nobody wants any more is not the next case's.
    ~BoardreportTest() override {
        Await([] { return Shell("pkill -KILL -x dumpstate-servi").status != 0; });
        fs::remove_all("/tmp/out");
    }

    // The command beside a service that says these.
    static Result Told(const std::string& command, const std::string& report,
                       const std::string& bundle = "",
                       const std::function<void()>& meanwhile = nullptr) {
        const StandIn service(report, bundle, meanwhile);
        return Shell(command);
    }
    static std::string Archive() {
        Shell("mkdir logs; seq 1000 >logs/one; seq 2000 >logs/two; "
              "/vendor/bin/tar cf archive -C logs .");
        const std::string archive = ReadFile("/tmp/out/archive");
        Shell("rm -r logs archive");
        return archive;
    }
    // Puts a script in the place of the report's first tool, until the test's end.
    void FirstTool(const std::string& script) {
        first_tool_.reset();
        first_tool_.emplace("getprop", script);
    }

  private:
    std::optional<SwappedTool> first_tool_;
};

TEST_F(BoardreportTest, ShowsEachSectionAndKeepsReportAndBundle) {
    const Result result = Shell("boardreport");
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_TRUE(HasMatch(
            result.output,
            R"(^ +\d+\.\d{3} s  RM DUMPSTATE BIN DIR: exit status 1\n( +\d+\.\d{3} s  .*\n)+)"
            R"(\d+ sections, 2 failed or timed out \(RM DUMPSTATE BIN DIR, )"
            R"(Power supply property sw5100_bms\); )"
            R"(black box: 7 sensors, \d+ records; )"
            R"([\d.]+ KiB in report.txt, [\d.]+ KiB in bundle.tar; [\d.]+ s\nNothing is wrong\n$)"))
            << result.output;
    EXPECT_NE(result.output.find("sw5100_bms: cannot open /sys"), std::string::npos);
    EXPECT_NE(result.output.find("; " + SizeOf("report.txt") + ", " + SizeOf("bundle.tar") + "; "),
              std::string::npos);
    // A line for each section and the black box, the number, and what is wrong.
    const auto lines = static_cast<size_t>(std::ranges::count(result.output, '\n'));
    const size_t sections =
            Matches(ReadFile("/tmp/out/report.txt"), "\n(------ [0-9.]+s was the dur)").size();
    EXPECT_EQ(lines, sections + 3) << result.output;
    EXPECT_NE(result.output.find("\n" + std::to_string(sections) + " sections, "),
              std::string::npos);
    EXPECT_EQ(Shell("tar tf bundle.tar | grep -c btsnoop; ls").output,
              "14\nbundle.tar\nreport.txt\n");
    EXPECT_TRUE(ReadFile("/tmp/out/report.txt").starts_with("verbose logging: disabled\n------ "));
    EXPECT_EQ(Shell("boardreport verbose on && boardreport verbose show; boardreport verbose off")
                      .output,
              "verbose logging: enabled\nverbose logging: enabled\nverbose logging: disabled\n");
}

TEST_F(BoardreportTest, ReadsWhatItMade) {
    // Who ignores a signal, as nohup does, goes on.
    const std::string report =
            kBegin +
            Section("VENDOR PROPERTIES",
                    "[ro.product.model]: [Tarn]\n"
                    "[ro.boot.bootreason]: [shutdown,thermal,battery]\n\n*** exit status 3\n") +
            kEnd;
    const Result made = Told("trap '' HUP; boardreport --no-bundle -o - --mode 1 2>progress >piped",
                             report, "", [] { Shell("pkill -HUP -x boardreport"); });
    EXPECT_EQ(made.status, 0) << made.output;
    EXPECT_EQ(made.output, "");
    EXPECT_EQ(ReadFile("/tmp/out/piped"), report);
    // What is in no file is judged by the same checks, but for those of lines.
    EXPECT_TRUE(HasMatch(ReadFile("/tmp/out/progress"),
                         " in standard output; .*\n3 errors; the worst: The device had shut itself "
                         "down for heat: .*\n$"))
            << ReadFile("/tmp/out/progress");

    const Result summary = Shell("boardreport summary - <piped");
    EXPECT_EQ(summary.status, 1);
    EXPECT_NE(summary.output.find("\n  VENDOR PROPERTIES: exit status 3\n"), std::string::npos)
            << summary.output;
    EXPECT_EQ(Shell("boardreport summary piped piped | grep -c 'Nothing differs'").output, "1\n");
    const Result json = Shell("boardreport json piped ./piped | grep -c '\"device\":\"Tarn\"'");
    EXPECT_EQ(json.output, "2\n");
    const Result full = Shell("boardreport json piped >/dev/full");
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.output, "boardreport: cannot write standard output: No space left on device\n");
    EXPECT_EQ(Shell("boardreport json piped | head -c 1").output, "{");
    // What stands in a file before is left there.
    EXPECT_EQ(Shell("{ echo before; boardreport json piped; } >both; head -n 1 both").output,
              "before\n");
}

TEST_F(BoardreportTest, WhatFailedIsNamed) {
    std::string report = kBegin;
    for (const char* title : {"one", "two", "three", "four", "five", "six", "seven"}) {
        report += Section(title, "\n*** exit status 1\n");
    }
    const Result result =
            Told("boardreport --no-bundle; echo status $?; boardreport summary report.txt",
                 report + "------ Sensor Black Box ------\n" + kEnd);
    EXPECT_EQ(result.status, 1);
    for (const char* part :
         {" s  Sensor Black Box: no data came; ", "\nstatus 0\n",
          "\n8 sections, 7 failed or timed out (one, two, three, four, five and 2 more); "
          "black box: no data came; ",
          "\nBlack box: no data came; the device's system log says why (logcat, "}) {
        EXPECT_NE(result.output.find(part), std::string::npos) << part << result.output;
    }
}

// What a service answers for and that doesn't arrive whole takes nothing's place.
TEST_F(BoardreportTest, WhatIsNotWholeIsKeptBeside) {
    const std::string archive = Archive();
    const std::string whole_report = kBegin + kEnd;
    const std::string begun = kBegin + std::string("------ begun (x) ------\ntext\n");
    const struct {
        std::string report;
        std::string bundle;
        std::string sentence;
        const char* files;
    } cuts[] = {
            {whole_report, archive.substr(0, 5000),
             "the bundle is not whole: .*; what came is kept in bundle.tar.partial \\(",
             "bundle.tar\nbundle.tar.partial\nreport.txt\n"},
            {whole_report, archive.substr(0, archive.size() - 1024),
             "the bundle is not whole: .*; what came is kept in bundle.tar.partial \\(",
             "bundle.tar\nbundle.tar.partial\nreport.txt\n"},
            {whole_report, "",
             "the service sent no bundle; its log says why \\(journalctl.*"
             "--no-bundle asks for none; bundle.tar is an older one's\n",
             "bundle.tar\nreport.txt\n"},
            {begun, archive,
             "the report has sections that never ended; the partial report is kept in "
             "report.txt.partial \\(1 sections, .*\\)\nboardreport: the bundle is whole, and kept "
             "in "
             "bundle.tar.partial \\(3 entries, [\\d.]+ KiB\\)\n$",
             "bundle.tar\nbundle.tar.partial\nreport.txt\nreport.txt.partial\n"},
            {begun + kEnd, "", "the report has sections that never ended; ",
             "bundle.tar\nreport.txt\nreport.txt.partial\n"},
            {kBegin + Section("first", ""), "",
             "the report's end is missing; the partial report is kept in report.txt.partial "
             "\\(1 sections, .*\\)\n$",
             "bundle.tar\nreport.txt\nreport.txt.partial\n"},
            {whole_report.substr(0, whole_report.size() - 2), "", "the report",
             "bundle.tar\nreport.txt\nreport.txt.partial\n"},
            {kEnd, "", "text of the report is lost; ",
             "bundle.tar\nreport.txt\nreport.txt.partial\n"},
            {"", "", "the call was accepted, but no report came\n$", "bundle.tar\nreport.txt\n"},
    };
    for (const auto& cut : cuts) {
        SCOPED_TRACE(cut.sentence);
        Shell("rm -f *; echo older >bundle.tar; echo older >report.txt");
        const Result result = Told("boardreport", cut.report, cut.bundle);
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(HasMatch(result.output, "(^|\n)boardreport: " + cut.sentence)) << result.output;
        EXPECT_EQ(Shell("ls").output, cut.files);
        EXPECT_EQ(Shell("cat bundle.tar").output, "older\n");
        // A whole report is in its place, and no other.
        const bool whole = cut.report == whole_report;
        EXPECT_EQ(ReadFile("/tmp/out/report.txt"), whole ? whole_report : "older\n");
        EXPECT_EQ(ReadFile("/tmp/out/report.txt.partial"), whole ? "" : cut.report);
        EXPECT_EQ(ReadFile("/tmp/out/bundle.tar.partial"), cut.bundle);
        EXPECT_EQ(HasMatch(result.output, "\n1 sections, 0 failed.*in report.txt"), whole);
    }
    // Nor does anything of a call whose report could not be written.
    const Result full = Told("rm -f *; echo older >bundle.tar; boardreport -o - >/dev/full",
                             whole_report, archive);
    EXPECT_EQ(full.status, 1);
    EXPECT_TRUE(HasMatch(full.output,
                         "boardreport: cannot write standard output: No space left on device\n"
                         R"(boardreport: the bundle is whole, and kept in bundle.tar.partial \()"
                         R"(3 entries, [\d.]+ KiB\)\n$)"))
            << full.output;
    EXPECT_EQ(Shell("cat bundle.tar; ls").output, "older\nbundle.tar\nbundle.tar.partial\n");

    // A page whose folder goes away can't be seen.
    const Result page = Told("mkdir folder; boardreport --no-bundle --page folder/page",
                             whole_report, "", [] { Shell("rm -r folder"); });
    EXPECT_EQ(page.status, 1);
    EXPECT_TRUE(
            HasMatch(page.output,
                     R"(\nboardreport: cannot write folder/page: No such file or directory;.*\n)"
                     R"(1 sections.* bytes in report.txt; [\d.]+ s\n1 error; .*\n$)"))
            << page.output;
}

TEST_F(BoardreportTest, SaysWhatIsWrongAndLosesNothing) {
    std::ofstream("/tmp/out/report.txt") << "an older report";
    struct Case {
        const char* command;
        int status;
        const char* output;
    };
    const Case cases[] = {
            {"DBUS_SYSTEM_BUS_ADDRESS=unix:path=/none boardreport", 1,
             "cannot reach the system bus at unix:path=/none: No such file or directory"},
            {"boardreport -o /none/file", 1,
             "boardreport: cannot write /none/file: No such file or directory; -o chooses another "
             "file\n"},
            {"boardreport -o /none/file --page /none/page", 1, "cannot write /none/file: No such"},
            {"boardreport -b /none/file", 1,
             "cannot write /none/file: No such file or directory; -b chooses another file\n"},
            {"boardreport --page /none/file", 1,
             "cannot write /none/file: No such file or directory; --page chooses another file\n"},
            {"boardreport -o ''", 2,
             "boardreport: -o: the file's name is empty; boardreport --help"},
            {"ln -sf /dev/tty link; boardreport -o link", 1,
             "cannot write link: it is a symbolic link"},
            {"boardreport --page ./report.txt", 1, "the page can't go to ./report.txt too"},
            {"boardreport -o - -b /dev/fd/1 >/dev/full", 1, "can't both go to standard output"},
            {"boardreport -o /tmp", 1, "cannot write /tmp: Is a directory"},
            {"boardreport -o same -b ./same", 1, "can't both go to same"},
            {"boardreport --mode 8", 2,
             "boardreport: --mode: Value 8 not in range 0 to 7; boardreport --help"},
            {"boardreport --mode x", 2, "--mode: Value x not in range 0 to 7"},
            {"boardreport --nonsense", 2,
             "boardreport: there is no use for '--nonsense'; boardreport --help"},
            {"boardreport page --nonsense", 2,
             "boardreport: there is no use for '--nonsense'; boardreport page --help"},
            {"boardreport -o", 2, "boardreport: -o wants a value: FILE; boardreport --help"},
            {"boardreport -o x page report.txt", 2,
             "boardreport: '-o' stands before page, which has no use for it there; boardreport "
             "page --help"},
            {"boardreport -o - -b - >/dev/null", 1, "can't both go to standard output"},
            {"boardreport -o - --page x >/dev/null", 1, "a page is made of a report in a file"},
            {"boardreport verbose", 2,
             "boardreport: STATE is required: on, off or show; boardreport verbose --help"},
            {"boardreport summary", 2, "REPORT is required"},
            {"boardreport summary - -", 2, "standard input is one report"},
            {"boardreport summary ''", 2, "REPORT: the file's name is empty"},
            {"boardreport redact --undo '' /none", 2, "--undo: the file's name is empty"},
            {"boardreport summary /none", 3, "cannot read /none: No such file or directory"},
            {"boardreport json /tmp", 3, "/tmp is a folder"},
            {"boardreport page report.txt", 3, "report.txt is no board report"},
            {"boardreport page report.txt -b /tmp", 3, "cannot read /tmp: Is a directory"},
            {"printf '\\037\\213' >x.gz; boardreport redact x.gz", 3,
             "boardreport: x.gz is a gzip file: gunzip it first"},
            {"boardreport redact --undo report.txt report.txt", 3,
             "report.txt is no map of redactions: parse error at line 1"},
            {"boardreport redact report.txt -B x", 2, "-B requires -b"},
            {"boardreport page report.txt -o ./report.txt", 2, "can't take the place of"},
            {"boardreport verbose maybe", 2, "on,off,show"},
    };
    for (const Case& wrong : cases) {
        const Result result = Shell(wrong.command);
        EXPECT_EQ(result.status, wrong.status) << wrong.command;
        EXPECT_NE(result.output.find(wrong.output), std::string::npos) << result.output;
        EXPECT_EQ(ReadFile("/tmp/out/report.txt"), "an older report") << wrong.command;
        EXPECT_FALSE(fs::exists("/tmp/out/bundle.tar")) << wrong.command;
    }
}

// Ctrl-C and its like end it also where it waits for the reader of its own output.
TEST_F(BoardreportTest, ASignalEndsItWhateverItWaitsFor) {
    FirstTool("seq 1 15000; >/tmp/out/written; seq 1 100000");  // more than a FIFO takes
    const Result result =
            Shell("mkfifo full; sleep 60 <full & sleeps=$!; boardreport -o - 2>progress >full & "
                  "await [ -e written ]; kill $!; wait $!; echo $?; kill $sleeps; tail -n 1 "
                  "progress; ls");
    EXPECT_EQ(result.output, "1\nboardreport: interrupted\nfull\nprogress\nwritten\n");
    // Nor does a FIFO that nobody opens hold it.
    EXPECT_EQ(Shell("mkfifo empty; boardreport -b empty & await [ -e report.txt.partial ]; "
                    "kill $!; wait $! 2>/dev/null; exit $?")
                      .status,
              143);
}

TEST_F(BoardreportTest, AnotherBusWithoutTheServiceOrTheRight) {
    const std::string before =
            "<busconfig><listen>unix:tmpdir=/tmp</listen><auth>EXTERNAL</auth><policy "
            "context='default'><allow own='*'/><allow send_destination='*'/><allow "
            "receive_sender='*'/>";
    const std::string name = "android.hardware.dumpstate.IDumpstateDevice";
    const struct {
        std::string rule;
        const char* sentence;
    } buses[] = {
            {"", "no dumpstate service on this bus"},
            {"<deny send_destination='" + name +
                     "'/></policy><servicedir>/vendor/etc/bus</servicedir><policy "
                     "context='default'>",
             "the bus doesn't let you call the dumpstate service: only root and the members of the "
             "group " DUMPSTATE_GROUP " may\n"},
    };
    for (const auto& bus : buses) {
        std::ofstream("/tmp/out/bus.conf") << before << bus.rule << "</policy></busconfig>";
        const Result call =
                Shell("/usr/bin/dbus-daemon --config-file=bus.conf --fork --print-address=1 "
                      "--print-pid=1 >started; export DBUS_SYSTEM_BUS_ADDRESS=$(head -n 1 started);"
                      "boardreport; s=$?; kill $(tail -n 1 started); exit $s");
        EXPECT_EQ(call.status, 1);
        EXPECT_NE(call.output.find(bus.sentence), std::string::npos) << call.output;
    }
}

TEST_F(BoardreportTest, WhatEndsACallHalfWayKeepsThePartialReport) {
    const struct {
        const char* script;
        const char* sentence;
    } ends[] = {
            {"echo half; kill -9 $PPID", "the service or the bus went away during the call"},
            {"echo half; pkill -INT -x boardreport; while pgrep -x boardreport; do sleep 0.05; "
             "done",
             "boardreport: interrupted; the partial"},
    };
    std::ofstream("/tmp/out/report.txt") << "older";
    std::ofstream("/tmp/out/bundle.tar") << "older";
    std::ofstream("/tmp/out/report.html") << "older";
    for (const auto& end : ends) {
        FirstTool(end.script);
        const Result result = Shell("boardreport --page report.html");
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.output.find(end.sentence), std::string::npos) << result.output;
        const std::string partial = "report.txt.partial";
        EXPECT_NE(result.output.find("the partial report is kept in " + partial + " (3 sections, "),
                  std::string::npos)
                << result.output;
        EXPECT_NE(ReadFile("/tmp/out/" + partial).find("\nhalf\n"), std::string::npos);
        const std::string page = "report.html.partial";
        EXPECT_NE(result.output.find("the page of the partial report is kept in " + page + "\n"),
                  std::string::npos)
                << result.output;
        EXPECT_NE(ReadFile("/tmp/out/" + page).find("half"), std::string::npos);
    }
    EXPECT_EQ(Shell("cat report.txt bundle.tar report.html; ls").output,
              "olderolderolderbundle.tar\nreport.html\nreport.html.partial\nreport.txt\n"
              "report.txt.partial\n");
    // A page that is being made of a finished report can be made anew, and goes on where its signal
    // is ignored.
    ASSERT_EQ(mkfifo("/tmp/out/endless", 0600), 0);
    EXPECT_EQ(Shell("boardreport page -o new.html endless & exec 3>endless\n"
                    "await [ -e new.html.partial ]\n"
                    "kill $!; wait $!; s=$?; [ -e new.html* ] || exit $s")
                      .status,
              143);
    EXPECT_EQ(Shell("(trap '' HUP; exec boardreport page -o new.html endless) & exec 3>endless\n"
                    "await [ -e new.html.partial ]\n"
                    "kill -HUP $!; exec 3>&-; wait $!; echo $?")
                      .output,
              "boardreport: endless is empty\n3\n");
}

}  // namespace
