// The log run's status thread: every N seconds one status line on standard
// error and, under systemd, STATUS=; WATCHDOG=1 as long as the reading loop
// turns (also while it waits for an unplugged sensor). The same binary runs in a terminal, where sd_notify does
// nothing.
#ifndef ORU_TOOLS_LOGGER_LOG_STATUS_H
#define ORU_TOOLS_LOGGER_LOG_STATUS_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "log_health.h"

class LogStatus {
public:
    // `extra` adds to each line (the broker's state); `on_status` receives
    // every snapshot (the MQTT status message). Both run on the status thread.
    LogStatus(LogHealth& health, double every_s, std::function<std::string()> extra,
              std::function<void(const std::vector<SensorHealth>&)> on_status);
    ~LogStatus();
    // READY=1, and the thread starts.
    void start();
    // Wakes and joins the thread; STOPPING=1.
    void stop();

private:
    void run();
    void report();
    LogHealth& m_health;
    double m_every_s;
    std::function<std::string()> m_extra;
    std::function<void(const std::vector<SensorHealth>&)> m_on_status;
    double m_watchdog_s = 0.0;  // half of WatchdogSec; 0 without a watchdog
    std::mutex m_lock;  // guards m_stop
    std::condition_variable m_wake;
    bool m_stop = false;  // written by stop()
    std::thread m_thread;
};

#endif
