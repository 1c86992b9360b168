#include <android-base/stringprintf.h>

#include <array>
#include <cstdarg>
#include <cstdio>

namespace android::base {

std::string StringPrintf(const char* format, ...) {
    std::array<char, 256> small;
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(small.data(), small.size(), format, arguments);
    va_end(arguments);
    if (length < 0) return {};
    const auto size = static_cast<size_t>(length);
    if (size < small.size()) return {small.data(), size};

    std::string text(size + 1, '\0');
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    text.pop_back();
    return text;
}

}  // namespace android::base
