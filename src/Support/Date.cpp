#include "Support/Date.h"

#include <cstdio>
#include <ctime>

namespace halvane {

std::string iso8601String(Date date) {
    auto secs = std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count();
    std::time_t t = static_cast<std::time_t>(secs);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buf;
}

static bool digits(std::string_view s, size_t pos, size_t n, int& out) {
    if (pos + n > s.size()) return false;
    out = 0;
    for (size_t i = pos; i < pos + n; ++i) {
        if (s[i] < '0' || s[i] > '9') return false;
        out = out * 10 + (s[i] - '0');
    }
    return true;
}

std::optional<Date> parseIso8601(std::string_view s) {
    int year, month, day, hour, minute, second;
    if (!digits(s, 0, 4, year) || s.size() < 20 || s[4] != '-' || !digits(s, 5, 2, month) || s[7] != '-' ||
        !digits(s, 8, 2, day) || (s[10] != 'T' && s[10] != 't') || !digits(s, 11, 2, hour) || s[13] != ':' ||
        !digits(s, 14, 2, minute) || s[16] != ':' || !digits(s, 17, 2, second))
        return std::nullopt;
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60)
        return std::nullopt;
    size_t pos = 19;
    double fraction = 0;
    if (pos < s.size() && s[pos] == '.') {
        ++pos;
        double scale = 0.1;
        size_t start = pos;
        while (pos < s.size() && s[pos] >= '0' && s[pos] <= '9') {
            fraction += (s[pos] - '0') * scale;
            scale /= 10;
            ++pos;
        }
        if (pos == start) return std::nullopt;
    }
    long offsetSeconds = 0;
    if (pos < s.size() && (s[pos] == 'Z' || s[pos] == 'z')) {
        ++pos;
    } else if (pos < s.size() && (s[pos] == '+' || s[pos] == '-')) {
        int oh, om;
        if (!digits(s, pos + 1, 2, oh)) return std::nullopt;
        size_t mpos = pos + 3;
        if (mpos < s.size() && s[mpos] == ':') ++mpos;
        if (!digits(s, mpos, 2, om)) return std::nullopt;
        offsetSeconds = (oh * 3600L + om * 60L) * (s[pos] == '-' ? -1 : 1);
        pos = mpos + 2;
    } else {
        return std::nullopt;
    }
    if (pos != s.size()) return std::nullopt;
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    std::time_t t = timegm(&tm) - offsetSeconds;
    // The clock counts nanoseconds in 64 bits: about 292 years either side of 1970.
    using Limits = std::chrono::system_clock::duration;
    constexpr auto maxSeconds = std::chrono::duration_cast<std::chrono::seconds>(Limits::max()).count() - 1;
    if (t > maxSeconds || t < -maxSeconds) return std::nullopt;
    auto since = std::chrono::seconds(t) + std::chrono::duration_cast<std::chrono::system_clock::duration>(
                                               std::chrono::duration<double>(fraction));
    return Date(since);
}

}  // namespace halvane
