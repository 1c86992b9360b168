#include "report_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Every event as a line; the report cut into pieces of the given size.
std::vector<std::string> Read(const std::string& report, size_t piece = std::string::npos) {
    std::vector<std::string> events;
    ReportReader reader(
            [&](std::string_view title) { events.push_back("> " + std::string(title)); },
            [&](const ReportReader::Section& section) {
                events.push_back("< " + section.title + " " + std::to_string(section.seconds) +
                                 (section.finished ? "" : " unfinished") +
                                 (section.failure.empty() ? "" : " " + section.failure));
            });
    for (size_t at = 0; at < report.size(); at += std::min(piece, report.size())) {
        reader.Feed(std::string_view(report).substr(at, piece));
    }
    reader.Finish();
    return events;
}

std::string Header(const std::string& title) {
    return "------ " + title + " (/x) ------\n";
}
std::string Footer(const std::string& title) {
    return "------ 1.250s was the duration of '" + title + "' ------\n";
}
std::string Section(const std::string& title, const std::string& content = "") {
    return Header(title) + content + Footer(title);
}

using Events = std::vector<std::string>;

TEST(ReportReader, SectionsInAnyChunking) {
    const std::string report =
            "verbose logging: disabled\n" + Section("A") +
            Section("B (b) 'b'", std::string("\0\x80 binary\r\n----", 14) + "\n") +
            "------ Sensor Black Box ------\n*** Sensor 1 (A) ***\n" +
            Section("C", "\n*** exit status 3\n") +
            "------------------- USF Stats (1/2) -------------------\n" +
            Section("D", "*** exit status 3\nmore\n") + Section("E", "*** stars\n");
    const Events expected = {"> A", "< A 1.250000",
                             "> B", "< B (b) 'b' 1.250000",
                             "> C", "< C 1.250000 exit status 3",
                             "> D", "< D 1.250000",
                             "> E", "< E 1.250000"};
    for (size_t piece = 1; piece < report.size() + 1; ++piece) {
        EXPECT_EQ(Read(report, piece), expected) << piece;
    }
}

TEST(ReportReader, EveryKindOfFailureIsTold) {
    for (const char* failure :
         {"cannot run /x: no", "exit status 1", "killed by signal 9",
          "timed out after 2 s, stopped", "cannot open /x: no", "cannot read /x: no"}) {
        EXPECT_EQ(Read(Section("A", "*** " + std::string(failure) + "\n")),
                  (Events{"> A", "< A 1.250000 " + std::string(failure)}));
    }
}

TEST(ReportReader, ALogThatHoldsAReportIsContent) {
    const std::string old = Section("X", "*** exit status 1\n") + Header("Y") + Footer("Z");
    EXPECT_EQ(Read(Section("A", old) + Section("B")),
              (Events{"> A", "< A 1.250000", "> B", "< B 1.250000"}));
}

TEST(ReportReader, ASectionWithoutItsFooterHidesNoOther) {
    EXPECT_EQ(Read(Section("A") + Header("B") + "cut" + "\n" + Section("C", "*** exit status 1\n") +
                   Header("D") + Section("E") + Header("F")),
              (Events{"> A", "< A 1.250000", "> B", "< B 0.000000 unfinished", "> C",
                      "< C 1.250000 exit status 1", "> D", "< D 0.000000 unfinished", "> E",
                      "< E 1.250000", "> F", "< F 0.000000 unfinished"}));
}

TEST(ReportReader, LinesThatOnlyLookAlike) {
    const std::string odd =
            "------ (/x) ------\n ------ A (/x) ------\n------ A (/x) ------ \n"
            "------ 1.25s was the duration of 'A' ------\n------ .250s was the duration of 'A' "
            "------\n------ 1x250s was the duration of 'A' ------\n";
    EXPECT_EQ(Read(odd), Events{});
    EXPECT_EQ(Read(Section("A", odd)), (Events{"> A", "< A 1.250000"}));
    // Longer than any header, and without an end.
    const std::string endless = "------ " + std::string(1 << 20, 'x');
    EXPECT_EQ(Read(Section("A", endless + " (/x) ------\n") + endless, 4096),
              (Events{"> A", "< A 1.250000"}));
}

}  // namespace
