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

Result Shell(const std::string& command) {
    FILE* const pipe = popen(("cd /tmp/out; exec 2>&1; " + command).c_str(), "r");
    Result result{};
    char part[4096];
    for (size_t size; (size = fread(part, 1, sizeof part, pipe)) > 0;) {
        result.output.append(part, size);
    }
    result.status = WEXITSTATUS(pclose(pipe));
    return result;
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
                     R"([\d.]+ KiB in report.txt; [\d.]+ s\n$)"))
            << result.output;
    EXPECT_NE(result.output.find("sw5100_bms: cannot open /sys"), std::string::npos);
    EXPECT_TRUE(ReadFile("/tmp/out/report.txt").starts_with("verbose logging: disabled\n------ "));
    EXPECT_EQ(Shell("boardreport verbose on && boardreport verbose show; boardreport verbose off")
                      .output,
              "verbose logging: enabled\nverbose logging: enabled\nverbose logging: disabled\n");
}

TEST_F(BoardreportTest, ReadsWhatItMade) {
    FirstTool("echo '[ro.product.model]: [Tarn]'; exit 3");
    const Result made = Shell("boardreport --no-bundle -o - --mode 1 2>progress >piped");
    EXPECT_EQ(made.status, 0) << made.output;
    EXPECT_EQ(made.output, "");
    EXPECT_TRUE(ReadFile("/tmp/out/piped").starts_with("verbose logging: disabled\n------ "));
    EXPECT_NE(ReadFile("/tmp/out/progress").find(" in standard output; "), std::string::npos);

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
            Shell("pkill -STOP -x contexthubd; boardreport --no-bundle; pkill -CONT -x contexthubd;"
                  "boardreport summary report.txt");
    for (const char* part :
         {" s  Sensor Black Box: no data came; ", "; black box: no data came; ",
          "\nBlack box: no data came; the device's system log says why (tag tev-dumpstate)\n"}) {
        EXPECT_NE(result.output.find(part), std::string::npos) << part << result.output;
    }
}

TEST_F(BoardreportTest, ChecksThatTheBundleIsWhole) {
    const Result whole = Shell("boardreport && tar tf bundle.tar | grep -c btsnoop; ls");
    EXPECT_EQ(whole.status, 0) << whole.output;
    EXPECT_TRUE(HasMatch(
            whole.output,
            R"(in report.txt, [\d.]+ KiB in bundle.tar; [\d.]+ s\n14\nbundle.tar\nreport.txt\n$)"))
            << whole.output;

    // Cut within a member, between two members, and before its first byte.
    const fs::path tar = "/vendor/bin/tar";
    const std::string archive = "/data/vendor/log/dumpstate/combined.tar";
    fs::rename(tar, "/tmp/tar");
    const struct {
        const char* script;
        const char* sentence;
    } cuts[] = {{"/tmp/tar \"$@\"; truncate -s 5000 ", "the bundle is not whole: "},
                {"cd /; /tmp/tar \"$@\"; truncate -s -1024 ", "the bundle is not whole: "},
                {"exit 1 ", "the service sent no bundle"}};
    for (const auto& cut : cuts) {
        std::ofstream(tar) << "#!/vendor/bin/sh\n" << cut.script << archive << "\n";
        fs::permissions(tar, fs::perms::all);
        const Result result = Shell("boardreport");
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.output.find(cut.sentence), std::string::npos) << result.output;
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
             "cannot write /none/file: No such file or directory; -o and -b choose other files"},
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
    const Result full = Shell("boardreport --no-bundle -o /dev/full");
    EXPECT_EQ(full.status, 1);
    EXPECT_NE(full.output.find("cannot write /dev/full: No space left on device\n"),
              std::string::npos)
            << full.output;
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
             "the bus doesn't let you call"},
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
        std::string partial;
    } ends[] = {
            {"echo half; kill -9 $PPID", "the service or the bus went away during the call",
             ".partial"},
            {"echo half; pkill -INT -x boardreport; while pgrep -x boardreport; do sleep 0.05; "
             "done",
             "boardreport: interrupted; the partial", ".partial.2"},
    };
    std::ofstream("/tmp/out/report.txt") << "older";
    std::ofstream("/tmp/out/bundle.tar") << "older";
    std::ofstream("/tmp/out/report.html") << "older";
    for (const auto& end : ends) {
        FirstTool(end.script);
        const Result result = Shell("boardreport --page report.html");
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.output.find(end.sentence), std::string::npos) << result.output;
        const std::string partial = "report.txt" + end.partial;
        EXPECT_NE(result.output.find("the partial report is kept in " + partial + " (3 sections, "),
                  std::string::npos)
                << result.output;
        EXPECT_NE(ReadFile("/tmp/out/" + partial).find("\nhalf\n"), std::string::npos);
        const std::string page = "report.html" + end.partial;
        EXPECT_NE(result.output.find("the page of the partial report is kept in " + page + "\n"),
                  std::string::npos)
                << result.output;
        EXPECT_NE(ReadFile("/tmp/out/" + page).find("half"), std::string::npos);
    }
    EXPECT_EQ(Shell("cat report.txt bundle.tar report.html; ls").output,
              "olderolderolderbundle.tar\nreport.html\nreport.html.partial\nreport.html.partial.2\n"
              "report.txt\nreport.txt.partial\nreport.txt.partial.2\n");
    // A page that is being made of a finished report can be made anew.
    ASSERT_EQ(mkfifo("/tmp/out/endless", 0600), 0);
    EXPECT_EQ(Shell("boardreport page endless & exec 3>endless\n"
                    "while [ ! -e report.html.partial.3 ]; do sleep 0.05; done\n"
                    "kill $!; wait $!; echo $?; ls report.html*")
                      .output,
              "Terminated\n143\nreport.html\nreport.html.partial\nreport.html.partial.2\n");
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
