#pragma once

#include <chrono>
#include <limits>
#include <string>

// System properties of a plain Linux host: one file a property in /dev/__properties__/, named by
// its key, holding the value without a newline. A write replaces the file in one step, so a reader
// sees the old value or the new one and never a part. Any process and any thread may call.

namespace android::base {

// The value, or the default when the property is unset or empty.
std::string GetProperty(const std::string& key, const std::string& default_value);

// True for 1, y, yes, on, true; false for 0, n, no, off, false; the default for anything else.
bool GetBoolProperty(const std::string& key, bool default_value);

// A decimal or 0x integer, with or without a sign, that is the whole value and lies in [min, max];
// the default otherwise. T is a signed integer of 8, 16, 32 or 64 bits.
template <typename T>
T GetIntProperty(const std::string& key, T default_value, T min = std::numeric_limits<T>::min(),
                 T max = std::numeric_limits<T>::max());

// False, with errno, when the key is no property name (EINVAL), the key begins with "ro." and is
// already set (EEXIST), or the property directory can't be written.
bool SetProperty(const std::string& key, const std::string& value);

// Blocks until the property holds the expected value (true) or the time-out has passed (false).
bool WaitForProperty(const std::string& key, const std::string& expected_value,
                     std::chrono::milliseconds relative_timeout = std::chrono::milliseconds::max());

}  // namespace android::base
