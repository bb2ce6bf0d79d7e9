#include "log_limits.h"

#include <cmath>
#include <cstdlib>

namespace {

struct Unit {
    const char* name;
    double seconds;  // one of the two is 0
    double bytes;
};

constexpr Unit kUnits[] = {
    {"s", 1, 0},
    {"min", 60, 0},
    {"h", 3600, 0},
    {"d", 86400, 0},
    {"B", 0, 1},
    {"kB", 0, 1e3},
    {"KB", 0, 1e3},
    {"MB", 0, 1e6},
    {"GB", 0, 1e9},
    {"TB", 0, 1e12},
    {"KiB", 0, 1024},
    {"MiB", 0, 1048576.0},
    {"GiB", 0, 1073741824.0},
    {"TiB", 0, 1099511627776.0},
};

}  // namespace

bool parse_log_limit(const std::string& text, LogLimit& out, std::string& error) {
    out = LogLimit{};
    if (text.empty()) return true;
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    const std::string unit = end;
    if (end == text.c_str() || !std::isfinite(number) || number <= 0) {
        error = "needs a positive number with a unit (10s, 1h, 30d, 100MB, 5GB), got " + text;
        return false;
    }
    for (const Unit& u : kUnits) {
        if (unit != u.name) continue;
        // At most ten years or an exabyte: enough, and no overflow below.
        const double seconds = number * u.seconds, bytes = number * u.bytes;
        if (seconds > 3.2e8 || bytes > 1e18 || (u.bytes > 0 && bytes < 1)) break;
        out.seconds = seconds;
        out.bytes = static_cast<uint64_t>(bytes);
        return true;
    }
    error = "needs a unit s, min, h, d or B, kB, MB, GB, TB (KiB, MiB, GiB, TiB), got " + text;
    return false;
}
