// What a finished report says, from bytes to records and summaries. No device is needed.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <span>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "comparison.h"
#include "json.h"
#include "report.h"
#include "sensor_statistics.h"
#include "summary.h"
#include "utf8.h"

namespace reader {
namespace {

std::string Header(const std::string& title, const std::string& detail = "/x") {
    return "------ " + title + " (" + detail + ") ------\n";
}
std::string Footer(const std::string& title, const std::string& seconds = "1.250") {
    return "------ " + seconds + "s was the duration of '" + title + "' ------\n";
}
std::string File(const std::string& title, const std::string& content = "") {
    return Header(title) + content + Footer(title);
}
std::string Command(const std::string& title, const std::string& output) {
    return Header(title, "/vendor/bin/x -y") + output + "\n" + Footer(title);
}
const std::string kBox = "------ Sensor Black Box ------\n";
// A whole report around the rest.
std::string Whole(const std::string& rest) {
    return "verbose logging: disabled\n" + rest + File("Modem SSR history", "\n");
}

// By what is code: checks of lines and facts have tests of their own.
Summary Summed(std::span<const Report> reports, bool colour) {
    std::vector<Verdict> verdicts;
    for (const Report& report : reports) verdicts.push_back(Judge(report));
    return Summarize(reports, verdicts, colour);
}

// Everything that is told, a line each, of the report cut into pieces of the given size.
std::string Told(const std::string& report, size_t piece = std::string::npos) {
    std::ostringstream told;
    const auto bytes = [&report](TextRange range) {
        return "[" +
               report.substr(static_cast<size_t>(range.begin), static_cast<size_t>(range.size())) +
               "]";
    };
    ReportParser parser(
            {.on_begin = [&](std::string_view title) { told << "> " << title << "\n"; },
             .on_section =
                     [&](Section&& section) {
                         told << "< " << section.title << " " << section.detail
                              << (section.kind == Section::Kind::kCommand ? "()" : "") << " "
                              << section.seconds << " " << section.Trouble() << " "
                              << bytes(section.text) << "\n";
                         // What looks like a section ends what is captured.
                         const std::string text = bytes(section.text);
                         const size_t header = text.find("------ ");
                         EXPECT_TRUE(text.starts_with("[" + section.captured));
                         EXPECT_GE(section.captured.size() + 2, std::min(header, text.size()));
                     },
             .on_black_box =
                     [&](BlackBox&& box) {
                         told << "black box " << box.failure << (box.ended ? "" : " cut")
                              << (box.headless ? " headless" : "")
                              << (box.odd_lines > 0 ? " odd " + bytes(box.odd_line) : "") << "\n";
                         for (const Sensor& sensor : box.sensors) {
                             told << "  " << sensor.number << " " << sensor.name << sensor.skipped;
                             for (size_t i = 0; i < sensor.times.size(); ++i) {
                                 told << " " << sensor.times[i] << ":";
                                 for (const auto& column : sensor.values) told << column[i] << ",";
                             }
                             if (sensor.total_worn) told << " worn " << *sensor.total_worn;
                             told << "\n";
                         }
                     },
             .on_outside = [&](TextRange range) { told << "outside " << bytes(range) << "\n"; },
             .on_loss =
                     [&](const ReportParser::Loss& loss) {
                         told << "lost " << static_cast<int>(loss.kind) << " " << loss.title
                              << "\n";
                     },
             .wants_text = [](std::string_view) { return true; }});
    for (size_t at = 0; at < report.size(); at += std::min(piece, report.size())) {
        parser.Feed(std::string_view(report).substr(at, piece));
    }
    parser.Finish();
    return told.str() + (parser.cut() ? "cut\n" : "");
}

TEST(ReportParser, TellsTheSameHoweverItIsCut) {
    const std::string binary("\0\x80 binary\r\n----", 14);
    const std::string report =
            "verbose logging: enabled\n" + File("A") + Command("B (b) 'b'", binary) + kBox +
            "*** Sensor 1 (A (b)) ***\nTime: 18446744073709551615, Value: (-0.500000, 2.000000, "
            "nan)\nnoise\nTime: 7, Value: 1.000000\nTime: 8, Value: (inf, 340282346638528859811704"
            "183484516925440.000000, 0.000001)\n*** Sensor 196 (Wear) ***\n"
            "Time: 5, Time On Wrist: 2.500000s\nTotal Time On Wrist: 2.500000 seconds\n"
            "Skipping Sensor 6 (Gyroscope): Incomplete buffer\n-------\nstray\n" +
            Command("C", "half") + Header("D") + "*** exit status 3\nmore\n" + Footer("D") + "end";
    const std::string expected =
            "> A\n< A /x 1.25  []\n"
            "> B\n< B (b) 'b' /vendor/bin/x -y() 1.25  [" +
            binary +
            "]\n"
            "black box  odd [noise\n]\n"
            "  1 A (b) 18446744073709551615:-0.5,2,nan, 8:inf,3.40282e+38,1e-06,\n"
            "  196 Wear 5:2.5, worn 2.5\n  6 GyroscopeIncomplete buffer\n"
            "lost 2 -------\noutside [-------\nstray\n]\n"
            "> C\n< C /vendor/bin/x -y() 1.25  [half]\n"
            "> D\n< D /x 1.25  [*** exit status 3\nmore\n]\noutside [end]\ncut\n";
    // The title that a header seems to have is its shortest.
    for (size_t piece = 1; piece < report.size() + 1; ++piece) {
        EXPECT_EQ(Told(report, piece), expected) << piece;
    }
}

TEST(ReportParser, WhatIsASectionAndWhatItsContent) {
    const std::string old = Header("X") + "*** exit status 1\n" + Footer("X") + Header("Y") + kBox +
                            "*** Sensor 1 (A) ***\n" + Footer("Z");
    const std::string odd =
            "------ (/x) ------\n ------ A (/x) ------\n------ A (/x) ------ \n"
            "------ 1.25s was the duration of 'A' ------\n------ .250s was the duration of 'A' "
            "------\n------ 1x250s was the duration of 'A' ------\n------ ------\n";
    const std::string last = "> Modem SSR history\n< Modem SSR history /x 1.25  [\n]\n";
    const std::string kRule = std::string(55, '-') + "\n";
    const std::string kFirst = "------------------- USF Stats (1/2) -------------------\n";
    const std::string kSecond = "------------------- USF Stats (2/2) -------------------\n";
    // Longer than any header, and without an end.
    const std::string endless = "------ " + std::string(1 << 16, 'x');
    const struct {
        const char* what;
        std::string report;
        std::string told;
    } cases[] = {
            {"a report within a log", File("A", old) + File("B"),
             "> A\n< A /x 1.25  [" + old + "]\n> B\n< B /x 1.25  []\n"},
            {"lines that only look alike", odd, "outside [" + odd + "]\n"},
            {"the same within a section", File("A", odd), "> A\n< A /x 1.25  [" + odd + "]\n"},
            {"a line without an end", File("A", endless + " (/x) ------\n") + endless,
             "> A\n< A /x 1.25  [" + endless + " (/x) ------\n]\noutside [" + endless + "]\ncut\n"},
            {"a title beyond reason", endless + " (/x) ------\n",
             "outside [" + endless + " (/x) ------\n]\n"},
            {"lost footers",
             Header("B") + "cut\n" + File("C", "*** exit status 1\n") + "between\n" + kBox +
                     Header("D") + File("E", old) + Header("F") + "last",
             "> B\n< B /x 0 not finished [cut\n]\n< C /x() 1.25 exit status 1 []\n"
             "outside [between\n]\nblack box \n< D /x 0 not finished []\n"
             "< E /x 1.25  [" +
                     old + "]\n< F /x 0 not finished [last]\ncut\n"},
            {"a footer that lacks its newline",
             Header("A") + "x\n" + Footer("A").substr(0, Footer("A").size() - 1),
             "> A\n< A /x 1.25  [x\n]\ncut\n"},
            {"a record that was cut", kBox + "*** Sensor 10 (B) ***\nTime: 5, Value: 1.25",
             "black box  cut\n  10 B\ncut\n"},
            {"a footer lost before one of the same title",
             Header("A") + File("B") + File("A", "2\n"),
             "> A\n< A /x 0 not finished []\n< B /x 1.25  []\n< A /x 1.25  [2\n]\n"},
            {"the first one's footer and the second one's header lost",
             Header("TTF") + File("BMS") + "2\n" + Footer("TTF"),
             "> TTF\nlost 1 TTF\n< TTF /x 0 not finished []\n< BMS /x 1.25  []\noutside [2\n" +
                     Footer("TTF") + "]\n"},
            {"the same in an older report", File("BMS", "verbose logging: enabled\n" + File("TTF")),
             "> BMS\n< BMS /x 1.25  [verbose logging: enabled\n" + File("TTF") + "]\n"},
            {"the same of what has come before", File("TTF") + File("BMS", File("TTF")),
             "> TTF\n< TTF /x 1.25  []\n> BMS\n< BMS /x 1.25  [" + File("TTF") + "]\n"},
            {"a header lost", "text\n" + Footer("A"),
             "lost 0 A\noutside [text\n" + Footer("A") + "]\n"},
            {"a heading lost", "*** Sensor 10 (B) ***\nTime: 5, Value: 1.250000\n" + File("A"),
             "black box  headless\n  10 B 5:1.25,\n> A\n< A /x 1.25  []\n"},
            {"two reports, the first cut", "verbose logging: enabled\nverbose logging: disabled\n",
             "lost 3 \noutside [verbose logging: disabled\n]\n"},
            {"seconds beyond reason", Header("A") + Footer("A", std::string(400, '9') + ".000"),
             "> A\n< A /x 1e+09  []\n"},
            {"a black box that was never begun", "*** no sensor black box: no socket\n" + File("A"),
             "black box no sensor black box: no socket\n> A\n< A /x 1.25  []\n"},
            {"no path", Header("A", "") + Footer("A"), "> A\n< A  1.25  []\n"},
            {"a header behind what was cut of another's text",
             Header("BMS") + "cut--" + File("TTF", "x\n") + File("A"),
             "> BMS\n< BMS /x 0 not finished [cut--]\n< TTF /x 1.25  [x\n]\n< A /x 1.25  []\n"},
            {"the same of its own title, after another and in a long line",
             Header("TTF") + endless + "\n" + endless + "------ " + File("TTF", "x\n"),
             "> TTF\n< TTF /x 0 not finished [" + endless + "\n" + endless +
                     "------ ]\n< TTF /x 1.25  [x\n]\n"},
            {"the same behind a header that was cut", "------ BMS (/vend" + File("TTF"),
             "lost 2 ------ BMS (/vend\noutside [------ BMS (/vend]\n> TTF\n< TTF /x 1.25  []\n"},
            {"the same behind a first line", "verbose logging: enabled" + File("TTF"),
             "lost 2 verbose logging: enabled\n> TTF\n< TTF /x 1.25  []\n"},
            {"the same behind a record",
             kBox + "*** Sensor 10 (B) ***\nTime: 5, Value: 1.25" + File("TTF"),
             "black box  odd [Time: 5, Value: 1.25]\n  10 B\n> TTF\n< TTF /x 1.25  []\n"},
            {"what looks like that in a log",
             File("A", "12: " + Header("TTF") + "12: " + Footer("TTF")),
             "> A\n< A /x 1.25  [12: " + Header("TTF") + "12: " + Footer("TTF") + "]\n"},
            {"a section's end in the black box", kBox + "*** cannot open /x: no\n" + Footer("A"),
             "black box  cut odd [*** cannot open /x: no\n]\nlost 0 A\noutside [" + Footer("A") +
                     "]\n"},
            {"a heading that lost its separator",
             Whole(kRule + kFirst + kRule + kSecond + File("USF stat")),
             "lost 2 " + kSecond.substr(0, kSecond.size() - 1) + "\noutside [" + kRule + kFirst +
                     kRule + kSecond + "]\n> USF stat\n< USF stat /x 1.25  []\n" + last},
            {"a heading lost", Whole(kRule + kFirst + kRule),
             "outside [" + kRule + kFirst + kRule + "]\n> Modem SSR history\nlost 2 " +
                     kSecond.substr(0, kSecond.size() - 1) +
                     "\n< Modem SSR history /x 1.25  [\n]\n"},
            {"another report whose beginning was lost", Whole("") + File("TTF"),
             last + "> TTF\nlost 4 TTF\n< TTF /x 1.25  []\n"},
    };
    for (const auto& test : cases) {
        for (const size_t piece : {std::string::npos, size_t{1}, size_t{4096}}) {
            EXPECT_EQ(Told(test.report, piece), test.told) << test.what << ", by " << piece;
        }
    }
    for (const char* failure :
         {"cannot run /x: for a reason that is longer than what is looked at in one step, which "
          "is 64 bytes, and as long again",
          "killed by signal 9", "timed out after 2 s, stopped", "cannot open /x: no",
          "cannot read /x: no"}) {
        const std::string line = "*** " + std::string(failure) + "\n";
        const std::string told = Told(File("A", "a" + std::string(200, '\n') + line));
        EXPECT_NE(told.find(std::string(" 1.25 ") + failure + " [a"), std::string::npos) << told;
        EXPECT_EQ(Told(File("A", line + "\n")), "> A\n< A /x 1.25  [" + line + "\n]\n");
    }
}

// A report in a file of its own, for as long as the test runs.
class ReportFile {
  public:
    explicit ReportFile(const std::string& content) {
        const int fd = mkstemp(path_.data());
        EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
        close(fd);
    }
    ~ReportFile() { unlink(path_.c_str()); }
    ReportFile(const ReportFile&) = delete;
    ReportFile& operator=(const ReportFile&) = delete;

    const std::string& path() const { return path_; }
    Report Read() const {
        Report report;
        EXPECT_EQ(ReadReport(path_, true, report), "");
        return report;
    }

  private:
    std::string path_ = testing::TempDir() + "reader_test.XXXXXX";
};

TEST(Facts, AreFoundHoweverTheyAreSpelt) {
    const struct {
        const char* section;
        const char* text;
        const char* key;
        const char* value;  // null is absent
    } cases[] = {
            {"VENDOR PROPERTIES", "[ro.product.model]: [Tarn [2]]\n", "device", "Tarn [2]"},
            {"VENDOR PROPERTIES", "[x.ro.product.model]: [A]\n[ro.product.models]: [A]", "device",
             nullptr},
            {"VENDOR PROPERTIES", "[ro.boot.serialno]: [B]\n[ro.serialno]: [A]\n", "serial", "A"},
            {"Power Stats Times", "boot:2026-02-28 23:59:59\r\n", "boot.time",
             "2026-02-28 23:59:59"},
            {"Power Stats Times", "Boot: 2026-02-30 01:00:00\n", "boot.time", nullptr},
            {"Power Stats Times", "Now: Sun Mar  1 00:00:01 UTC 2026\n", "report.time",
             "2026-03-01 00:00:01"},
            {"Power Stats Times", "Now: Sun 01 Mar 2026 12:00:01 AM CET\n", "report.time",
             "2026-03-01 00:00:01"},
            {"Power Stats Times", "Now: 2026-03-01T00:00:01+01:00\n", "report.time",
             "2026-03-01 00:00:01"},
            {"Power Stats Times", "Now: 2026-03-01T00:00:01Z\n", "report.time",
             "2026-03-01 00:00:01"},
            {"Power Stats Times", "Now: 2026-03-01T00:00:01+01:00\n", "time.zone", "+01:00"},
            {"Power Stats Times", "Now: Sun 01 Mar 2026 12:00:01 AM CET\n", "time.zone", "CET"},
            {"Power Stats Times", "Now: Sun Mar  1 00:00:01 2026\n", "time.zone", nullptr},
            {"Power Stats Times", "Boot: 2026-02-28 23:59:59\nNow: 2026-03-01 00:00:01\n", "uptime",
             "2"},
            {"Power supply property battery", "POWER_SUPPLY_CAPACITY=64\n", "battery.level", "64"},
            {"Power supply property battery", "POWER_SUPPLY_CAPACITY=much\n", "battery.level",
             nullptr},
            {"Power supply property bms", "POWER_SUPPLY_CAPACITY=64\n", "battery.level", nullptr},
            {"Power supply property battery", "POWER_SUPPLY_TEMP=-5\n", "battery.temperature",
             "-0.5"},
            {"Power supply property battery", "POWER_SUPPLY_VOLTAGE_NOW=4000000\n",
             "battery.voltage", "4"},
            {"Power supply property battery", "POWER_SUPPLY_CURRENT_NOW=-41809\n",
             "battery.current", "-41.809"},
            {"nvotables", "CHG_DISABLE: any, result 0 by none\nCHG_FCC: min, result 150000 by T\n",
             "charging.limit", "at most 150 mA by T"},
            {"nvotables", "CHG_FCC: min, result 290000 by PROFILE\n", "charging.limit", "none"},
            {"nvotables", "nothing\n", "charging.limit", nullptr},
            {"Modem SSR history", "/d/ssr_log0\n a /d/ssr_log\n/d/ssr_log1\n", "modem.restarts",
             "2"},
            {"Modem SSR history", "ls: /d/ssr_log*: no\n", "modem.restarts", "0"},
            {"Modem SSR history", "/d/ssr_log0\n*** timed out after 2 s, stopped\n",
             "modem.restarts", nullptr},
            {"A", "", "slowest", "A (1.250 s)"},
            {"A", "", "worn", nullptr},
    };
    for (const auto& test : cases) {
        const Report report = ReportFile(File(test.section, test.text)).Read();
        const Fact* const fact = report.FindFact(test.key);
        EXPECT_EQ(fact == nullptr ? "absent" : fact->value,
                  test.value == nullptr ? "absent" : test.value)
                << test.key << ": " << test.text;
    }
}

// Records every 100 ms with a value that `value` makes, or none where that gives infinity.
template <typename Value>
Sensor Recorded(unsigned number, size_t count, Value value) {
    Sensor sensor;
    sensor.number = number;
    sensor.values.resize(1);
    for (size_t i = 0; i < count; ++i) {
        const double one = value(i);
        if (std::isinf(one)) continue;
        sensor.times.push_back(uint64_t{i} * 100'000'000);
        sensor.values[0].push_back(one);
    }
    return sensor;
}

TEST(Verdict, SaysWhatASensorIsLike) {
    const auto moves = [](size_t i) { return static_cast<double>(i % 7); };
    const auto none = std::numeric_limits<double>::infinity();
    const auto with = [&](Sensor sensor, auto change) {
        change(sensor);
        return sensor;
    };
    const struct {
        const char* what;
        Sensor sensor;
        std::string words;
    } cases[] = {
            {"good", Recorded(1, 100, moves), ""},
            {"one record", Recorded(1, 1, moves), ""},
            {"no record", Recorded(1, 0, moves), "recorded nothing"},
            {"still", Recorded(1, 100, [](size_t) { return 3.0; }),
             "stood still, all values equal"},
            {"frozen", Recorded(1, 100, [&](size_t i) { return i < 50 ? moves(i) : 9; }),
             "froze at 5.000 s after boot"},
            {"frozen for a while",
             Recorded(1, 100, [&](size_t i) { return i > 50 && i < 80 ? 9 : moves(i); }),
             "froze at 5.100 s after boot for 2.80 s"},
            {"frozen twice",
             Recorded(1, 100, [&](size_t i) { return (i > 9 && i < 50) || i > 70 ? 9 : moves(i); }),
             "froze at 7.100 s after boot"},
            {"too short", Recorded(1, 100, [&](size_t i) { return i < 85 ? moves(i) : 9; }), ""},
            {"gap", Recorded(1, 100, [&](size_t i) { return i > 9 && i < 20 ? none : moves(i); }),
             "has a gap of 1.10 s at 0.900 s after boot"},
            {"ten steps are none",
             Recorded(1, 100, [&](size_t i) { return i > 9 && i < 19 ? none : moves(i); }), ""},
            {"silent", Recorded(1, 80, moves), "was silent for the last 2.00 s"},
            {"behind by less than a second",
             with(Recorded(1, 1000, moves),
                  [](Sensor& its) {
                      for (size_t i = 0; i < 1000; ++i)
                          its.times[i] = 9'100'000'000 - 10'000'000ULL * (1000 - i);
                  }),
             ""},
            {"sent three times",
             with(Recorded(1, 100, moves),
                  [](Sensor& its) {
                      for (size_t i = 0; i < 100; ++i) its.times[i] = its.times[i - i % 3];
                  }),
             "has 66 records with the time of the one before"},
            {"a clock put back",
             with(Recorded(1, 100, moves),
                  [](Sensor& its) {
                      for (size_t i = 0; i < 50; ++i) its.times[i] += 3600'000'000'000;
                  }),
             "has a clock that jumped back by 1 h at 3604.900 s after boot"},
            {"before the boot",
             with(Recorded(1, 100, moves),
                  [](Sensor& its) {
                      for (size_t i = 0; i < 100; ++i) its.times[i] -= 90'000'000;
                  }),
             ""},
            {"one axis",
             with(Recorded(1, 100, moves),
                  [](Sensor& its) {
                      its.values.push_back(std::vector<double>(100, 1));
                      its.values.push_back(its.values[0]);
                  }),
             "stands still in y since 0.000 s after boot, while the rest moves"},
            {"gestures", Recorded(200, 100, [](size_t) { return 1.0; }), ""},
    };
    for (const auto& test : cases) {
        Report report;
        BlackBox& box = report.black_boxes.emplace_back();
        box.sensors = {test.sensor, Recorded(8, 100, moves)};
        box.ended = true;
        box.End(0);
        EXPECT_EQ(Judge(report).WordsOf({0, 0}), test.words) << test.what;
    }
    BlackBox box;
    box.sensors = {Recorded(1, 101, moves)};
    box.End(0);
    const SensorStatistics& statistics = box.sensors[0].statistics;
    EXPECT_EQ(statistics.records, 101U);
    EXPECT_DOUBLE_EQ(statistics.span, 10);
    EXPECT_DOUBLE_EQ(statistics.rate, 10);
}

TEST(Verdict, MissesASensorWhereMostAreThere) {
    const auto moves = [](size_t i) { return static_cast<double>(i % 7); };
    Report report;
    BlackBox& box = report.black_boxes.emplace_back();
    box.ended = true;
    for (const unsigned number : {1U, 6U, 8U, 10U})
        box.sensors.push_back(Recorded(number, 100, moves));
    EXPECT_EQ(Judge(report).black_box, "");  // a device may have no more
    box.sensors.push_back(Recorded(200, 100, moves));
    const std::string two = "LowLatencyOffBody is missing; RaiseToTalk is missing";
    EXPECT_EQ(Judge(report).black_box, two);
    box.sensors[0].skipped = "No timestamp info";
    EXPECT_EQ(Judge(report).black_box, " skipped: No timestamp info; " + two);
    box.ended = false;
    EXPECT_EQ(Judge(report).black_box, "cut;  skipped: No timestamp info");
}

TEST(Verdict, IsOneListThatChecksMayWeigh) {
    const Report report = ReportFile(File("A", "*** exit status 1\n") + File("B") +
                                     File("C", "*** timed out after 2 s, stopped\n"))
                                  .Read();
    Verdict verdict = Judge(report);
    EXPECT_FALSE(verdict.complete);
    EXPECT_EQ(verdict.Counts(), "4 errors");  // and neither beginning nor end
    verdict.Weigh("section-failed", Severity::kNote);
    verdict.Weigh("section-timed-out", Severity::kNone);
    Finding own;
    own.check = "own";
    own.severity = Severity::kWarning;
    own.index = 1;
    verdict.Add(own);
    verdict.Weigh("report-cut", Severity::kNone);
    verdict.Weigh("text-lost", Severity::kNone);
    verdict.Sort();
    EXPECT_EQ(verdict.Counts(), "1 warning, 1 note");
    EXPECT_EQ(verdict.findings.front().check, "own");
    EXPECT_FALSE(verdict.good());
    EXPECT_FALSE(verdict.complete);  // whatever is silenced
    const Report unset = ReportFile(File("T", "*** cannot open : no\n")).Read();
    EXPECT_NE(Summed({&unset, 1}, false).text.find("its path is empty"), std::string::npos);
}

const std::string kTimes = Command(
        "Power Stats Times", "Boot: 2026-11-25 07:29:07\nNow: Wed Nov 25 07:29:19 UTC 2026\n");

std::string Moving(const std::string& sensor, bool moves) {
    std::string text = "*** Sensor " + sensor + " ***\n";
    for (int i = 0; i < 50; ++i) {
        text += "Time: " + std::to_string(5'000'000'000 + i * 100'000'000LL) +
                ", Value: " + std::to_string(moves || i < 20 ? i % 7 : 3) + ".000000\n";
    }
    return text;
}

TEST(Comparison, PutsThreeReportsSideBySide) {
    const ReportFile files[] = {
            ReportFile(Whole(kTimes + File("A", "1\n") + File("S") + File("A", "2\n") + File("B") +
                             kBox + Moving("1 (Accelerometer)", true) +
                             Moving("10 (Barometer)", false) + Header("T") + Footer("T", "0.010"))),
            ReportFile(Whole(kTimes + File("A", "1\n") + Header("S") + Footer("S", "2.600") +
                             File("A", "3\n") + File("N") + File("B", "*** cannot open /x: no\n") +
                             kBox + Moving("1 (Accelerometer)", false) +
                             Moving("10 (Barometer)", false) + Header("T") + Footer("T", "0.050"))),
            ReportFile(Whole(File("F") + kTimes + File("A", "1\n") + File("S") + kBox +
                             "Skipping Sensor 1 (Accelerometer): Incomplete buffer\n" +
                             Moving("10 (Barometer)", false) + Header("T") +
                             Footer("T", "0.010")))};
    std::vector<Report> reports;
    for (const ReportFile& file : files) reports.push_back(file.Read());
    std::vector<Verdict> verdicts;
    for (const Report& report : reports) verdicts.push_back(Judge(report));
    const Comparison comparison = Compare(reports, verdicts, true);
    std::string lines;
    for (const auto& line : comparison.sections) {
        lines += line.title + (line.missing_in_some ? " missing" : "") +
                 (line.time_differs ? " time" : "") + (line.text_differs ? " text" : "") + "\n";
    }
    EXPECT_EQ(lines,
              "F missing\nPower Stats Times\nA\nS time\nA missing text\nN missing\n"
              "B missing\nT\nModem SSR history\n");
    ASSERT_EQ(comparison.sensors.size(), 2U);
    std::string found;
    for (const auto& line : comparison.findings) {
        if (line.check.starts_with("sensor")) {
            found += line.check + " " + line.subject + (line.differs ? " differs\n" : "\n");
        }
    }
    EXPECT_EQ(found,
              "sensor-missing Accelerometer differs\nsensor-missing Gyroscope differs\n"
              "sensor-missing Magnetometer differs\nsensor-missing LowLatencyOffBody differs\n"
              "sensor-missing TiltToWake differs\nsensor-missing RaiseToTalk differs\n"
              "sensor-frozen Barometer\nsensor-frozen Accelerometer differs\n");

    const Summary summary = Summed(reports, false);
    EXPECT_FALSE(summary.good);
    for (const char* part :
         {"\n  B  [0] good  [1] cannot open /x: no  [2] not there\n",
          "\n  S  [0] 1.250 s  [1] 2.600 s  [2] 1.250 s\n",
          "Accelerometer\n      [0] good\n      [1] froze at 2026-11-25 07:29:14 UTC\n      [2] "
          "other trouble\n",
          "[2] was skipped: Incomplete buffer", "  Failed  [0] 0  [1] 1  [2] 0\n"}) {
        EXPECT_NE(summary.text.find(part), std::string::npos) << part << "\n" << summary.text;
    }
    // Equally broken: nothing differs, and all the same it isn't good.
    std::vector<Report> same = {files[0].Read(), files[0].Read()};
    EXPECT_FALSE(Summed(same, false).good);
    for (const char* part : {"Nothing differs", "Barometer\n      [0] froze at"}) {
        EXPECT_NE(Summed(same, false).text.find(part), std::string::npos) << part;
    }
    const ReportFile good(Whole(kTimes + kBox + Moving("1 (Accelerometer)", true) + kTimes));
    same = {good.Read(), good.Read()};
    EXPECT_TRUE(Summed(same, false).good) << Summed(same, false).text;
}

TEST(Summary, FitsATerminalAndDoesNotSteerIt) {
    const std::string hostile = "\x1b[2J\xC2\x9B\x80\u202E </script>" + std::string(300, 'w') + "é";
    const Report bad =
            ReportFile("verbose logging: enabled\n" +
                       File("VENDOR PROPERTIES", "[ro.product.model]: [" + hostile + "]\n") +
                       File(hostile, "*** exit status 4\n") + kBox + Header("cut") + "x")
                    .Read();
    const Summary summary = Summed({&bad, 1}, false);
    EXPECT_FALSE(summary.good);
    EXPECT_EQ(summary.text.find("\u202E"), std::string::npos);
    std::istringstream lines(summary.text);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(Columns(line), 80U) << line;
        EXPECT_EQ(Printable(line), line);
    }
    for (const char* part :
         {"</script>", "exit status 4", "ends within cut, within a line", "no data came",
          "NOT complete", "3 sections, 1 failed, 1 not finished"}) {
        EXPECT_NE(summary.text.find(part), std::string::npos) << part << "\n" << summary.text;
    }
    EXPECT_EQ(summary.text.find('\x1b'), std::string::npos);
    EXPECT_NE(Summed({&bad, 1}, true).text.find("\x1b[31m"), std::string::npos);

    const Report good =
            ReportFile(Whole(kTimes + kBox + Moving("1 (Accelerometer)", true) + kTimes)).Read();
    EXPECT_TRUE(Summed({&good, 1}, false).good);
    EXPECT_NE(Summed({&good, 1}, false).text.find("\n  Fine: Accelerometer 10.00 Hz\n"),
              std::string::npos)
            << Summed({&good, 1}, false).text;
}

std::string Json(const std::string& file) {
    std::string text;
    EXPECT_EQ(WriteJson(file, Rules(),
                        [&](std::string_view bytes) {
                            text += bytes;
                            return true;
                        }),
              "");
    return text;
}

TEST(Json, HoldsAnyBytesAndAnyNumber) {
    // The steps are those that Unicode recommends: ED A0 80 is three.
    const ReportFile file(
            "verbose logging: enabled\n" + Command("A \"q\"", std::string("\0\x1f\x7f\\\t\n", 6)) +
            File("B", "é\xE2\x82\xAC\xF0\x9F\x98\x80\xED\xA0\x80\xF0\x9F\n\xC3\n") + kBox +
            "*** Sensor 1 (Accelerometer) ***\n"
            "Time: 18446744073709551615, Value: (0.100000, -nan, -12345.678901)\n"
            "*** Sensor 196 (W) ***\nTime: 9007199254740993, Time On Wrist: 2.500000s\n"
            "Skipping Sensor 6 (G): No timestamp info\n" +
            Header("C"));
    // One line each; in the text, the file's name is F, and U+FFFD is ?.
    std::string expected = R"x({"type":"section","file":"F","index":0,"title":"A \"q\"",
"kind":"command","detail":"/vendor/bin/x -y","seconds":1.25,"failure":null,"complete":true,
"text":"\u0000\u001f.\\\t\n","lossy":false,"expected":null}
{"type":"section","file":"F","index":1,"title":"B","kind":"file","detail":"/x",
"seconds":1.25,"failure":null,"complete":true,"text":"é€😀????\n?\n","lossy":true,"expected":null}
{"type":"sensor","file":"F","sensor":1,"name":"Accelerometer","skipped":null,
"times":[18446744073709551615],"values":[[0.1,null,-12345.678901]]}
{"type":"sensor","file":"F","sensor":196,"name":"W","skipped":null,
"times":[9007199254740993],"values":[[2.5]]}
{"type":"sensor","file":"F","sensor":6,"name":"G","skipped":"No timestamp info",
"times":[],"values":[]}
{"type":"section","file":"F","index":2,"title":"C","kind":"file","detail":"/x",
"seconds":0.0,"failure":null,"complete":false,"text":"","lossy":false,"expected":null}
{"type":"fact","file":"F","fact":"verbose","number":null,"text":"enabled"}
{"type":"fact","file":"F","fact":"sections","number":3,"text":"3"}
{"type":"fact","file":"F","fact":"failed","number":0,"text":"0"}
{"type":"fact","file":"F","fact":"slowest","number":null,"text":"A \"q\" (1.250 s)"}
{"type":"state","file":"F","sensor":1,"name":"Accelerometer","records":1,
"seconds":0.0,"rate":0.0,"state":null}
{"type":"state","file":"F","sensor":196,"name":"W","records":1,
"seconds":0.0,"rate":0.0,"state":null}
{"type":"state","file":"F","sensor":6,"name":"G","records":0,
"seconds":0.0,"rate":0.0,"state":"was skipped: No timestamp info"}
{"type":"finding","file":"F","check":"report-cut","severity":"error",
"says":"The report ends within C",
"hint":"A whole one ends with Modem SSR history; what comes before the cut is right.",
"section":null,"index":null,"line":null,"evidence":null,"name":null}
{"type":"finding","file":"F","check":"sensor-missing","severity":"error",
"says":"G was skipped: No timestamp info",
"hint":"The device's system log says why, in lines with the tag tev-dumpstate: logcat -s tev-dumpstate,
 of the simulated wearable ./dev logcat, of a host journalctl -u dbus.",
"section":null,"index":null,"line":null,"evidence":null,"name":"G"}
{"type":"report","file":"F","verbose":true,"facts":{"verbose":"enabled","sections":3,"failed":0,
"slowest":"A \"q\" (1.250 s)"},"black_box":"G skipped: No timestamp info",
"sections":3,"failed":0,"complete":false,"errors":2,"warnings":0}
)x";
    const std::pair<std::string, std::string> stands_for[] = {
            {",\n", ","},
            {"?", "\uFFFD"},
            {".\\\\", "\x7f\\\\"},
            {"\"F\"", '"' + file.path() + "\",\"key\":\"e3f996f367742ae85b7abb2c13e24d12\""}};
    for (const auto& [shown, meant] : stands_for) {
        for (size_t at = 0; (at = expected.find(shown, at)) != std::string::npos;
             at += meant.size()) {
            expected.replace(at, shown.size(), meant);
        }
    }
    EXPECT_EQ(Json(file.path()), expected);
}

TEST(Json, KnowsAReportByItsBytes) {
    const std::string bytes = File("A", std::string(200'000, 'a')) + File("B", "b\n");
    const ReportFile file(bytes);
    const auto without_name = [](std::string json, const std::string& name) {
        for (size_t at; (at = json.find(name)) != std::string::npos;) json.erase(at, name.size());
        return json;
    };
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    std::thread writer([&] {
        EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        close(ends[1]);
    });
    const std::string pipe_name = "/dev/fd/" + std::to_string(ends[0]);
    const std::string json = Json(file.path());
    EXPECT_EQ(without_name(Json(pipe_name), pipe_name), without_name(json, file.path()));
    writer.join();
    close(ends[0]);
    const std::string key = json.substr(json.find("\"key\":\""), 40);
    EXPECT_EQ(Json(ReportFile(bytes + "\n").path()).find(key), std::string::npos);
}

TEST(Json, CutsATextBeforeItFillsTheMemory) {
    constexpr size_t kMost = size_t{63} << 20;
    // The last character lies across the limit, and what is escaped takes six times its room.
    const std::string text = std::string(kMost - 1, 'x') + "é and more\n";
    const std::string controls(kMost / 6 + 1, '\1');
    const std::string json =
            Json(ReportFile(File("A", text) + File("B", controls) + File("C", "whole\n")).path());
    const size_t begin = json.find("\"text\":\"") + 8;
    EXPECT_EQ(json.find('"', begin) - begin, kMost - 1);
    EXPECT_NE(json.find("x\",\"lossy\":false,\"cut\":true,\"expected\":null}\n", begin),
              std::string::npos);
    EXPECT_NE(json.find("1\",\"lossy\":false,\"cut\":true,\"expected\":null}\n", begin),
              std::string::npos);
    EXPECT_NE(json.find("\"whole\\n\",\"lossy\":false,\"expected\":null}\n"), std::string::npos);
    size_t longest = 0;
    for (size_t at = 0, end; (end = json.find('\n', at)) != std::string::npos; at = end + 1) {
        longest = std::max(longest, end - at);
    }
    EXPECT_LT(longest, size_t{64} << 20);
}

TEST(Source, SaysWhatIsNoReportAndReadsAPipeTwice) {
    const struct {
        std::string path;
        std::string sentence;
    } cases[] = {{"/none/x", "cannot read /none/x: No such file or directory"},
                 {"/", "/ is a folder; name the report in it"},
                 {"/dev/null", "/dev/null is empty"},
                 {"/bin/true", "/bin/true is no board report: no section begins in it"}};
    for (const auto& test : cases) {
        Report report;
        EXPECT_EQ(ReadReport(test.path, false, report), test.sentence);
    }
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    std::thread writer([&] {
        const std::string bytes = File("A", std::string(200'000, 'a')) + File("B", "b\n");
        EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        close(ends[1]);
    });
    Report report;
    EXPECT_EQ(ReadReport("/dev/fd/" + std::to_string(ends[0]), true, report), "");
    writer.join();
    close(ends[0]);
    std::string text;
    ASSERT_EQ(report.sections.size(), 2U);
    EXPECT_TRUE(report.source->ReadAt(report.sections[1].text, text));
    EXPECT_EQ(text, "b\n");

    // Standard input of which somebody has read the beginning.
    const ReportFile file("a line\n" + File("A", "a\n"));
    const int before = dup(STDIN_FILENO);
    const int fd = open(file.path().c_str(), O_RDONLY);
    ASSERT_EQ(lseek(fd, 7, SEEK_SET), 7);
    dup2(fd, STDIN_FILENO);
    Report rest;
    EXPECT_EQ(ReadReport("-", true, rest), "");
    dup2(before, STDIN_FILENO);
    close(before);
    close(fd);
    ASSERT_EQ(rest.sections.size(), 1U);
    EXPECT_TRUE(rest.outside.empty());
    text.clear();
    EXPECT_TRUE(rest.source->ReadAt(rest.sections[0].text, text));
    EXPECT_EQ(text, "a\n");
}

}  // namespace
}  // namespace reader
