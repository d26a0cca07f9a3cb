#include "zarvo/platform/Date.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <string_view>
#include <time.h>

namespace zarvo {
namespace {

using namespace std::chrono;

// Reads exactly `count` decimal digits at `pos`.
bool readDigits(std::string_view text, std::size_t& pos, int count, int& value) {
    if (pos + count > text.size()) {
        return false;
    }
    value = 0;
    for (int i = 0; i < count; ++i) {
        char c = text[pos + i];
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + (c - '0');
    }
    pos += count;
    return true;
}

bool expect(std::string_view text, std::size_t& pos, char c) {
    if (pos < text.size() && text[pos] == c) {
        ++pos;
        return true;
    }
    return false;
}

// Reads "Z", "+hh:mm", "+hhmm" or "+hh" (or '-'); no zone at all means UTC.
bool readZoneOffset(std::string_view text, std::size_t& pos, int& offsetSeconds) {
    offsetSeconds = 0;
    if (pos == text.size()) {
        return true;
    }
    if (text[pos] == 'Z' || text[pos] == 'z') {
        ++pos;
        return true;
    }
    if (text[pos] != '+' && text[pos] != '-') {
        return false;
    }
    const int sign = text[pos] == '-' ? -1 : 1;
    ++pos;
    int hours = 0;
    int minutes = 0;
    if (!readDigits(text, pos, 2, hours)) {
        return false;
    }
    if (pos < text.size()) {
        expect(text, pos, ':');
        if (!readDigits(text, pos, 2, minutes)) {
            return false;
        }
    }
    if (hours > 23 || minutes > 59) {
        return false;
    }
    offsetSeconds = sign * (hours * 3600 + minutes * 60);
    return true;
}

}  // namespace

Date Date::systemNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return Date(static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9);
}

std::string Date::iso8601() const {
    const auto totalMillis = static_cast<long long>(std::llround(seconds_ * 1000.0));
    const sys_time<milliseconds> time{milliseconds(totalMillis)};
    const auto day = floor<days>(time);
    const year_month_day date{day};
    const hh_mm_ss<milliseconds> clock{time - day};
    char text[64];
    std::snprintf(
        text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
        static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
        static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
        static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
    return text;
}

bool Date::parseIso8601(const std::string& input, Date& out) {
    const std::string_view text = input;
    std::size_t pos = 0;
    int yearValue = 0, monthValue = 0, dayValue = 0, hours = 0, minutes = 0, secondsValue = 0;
    if (!readDigits(text, pos, 4, yearValue) || !expect(text, pos, '-') ||
        !readDigits(text, pos, 2, monthValue) || !expect(text, pos, '-') ||
        !readDigits(text, pos, 2, dayValue)) {
        return false;
    }
    if (!(expect(text, pos, 'T') || expect(text, pos, 't') || expect(text, pos, ' '))) {
        return false;
    }
    if (!readDigits(text, pos, 2, hours) || !expect(text, pos, ':') ||
        !readDigits(text, pos, 2, minutes) || !expect(text, pos, ':') ||
        !readDigits(text, pos, 2, secondsValue)) {
        return false;
    }
    double fraction = 0;
    if (expect(text, pos, '.') || expect(text, pos, ',')) {
        double scale = 0.1;
        const std::size_t start = pos;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
            fraction += (text[pos] - '0') * scale;
            scale /= 10;
            ++pos;
        }
        if (pos == start) {
            return false;
        }
    }
    int offsetSeconds = 0;
    if (!readZoneOffset(text, pos, offsetSeconds) || pos != text.size()) {
        return false;
    }
    const year_month_day date{year(yearValue), month(static_cast<unsigned>(monthValue)),
                              day(static_cast<unsigned>(dayValue))};
    // A leap second (60) is accepted and counts as the first second of the next minute.
    if (!date.ok() || hours > 23 || minutes > 59 || secondsValue > 60) {
        return false;
    }
    const auto daySeconds = sys_days(date).time_since_epoch() / 1s;
    out = Date(static_cast<double>(daySeconds + hours * 3600 + minutes * 60 + secondsValue -
                                   offsetSeconds) +
               fraction);
    return true;
}

}  // namespace zarvo
