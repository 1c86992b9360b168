#include "clock_time.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <iterator>

namespace reader {
namespace {

constexpr std::string_view kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

struct Moment {
    int year = -1;
    unsigned month = 0;
    unsigned day = 0;
    int second = -1;  // of the day
};

// The whole text as up to three numbers with `mark` between them; how many there were.
size_t Numbers(std::string_view text, char mark, std::array<int, 3>& numbers) {
    size_t count = 0;
    const char* at = text.data();
    const char* const end = at + text.size();
    while (count < numbers.size()) {
        if (at == end || *at < '0' || *at > '9') return 0;
        const auto [rest, error] = std::from_chars(at, end, numbers[count]);
        if (error != std::errc()) return 0;
        ++count;
        at = rest;
        if (at == end) return count;
        if (*at++ != mark) return 0;
    }
    return 0;
}

void TakeWord(std::string_view word, Moment& moment) {
    std::array<int, 3> numbers{};
    const auto* const month = std::ranges::find(kMonths, word.substr(0, 3));
    if (month != std::end(kMonths)) {
        moment.month = static_cast<unsigned>(month - kMonths) + 1;
    } else if (Numbers(word, '-', numbers) == 3) {
        moment.year = numbers[0];
        moment.month = static_cast<unsigned>(numbers[1]);
        moment.day = static_cast<unsigned>(numbers[2]);
    } else if (Numbers(word.substr(0, word.find('.')), ':', numbers) == 3) {
        if (numbers[0] < 24 && numbers[1] < 60 && numbers[2] <= 60) {
            moment.second = (numbers[0] * 60 + numbers[1]) * 60 + numbers[2];
        }
    } else if (Numbers(word, ':', numbers) == 1) {
        if (word.size() == 4) {
            moment.year = numbers[0];
        } else {
            moment.day = static_cast<unsigned>(numbers[0]);
        }
    } else if (moment.second >= 0 && (word == "PM" || word == "AM")) {
        constexpr int kHalfDay = 12 * 3600;
        moment.second = moment.second % kHalfDay + (word == "PM" ? kHalfDay : 0);
    }
}

// Of "07:29:07+01:00" or "07:29:07Z" what comes behind the time.
std::string_view OffsetOf(std::string_view word) {
    if (word.size() < 8 || word[2] != ':' || word[5] != ':') return {};
    const size_t at = word.find_first_of("+-Z", 8);
    return at == std::string_view::npos ? std::string_view() : word.substr(at);
}

template <typename Take>
void ForEachWord(std::string_view text, Take take) {
    while (!text.empty()) {
        // The T of ISO 8601 stands between digits.
        size_t end = text.find_first_of(" \t,T");
        while (end < text.size() && text[end] == 'T' &&
               (end == 0 || text[end - 1] < '0' || text[end - 1] > '9')) {
            end = text.find_first_of(" \t,T", end + 1);
        }
        end = std::min(end, text.size());
        take(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

}  // namespace

std::optional<int64_t> ParseTime(std::string_view text) {
    Moment moment;
    ForEachWord(text, [&moment](std::string_view word) {
        // The zone changes nothing: the time stays that of the device's own clock.
        TakeWord(word.substr(0, word.size() - OffsetOf(word).size()), moment);
    });
    const std::chrono::year_month_day date{std::chrono::year(moment.year),
                                           std::chrono::month(moment.month),
                                           std::chrono::day(moment.day)};
    if (moment.year < 0 || moment.year > 9999 || moment.second < 0 || !date.ok()) return {};
    return int64_t{std::chrono::sys_days(date).time_since_epoch().count()} * 86400 + moment.second;
}

std::string_view ZoneOf(std::string_view time) {
    std::string_view zone;
    ForEachWord(time, [&zone](std::string_view word) {
        const bool capitals =
                word.size() >= 2 && word.size() <= 5 && word != "AM" && word != "PM" &&
                std::ranges::all_of(word, [](char c) { return c >= 'A' && c <= 'Z'; });
        const bool numeric = word.size() >= 3 && word.size() <= 6 &&
                             (word[0] == '+' || word[0] == '-') &&
                             word.find_first_not_of("0123456789:", 1) == std::string_view::npos;
        if (capitals || numeric) zone = word;
        if (!OffsetOf(word).empty()) zone = OffsetOf(word);
    });
    return zone;
}

std::string FormatTime(int64_t seconds) {
    const std::chrono::sys_seconds time{std::chrono::seconds(seconds)};
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const auto second = static_cast<int>((time - day).count());
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02u %02d:%02d:%02d",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), second / 3600, second / 60 % 60, second % 60);
    return text.data();
}

}  // namespace reader
