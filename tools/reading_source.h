// Where `read` takes its readings from: the frame streams of the chosen
// sensors (every frame once, in order, stamped on arrival), or one request
// per reading when readings are spaced out in time.
#ifndef ORU_TOOLS_READING_SOURCE_H
#define ORU_TOOLS_READING_SOURCE_H

#include <chrono>
#include <string>
#include <vector>

#include "cli_format.h"
#include "oru_api_loader.h"

struct SourceSensor {
    int index;
    std::string id;
    int shutter_speed;
};

class ReadingSource {
public:
    // With `recover`, a sensor that is removed or fails is waited for (the same
    // sensor ID), reopened and read on, and the time it was away is recorded.
    ReadingSource(const OruApi& api, std::vector<SourceSensor> sensors, int averages, bool streamed, bool recover);
    ~ReadingSource();
    // Starts the streams; 0, or the library's negative result.
    int start();
    // One reading of sensors()[which]: 0, the library's negative result, or
    // kStopped when a stop signal or the deadline came while waiting for a
    // lost sensor.
    int read(std::size_t which, Measurement& m);
    static constexpr int kStopped = 1;
    void set_deadline(std::chrono::steady_clock::time_point deadline) { m_deadline = deadline; }
    // Stops the streams that run.
    void stop();
    const std::vector<SourceSensor>& sensors() const { return m_sensors; }

private:
    int stream_timeout_ms(const SourceSensor& sensor) const;
    int read_once(std::size_t which, Measurement& m);
    int wait_and_reopen(std::size_t which, double* seconds_away);
    bool stopping() const;
    bool lost(const SourceSensor& sensor) const;
    const OruApi& m_api;
    std::vector<SourceSensor> m_sensors;
    int m_averages;
    bool m_streamed;
    bool m_recover;
    std::chrono::steady_clock::time_point m_deadline = std::chrono::steady_clock::time_point::max();
    std::vector<bool> m_running;
};

#endif
