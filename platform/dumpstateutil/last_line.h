#pragma once

#include <string.h>

#include <algorithm>
#include <string>
#include <string_view>

namespace android::os::dumpstate {

// What a text that comes in parts ends with.
class LastLine {
  public:
    void Add(std::string_view part) {
        if (part.empty()) return;
        const bool finishes = part.ends_with('\n');
        const auto* before = static_cast<const char*>(
                memrchr(part.data(), '\n', part.size() - (finishes ? 1 : 0)));
        if (finished_ || before != nullptr) beginning_.clear();
        if (before != nullptr) part.remove_prefix(static_cast<size_t>(before + 1 - part.data()));
        beginning_ += part.substr(0, kMark.size() - std::min(kMark.size(), beginning_.size()));
        finished_ = finishes;
    }

    // What has to follow, so that a line of the service's own begins a line and is told apart: a
    // last line that looks like a failure line is kept from the footer by an empty one.
    std::string_view Separator() const {
        return std::string_view("\n\n").substr(
                0, (finished_ ? 0U : 1U) + (beginning_ == kMark ? 1U : 0U));
    }

  private:
    static constexpr std::string_view kMark = "*** ";

    std::string beginning_;  // of the last line, as much as the mark is long
    bool finished_ = true;
};

}  // namespace android::os::dumpstate
