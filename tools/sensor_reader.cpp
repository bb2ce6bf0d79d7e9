#include "sensor_reader.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "cli_errors.h"
#include "stop_signals.h"

namespace {

constexpr int kStateFailed = 2;
constexpr int kStateRemoved = 3;
constexpr double kRetrySeconds = 0.2;
// Frames read at once, in ms of the sensor's frame time: a stop is seen
// between two such reads.
constexpr double kChunkMs = 200.0;
constexpr int kStopped = 1;

using Clock = std::chrono::steady_clock;

// The sensor's frame period in ms, at least 1 ms.
double frame_ms(int shutter_speed) { return std::max(1.0, (shutter_speed * 912.0 + 160.0) / 1000.0); }

// How long `frames` frames may take before the sensor counts as stalled:
// their time twice over plus 2 s for the USB round trips, the allowance the
// library gives a request.
int allowance_ms(int frames, int shutter_speed) { return static_cast<int>(2000.0 + 2.0 * frames * frame_ms(shutter_speed)); }

}  // namespace

SensorReader::SensorReader(const OruApi& api, std::size_t position, SourceSensor sensor, const ReaderPlan& plan,
                           ReadingEvents& events)
    : m_api(api), m_position(position), m_sensor(std::move(sensor)), m_plan(plan), m_events(events) {}

SensorReader::~SensorReader() {
    stop();
    join();
}

void SensorReader::start() { m_thread = std::thread([this] { run(); }); }

void SensorReader::join() {
    if (m_thread.joinable()) m_thread.join();
}

std::string SensorReader::name() const { return "sensor " + std::to_string(m_sensor.index) + " (" + m_sensor.id + ")"; }

// The reader sees the flag between two reads and ends; a stream left on is
// closed by the disconnect, which spares the stop commands' pauses (1.6 s
// each at the longest shutter speed) and wakes a read that waits for a
// stalled sensor.
void SensorReader::stop() { m_stop.store(true); }

bool SensorReader::stopping() const { return m_stop.load() || stop_signal() != 0; }

void SensorReader::pause(double seconds) const {
    const Clock::time_point until =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    while (!stopping() && Clock::now() < until)
        std::this_thread::sleep_for(std::min<Clock::duration>(std::chrono::milliseconds(50), until - Clock::now()));
}

bool SensorReader::lost() const {
    const int state = m_api.duGetSensorState(m_sensor.index);
    return state == kStateFailed || state == kStateRemoved;
}

void SensorReader::post(ReadingEvent::Kind kind, std::string text) {
    ReadingEvent event;
    event.kind = kind;
    event.reader = m_position;
    event.text = std::move(text);
    m_events.post(std::move(event));
}

int SensorReader::start_stream() {
    m_api.duLockSensors();
    int result = kStopped;
    if (!stopping()) {
        m_api.duActivateSensorWithIndex(m_sensor.index);
        result = m_api.duStartFrameStream();
        m_streaming = result >= 0;
    }
    m_api.duUnlockSensors();
    return result < 0 ? result : (m_streaming ? 0 : kStopped);
}

void SensorReader::stop_stream() {
    if (!m_streaming) return;
    m_api.duLockSensors();
    m_api.duActivateSensorWithIndex(m_sensor.index);
    m_api.duStopFrameStream();  // -26 when stop() or a reconnect closed it already
    m_api.duUnlockSensors();
    m_streaming = false;
}

void SensorReader::run() {
    const bool spaced = m_plan.interval > 0;
    // A sensor lost already is waited for at its first reading.
    int failure = spaced ? 0 : start_stream();
    if (failure < 0 && (!m_plan.recover || !lost())) {
        post(ReadingEvent::Failed, name() + ": starting the frame stream failed: " + describe_result(failure) +
                                       " (code " + std::to_string(failure) + ")");
        post(ReadingEvent::Finished, "");
        return;
    }
    for (int k = 0; m_plan.repeat == 0 || k < m_plan.repeat; ++k) {
        if (k > 0 && spaced) pause(m_plan.interval);
        if (stopping()) break;
        ReadingEvent event;
        event.kind = ReadingEvent::Reading;
        event.reader = m_position;
        const int result = take_reading(event.reading);
        if (result == kStopped || (result < 0 && stopping())) break;
        if (result < 0) {
            post(ReadingEvent::Failed, name() + ": reading filter data failed: " + describe_result(result) +
                                           " (code " + std::to_string(result) + ")");
            break;
        }
        m_events.post(std::move(event));
    }
    if (!stopping()) stop_stream();
    post(ReadingEvent::Finished, "");
}

int SensorReader::take_reading(Measurement& m) {
    double away = 0.0;  // over every time it went, should it go again at once
    for (;;) {
        const int result = read_once(m);
        m.gap = away;
        if (result >= 0 || !m_plan.recover || !lost()) return result;
        double this_time = 0.0;
        if (const int r = wait_and_reopen(&this_time); r != 0) return r;
        away += this_time;
    }
}

// Waits for the sensor's ID to come back on the bus and reopens it under its
// index; the other sensors read on meanwhile.
int SensorReader::wait_and_reopen(double* seconds_away) {
    const Clock::time_point since = Clock::now();
    const int state = m_api.duGetSensorState(m_sensor.index);
    post(ReadingEvent::Note, name() + (state == kStateRemoved ? " was removed" : " failed") +
                                 "; waiting for it to come back");
    m_streaming = false;  // the reconnect closes the stream
    for (;;) {
        if (stopping()) return kStopped;
        const int reopened = m_api.duReconnectSensor(m_sensor.index, m_sensor.id.c_str());
        if (reopened < 0) return reopened;
        if (reopened == 1) break;
        pause(kRetrySeconds);
    }
    if (m_plan.interval == 0.0) {
        if (const int result = start_stream(); result != 0) return result;
    }
    *seconds_away = std::chrono::duration<double>(Clock::now() - since).count();
    char back[48];
    std::snprintf(back, sizeof back, " is back after %.1f s", *seconds_away);
    post(ReadingEvent::Note, name() + back);
    return 0;
}

int SensorReader::read_once(Measurement& m) {
    m.sensor_id = m_sensor.id;
    m.averages = m_plan.averages;
    m.shutter_speed = m_sensor.shutter_speed;
    if (m_plan.interval == 0.0) return read_frames(m);
    // Spaced out: a fresh stream for each reading, its frames taken after the pause.
    if (const int result = start_stream(); result != 0) return result;
    const int result = read_frames(m);
    if (result != kStopped) stop_stream();
    // Each reading's stream counts from 0: its numbers would only mislead.
    m.first_sequence = m.last_sequence = -1;
    return result;
}

// In chunks of at most kChunkMs of frames, with a look at the stop flag
// between them; a chunk that does not come within its allowance means the
// sensor stalled. Each chunk's average times its count gives back its exact
// integer sums, so the average of the whole reading is the library's own,
// bit for bit, and its frames are consecutive as in one read.
int SensorReader::read_frames(Measurement& m) {
    const int chunk = std::max(1, static_cast<int>(kChunkMs / frame_ms(m_sensor.shutter_speed)));
    std::vector<uint64_t> sums(1024, 0);
    std::vector<double> part(1024, 0.0);
    // A filter any chunk flags is saturated in the whole reading.
    std::vector<unsigned char> saturated(1024, 0), part_saturated(1024, 0);
    duFrameStreamInfo info{};
    for (int taken = 0; taken < m_plan.averages;) {
        if (stopping()) return kStopped;
        const int n = std::min(chunk, m_plan.averages - taken);
        const int result =
            m_api.duReadFrameStreamMaskOf(m_sensor.index, part.data(), n, allowance_ms(n, m_sensor.shutter_speed),
                                          &info, part_saturated.data());
        if (result < 0) return stopping() ? kStopped : result;
        if (taken == 0) m.first_sequence = static_cast<int64_t>(info.first_sequence);
        for (std::size_t f = 0; f < sums.size(); ++f) {
            sums[f] += static_cast<uint64_t>(std::llround(part[f] * n));
            saturated[f] |= part_saturated[f];
        }
        taken += n;
    }
    m.values.resize(sums.size());
    for (std::size_t f = 0; f < sums.size(); ++f) m.values[f] = static_cast<double>(sums[f]) / m_plan.averages;
    m.last_sequence = static_cast<int64_t>(info.last_sequence);
    m.realtime_ns = info.last_realtime_ns;
    m.shutter_speed = info.shutter_speed;
    m.saturated = static_cast<int>(std::count(saturated.begin(), saturated.end(), 1));
    return 0;
}
