// How a log run is doing, per sensor: readings, readings per second, frames
// lost between readings, reconnects and the last gap. The reading loop
// records; the status thread (log_status) reads snapshots.
#ifndef ORU_TOOLS_LOGGER_LOG_HEALTH_H
#define ORU_TOOLS_LOGGER_LOG_HEALTH_H

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "cli_format.h"

struct SensorHealth {
    std::string sensor_id;
    uint64_t readings = 0;
    double readings_per_s = 0.0;  // since the snapshot before
    uint64_t dropped_frames = 0;  // sequence numbers skipped inside a stream
    uint64_t reconnects = 0;
    double last_gap_s = 0.0;
    int64_t last_sequence = -1;
};

class LogHealth {
public:
    explicit LogHealth(const std::vector<std::string>& sensor_ids);
    // From the reading loop, for every reading it logged.
    void record(const Measurement& m);
    // The counters, with readings per second since the previous snapshot.
    std::vector<SensorHealth> snapshot();
    // From the reading loop on each turn, readings or not: it is alive, also
    // while it waits for an unplugged sensor to come back.
    void beat();
    // When the reading loop last turned (a stuck loop stops the watchdog).
    std::chrono::steady_clock::time_point last_beat() const;

private:
    mutable std::mutex m_lock;  // guards everything below; held briefly
    std::vector<SensorHealth> m_sensors;  // written by record() on the reading loop
    std::vector<uint64_t> m_readings_at_snapshot;  // written by snapshot()
    std::chrono::steady_clock::time_point m_snapshot_time;
    std::chrono::steady_clock::time_point m_last_beat;  // written by beat() and record()
};

// "A4486-3-12-40-2 9.8 readings/s, 0 frames dropped, 1 reconnect (last gap
// 3.2 s)", one part per sensor, joined by "; ".
std::string health_text(const std::vector<SensorHealth>& sensors);

#endif
