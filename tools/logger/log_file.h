// One file of a log: one sensor, one period, one set of settings. Readings
// are appended as they come and reach the disk at least every flush; a file
// that is closed is complete.
#ifndef ORU_TOOLS_LOGGER_LOG_FILE_H
#define ORU_TOOLS_LOGGER_LOG_FILE_H

#include <cstdint>
#include <memory>
#include <string>

#include "cli_format.h"
#include "measurement_api.h"

enum class LogFormat { Csv, JsonLines, Hdf5 };

// "csv", "jsonl", "hdf5"; and the file name extension of each.
bool log_format_from_name(const std::string& name, LogFormat& format);
const char* log_format_extension(LogFormat format);

// A CLOCK_REALTIME time in ns as UTC text in a strftime `format`.
std::string utc_text(int64_t ns, const char* format);

// What a file says about how its readings were taken.
struct LogFileInfo {
    duSensorMetadata sensor{};
    int averages = 0;
    int shutter_speed = 0;
    int64_t start_ns = 0;  // CLOCK_REALTIME of its first reading
};

class LogFile {
public:
    virtual ~LogFile() = default;
    virtual bool append(const Measurement& m) = 0;
    // Puts what was appended on the disk, complete for a reader.
    virtual bool flush() = 0;
    virtual bool close() = 0;
    // Bytes on the disk after the last flush.
    virtual uint64_t bytes() const = 0;
    const std::string& error() const { return m_error; }

protected:
    std::string m_error;
};

// Creates `path`, never over an existing file: null, with the reason in
// `error`, when it exists or cannot be made.
std::unique_ptr<LogFile> create_log_file(LogFormat format, const std::string& path, const LogFileInfo& info,
                                         const MeasurementApi& api, std::string& error);

// Each format's own maker.
std::unique_ptr<LogFile> create_text_log_file(LogFormat format, const std::string& path, const LogFileInfo& info,
                                              const MeasurementApi& api, std::string& error);
std::unique_ptr<LogFile> create_hdf5_log_file(const std::string& path, const LogFileInfo& info,
                                              const MeasurementApi& api, std::string& error);

#endif
