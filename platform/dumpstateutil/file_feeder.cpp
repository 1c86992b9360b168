#include "file_feeder.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

namespace android::os::dumpstate {
namespace {

// How long a thread waits for another file. The report's files come in groups.
constexpr std::chrono::milliseconds kLinger{100};

// Most files are read in less time than it takes to put a thread to sleep and wake it. Whoever
// waits looks for some microseconds first, and soon lets others run in between, as the other thread
// may have no processor of its own.
constexpr int kBusyLooks = 1000;
constexpr int kLooks = kBusyLooks + 50;

template <typename Condition>
void LookFor(Condition condition) {
    for (int look = 0; look < kLooks && !condition(); ++look) {
        if (look >= kBusyLooks) sched_yield();
    }
}

// Created with every signal blocked, so that it takes none meant for the process and a lost reader
// is EPIPE.
int CreateWithSignalsBlocked(void* (*run)(void*), void* argument) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    const int error = pthread_create(&thread, nullptr, run, argument);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error == 0) pthread_detach(thread);
    return error;
}

// How much is left of a regular file on a file system that keeps its files on a disk or in memory,
// with no driver or daemon behind a file that could hold its reader; 0 for anything else.
uint64_t LeftOfPlainFile(int in, size_t begun) {
    // The magic numbers that the kernel's header has no name for: xfs, and vfat's.
    constexpr uint32_t kPlain[] = {EXT4_SUPER_MAGIC,  F2FS_SUPER_MAGIC,      EROFS_SUPER_MAGIC_V1,
                                   TMPFS_MAGIC,       OVERLAYFS_SUPER_MAGIC, SQUASHFS_MAGIC,
                                   BTRFS_SUPER_MAGIC, RAMFS_MAGIC,           MSDOS_SUPER_MAGIC,
                                   0x58465342};
    struct stat status {};
    struct statfs system {};
    if (fstat(in, &status) != 0 || !S_ISREG(status.st_mode) || fstatfs(in, &system) != 0) return 0;
    const auto size = static_cast<uint64_t>(status.st_size);
    const auto type = static_cast<uint32_t>(system.f_type);
    return size > begun && std::ranges::find(kPlain, type) != std::end(kPlain) ? size - begun : 0;
}

// Waits for input; false once nobody reads the pipe any more.
bool WaitReadable(int in, int pipe) {
    std::array<pollfd, 2> ends{pollfd{in, POLLIN, 0}, pollfd{pipe, 0, 0}};
    poll(ends.data(), ends.size(), -1);
    return (ends[1].revents & POLLERR) == 0;
}

bool WriteAll(int pipe, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(pipe, bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<size_t>(written));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Returns the errno with which reading failed, or 0.
int Feed(int in, int pipe) {
    std::array<char, size_t{64} * 1024> buffer;
    for (;;) {
        const ssize_t size = read(in, buffer.data(), buffer.size());
        if (size == 0) return 0;
        if (size > 0) {
            if (!WriteAll(pipe, {buffer.data(), static_cast<size_t>(size)})) return 0;
        } else if (errno == EAGAIN) {
            if (!WaitReadable(in, pipe)) return 0;
        } else if (errno != EINTR) {
            return errno;
        }
    }
}

}  // namespace

// One file, shared by who wants it and the thread that reads it.
struct FileFeeder::Job {
    enum class Ahead { kNothing, kPlain, kAnything };

    explicit Job(std::string_view its_path) : path(its_path) {}

    const std::string path;
    base::unique_fd in;  // the thread's alone
    std::array<char, kSmall + 1> beginning;
    std::atomic<size_t> size = 0;  // of it, growing
    std::atomic<int> open_error = 0;
    std::atomic<int> read_error = 0;

    // The threads' mutex guards these.
    std::condition_variable changed;
    std::atomic<bool> answered = false;
    bool abandoned = false;
    Rest rest;

    // Reads the beginning and tells whether more may follow.
    bool ReadBeginning() {
        in.reset(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
        if (in.get() < 0) {
            open_error = errno;
            return false;
        }
        for (size_t begun = 0; begun < beginning.size();) {
            const ssize_t got = read(in.get(), &beginning[begun], beginning.size() - begun);
            if (got == 0) return false;
            if (got > 0) {
                begun += static_cast<size_t>(got);
                size = begun;
            } else if (errno == EAGAIN) {
                return true;
            } else if (errno != EINTR) {
                read_error = errno;
                return false;
            }
        }
        return true;
    }
};

// Lives as long as the process, as a thread that is held may outlast everything else.
class FileFeeder::Threads {
  public:
    static Threads& Get() {
        static Threads& threads = *new Threads;
        return threads;
    }

    int Give(const std::shared_ptr<Job>& job) {
        if (std::unique_lock lock(mutex_); idle_ > 0) {
            waiting_.push_back(job);
            ++given_jobs_;
            --idle_;
            lock.unlock();
            given_.notify_one();
            return 0;
        }
        auto first = std::make_unique<std::shared_ptr<Job>>(job);
        const int error = CreateWithSignalsBlocked(Run, first.get());
        if (error == 0) static_cast<void>(first.release());  // the thread's own now
        return error;
    }

    bool WaitUntil(Job& job, platform::Deadline deadline) {
        LookFor([&job] { return job.answered.load(); });
        std::unique_lock lock(mutex_);
        return job.changed.wait_until(lock, deadline, [&job] { return job.answered.load(); });
    }

    void Abandon(Job& job) {
        const std::lock_guard lock(mutex_);
        job.abandoned = true;
        job.rest = {};
    }

  private:
    static void* Run(void* first) {
        const std::unique_ptr<std::shared_ptr<Job>> mine(static_cast<std::shared_ptr<Job>*>(first));
        for (std::shared_ptr<Job>& job = *mine; job != nullptr; job = Get().Next()) {
            Get().Serve(*job);
        }
        return nullptr;
    }

    void Serve(Job& job) {
        Rest rest;
        base::unique_fd write_end;
        if (job.ReadBeginning()) {
            rest.size = LeftOfPlainFile(job.in.get(), job.size);
            int ends[2];
            if (rest.size > 0) {
                rest.file = std::move(job.in);
            } else if (pipe2(ends, O_CLOEXEC) == 0) {
                rest.pipe.reset(ends[0]);
                write_end.reset(ends[1]);
            } else {
                job.read_error = errno;
            }
        }
        const bool to_feed = write_end.get() >= 0;
        if (!to_feed) job.in.reset();
        Answer(job, std::move(rest), to_feed);
        if (!to_feed) return;
        job.read_error = Feed(job.in.get(), write_end.get());
        job.in.reset();
        write_end.reset();
        const std::lock_guard lock(mutex_);
        ++idle_;
    }

    // A thread that has nothing left to do counts as idle before its answer is seen: the next file
    // finds it.
    void Answer(Job& job, Rest rest, bool busy) {
        {
            const std::lock_guard lock(mutex_);
            if (!busy) ++idle_;
            if (job.abandoned) return;  // and with `rest` goes the pipe's reader
            job.rest = std::move(rest);
            job.answered = true;
        }
        job.changed.notify_one();
    }

    // Null when the thread has waited long enough.
    std::shared_ptr<Job> Next() {
        LookFor([this] { return given_jobs_ > 0; });
        std::unique_lock lock(mutex_);
        if (!given_.wait_for(lock, kLinger, [this] { return !waiting_.empty(); })) {
            --idle_;
            return nullptr;
        }
        std::shared_ptr<Job> job = std::move(waiting_.back());
        waiting_.pop_back();
        --given_jobs_;
        return job;
    }

    std::mutex mutex_;
    std::condition_variable given_;
    std::vector<std::shared_ptr<Job>> waiting_;  // each has a thread that will take it
    std::atomic<int> given_jobs_ = 0;            // how many these are
    int idle_ = 0;                               // threads with nothing to take
};

int FileFeeder::Start(const std::string& path) {
    job_ = std::make_shared<Job>(path);
    return Threads::Get().Give(job_);
}

FileFeeder::~FileFeeder() {
    if (job_ != nullptr) Threads::Get().Abandon(*job_);
}

bool FileFeeder::WaitUntil(platform::Deadline deadline) const {
    return Threads::Get().WaitUntil(*job_, deadline);
}

std::string_view FileFeeder::beginning() const {
    return {job_->beginning.data(), job_->size};
}

FileFeeder::Rest FileFeeder::TakeRest() {
    return std::move(job_->rest);
}

int FileFeeder::open_error() const {
    return job_->open_error;
}

int FileFeeder::read_error() const {
    return job_->read_error;
}

}  // namespace android::os::dumpstate
