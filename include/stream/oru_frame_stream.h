// Frame streams: while a sensor's stream is on, every frame its bulk transfer
// delivers is stamped on arrival and kept, in order, in a bounded ring of that
// sensor, from which readers take averages of consecutive frames. A sibling of
// the request path (get_filter_data_from_sensor): the ring is the frame sink
// of the sensor's record, to which the bulk callback hands a streaming
// sensor's frames instead of to the request queue. Internal.
#ifndef ORU_FRAME_STREAM_H
#define ORU_FRAME_STREAM_H

#include "sensors/oru_sensor_record.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

struct duFrameStreamInfo;

namespace oru_stream {

// More than 3 s of frames at the fastest pace (about 594 frames/s).
constexpr std::size_t kRingFrames = 2048;
constexpr int kFilters = 1024;
constexpr int kSaturatedDn = 4095;

// The frames of one sensor's stream. push() runs on the event thread, read()
// on a caller's thread; everything below is guarded by m_lock, which is never
// held together with another of the library's locks.
class FrameRing : public oru_sensor::FrameSink {
public:
    explicit FrameRing(std::size_t capacity);

    // Decodes and stamps one raw 2048-byte frame. A full ring drops its
    // oldest frame and counts it. Allocates nothing.
    void push(const unsigned char* raw) override;
    // A transfer fault: as close().
    void fail() override { close(); }
    // Averages the next `count` frames into `output` (1024 values) and fills
    // `info`; `saturated` (1024 flags, or null) gets 1 for each filter at
    // kSaturatedDn or above in any of the frames, 0 for the others. Returns 1, or -lu_ec_fw_recv_timeout when the frames do not come
    // by the deadline or the ring is closed or failed meanwhile (the frames
    // summed so far are consumed).
    int read(double* output, int count, int timeout_ms, duFrameStreamInfo* info, unsigned char* saturated);
    // Wakes every reader; a read in progress and every later one fail with
    // -lu_ec_fw_recv_timeout. Used both for a stop and for a transfer fault.
    void close();
    bool closed() const;

private:
    struct Stamp {
        uint64_t sequence;
        int64_t realtime_ns;
        int64_t monotonic_ns;
    };
    // With m_lock held: registers a reader that needs `need` frames and waits
    // for them, a close, or the deadline. False on the deadline.
    bool wait_for(std::unique_lock<std::mutex>& lk, std::size_t need, std::chrono::steady_clock::time_point deadline);

    std::size_t m_capacity;
    mutable std::mutex m_lock;
    std::condition_variable m_arrived;
    std::vector<uint16_t> m_samples;  // m_capacity frames of kFilters samples
    std::vector<Stamp> m_stamps;
    std::size_t m_head = 0;  // oldest unread frame
    std::size_t m_count = 0;  // unread frames
    uint64_t m_next_sequence = 0;
    uint64_t m_dropped = 0;
    bool m_closed = false;
    std::size_t m_waiting = 0;  // readers asleep in wait_for
    std::size_t m_wanted = 0;  // push wakes them once this many frames are unread
};

// The streams of the sensors: each is its sensor record's frame sink.
//
// Starts the ring of `sensor` (a fresh one: sequence 0, nothing dropped).
// Returns 1, or
// -lu_ec_ill_defined_input when it is already on, -lu_ec_memory_is_null when
// the ring cannot be allocated.
int open(unsigned int sensor);
// Closes the ring of `sensor`, waking its readers. Returns 1, or
// -lu_ec_initialization_required when no stream was on.
int close(unsigned int sensor);
bool is_on(unsigned int sensor);
// Reads from the ring of `sensor` (as FrameRing::read);
// -lu_ec_initialization_required when its stream is off.
int read(unsigned int sensor, double* output, int count, int timeout_ms, duFrameStreamInfo* info,
         unsigned char* saturated);
// Tests: closes and forgets every stream.
void reset_for_tests();

}  // namespace oru_stream

#endif  // ORU_FRAME_STREAM_H
