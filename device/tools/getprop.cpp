#include <android-base/properties.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>

namespace {

constexpr char kDirectory[] = "/dev/__properties__";

std::set<std::string> Keys(std::error_code& error) {
    std::set<std::string> keys;
    std::filesystem::directory_iterator entry(kDirectory, error);
    while (!error && entry != std::filesystem::directory_iterator()) {
        std::string name = entry->path().filename();
        if (!name.starts_with('.')) keys.insert(std::move(name));
        entry.increment(error);
    }
    return keys;
}

int PrintAll() {
    std::error_code error;
    for (const std::string& key : Keys(error)) {
        std::printf("[%s]: [%s]\n", key.c_str(), android::base::GetProperty(key, "").c_str());
    }
    if (!error) return 0;
    std::fprintf(stderr, "getprop: cannot list %s: %s\n", kDirectory, error.message().c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 3) {
        std::fputs("usage: getprop [KEY [DEFAULT]]\n", stderr);
        return 2;
    }
    if (argc == 1) return PrintAll();
    std::puts(android::base::GetProperty(argv[1], argc == 3 ? argv[2] : "").c_str());
    return 0;
}
