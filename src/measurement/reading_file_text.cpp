#include "reading_file_text.h"

#include <cstdio>
#include <ctime>

namespace oru_reading_file {

namespace {

std::string format(int64_t realtime_ns, bool utc) {
    const time_t seconds = static_cast<time_t>(realtime_ns / 1000000000);
    const int millis = static_cast<int>((realtime_ns % 1000000000) / 1000000);
    std::tm tm{};
    utc ? gmtime_r(&seconds, &tm) : localtime_r(&seconds, &tm);
    char date[32], offset[8];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &tm);
    std::strftime(offset, sizeof offset, "%z", &tm);  // +hhmm
    char text[48];
    if (utc)
        std::snprintf(text, sizeof text, "%s.%03dZ", date, millis);
    else
        std::snprintf(text, sizeof text, "%s.%03d%.3s:%.2s", date, millis, offset, offset + 3);
    return text;
}

}  // namespace

std::string local_time(int64_t realtime_ns) { return format(realtime_ns, false); }
std::string utc_time(int64_t realtime_ns) { return format(realtime_ns, true); }

bool parse_time(const std::string& text, int64_t& realtime_ns) {
    std::tm tm{};
    int millis = 0, consumed = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3d%n", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                    &tm.tm_hour, &tm.tm_min, &tm.tm_sec, &millis, &consumed) != 7)
        return false;
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    const std::string zone = text.substr(static_cast<size_t>(consumed));
    int offset_s = 0;
    if (zone != "Z") {
        int hours = 0, minutes = 0;
        char sign = 0;
        if (std::sscanf(zone.c_str(), "%c%2d:%2d", &sign, &hours, &minutes) != 3 || (sign != '+' && sign != '-'))
            return false;
        offset_s = (sign == '-' ? -1 : 1) * (hours * 3600 + minutes * 60);
    }
    realtime_ns = (static_cast<int64_t>(timegm(&tm)) - offset_s) * 1000000000 + int64_t{millis} * 1000000;
    return true;
}

}  // namespace oru_reading_file
