// The whole service, its main program included, on a platform that only writes down what is asked
// of it. Once registered, it makes a report in every way that there is and prints, a line each and
// set apart by tabs,
//
//   BUILD REPORT TITLE KIND WHAT...
//
// BUILD is user or userdebug; REPORT is plain, bundle (a second descriptor) or verbose (with the
// modem's logs as well); TITLE is the entry's, or - where it is the service itself that asks; KIND
// is one of
//
//   command ARGV...      file PATH      socket PATH      instance NAME
//   get PROPERTY         set PROPERTY   list DIRECTORY   read PATH      write PATH
//
// Newlines within WHAT are \n. Directories are listed below $DEVICE_ROOT: the names of the logs
// that a device has are found there.

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <cutils/sockets.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

#include "binder.h"
#include "dumpstate.h"
#include "hub_messages.h"
#include "recording_platform.h"

extern "C" int __real_open(const char* path, int flags, ...);

namespace {

using aidl::android::hardware::dumpstate::Dumpstate;
using aidl::android::hardware::dumpstate::IDumpstateDevice;

struct Way {
    const char* build;
    const char* report;
    size_t descriptors;
};
constexpr Way kWays[] = {
        {"user", "plain", 1},      {"user", "bundle", 2},      {"user", "verbose", 2},
        {"userdebug", "plain", 1}, {"userdebug", "bundle", 2}, {"userdebug", "verbose", 2},
};

const Way* g_way = &kWays[0];
Dumpstate* g_service = nullptr;
int g_output = -1;  // where standard output was: the service prints there as well

void Write(const std::string& entry) {
    const std::string line = std::string(g_way->build) + '\t' + g_way->report + '\t' + entry + '\n';
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    if (write(g_output, line.data(), line.size()) != static_cast<ssize_t>(line.size())) _exit(1);
}

void Write(const std::string& kind, const std::string& what) {
    Write("-\t" + kind + '\t' + what);
}

// A request as the recorder writes it down: its title is the entry's, its time-out nobody's here.
void WriteRequest(std::string request) {
    if (request.starts_with("stdout ")) request.erase(0, sizeof "stdout " - 1);
    std::vector<std::string> parts{""};
    for (const char c : request) {
        if (c == '\t' && parts.size() < 4) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    if (parts[0] == "command" || parts[0] == "file") {
        Write(parts[1] + '\t' + parts[0] + '\t' + parts[3]);
    }
}

// A property that names a file has its own name for a value, so that this is what is read.
void WriteProperty(const std::string& key, bool set) {
    Write(set ? "set" : "get", key);
    ThePlatform().properties.try_emplace(key, "$" + key);
}

void MakeReport() {
    RecordingPlatform& platform = ThePlatform();
    platform.on_property = WriteProperty;
    platform.properties["ro.build.type"] = g_way->build;
    if (g_way->report == std::string("verbose")) {
        for (const char* key :
             {"persist.vendor.verbose_logging_enabled", "persist.vendor.sys.modem.diag.mdlog",
              "vendor.sys.modem.diag.mdlog_on"}) {
            platform.properties[key] = "true";
        }
    }
    std::vector<ndk::ScopedFileDescriptor> fds;
    while (fds.size() < g_way->descriptors) fds.emplace_back(__real_open("/dev/null", O_WRONLY));
    g_service->dumpstateBoard(fds, IDumpstateDevice::DumpstateMode::DEFAULT, 0);
    g_service->setVerboseLoggingEnabled(true);
    for (const auto& requests : {platform.requests, platform.elsewhere}) {
        for (const std::string& request : requests) WriteRequest(request);
    }
}

}  // namespace

binder_status_t AServiceManager_registerLazyService(AIBinder* binder, const char* instance) {
    g_service = static_cast<Dumpstate*>(static_cast<IDumpstateDevice*>(binder->service.get()));
    g_output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    Write("instance", instance);
    return STATUS_OK;
}

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t /*count*/) {
    return true;
}

// A process for each.
void ABinderProcess_joinThreadPool() {
    for (const Way& way : kWays) {
        if (fork() != 0) continue;
        g_way = &way;
        MakeReport();
        _exit(0);
    }
    int status = 0;
    int failed = 0;
    while (wait(&status) > 0) failed += status != 0;
    std::exit(failed == 0 ? 0 : 1);
}

// A hub that has one sensor, which makes the service ask for a snapshot, and whose data is none.
int socket_local_client_connect(int fd, const char* name, int /*namespace_id*/, int /*type*/) {
    Write("socket", std::string("/dev/socket/") + name);
    int ends[2];  // the hub's stays open as long as the process
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return -1;
    if (dup3(ends[0], fd, O_CLOEXEC) < 0) return -1;
    for (const Bytes& message : {Message(7, Le(1)), Message(5, {})}) {
        if (send(ends[1], message.data(), message.size(), 0) < 0) _exit(1);
    }
    return 0;
}

// What the service itself asks of the file system, by the linker's --wrap. Every directory is
// there, and has something in it.
extern "C" {

DIR* __real_opendir(const char* path);
int __real_scandir(const char* directory, dirent*** entries, int (*filter)(const dirent*),
                   int (*compare)(const dirent**, const dirent**));

int __wrap_open(const char* path, int flags, ...) {
    if (g_service != nullptr) Write((flags & O_ACCMODE) == O_RDONLY ? "read" : "write", path);
    return __real_open("/dev/null", O_RDWR | O_CLOEXEC);
}

DIR* __wrap_opendir(const char* path) {
    Write("list", path);
    return __real_opendir("/");
}

int __wrap_scandir(const char* directory, dirent*** entries, int (*filter)(const dirent*),
                   int (*compare)(const dirent**, const dirent**)) {
    Write("list", directory);
    const char* const root = std::getenv("DEVICE_ROOT");
    return __real_scandir(((root == nullptr ? "" : root) + std::string(directory)).c_str(), entries,
                          filter, compare);
}

int __wrap_access(const char* path, int /*mode*/) {
    Write("read", path);
    return -1;
}

int __wrap_chmod(const char* path, mode_t /*mode*/) {
    Write("write", path);
    return 0;
}

int __wrap_mkdir(const char* path, mode_t /*mode*/) {
    Write("write", path);
    return 0;
}

char* __wrap_mkdtemp(char* name) {
    Write("write", name);
    return name;
}

int __wrap_rmdir(const char* path) {
    Write("write", path);
    errno = ENOTEMPTY;  // so that what is done then is seen as well
    return -1;
}

int __wrap_rename(const char* from, const char* to) {
    Write("write", from);
    Write("write", to);
    return 0;
}

}  // extern "C"
