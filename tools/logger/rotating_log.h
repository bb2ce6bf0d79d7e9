// The log directory: a file per sensor and period, each closed complete
// before the next begins, named SENSORID_YYYYMMDDTHHMMSSZ.EXT (UTC start,
// "_2", "_3" ... when the name is taken), and the oldest deleted when the
// directory holds more than it should keep.
#ifndef ORU_TOOLS_LOGGER_ROTATING_LOG_H
#define ORU_TOOLS_LOGGER_ROTATING_LOG_H

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "log_file.h"
#include "log_limits.h"
#include "reading_sink.h"

struct RotatingLogConfig {
    std::string dir;
    LogFormat format = LogFormat::Csv;
    LogLimit rotate;  // when a file is done
    LogLimit keep;  // what the directory keeps
    double flush_seconds = 1.0;  // what a killed logger may lose at most
};

// Whether `name` is one of the log's files (of any format), and its
// sensor ID.
bool is_log_file_name(const std::string& name, std::string* sensor_id = nullptr);

// Deletes the oldest log files of `dir` (by modification time) that are
// older than keep.seconds, or as many as keep the total within keep.bytes;
// files in `open` are never touched. The names deleted.
std::vector<std::string> prune_log_dir(const std::string& dir, const LogLimit& keep,
                                       const std::vector<std::string>& open);

class RotatingLog : public ReadingSink {
public:
    RotatingLog(RotatingLogConfig config, const MeasurementApi& api);
    ~RotatingLog() override;
    bool write(const duSensorMetadata& sensor, const Measurement& m) override;
    bool close() override;
    const std::string& error() const override { return m_error; }
    // Files completed so far, and the paths being written.
    std::size_t files_closed() const { return m_files_closed; }
    std::vector<std::string> open_paths() const;

private:
    struct Current {
        std::unique_ptr<LogFile> file;
        std::string path;
        LogFileInfo info;
        std::chrono::steady_clock::time_point last_flush;
    };
    bool due(const Current& c, const duSensorMetadata& sensor, const Measurement& m) const;
    bool open(Current& c, const duSensorMetadata& sensor, const Measurement& m);
    bool finish(Current& c);
    bool fail(const std::string& what);

    RotatingLogConfig m_config;
    const MeasurementApi& m_api;
    std::map<std::string, Current> m_current;  // by sensor ID; reading-loop thread only
    std::size_t m_files_closed = 0;
    std::string m_error;
};

#endif
