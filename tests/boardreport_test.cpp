// boardreport as people run it, against the real service inside the simulated wearable.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "pattern.h"
#include "processes.h"

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

class BoardreportTest : public testing::Test {
  protected:
    BoardreportTest() { fs::create_directory("/tmp/out"); }
    ~BoardreportTest() override {
        if (fs::exists(kAside)) fs::rename(kAside, kGetprop);
        fs::remove_all("/tmp/out");
    }

    // Puts a script in the place of the report's first tool.
    static void FirstTool(const std::string& script) {
        if (!fs::exists(kAside)) fs::rename(kGetprop, kAside);
        std::ofstream(kGetprop) << "#!/vendor/bin/sh\n" << script << "\n";
        fs::permissions(kGetprop, fs::perms::all);
    }

    static constexpr char kGetprop[] = "/vendor/bin/getprop";
    static constexpr char kAside[] = "/vendor/bin/getprop.aside";
};

TEST_F(BoardreportTest, ShowsEachSectionAndKeepsTheReport) {
    const Result result = Shell("boardreport --no-bundle");
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_TRUE(
            HasMatch(result.output,
                     R"(^ +\d+\.\d{3} s  VENDOR PROPERTIES\n( +\d+\.\d{3} s  .*\n)+)"
                     R"(\d+ sections, 1 failed or timed out \(Power supply property sw5100_bms\); )"
                     R"(black box: 7 sensors, \d+ records; )"
                     R"([\d.]+ KiB in report.txt; [\d.]+ s\nNothing is wrong\n$)"))
            << result.output;
    EXPECT_NE(result.output.find("sw5100_bms: cannot open /sys"), std::string::npos);
    EXPECT_NE(result.output.find("; " + SizeOf("report.txt") + "; "), std::string::npos);
    // A line for each section and the black box, the number, and what is wrong.
    const auto lines = static_cast<size_t>(std::ranges::count(result.output, '\n'));
    const size_t sections =
            Matches(ReadFile("/tmp/out/report.txt"), "\n(------ [0-9.]+s was the dur)").size();
    EXPECT_EQ(lines, sections + 3) << result.output;
    EXPECT_NE(result.output.find("\n" + std::to_string(sections) + " sections, "),
              std::string::npos);
    EXPECT_EQ(Shell("ls").output, "report.txt\n");
    EXPECT_TRUE(ReadFile("/tmp/out/report.txt").starts_with("verbose logging: disabled\n------ "));
    EXPECT_EQ(Shell("boardreport verbose on && boardreport verbose show; boardreport verbose off")
                      .output,
              "verbose logging: enabled\nverbose logging: enabled\nverbose logging: disabled\n");
}

TEST_F(BoardreportTest, ReadsWhatItMade) {
    // Who ignores a signal, as nohup does, goes on.
    FirstTool("pkill -HUP -x boardreport; echo '[ro.product.model]: [Tarn]'; exit 3");
    const Result made =
            Shell("trap '' HUP; mv /vendor/bin/sensor_test /tmp; "
                  "boardreport --no-bundle -o - --mode 1 2>progress >piped; status=$?; "
                  "mv /tmp/sensor_test /vendor/bin; exit $status");
    EXPECT_EQ(made.status, 0) << made.output;
    EXPECT_EQ(made.output, "");
    EXPECT_TRUE(ReadFile("/tmp/out/piped").starts_with("verbose logging: disabled\n------ "));
    const std::string progress = ReadFile("/tmp/out/progress");
    EXPECT_NE(progress.find(" in standard output; "), std::string::npos);
    EXPECT_NE(progress.find("Register dump for BARO and 2 more); black box: "), std::string::npos)
            << progress;

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

TEST_F(BoardreportTest, ALostBlackBoxIsNamed) {
    const Result result =
            Shell("pkill -STOP -x contexthubd; boardreport --no-bundle; echo status $?; "
                  "pkill -CONT -x contexthubd; boardreport summary report.txt");
    EXPECT_EQ(result.status, 1);
    for (const char* part :
         {" s  Sensor Black Box: no data came; ", "\nstatus 0\n", "; black box: no data came; ",
          "\nBlack box: no data came; the device's system log says why (tag tev-dumpstate)\n"}) {
        EXPECT_NE(result.output.find(part), std::string::npos) << part << result.output;
    }
}

TEST_F(BoardreportTest, ChecksThatTheBundleIsWhole) {
    const Result whole = Shell("boardreport && tar tf bundle.tar | grep -c btsnoop; ls");
    EXPECT_EQ(whole.status, 0) << whole.output;
    EXPECT_TRUE(HasMatch(
            whole.output,
            R"(in report.txt, [\d.]+ KiB in bundle.tar; [\d.]+ s\nNothing is wrong\n14\nbundle.tar\nreport.txt\n$)"))
            << whole.output;
    EXPECT_NE(whole.output.find(SizeOf("report.txt") + ", " + SizeOf("bundle.tar") + "; "),
              std::string::npos)
            << whole.output;

    // Cut within a member, between two members, and before its first byte.
    const fs::path tar = "/vendor/bin/tar";
    const std::string archive = "/data/vendor/log/dumpstate/combined.tar";
    fs::rename(tar, "/tmp/tar");
    const std::string cut = "boardreport: the bundle is not whole: ";
    const std::string kept = "; what came is kept in bundle.tar.partial (";
    const struct {
        const char* script;
        std::string sentence;
        std::string more;
        const char* files;
    } cuts[] = {{"/tmp/tar \"$@\"; truncate -s 5000 ", cut, kept,
                 "bundle.tar\nbundle.tar.partial\nreport.txt\n5000\n"},
                {"cd /; /tmp/tar \"$@\"; truncate -s -1024 ", cut, kept,
                 "bundle.tar\nbundle.tar.partial\nreport.txt\n"},
                {"exit 1 ", "boardreport: the service sent no bundle; its log says why (journalctl",
                 "--no-bundle asks for none; bundle.tar is an older one's\n",
                 "bundle.tar\nreport.txt\n"}};
    for (const auto& one : cuts) {
        std::ofstream(tar) << "#!/vendor/bin/sh\n" << one.script << archive << "\n";
        fs::permissions(tar, fs::perms::all);
        Shell("rm -f *.partial; echo older >bundle.tar; echo older >report.txt");
        const Result result = Shell("boardreport");
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.output.find(one.sentence), std::string::npos) << result.output;
        EXPECT_NE(result.output.find(one.more), std::string::npos) << result.output;
        // The report is whole, and so in its place.
        EXPECT_NE(result.output.find(" " + SizeOf("report.txt")), std::string::npos)
                << result.output;
        EXPECT_EQ(Shell("cat bundle.tar").output, "older\n");
        EXPECT_TRUE(Shell("ls; stat -c %s bundle.tar.partial 2>/dev/null")
                            .output.starts_with(one.files));
        fs::remove(tar);
    }
    fs::rename("/tmp/tar", tar);
}

TEST_F(BoardreportTest, SaysWhatIsWrongAndLosesNothing) {
    std::ofstream("/tmp/out/report.txt") << "an older report";
    struct Case {
        const char* command;
        int status;
        const char* output;
    };
    const Case cases[] = {
            {"boardreport --mode 8", 1, "the service refused the call: Invalid mode"},
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
            {"boardreport -o ''", 1, "cannot write '': its name is empty; -o chooses another file"},
            {"ln -sf /dev/tty link; boardreport -o link", 1,
             "cannot write link: it is a symbolic link"},
            {"boardreport --page ./report.txt", 1, "the page can't go to ./report.txt too"},
            {"boardreport -o - -b /dev/fd/1 >/dev/full", 1, "can't both go to standard output"},
            {"boardreport -o /tmp", 1, "cannot write /tmp: Is a directory"},
            {"boardreport -o same -b ./same", 1, "can't both go to same"},
            {"boardreport --mode x", 2, "--mode"},
            {"boardreport --nonsense", 2, "--nonsense"},
            {"boardreport -o - -b - >/dev/null", 1, "can't both go to standard output"},
            {"boardreport -o - --page x >/dev/null", 1, "a page is made of a report in a file"},
            {"boardreport verbose", 2, "STATE"},
            {"boardreport summary", 2, "REPORT is required"},
            {"boardreport summary - -", 2, "standard input is one report"},
            {"boardreport summary /none", 3, "cannot read /none: No such file or directory"},
            {"boardreport json /tmp", 3, "/tmp is a folder"},
            {"boardreport page report.txt", 3, "report.txt is no board report"},
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

    // Nothing of a call whose report could not be written takes an older one's place.
    const Result full = Shell("rm link; echo older >bundle.tar; boardreport -o - >/dev/full");
    EXPECT_EQ(full.status, 1);
    EXPECT_TRUE(HasMatch(full.output,
                         "boardreport: cannot write standard output: No space left on device\n"
                         R"(boardreport: the bundle is whole, and kept in bundle.tar.partial \()"
                         R"(\d+ entries, [\d.]+ KiB\)\n$)"))
            << full.output;
    EXPECT_EQ(Shell("cat bundle.tar; ls").output,
              "older\nbundle.tar\nbundle.tar.partial\nreport.txt\n");

    // A page whose folder goes away can't be seen.
    FirstTool("rm -r /tmp/out/folder");
    const Result page = Shell("mkdir folder; boardreport --no-bundle --page folder/page");
    EXPECT_EQ(page.status, 1);
    EXPECT_TRUE(
            HasMatch(page.output,
                     R"(\nboardreport: cannot write folder/page: No such file or directory;.*\n)"
                     R"(\d+ sections.* KiB in report.txt; [\d.]+ s\nNothing is wrong\n$)"))
            << page.output;
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
                    "kill $!; wait $!; echo $?")
                      .output,
              "Terminated\n143\n");
}

// A report that the service has ended well and that still doesn't arrive whole. Somebody else who
// holds the pipe reads what comes, to the service's last byte, while boardreport stands still.
TEST_F(BoardreportTest, AReportWithoutItsEndIsNotWhole) {
    // The service ends a tool that waits in vain.
    const std::string thief =
            "until grep -q 'VENDOR PROPERTIES' /tmp/out/report.txt.partial; do sleep 0.02; done\n"
            "pkill -STOP -x boardreport\n"
            "setsid sh -c \"exec 3</proc/self/fd/1; >/tmp/out/reads\n"
            "timeout 60 grep -q 'was the duration of .Modem SSR history.' <&3\n";
    const std::string go_on =
            "pkill -CONT -x boardreport\" 2>/dev/null &\n"
            "while [ ! -e /tmp/out/reads ]; do sleep 0.02; done";
    const struct {
        std::string end;
        const char* sentence;
    } cuts[] = {{"", "the report has sections that never ended"},
                {"echo '------ 0.001s was the duration of '\\''VENDOR PROPERTIES'\\'' ------'\n",
                 "the report's end is missing"}};
    for (const auto& cut : cuts) {
        FirstTool(thief + cut.end + go_on);
        const Result result = Shell("rm -f *; echo older >report.txt; boardreport --no-bundle");
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(HasMatch(result.output, std::string("boardreport: ") + cut.sentence +
                                                    R"(; the partial report is kept in )"
                                                    R"(report.txt.partial \(1 sections, .*\)\n$)"))
                << result.output;
        EXPECT_EQ(Shell("cat report.txt; ls").output,
                  "older\nreads\nreport.txt\nreport.txt.partial\n");
    }
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
    // A page that is being made of a finished report can be made anew.
    ASSERT_EQ(mkfifo("/tmp/out/endless", 0600), 0);
    EXPECT_EQ(Shell("boardreport page -o new.html endless & exec 3>endless\n"
                    "await [ -e new.html.partial ]\n"
                    "kill $!; wait $!; echo $?; ls new.html*")
                      .output,
              "Terminated\n143\nls: new.html*: No such file or directory\n");
}

TEST_F(BoardreportTest, DoesNotWaitForWhoHoldsThePipe) {
    FirstTool(
            "setsid sh -c '>/tmp/out/away; exec sleep 1000' &\n"
            "while [ ! -e /tmp/out/away ]; do sleep 0.02; done");
    const Result result = Shell("boardreport --no-bundle");
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(Shell("pkill -x sleep").status, 0);
}

}  // namespace
