#include "log_health.h"

#include <cstdio>

LogHealth::LogHealth(const std::vector<std::string>& sensor_ids)
    : m_readings_at_snapshot(sensor_ids.size(), 0),
      m_snapshot_time(std::chrono::steady_clock::now()),
      m_last_beat(m_snapshot_time) {
    for (const std::string& id : sensor_ids) m_sensors.push_back({id});
}

void LogHealth::record(const Measurement& m) {
    std::lock_guard<std::mutex> hold(m_lock);
    m_last_beat = std::chrono::steady_clock::now();
    for (SensorHealth& s : m_sensors) {
        if (s.sensor_id != m.sensor_id) continue;
        ++s.readings;
        if (m.gap > 0) {
            // A reopened sensor starts a new stream: its numbers start over.
            ++s.reconnects;
            s.last_gap_s = m.gap;
        } else if (s.last_sequence >= 0 && m.first_sequence > s.last_sequence + 1) {
            s.dropped_frames += static_cast<uint64_t>(m.first_sequence - s.last_sequence - 1);
        }
        s.last_sequence = m.last_sequence;
    }
}

std::vector<SensorHealth> LogHealth::snapshot() {
    std::lock_guard<std::mutex> hold(m_lock);
    const auto now = std::chrono::steady_clock::now();
    const double seconds = std::chrono::duration<double>(now - m_snapshot_time).count();
    for (std::size_t i = 0; i < m_sensors.size(); ++i) {
        m_sensors[i].readings_per_s =
            seconds > 0 ? static_cast<double>(m_sensors[i].readings - m_readings_at_snapshot[i]) / seconds : 0.0;
        m_readings_at_snapshot[i] = m_sensors[i].readings;
    }
    m_snapshot_time = now;
    return m_sensors;
}

void LogHealth::beat() {
    std::lock_guard<std::mutex> hold(m_lock);
    m_last_beat = std::chrono::steady_clock::now();
}

std::chrono::steady_clock::time_point LogHealth::last_beat() const {
    std::lock_guard<std::mutex> hold(m_lock);
    return m_last_beat;
}

std::string health_text(const std::vector<SensorHealth>& sensors) {
    std::string text;
    for (const SensorHealth& s : sensors) {
        char part[256];
        std::snprintf(part, sizeof part, "%s%s %.1f readings/s, %llu frames dropped, %llu reconnect%s",
                      text.empty() ? "" : "; ", s.sensor_id.c_str(), s.readings_per_s,
                      static_cast<unsigned long long>(s.dropped_frames), static_cast<unsigned long long>(s.reconnects),
                      s.reconnects == 1 ? "" : "s");
        text += part;
        if (s.reconnects > 0) {
            std::snprintf(part, sizeof part, " (last gap %.1f s)", s.last_gap_s);
            text += part;
        }
    }
    return text;
}
