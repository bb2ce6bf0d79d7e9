// The rings of the frame streams and the table that finds a sensor's ring.
#include "stream/oru_frame_stream.h"

#include "efm32com/oru_device_interface_stm_frames.h"
#include "oru_base_exception.h"
#include "oru_device_api.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <chrono>
#include <ctime>
#include <new>

namespace oru_stream {

namespace {

int64_t clock_ns(clockid_t clock) {
    timespec ts{};
    clock_gettime(clock, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

}  // namespace

FrameRing::FrameRing(std::size_t capacity) : m_capacity(capacity), m_samples(capacity * kFilters), m_stamps(capacity) {}

void FrameRing::push(const unsigned char* raw) {
    const int64_t realtime = clock_ns(CLOCK_REALTIME);
    const int64_t monotonic = clock_ns(CLOCK_MONOTONIC);
    bool wake = false;
    {
        std::lock_guard<std::mutex> lk(m_lock);
        if (m_closed) return;
        if (m_count == m_capacity) {  // full: the oldest unread frame gives way
            m_head = (m_head + 1) % m_capacity;
            --m_count;
            ++m_dropped;
        }
        const std::size_t slot = (m_head + m_count) % m_capacity;
        uint16_t* samples = &m_samples[slot * kFilters];
        decode_frame(raw, samples);
        m_stamps[slot] = Stamp{m_next_sequence++, realtime, monotonic};
        ++m_count;
        // Readers sleep until their whole count is there, not per frame.
        wake = m_waiting > 0 && m_count >= m_wanted;
    }
    if (wake) m_arrived.notify_all();
}

bool FrameRing::wait_for(std::unique_lock<std::mutex>& lk, std::size_t need,
                         std::chrono::steady_clock::time_point deadline) {
    // m_wanted is the smallest need of the waiting readers (or smaller: a
    // reader that leaves does not raise it, which costs a wake-up, not a frame).
    m_wanted = m_waiting == 0 ? need : std::min(m_wanted, need);
    ++m_waiting;
    const bool ready = m_arrived.wait_until(lk, deadline, [&] { return m_count >= need || m_closed; });
    --m_waiting;
    return ready;
}

int FrameRing::read(double* output, int count, int timeout_ms, duFrameStreamInfo* info, unsigned char* saturated_out) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    // Integer sums: exact for any count an int can hold (4095 x 2^31 < 2^53).
    std::array<uint64_t, kFilters> sums{};
    std::bitset<kFilters> saturated;
    Stamp first{}, last{};
    int taken = 0;
    std::unique_lock<std::mutex> lk(m_lock);
    while (taken < count) {
        // At most a ringful at a time: a longer average is taken in parts.
        const std::size_t need = std::min(static_cast<std::size_t>(count - taken), m_capacity);
        const bool ready = m_count >= need || m_closed || wait_for(lk, need, deadline);
        if (m_closed) return -lu_ec_fw_recv_timeout;
        for (; m_count > 0 && taken < count; ++taken) {
            const uint16_t* samples = &m_samples[m_head * kFilters];
            for (int i = 0; i < kFilters; ++i) {
                sums[i] += samples[i];
                if (samples[i] >= kSaturatedDn) saturated.set(i);
            }
            if (taken == 0) first = m_stamps[m_head];
            last = m_stamps[m_head];
            m_head = (m_head + 1) % m_capacity;
            --m_count;
        }
        // Timed out: the frames that did come are consumed with the failure.
        if (!ready) return -lu_ec_fw_recv_timeout;
    }
    const uint64_t dropped = m_dropped;
    lk.unlock();
    for (int i = 0; i < kFilters; ++i) output[i] = static_cast<double>(sums[i]) / count;
    if (info != nullptr) {
        info->first_sequence = first.sequence;
        info->last_sequence = last.sequence;
        info->first_realtime_ns = first.realtime_ns;
        info->last_realtime_ns = last.realtime_ns;
        info->first_monotonic_ns = first.monotonic_ns;
        info->last_monotonic_ns = last.monotonic_ns;
        info->dropped_frames = dropped;
        info->saturated_filters = static_cast<int32_t>(saturated.count());
    }
    if (saturated_out != nullptr)
        for (int i = 0; i < kFilters; ++i) saturated_out[i] = saturated.test(static_cast<std::size_t>(i)) ? 1 : 0;
    return 1;
}

void FrameRing::close() {
    {
        std::lock_guard<std::mutex> lk(m_lock);
        m_closed = true;
    }
    m_arrived.notify_all();
}

bool FrameRing::closed() const {
    std::lock_guard<std::mutex> lk(m_lock);
    return m_closed;
}

// ---- the streams of the sensors ---------------------------------------------

namespace {

std::shared_ptr<FrameRing> ring_of(unsigned int sensor) {
    oru_sensor::SSensorRecord* record = oru_sensor::sensor_record(sensor);
    if (record == nullptr) return nullptr;
    return std::dynamic_pointer_cast<FrameRing>(oru_sensor::sink_of(*record));
}

}  // namespace

int open(unsigned int sensor) {
    oru_sensor::SSensorRecord* record = oru_sensor::sensor_record(sensor);
    if (record == nullptr) return -lu_ec_ill_defined_input;
    if (oru_sensor::sink_of(*record) != nullptr) return -lu_ec_ill_defined_input;
    std::shared_ptr<FrameRing> ring;
    try {
        ring = std::make_shared<FrameRing>(kRingFrames);
    } catch (const std::bad_alloc&) {
        return -lu_ec_memory_is_null;
    }
    return oru_sensor::set_sink(*record, std::move(ring)) ? 1 : -lu_ec_ill_defined_input;
}

int close(unsigned int sensor) {
    oru_sensor::SSensorRecord* record = oru_sensor::sensor_record(sensor);
    std::shared_ptr<oru_sensor::FrameSink> sink = record != nullptr ? oru_sensor::clear_sink(*record) : nullptr;
    if (sink == nullptr) return -lu_ec_initialization_required;
    sink->fail();
    return 1;
}

bool is_on(unsigned int sensor) { return ring_of(sensor) != nullptr; }

int read(unsigned int sensor, double* output, int count, int timeout_ms, duFrameStreamInfo* info,
         unsigned char* saturated) {
    std::shared_ptr<FrameRing> ring = ring_of(sensor);
    if (ring == nullptr) return -lu_ec_initialization_required;
    return ring->read(output, count, timeout_ms, info, saturated);
}

void reset_for_tests() {
    for (unsigned int i = 0; i < oru_sensor::kMaxOpenSensors; ++i) close(i);
}

}  // namespace oru_stream
