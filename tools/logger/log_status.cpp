#include "log_status.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdio>

LogStatus::LogStatus(LogHealth& health, double every_s, std::function<std::string()> extra,
                     std::function<void(const std::vector<SensorHealth>&)> on_status)
    : m_health(health), m_every_s(every_s), m_extra(std::move(extra)), m_on_status(std::move(on_status)) {
    uint64_t usec = 0;
    if (sd_watchdog_enabled(0, &usec) > 0) m_watchdog_s = static_cast<double>(usec) / 2e6;
}

LogStatus::~LogStatus() { stop(); }

void LogStatus::start() {
    sd_notify(0, "READY=1\nSTATUS=logging");
    m_thread = std::thread([this] { run(); });
}

void LogStatus::stop() {
    {
        std::lock_guard<std::mutex> hold(m_lock);
        if (m_stop) return;
        m_stop = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable()) m_thread.join();
    sd_notify(0, "STOPPING=1");
}

void LogStatus::report() {
    const std::vector<SensorHealth> sensors = m_health.snapshot();
    std::string line = health_text(sensors);
    if (m_extra) line += m_extra();
    std::fprintf(stderr, "oru-sensor: log: %s\n", line.c_str());
    sd_notifyf(0, "STATUS=%s", line.c_str());
    if (m_on_status) m_on_status(sensors);
}

void LogStatus::run() {
    using Clock = std::chrono::steady_clock;
    auto next_status =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(m_every_s));
    const double tick_s = m_watchdog_s > 0 ? std::min(m_watchdog_s, m_every_s) : m_every_s;
    std::unique_lock<std::mutex> hold(m_lock);
    while (!m_stop) {
        m_wake.wait_for(hold, std::chrono::duration<double>(tick_s), [this] { return m_stop; });
        if (m_stop) break;
        hold.unlock();
        const auto now = Clock::now();
        // The loop turns every 50 ms, readings or not (a sensor may be away
        // for hours); one that has not turned for two watchdog periods is
        // stuck: let systemd restart it.
        if (m_watchdog_s > 0 && now - m_health.last_beat() < std::chrono::duration<double>(4 * m_watchdog_s))
            sd_notify(0, "WATCHDOG=1");
        if (now >= next_status) {
            report();
            next_status = now + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(m_every_s));
        }
        hold.lock();
    }
}
