#include "reading_source.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>

#include "stop_signals.h"

namespace {

constexpr int kStateFailed = 2;
constexpr int kStateRemoved = 3;
constexpr double kRetrySeconds = 0.2;

int64_t realtime_now_ns() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

ReadingSource::ReadingSource(const OruApi& api, std::vector<SourceSensor> sensors, int averages, bool streamed,
                             bool recover)
    : m_api(api),
      m_sensors(std::move(sensors)),
      m_averages(averages),
      m_streamed(streamed),
      m_recover(recover),
      m_running(m_sensors.size(), false) {}

ReadingSource::~ReadingSource() { stop(); }

int ReadingSource::start() {
    if (!m_streamed) return 0;
    for (std::size_t i = 0; i < m_sensors.size(); ++i) {
        m_api.duActivateSensorWithIndex(m_sensors[i].index);
        const int result = m_api.duStartFrameStream();
        // A sensor lost already is waited for at its first reading.
        if (result < 0 && !(m_recover && lost(m_sensors[i]))) return result;
        m_running[i] = result >= 0;
    }
    return 0;
}

void ReadingSource::stop() {
    for (std::size_t i = 0; i < m_sensors.size(); ++i) {
        if (!m_running[i]) continue;
        m_api.duActivateSensorWithIndex(m_sensors[i].index);
        m_api.duStopFrameStream();
        m_running[i] = false;
    }
}

// The frames' own time twice over, at least 1 ms a frame, plus 2 s for the
// USB round trips: the same allowance the library gives a request.
int ReadingSource::stream_timeout_ms(const SourceSensor& sensor) const {
    const long long per_frame_ms = std::max(1LL, (static_cast<long long>(sensor.shutter_speed) * 912 + 160) / 1000);
    return static_cast<int>(std::min<long long>(INT_MAX, 2000 + 2LL * m_averages * per_frame_ms));
}

bool ReadingSource::lost(const SourceSensor& sensor) const {
    const int state = m_api.duGetSensorState(sensor.index);
    return state == kStateFailed || state == kStateRemoved;
}

bool ReadingSource::stopping() const { return stop_signal() != 0 || std::chrono::steady_clock::now() >= m_deadline; }

int ReadingSource::read(std::size_t which, Measurement& m) {
    double away = 0.0;  // over every time it went, should it go again at once
    for (;;) {
        const int result = read_once(which, m);
        m.gap = away;
        if (result >= 0 || !m_recover || !lost(m_sensors[which])) return result;
        double this_time = 0.0;
        if (const int r = wait_and_reopen(which, &this_time); r != 0) return r;
        away += this_time;
    }
}

// Waits for the sensor's ID to come back on the bus, reopens it under its
// index and restarts its stream; the other sensors' streams run on.
int ReadingSource::wait_and_reopen(std::size_t which, double* seconds_away) {
    const SourceSensor& sensor = m_sensors[which];
    const auto lost = std::chrono::steady_clock::now();
    const int state = m_api.duGetSensorState(sensor.index);
    std::fprintf(stderr, "oru-sensor: sensor %s %s; waiting for it to come back\n", sensor.id.c_str(),
                 state == kStateRemoved ? "was removed" : "failed");
    m_running[which] = false;
    for (;;) {
        if (stopping()) return kStopped;
        const int reopened = m_api.duReconnectSensor(sensor.index, sensor.id.c_str());
        if (reopened < 0) return reopened;
        if (reopened == 1) break;
        sleep_unless_stopped(kRetrySeconds);
    }
    if (m_streamed) {
        m_api.duActivateSensorWithIndex(sensor.index);
        if (const int result = m_api.duStartFrameStream(); result < 0) return result;
        m_running[which] = true;
    }
    *seconds_away = std::chrono::duration<double>(std::chrono::steady_clock::now() - lost).count();
    std::fprintf(stderr, "oru-sensor: sensor %s is back after %.1f s\n", sensor.id.c_str(), *seconds_away);
    return 0;
}

int ReadingSource::read_once(std::size_t which, Measurement& m) {
    const SourceSensor& sensor = m_sensors[which];
    m.sensor_id = sensor.id;
    m.averages = m_averages;
    m.shutter_speed = sensor.shutter_speed;
    m.values.assign(1024, 0.0);
    if (m_streamed) {
        duFrameStreamInfo info{};
        const int result =
            m_api.duReadFrameStreamOf(sensor.index, m.values.data(), m_averages, stream_timeout_ms(sensor), &info);
        if (result < 0) return result;
        m.realtime_ns = info.last_realtime_ns;
        m.first_sequence = static_cast<int64_t>(info.first_sequence);
        m.last_sequence = static_cast<int64_t>(info.last_sequence);
        m.saturated = info.saturated_filters;
        m.shutter_speed = info.shutter_speed;
        return 0;
    }
    m_api.duActivateSensorWithIndex(sensor.index);
    const int result = m_api.duGetFilterData(m.values.data(), m_averages);
    if (result < 0) return result;
    m.realtime_ns = realtime_now_ns();
    m.first_sequence = m.last_sequence = -1;
    // A request gives only the average: a filter counts as saturated when it
    // was at full scale in every frame.
    m.saturated =
        static_cast<int>(std::count_if(m.values.begin(), m.values.end(), [](double v) { return v >= 4095.0; }));
    return 0;
}
