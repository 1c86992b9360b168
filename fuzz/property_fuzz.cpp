// The readers of properties, under any key and with any value: the input is a key, a newline and
// the value that its file holds.

#include <android-base/properties.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz_input.h"

namespace {

std::string g_value;

constexpr std::string_view kDirectory = "/dev/__properties__/";
constexpr std::string_view kDigits = "0123456789abcdefABCDEF";

// The whole text as the C library reads it, once what only the C library accepts is sorted out.
int64_t Integer(const std::string& text, int64_t otherwise) {
    const size_t sign = text.starts_with('-') || text.starts_with('+') ? 1 : 0;
    const bool hex = text.compare(sign, 2, "0x") == 0 || text.compare(sign, 2, "0X") == 0;
    const size_t digits = sign + (hex ? 2 : 0);
    if (text.size() == digits || kDigits.find(text[digits]) == std::string_view::npos) {
        return otherwise;
    }
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, hex ? 16 : 10);
    return errno == 0 && end == text.c_str() + text.size() ? value : otherwise;
}

}  // namespace

// Instead of the property's file: one with the input's value. Nothing outside of the directory may
// be asked for, and nothing that is being written.
extern "C" int __wrap_open(const char* path, int /*flags*/, ...) {
    const std::string_view file = path;
    Require(file.starts_with(kDirectory), "a property is in its directory");
    const std::string_view name = file.substr(kDirectory.size());
    Require(!name.empty() && name.front() != '.' && name.find('/') == std::string_view::npos,
            "a property's file is named by its key");
    const int fd = memfd_create("property", MFD_CLOEXEC);
    Require(write(fd, g_value.data(), g_value.size()) == static_cast<ssize_t>(g_value.size()),
            "the value can be written");
    lseek(fd, 0, SEEK_SET);
    return fd;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::base;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t end = std::min(input.find('\n'), input.size());
    const std::string key = input.substr(0, end);
    g_value = input.substr(std::min(end + 1, input.size()));

    const std::string value = GetProperty(key, "unset");
    const bool set = value == g_value;
    Require(set || value == "unset", "a property is its value or the default");
    Require(GetBoolProperty(key, true) || !GetBoolProperty(key, false),
            "a word that is false is so whatever the default");
    constexpr int64_t kOtherwise = -77;
    const int64_t expected = set ? Integer(g_value, kOtherwise) : kOtherwise;
    Require(GetIntProperty<int64_t>(key, kOtherwise) == expected, "a number is what it says");
    const bool narrow = expected >= -10 && expected <= 1000;
    Require(GetIntProperty<int>(key, 5, -10, 1000) == (narrow ? expected : 5),
            "a number outside of its bounds is the default");
    return 0;
}
