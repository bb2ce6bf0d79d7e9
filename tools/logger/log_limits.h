// How far one log file may grow before the next begins (--rotate) and how
// much the log directory keeps (--keep): a time ("10s", "1h", "30d") or a
// size ("100MB", "5GB").
#ifndef ORU_TOOLS_LOGGER_LOG_LIMITS_H
#define ORU_TOOLS_LOGGER_LOG_LIMITS_H

#include <cstdint>
#include <string>

struct LogLimit {
    double seconds = 0.0;  // 0: no time limit
    uint64_t bytes = 0;  // 0: no size limit
    bool none() const { return seconds <= 0.0 && bytes == 0; }
};

// "" is no limit. Times take s, min, h or d; sizes B, kB, MB, GB, TB (powers
// of 1000) or KiB, MiB, GiB, TiB. False, with the reason, for anything else.
bool parse_log_limit(const std::string& text, LogLimit& out, std::string& error);

#endif
