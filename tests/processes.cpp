#include "processes.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;

ProcessCensus::ProcessCensus() {
    // The thread sanitizer gives a process one thread more when it starts its first.
    std::thread([] {}).join();
    before_ = Take();
}

std::set<std::string> ProcessCensus::Take() {
    std::set<std::string> census;
    std::error_code gone;
    for (const auto& process : fs::directory_iterator("/proc")) {
        const std::string pid = process.path().filename();
        if (!std::ranges::all_of(pid, [](unsigned char c) { return std::isdigit(c) != 0; })) {
            continue;
        }
        std::string name;
        std::getline(std::ifstream(process.path() / "comm"), name);
        census.insert("process " + pid + " " + name);
    }
    for (const char* kind : {"fd", "task"}) {
        for (const auto& entry : fs::directory_iterator(fs::path("/proc/self") / kind)) {
            const fs::path target = fs::read_symlink(entry, gone);
            // The listing's own descriptor is no newcomer.
            if (target.native().ends_with("/fd")) continue;
            census.insert(std::string(kind) + " " + entry.path().filename().native());
        }
    }
    return census;
}

std::string ProcessCensus::Newcomers() const {
    std::string newcomers;
    for (int looks = 0; looks < 300; ++looks) {
        newcomers.clear();
        for (const std::string& one : Take()) {
            if (!before_.contains(one)) newcomers += one + "\n";
        }
        if (newcomers.empty()) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return newcomers;
}
