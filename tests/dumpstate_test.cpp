// The service's own code against a platform that writes down what it is asked for.

#include "dumpstate.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "recording_platform.h"

namespace aidl::android::hardware::dumpstate {
namespace {

using Mode = IDumpstateDevice::DumpstateMode;

std::string ReadAll(int fd) {
    std::string text(4096, '\0');
    const ssize_t size = pread(fd, text.data(), text.size(), 0);
    text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return text;
}

// The requests of a whole report, from a table that was written down apart from the code: the rows'
// first column names the group of rows that user builds leave out.
std::vector<std::string> ExpectedRequests(bool user, const std::string& without = "") {
    std::vector<std::string> requests;
    std::ifstream table(TEST_DATA "/board_report.tsv");
    std::string group;
    for (std::string row; std::getline(table, row);) {
        const std::string guard = row.substr(0, row.find('\t'));
        std::string request = row.substr(row.find('\t') + 1);
        std::istringstream cells(request);
        std::string title;
        std::string kind;
        std::string rest;
        std::getline(cells, title, '\t');
        std::getline(cells, kind, '\t');
        std::getline(cells, rest);
        if (title == without) continue;
        if (guard != "-" && guard != group) requests.emplace_back("build type?");
        group = guard;
        if (guard == "-" || !user) requests.push_back(kind + "\t" + title + "\t" + rest);
    }
    return requests;
}

class DumpstateTest : public testing::Test {
  protected:
    DumpstateTest() { ThePlatform() = {}; }

    ndk::ScopedAStatus Call(const std::vector<int>& values, int mode = 0) {
        std::vector<ndk::ScopedFileDescriptor> fds;
        for (const int value : values) fds.emplace_back(value);
        auto status = service_->dumpstateBoard(fds, static_cast<Mode>(mode), 0);
        for (ndk::ScopedFileDescriptor& fd : fds) static_cast<void>(fd.release());
        return status;
    }

    const std::shared_ptr<Dumpstate> service_ = ndk::SharedRefBase::make<Dumpstate>();
    const ndk::ScopedFileDescriptor report_{memfd_create("report", MFD_CLOEXEC)};
};

TEST_F(DumpstateTest, EveryEntryInItsOrderWithItsGuardAndTimeout) {
    for (const char* type : {"userdebug", "user", ""}) {
        SCOPED_TRACE(type);
        ThePlatform() = {};
        ThePlatform().properties = {{"ro.build.type", type},
                                    {"ro.vendor.touch.dump_path", "/touch/from/property"}};
        EXPECT_TRUE(Call({report_.get()}).isOk());
        EXPECT_EQ(ThePlatform().requests, ExpectedRequests(std::string(type) == "user"));
        for (const int fd : ThePlatform().descriptors) EXPECT_EQ(fd, report_.get());
    }
}

TEST_F(DumpstateTest, SleepStatisticsNeedTheirDirectoryAndTouchNoProperty) {
    const std::filesystem::path stats = "/d/qcom_sleep_stats";
    std::filesystem::rename(stats, "/d/hidden");
    EXPECT_TRUE(Call({report_.get()}).isOk());
    std::filesystem::rename("/d/hidden", stats);

    auto expected = ExpectedRequests(false, "Sleep Stats");
    expected[1] = "file\tTouch Stats\t-\t";
    EXPECT_EQ(ThePlatform().requests, expected);
}

TEST_F(DumpstateTest, FirstLineTellsTheVerboseSetting) {
    EXPECT_TRUE(Call({report_.get()}).isOk());
    ThePlatform().properties["persist.vendor.verbose_logging_enabled"] = "true";
    EXPECT_TRUE(Call({report_.get()}).isOk());
    EXPECT_EQ(ReadAll(report_.get()), "verbose logging: disabled\nverbose logging: enabled\n");
}

TEST_F(DumpstateTest, RefusesBadArgumentsInOrderAndTouchesNothing) {
    struct Case {
        std::vector<int> fds;
        int mode;
        const char* message;
        std::vector<std::string> logs;
    };
    const Case cases[] = {
            {{}, 8, "Invalid mode", {"6 - Invalid mode: 8\n"}},
            {{report_.get()}, -1, "Invalid mode", {"6 - Invalid mode: -1\n"}},
            {{report_.get()}, INT32_MIN, "Invalid mode", {"6 - Invalid mode: -2147483648\n"}},
            {{}, 7, "No file descriptor", {}},
            {{-1, report_.get()}, 0, "Invalid file descriptor", {}},
    };
    for (const Case& refused : cases) {
        SCOPED_TRACE(refused.message);
        ThePlatform() = {};
        const auto status = Call(refused.fds, refused.mode);
        EXPECT_EQ(status.getExceptionCode(), EX_ILLEGAL_ARGUMENT);
        EXPECT_STREQ(status.getMessage(), refused.message);
        EXPECT_EQ(ThePlatform().logs, refused.logs);
        EXPECT_TRUE(ThePlatform().requests.empty());
    }
    EXPECT_EQ(ReadAll(report_.get()), "");
    for (int mode = 0; mode < 8; ++mode) EXPECT_TRUE(Call({report_.get(), -1}, mode).isOk());
    EXPECT_TRUE(Call({0}).isOk());
}

TEST_F(DumpstateTest, VerboseSettingIsTheProperty) {
    bool enabled = true;
    EXPECT_TRUE(service_->getVerboseLoggingEnabled(&enabled).isOk());
    EXPECT_FALSE(enabled);
    for (const bool value : {true, false}) {
        EXPECT_TRUE(service_->setVerboseLoggingEnabled(value).isOk());
        EXPECT_EQ(ThePlatform().properties["persist.vendor.verbose_logging_enabled"],
                  value ? "true" : "false");
        EXPECT_TRUE(service_->getVerboseLoggingEnabled(&enabled).isOk());
        EXPECT_EQ(enabled, value);
    }
}

TEST_F(DumpstateTest, BinderIsOneAsLongAsItLivesAndDumpsNothing) {
    ndk::SpAIBinder first = service_->asBinder();
    EXPECT_EQ(service_->asBinder().get(), first.get());
    EXPECT_EQ(service_->dump(report_.get(), nullptr, 0), STATUS_OK);
    EXPECT_EQ(service_->handleShellCommand(0, 1, 2, nullptr, 0), STATUS_OK);
    EXPECT_FALSE(service_->isRemote());
    EXPECT_EQ(ReadAll(report_.get()), "");
    first = {};
    EXPECT_NE(service_->asBinder().get(), nullptr);
    EXPECT_EQ(service_.use_count(), 1);  // a binder that is gone has let its object go
}

}  // namespace
}  // namespace aidl::android::hardware::dumpstate
