#include "recorded_report.h"

#include <DumpstateUtil.h>
#include <android-base/properties.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>

#include "dumpstate.h"
#include "program.h"

namespace {

RecordedReport* g_recording = nullptr;

void CopyFile(const std::string& path, int out) {
    const int in = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (in < 0) return;
    std::array<char, size_t{64} * 1024> buffer;
    for (ssize_t size; (size = read(in, buffer.data(), buffer.size())) > 0;) {
        if (write(out, buffer.data(), static_cast<size_t>(size)) != size) break;
    }
    close(in);
}

}  // namespace

namespace android::os::dumpstate {

const CommandOptions CommandOptions::DEFAULT = CommandOptions::WithTimeout(10).Build();

int RunCommandToFd(int /*fd*/, const std::string& /*title*/,
                   const std::vector<std::string>& full_command,
                   const CommandOptions& /*options*/) {
    g_recording->steps.push_back({full_command, ""});
    return 0;
}

int DumpFileToFd(int /*fd*/, const std::string& /*title*/, const std::string& path) {
    g_recording->steps.push_back({{}, path});
    return 0;
}

bool PropertiesHelper::IsUserBuild() {
    return base::GetProperty("ro.build.type", "") == "user";
}

}  // namespace android::os::dumpstate

RecordedReport::RecordedReport() {
    using aidl::android::hardware::dumpstate::Dumpstate;
    g_recording = this;
    std::vector<ndk::ScopedFileDescriptor> fds;
    fds.emplace_back(open("/dev/null", O_WRONLY | O_CLOEXEC));
    ndk::SharedRefBase::make<Dumpstate>()->dumpstateBoard(fds, {}, 0);
    g_recording = nullptr;
}

void RecordedReport::Replay(int out) const {
    for (const Step& step : steps) {
        if (step.command.empty()) {
            CopyFile(step.file, out);
            continue;
        }
        std::vector<const char*> argv;
        for (const std::string& argument : step.command) argv.push_back(argument.c_str());
        SpawnAndWait(argv, out, out);
    }
}
