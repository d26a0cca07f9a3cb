#include "zarvo/platform/Date.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string_view>
#include <time.h>

#include <glib.h>

namespace zarvo {
namespace {

using namespace std::chrono;

// GLib also takes week dates, ordinal dates and forms without separators; only
// "YYYY-MM-DD", 'T' (or 't' or ' ') and "hh:mm:ss" start a date-time here.
bool hasExtendedDateAndTime(std::string_view text) {
    constexpr std::string_view shape = "0000-00-00T00:00:00";
    if (text.size() < shape.size()) {
        return false;
    }
    for (std::size_t i = 0; i < shape.size(); ++i) {
        const char c = text[i];
        const bool fits = shape[i] == '0'   ? g_ascii_isdigit(c)
                          : shape[i] == 'T' ? (c == 'T' || c == 't' || c == ' ')
                                            : c == shape[i];
        if (!fits) {
            return false;
        }
    }
    return true;
}

}  // namespace

Date Date::systemNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return Date(static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9);
}

// GDateTime spans the years 1 to 9999 only; the standard calendar formats every Date.
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
    if (!hasExtendedDateAndTime(input) || input.find('\0') != std::string::npos) {
        return false;
    }
    std::string text = input;
    // A leap second counts as the first second of the next minute; GLib would take it as the
    // last second of this one.
    const bool leapSecond = text.compare(17, 2, "60") == 0;
    if (leapSecond) {
        text.replace(17, 2, "59");
    }
    if (text.back() == 'z') {
        text.back() = 'Z';
    }
    std::unique_ptr<GTimeZone, decltype(&g_time_zone_unref)> utc(g_time_zone_new_utc(),
                                                                 g_time_zone_unref);
    std::unique_ptr<GDateTime, decltype(&g_date_time_unref)> parsed(
        g_date_time_new_from_iso8601(text.c_str(), utc.get()), g_date_time_unref);
    if (!parsed) {
        return false;
    }
    const auto seconds = g_date_time_to_unix(parsed.get()) + (leapSecond ? 1 : 0);
    out = Date(static_cast<double>(seconds) + g_date_time_get_microsecond(parsed.get()) / 1e6);
    return true;
}

}  // namespace zarvo
