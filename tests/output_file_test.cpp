// The files that boardreport writes: whose they are, and what becomes of older ones.

#include "output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "processes.h"

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

    const WithinAMinute end_{"a file to be opened or written"};
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
            {"echo older and longer >f.partial; chmod 644 f.partial", "cat f; stat -c %a f; ls",
             "new600\nf\n"},
            // What somebody else's hand may have put there stays what it is.
            {"echo old >g; ln g f.partial; ln -s g f.partial.2; mkfifo f.partial.3", "cat f g; ls",
             "newold\nf\nf.partial\nf.partial.2\nf.partial.3\ng\n"},
            {"for n in '' $(seq -f .%g 20); do ln -s g f.partial$n; done", "cat f; ls g",
             "newls: cannot access 'g': No such file or directory\n"},
            {"echo old >f.partial; chmod 666 f.partial; chmod 777 .", "cat f f.partial", "newold\n",
             "", 022, kStranger},
            {"mkfifo f; timeout 20 cat f >g 2>&1 &", "while ! [ -s g ]; do sleep 0.02; done; cat g",
             "new"},
            {"ln -s /dev/null f", "ls", "f\n", "it is a symbolic link"},
            {"echo old >g; ln -s g f", "cat g; ls", "old\nf\ng\n", "it is a symbolic link"},
            {"ln -s g f", "ls", "f\n", "it is a symbolic link"},
            {"mkfifo g; ln -s g f; timeout 20 cat g >h 2>&1 &", "cat h", "",
             "it is a symbolic link"},
            {"mkdir f", "ls", "f\n", "Is a directory"},
            {"echo old >f; chmod 666 f", "cat f; ls", "old\nf\n", "it belongs to another user", 022,
             kStranger},
            {"mkfifo f; chmod 666 f", "ls", "f\n", "it belongs to another user", 022, kStranger},
            {"echo old >f; chown 65534 f; echo left >f.partial; chown 65534 f.partial",
             "cat f f.partial; ls; stat -c %a f", "newleft\nf\nf.partial\n644\n", "", 022,
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

// Of somebody else's devices only those that are there for everybody.
TEST_F(OutputFileTest, DevicesAreTheirOwnersToo) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be two users";
    EXPECT_EQ(OutputFile("/dev/full").error(), 0);
    ASSERT_EQ(seteuid(65534), 0);
    EXPECT_EQ(OutputFile("/dev/full").Sentence(),
              "cannot write /dev/full: it belongs to another user");
    EXPECT_EQ(OutputFile("/dev/null").error(), 0);
    EXPECT_NE(OutputFile("/dev/tty").error(), EPERM);  // which is not there without a terminal
    ASSERT_EQ(seteuid(0), 0);
}

TEST_F(OutputFileTest, WhatIsNotCommittedIsKeptBesideWhatWasThere) {
    Shell("echo old >f");
    {
        OutputFile output("f");
        OutputFile meanwhile("f");
        EXPECT_TRUE(output.Write("first") && meanwhile.Write("second"));
        EXPECT_EQ(output.path(), "f.partial");
        EXPECT_EQ(meanwhile.path(), "f.partial.2");
    }
    EXPECT_EQ(Shell("cat f f.partial f.partial.2; stat -c %a *; ls"),
              "old\nfirstsecond644\n600\n600\nf\nf.partial\nf.partial.2\n");

    // The next one fills it anew, once something comes.
    { OutputFile nothing("f"); }
    EXPECT_EQ(Shell("cat f.partial"), "first");
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(OutputFile("f").Write("next"));
    EXPECT_EQ(Shell("cat f.partial; ls"), "nextf\nf.partial\nf.partial.2\n");
    { OutputFile nothing("g"); }
    EXPECT_EQ(Shell("ls g*"), "ls: cannot access 'g*': No such file or directory\n");

    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{4, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    OutputFile full("f");
    EXPECT_FALSE(full.Write("newest"));
    EXPECT_FALSE(full.Commit());
    const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &none);
    EXPECT_EQ(full.Sentence(),
              "cannot write f: File too large; the first 4 bytes are kept in f.partial");
    EXPECT_EQ(Shell("cat f f.partial"), "old\nnewe");
}

TEST_F(OutputFileTest, KnowsWhatIsItselfUnderAnotherName) {
    Shell("echo old >f; ln f g; echo left >h.partial; mkdir d; ln -s d e");
    const auto replaces = [](const char* output, const char* input) {
        const int fd = open(input, O_RDONLY | O_CLOEXEC);
        const bool result = OutputFile(output).Replaces(fd);
        close(fd);
        return result;
    };
    EXPECT_TRUE(replaces("f", "./f") && replaces("g", "f") && replaces("h", "h.partial"));
    EXPECT_FALSE(replaces("new", "f") || replaces("h", "f") || replaces("/dev/null", "/dev/null"));
    const int fd = open("f", O_WRONLY | O_CLOEXEC);
    EXPECT_TRUE(replaces(("/dev/fd/" + std::to_string(fd)).c_str(), "g"));
    close(fd);

    const auto same = [](const char* one, const char* other) {
        return OutputFile(one).IsSameAs(OutputFile(other));
    };
    EXPECT_TRUE(same("f", "./f") && same("f", "g") && same("new", "./new") &&
                same("d/new", "e/new") && same("-", "/dev/fd/1"));
    EXPECT_FALSE(same("f", "new") || same("new", "newer") || same("/dev/null", "/dev/null"));
}

TEST_F(OutputFileTest, SaysWhenItGivesUp) {
    int full[2];
    int told[2];
    ASSERT_TRUE(pipe2(full, O_CLOEXEC) == 0 && pipe2(told, O_CLOEXEC) == 0);
    OutputFile output("/dev/fd/" + std::to_string(full[1]));
    output.GiveUpWhen(told[0]);
    EXPECT_TRUE(output.Write(std::string(40000, 'x')));
    EXPECT_EQ(write(told[1], "x", 1), 1);
    EXPECT_FALSE(output.Write(std::string(40000, 'x')));
    EXPECT_EQ(output.error(), EINTR);
    for (const int fd : {full[0], full[1], told[0], told[1]}) close(fd);

    EXPECT_EQ(OutputFile("d/f").Sentence(), "cannot write d/f: No such file or directory");
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
