#pragma once

#include <chrono>
#include <functional>
#include <string_view>

// A thread's own time, as long as this lives: waiting for a condition or a descriptor takes none
// but that, a wait for input ten milliseconds at least. One at a time in a thread.
class OwnTime {
  public:
    OwnTime();
    ~OwnTime();
    OwnTime(const OwnTime&) = delete;
    OwnTime& operator=(const OwnTime&) = delete;

    std::chrono::milliseconds passed{0};
    std::chrono::milliseconds waits{0};   // for room in vain, since there was some
    std::chrono::milliseconds waited{0};  // the longest of those
    int interruptions = 0;                // of the polls to come
    // So many waits for input are real ones, until it comes.
    int inputs = 0;
    // A pipe's reader, which takes a page after nineteen waits in vain, and who gets that.
    int slow_reader = -1;
    int looks = 0;
    std::function<void(std::string_view page)> on_read = [](std::string_view) {};
    // Called when a wait is in vain.
    std::function<void()> on_vain_wait;
};
