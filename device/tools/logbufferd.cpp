// The log buffers of the simulated wearable's battery drivers, as character devices are on a real
// one: a read gives one record, which is a line, and loses what of it the reader has no room for.
// Whoever opens one gets the whole log, as the file in the folder below has it, and its end.
//
// A device is a FIFO that holds all that is to be read. The first reader is the only one: when it
// has opened the FIFO, or the file has changed, another takes its place.

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

using android::base::unique_fd;

namespace {

const std::string kFiles = "/run/logbuffer/";
const std::string kDevices = "/dev/";
// In the order in which they appear; whoever waits for the daemon waits for the last.
constexpr std::array kNames = {"logbuffer_ttf", "logbuffer_ssoc"};
constexpr int kMostBytes = 1 << 20;  // that a pipe may have without a privilege
constexpr size_t kPage = 4096;       // each record takes one of the pipe's, at least

struct Device {
    unique_fd fifo;  // as long as it is open a reader waits instead of seeing the end
    int opened;      // the watches
    int changed;
};

[[noreturn]] void Fail(const std::string& what) {
    std::perror(("logbufferd: " + what).c_str());
    std::exit(1);
}

std::vector<std::string> Lines(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line + (file.eof() ? "" : "\n"));
    }
    return lines;
}

// A log of more lines than the pipe can hold has several in a record.
void Fill(int fifo, const std::vector<std::string>& lines) {
    const int size = fcntl(fifo, F_SETPIPE_SZ, kMostBytes);
    const size_t records = static_cast<size_t>(size < 0 ? fcntl(fifo, F_GETPIPE_SZ) : size) / kPage;
    const size_t lines_a_record = 1 + lines.size() / records;
    for (size_t at = 0; at < lines.size();) {
        std::string record;
        for (size_t i = 0; i < lines_a_record && at < lines.size(); ++i) record += lines[at++];
        if (write(fifo, record.data(), record.size()) < 0) {
            std::perror("logbufferd: a log's end is lost");
            return;
        }
    }
}

void Make(Device& device, const std::string& name, int watches) {
    const std::string path = kDevices + name;
    const std::string beside = path + ".new";
    const std::string file = kFiles + name;
    if (mkfifo(beside.c_str(), 0600) != 0 || chmod(beside.c_str(), 0644) != 0) Fail(beside);
    unique_fd fifo(open(beside.c_str(), O_RDWR | O_CLOEXEC));
    // What makes each write a packet; open(2) refuses it.
    if (fcntl(fifo.get(), F_SETFL, O_DIRECT | O_NONBLOCK) != 0) Fail(beside);
    device.changed = inotify_add_watch(watches, file.c_str(), IN_CLOSE_WRITE);
    Fill(fifo.get(), Lines(file));
    device.opened = inotify_add_watch(watches, beside.c_str(), IN_OPEN | IN_ONESHOT);
    if (std::rename(beside.c_str(), path.c_str()) != 0) Fail(path);
    device.fifo = std::move(fifo);
}

}  // namespace

int main() {
    const unique_fd watches(inotify_init1(IN_CLOEXEC));
    std::array<Device, kNames.size()> devices;
    for (size_t i = 0; i < kNames.size(); ++i) Make(devices[i], kNames[i], watches.get());
    for (inotify_event event{}; read(watches.get(), &event, sizeof event) == sizeof event;) {
        if ((event.mask & (IN_OPEN | IN_CLOSE_WRITE)) == 0) continue;
        for (size_t i = 0; i < kNames.size(); ++i) {
            Device& device = devices[i];
            if (event.wd != device.opened && event.wd != device.changed) continue;
            Make(device, kNames[i], watches.get());
        }
    }
    Fail("cannot wait for readers");
}
