// The files that boardreport writes: whose they are, and what becomes of older ones.

#include "output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

std::string Shell(const std::string& command) {
    FILE* const pipe = popen(("{ :; " + command + "\n} 2>&1").c_str(), "r");
    std::string output(4096, '\0');
    output.resize(fread(output.data(), 1, output.size(), pipe));
    pclose(pipe);
    return output;
}

class OutputFileTest : public testing::Test {
  protected:
    OutputFileTest() {
        char folder[] = "/tmp/output_file_test.XXXXXX";
        std::filesystem::current_path(mkdtemp(folder));
        chmod(".", 0755);
    }
    ~OutputFileTest() override {
        std::filesystem::remove_all(std::filesystem::current_path());
        std::filesystem::current_path("/");
    }
};

TEST_F(OutputFileTest, FilesAreTheirOwners) {
    constexpr uid_t kStranger = 65534;
    const bool root = geteuid() == 0;
    const struct {
        const char* before;
        const char* look;
        std::string seen;
        const char* refusal = "";
        mode_t umask = 022;
        uid_t user = 0;  // where it isn't 0, only root can try
    } cases[] = {
            {"", "cat f; stat -c %a f; ls", "new600\nf\n", "", 0},
            {"", "cat f; stat -c %a f", "new600\n", "", 0777},
            {"echo old >f; chmod 640 f", "cat f; stat -c %a f; ls", "new640\nf\n"},
            {"echo old >g; ln g f", "cat f g", "newold\n"},
            {"echo old >f.partial", "cat f; ls", "newf\nf.partial\n"},
            {"mkfifo f; timeout 20 cat f >g 2>&1 &", "while ! [ -s g ]; do sleep 0.02; done; cat g",
             "new"},
            {"ln -s /dev/null f", "ls", "f\n"},
            {"echo old >g; ln -s g f", "cat g; ls", "old\nf\ng\n", "it is a symbolic link"},
            {"ln -s g f", "ls", "f\n", "it is a symbolic link"},
            {"mkfifo g; ln -s g f; timeout 20 cat g >h 2>&1 &", "cat h", "",
             "it is a symbolic link"},
            {"mkdir f", "ls", "f\n", "Is a directory"},
            {"echo old >f; chmod 666 f", "cat f; ls", "old\nf\n", "it belongs to another user", 022,
             kStranger},
            {"mkfifo f; chmod 666 f; timeout 20 cat f >g 2>&1 &", "cat g", "",
             "it belongs to another user", 022, kStranger},
            {"echo old >f; chown 65534 f", "cat f; ls; stat -c %a f", "newf\n644\n", "", 022,
             kStranger},  // who may make no file beside it
            {"echo old >f; chgrp 12345 f; chmod 664 f; chmod 777 .; chown 65534 f",
             "stat -c %a,%g f | sed s/,$(stat -c %g .)/,ours/", "604,ours\n", "", 022, kStranger},
    };
    for (const auto& file : cases) {
        if (file.user != 0 && !root) continue;
        Shell(file.before);
        umask(file.umask);
        ASSERT_EQ(seteuid(root ? file.user : geteuid()), 0);
        {
            OutputFile output("f");
            if (*file.refusal == '\0') {
                EXPECT_TRUE(output.Write("n") && output.Write("ew") && output.Commit())
                        << file.before << output.Sentence();
            }
            const std::string sentence = "cannot write f: " + std::string(file.refusal);
            EXPECT_EQ(output.error() == 0 ? "" : output.Sentence(),
                      *file.refusal == '\0' ? "" : sentence)
                    << file.before;
        }
        ASSERT_EQ(seteuid(getuid()), 0);
        umask(022);
        EXPECT_EQ(Shell(file.look), file.seen) << file.before;
        Shell("chmod 755 .; rm -rf *");
    }
}

TEST_F(OutputFileTest, WhatIsNotCommittedIsKeptBesideWhatWasThere) {
    Shell("echo old >f");
    for (const char* const partial : {"f.partial", "f.partial.2"}) {
        OutputFile output("f");
        OutputFile nothing("g");
        EXPECT_TRUE(output.Write("new"));
        EXPECT_EQ(output.path(), partial);
    }
    EXPECT_EQ(Shell("cat f f.partial f.partial.2; stat -c %a *; ls"),
              "old\nnewnew644\n600\n600\nf\nf.partial\nf.partial.2\n");

    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{4, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    OutputFile full("f");
    EXPECT_FALSE(full.Write("newest"));
    EXPECT_FALSE(full.Commit());
    const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &none);
    EXPECT_EQ(full.Sentence(),
              "cannot write f: File too large; the first 4 bytes are kept in f.partial.3");
    EXPECT_EQ(Shell("cat f"), "old\n");
}

// A descriptor is written to where it stands, whatever it is.
TEST_F(OutputFileTest, DescriptorsAreWrittenToAsTheyAre) {
    const int fd = open("f", O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    EXPECT_EQ(write(fd, "old", 3), 3);
    for (const char* const folder : {"/dev/fd/", "/proc/self/fd/"}) {
        OutputFile output(folder + std::to_string(fd));
        EXPECT_TRUE(output.Write("new") && output.Commit());
        EXPECT_FALSE(output.is_kept());
    }
    close(fd);
    EXPECT_EQ(Shell("cat f; ls"), "oldnewnewf\n");
    EXPECT_TRUE(OutputFile("/dev/stdout").is_standard_output());
}

}  // namespace
