#include "event_log.h"

#include <cstdio>
#include <map>
#include <mutex>
#include <vector>

namespace vsensor {
namespace detail {

namespace {

// Beyond this many events the older half is dropped, so that a program that
// runs for hours on the drop-in does not grow without bound.
constexpr size_t kMaxEvents = size_t{1} << 20;

struct RunState {
    int logged = 0;  // completions logged one by one in this run
    long summary = -1;  // index of the run's merged event, -1 = none yet
};

struct Log {
    std::mutex m;
    std::vector<Event> events;
    std::map<int, RunState> runs;
    bool trace = false;
};

Log& the_log() {
    static Log* log = new Log;  // outlives threads still running at exit
    return *log;
}

void trim(Log& log) {
    if (log.events.size() < kMaxEvents) return;
    const long half = static_cast<long>(log.events.size() / 2);
    log.events.erase(log.events.begin(), log.events.begin() + half);
    for (auto& r : log.runs) r.second.summary = r.second.summary >= half ? r.second.summary - half : -1;
}

// Caller holds log.m.
void append(Log& log, Event e) {
    trim(log);
    if (log.trace) {
        std::string text = e.kind == EventKind::Bulk
                               ? "dev" + std::to_string(e.dev) + " bulk status " + std::to_string(e.status)
                               : format_event(e);
        if (e.kind == EventKind::Control && e.dev >= 0) text = "dev" + std::to_string(e.dev) + " " + text;
        std::fprintf(stderr, "[vsensor] %s\n", text.c_str());
    }
    log.events.push_back(std::move(e));
}

std::string pause_text(uint64_t us) {
    return us % 1000 == 0 ? "pause " + std::to_string(us / 1000) + " ms" : "pause " + std::to_string(us) + " us";
}

std::string hex2(unsigned v) {
    char buf[8];
    std::snprintf(buf, sizeof buf, "0x%02X", v & 0xFF);
    return buf;
}

}  // namespace

void log_control(int dev, uint8_t bmRequestType, uint8_t bRequest, uint16_t wValue, uint16_t wIndex, uint16_t wLength,
                 unsigned timeout, int status) {
    Event e;
    e.kind = EventKind::Control;
    e.dev = dev;
    e.bmRequestType = bmRequestType;
    e.bRequest = bRequest;
    e.wValue = wValue;
    e.wIndex = wIndex;
    e.wLength = wLength;
    e.timeout = timeout;
    e.status = status;
    e.at_us = now_us();
    Log& log = the_log();
    std::lock_guard<std::mutex> lk(log.m);
    append(log, std::move(e));
}

void log_bulk(int dev, int status) {
    Event e;
    e.kind = EventKind::Bulk;
    e.dev = dev;
    e.status = status;
    e.at_us = now_us();
    Log& log = the_log();
    std::lock_guard<std::mutex> lk(log.m);
    if (status != 0) {
        append(log, std::move(e));
        return;
    }
    RunState& run = log.runs[dev];
    if (run.logged < kBulkEventsPerRun) {
        ++run.logged;
        append(log, std::move(e));
        return;
    }
    if (run.summary >= 0) {
        ++log.events[static_cast<size_t>(run.summary)].count;
        return;
    }
    append(log, std::move(e));
    run.summary = static_cast<long>(log.events.size()) - 1;
}

void log_stream_start(int dev) {
    Log& log = the_log();
    std::lock_guard<std::mutex> lk(log.m);
    log.runs[dev] = RunState{};
}

void log_pause(uint64_t us, uint64_t at_us) {
    Event e;
    e.kind = EventKind::Pause;
    e.pause_us = us;
    e.at_us = at_us;
    Log& log = the_log();
    std::lock_guard<std::mutex> lk(log.m);
    append(log, std::move(e));
}

void log_lifecycle(int dev, const std::string& what, int status) {
    Event e;
    e.kind = EventKind::Lifecycle;
    e.dev = dev;
    e.what = what;
    e.status = status;
    e.at_us = now_us();
    Log& log = the_log();
    std::lock_guard<std::mutex> lk(log.m);
    append(log, std::move(e));
}

void clear_log() {
    Log& log = the_log();
    std::lock_guard<std::mutex> lk(log.m);
    log.events.clear();
    log.runs.clear();
}

void set_trace(bool on) {
    Log& log = the_log();
    std::lock_guard<std::mutex> lk(log.m);
    log.trace = on;
}

std::string format_event(const Event& e) {
    switch (e.kind) {
    case EventKind::Control:
        if (e.bmRequestType == 0xA1) return "cmd " + std::to_string(e.bRequest) + " value " + std::to_string(e.wValue);
        if (e.bmRequestType == 0x21)
            return "out " + std::to_string(e.bRequest) + " value " + std::to_string(e.wValue) + " index " +
                   std::to_string(e.wIndex);
        return "req " + hex2(e.bmRequestType) + " " + std::to_string(e.bRequest) + " value " +
               std::to_string(e.wValue) + " index " + std::to_string(e.wIndex) + " length " + std::to_string(e.wLength);
    case EventKind::Pause:
        return pause_text(e.pause_us);
    case EventKind::Lifecycle:
        return e.dev >= 0 ? "dev" + std::to_string(e.dev) + " " + e.what : e.what;
    case EventKind::Bulk:
        return "";
    }
    return "";
}

}  // namespace detail

std::vector<Event> events() {
    detail::Log& log = detail::the_log();
    std::lock_guard<std::mutex> lk(log.m);
    return log.events;
}

void clear_events() { detail::clear_log(); }

std::string transcript(int dev, bool with_lifecycle) {
    std::string out;
    for (const Event& e : events()) {
        if (e.kind == EventKind::Bulk) continue;
        if (e.kind == EventKind::Lifecycle && !with_lifecycle) continue;
        // Pauses and bus-wide lifecycle events (dev -1) belong to every device.
        if (dev >= 0 && e.dev >= 0 && e.dev != dev) continue;
        if (!out.empty()) out += ", ";
        out += detail::format_event(e);
    }
    return out;
}

}  // namespace vsensor
