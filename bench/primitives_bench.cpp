// What a section costs beside the least that could do its work: a bare spawn and wait of the same
// program, a bare open, sendfile and close of the same file, and cat.

#include <DumpstateUtil.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using android::os::dumpstate::DumpFileToFd;
using android::os::dumpstate::RunCommandToFd;

constexpr char kProgram[] = "/bin/true";
constexpr size_t kMiB = size_t{1} << 20;

// Touched memory that the process holds while it spawns.
std::unique_ptr<char[]> Ballast(int64_t mebibytes) {
    const size_t size = static_cast<size_t>(mebibytes) * kMiB;
    auto memory = std::make_unique_for_overwrite<char[]>(size);
    std::memset(memory.get(), 1, size);
    return memory;
}

void BareSpawn(const char* program, char* const* argv, int out) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    pid_t pid = -1;
    posix_spawn(&pid, program, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    waitpid(pid, nullptr, 0);
}

void BM_Command(benchmark::State& state) {
    const auto ballast = Ballast(state.range(0));
    const int out = memfd_create("report", MFD_CLOEXEC);
    for (auto _ : state) {
        RunCommandToFd(out, "T", {kProgram});
        lseek(out, 0, SEEK_SET);
    }
    close(out);
}
BENCHMARK(BM_Command)->ArgName("MiB")->Arg(10)->Arg(1024)->UseRealTime();

void BM_BareSpawnAndWait(benchmark::State& state) {
    const auto ballast = Ballast(state.range(0));
    char* const argv[] = {const_cast<char*>(kProgram), nullptr};
    for (auto _ : state) BareSpawn(kProgram, argv, STDOUT_FILENO);
}
BENCHMARK(BM_BareSpawnAndWait)->ArgName("MiB")->Arg(10)->Arg(1024)->UseRealTime();

// In memory: a disk's write-back would be all that is measured.
class TemporaryFile {
  public:
    explicit TemporaryFile(size_t size) {
        const int fd = mkostemp(path_.data(), O_CLOEXEC);
        const std::string block(kMiB, 'x');
        for (size_t left = size; left > 0;) {
            const ssize_t written = write(fd, block.data(), std::min(left, block.size()));
            if (written <= 0) break;
            left -= static_cast<size_t>(written);
        }
        close(fd);
    }
    ~TemporaryFile() { unlink(path_.c_str()); }
    const std::string& path() const { return path_; }

  private:
    std::string path_ = "/dev/shm/bench.XXXXXX";
};

void BM_SmallFile(benchmark::State& state) {
    const TemporaryFile file(4000);
    const int out = memfd_create("report", MFD_CLOEXEC);
    for (auto _ : state) {
        DumpFileToFd(out, "T", file.path());
        lseek(out, 0, SEEK_SET);
    }
    close(out);
}
BENCHMARK(BM_SmallFile);

void BM_BareOpenSendfileClose(benchmark::State& state) {
    const TemporaryFile file(4000);
    const int out = memfd_create("report", MFD_CLOEXEC);
    for (auto _ : state) {
        const int in = open(file.path().c_str(), O_RDONLY | O_CLOEXEC);
        benchmark::DoNotOptimize(sendfile(out, in, nullptr, 4000));
        close(in);
        lseek(out, 0, SEEK_SET);
    }
    close(out);
}
BENCHMARK(BM_BareOpenSendfileClose);

// Where a big file goes: a pipe that a thread empties, or a file.
class Sink {
  public:
    explicit Sink(bool to_pipe) {
        if (!to_pipe) {
            fd_ = mkostemp(path_.data(), O_CLOEXEC);
            return;
        }
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return;
        fd_ = ends[1];
        reader_ = std::thread([in = ends[0]] {
            std::vector<char> buffer(kMiB);
            while (read(in, buffer.data(), buffer.size()) > 0) {
            }
            close(in);
        });
    }
    ~Sink() {
        close(fd_);
        if (reader_.joinable()) {
            reader_.join();
        } else {
            unlink(path_.c_str());
        }
    }
    int fd() const { return fd_; }

  private:
    std::string path_ = "/dev/shm/bench.XXXXXX";
    int fd_ = -1;
    std::thread reader_;
};

constexpr size_t kBig = 1024 * kMiB;

void BM_GibibyteFile(benchmark::State& state) {
    const TemporaryFile file(kBig);
    for (auto _ : state) {
        const Sink sink(state.range(0) != 0);
        DumpFileToFd(sink.fd(), "T", file.path());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBig));
}
BENCHMARK(BM_GibibyteFile)->ArgName("pipe")->Arg(1)->Arg(0)->UseRealTime()->Iterations(5);

void BM_GibibyteCat(benchmark::State& state) {
    const TemporaryFile file(kBig);
    char* const argv[] = {const_cast<char*>("cat"), const_cast<char*>(file.path().c_str()),
                          nullptr};
    for (auto _ : state) {
        const Sink sink(state.range(0) != 0);
        BareSpawn("/bin/cat", argv, sink.fd());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBig));
}
BENCHMARK(BM_GibibyteCat)->ArgName("pipe")->Arg(1)->Arg(0)->UseRealTime()->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
