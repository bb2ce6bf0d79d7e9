// Text pieces shared by the reading-file writer and reader: time stamps and
// the names of the header's fields. Internal to the measurement room.
#ifndef ORU_MEASUREMENT_READING_FILE_TEXT_H
#define ORU_MEASUREMENT_READING_FILE_TEXT_H

#include <cstdint>
#include <string>

namespace oru_reading_file {

constexpr const char* kMagic = "oru-sensor readings";
constexpr const char* kKinds[] = {"readings", "dark", "reference"};
constexpr int kKindCount = 3;

// "2026-11-23T05:40:12.345+01:00": local time with milliseconds and offset.
std::string local_time(int64_t realtime_ns);
// "2026-11-23T04:40:12.345Z": the same instant in UTC, for identities.
std::string utc_time(int64_t realtime_ns);
// Either form back to ns since the epoch; false when it is neither.
bool parse_time(const std::string& text, int64_t& realtime_ns);

}  // namespace oru_reading_file

#endif
