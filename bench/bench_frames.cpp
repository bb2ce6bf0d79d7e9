// Decoding one 2048-byte frame and averaging n decoded frames, without USB:
// the frames are taken by the request as a producer takes them, and the
// averaging runs through get_filter_data_from_sensor, for a sensor index
// without handle (its streaming commands send nothing). Throughput is counted
// in raw frame bytes (2048 per frame).
#include "bench_support.h"

#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "efm32com/oru_device_interface_stm_request.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <vector>

namespace {

constexpr unsigned int kSensorWithoutHandle = 99;
constexpr int kContinuous = 1;  // streaming stays on: no stop commands at the end

// A frame whose 1024 samples use all 12 bits and all low nibbles.
std::vector<unsigned char> raw_frame() {
    std::vector<unsigned char> raw(ORU_FRAME_BYTES);
    for (int i = 0; i < ORU_NUM_FILTERS; ++i) {
        const int value = (i * 37 + 11) % 4096;
        raw[2 * i] = static_cast<unsigned char>(value >> 4);
        raw[2 * i + 1] = static_cast<unsigned char>(((value & 15) << 4) | (i & 15));
    }
    return raw;
}

std::vector<uint16_t> decoded_frame() {
    const std::vector<unsigned char> raw = raw_frame();
    std::vector<uint16_t> samples(ORU_NUM_FILTERS);
    decode_frame(raw.data(), samples.data());
    return samples;
}

// The request takes `count` frames (the first ones whole, for the ring).
void queue_frames(int count, const std::vector<uint16_t>& frame) {
    begin_frame_request(kContinuous, count, g_enable_FMA ? std::min(count, ORU_FMA_SLOTS) : 0);
    for (int i = 0; i < count; ++i) take_control_frame(frame.data());
}

void count_frames(benchmark::State& state, int64_t frames_per_iteration) {
    state.SetBytesProcessed(state.iterations() * frames_per_iteration * ORU_FRAME_BYTES);
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(state.iterations() * frames_per_iteration), benchmark::Counter::kIsRate);
}

// convert_2048C_to_1024F consumes its input, so every conversion gets a
// fresh copy (2 KB memcpy, included).
void BM_Convert2048To1024(benchmark::State& state) {
    const std::vector<unsigned char> raw = raw_frame();
    std::vector<char> input(ORU_FRAME_BYTES);
    std::vector<double> output(ORU_NUM_FILTERS);
    for (auto _ : state) {
        std::memcpy(input.data(), raw.data(), ORU_FRAME_BYTES);
        convert_2048C_to_1024F(input.data(), output.data());
        benchmark::DoNotOptimize(output.data());
        benchmark::ClobberMemory();
    }
    count_frames(state, 1);
}
BENCHMARK(BM_Convert2048To1024);

// The bulk callback's decoding per frame: the one decoder into a frame on the
// stack, the transfer buffer zeroed for the next.
void BM_CallbackDecode(benchmark::State& state) {
    const std::vector<unsigned char> raw = raw_frame();
    std::vector<unsigned char> buffer(ORU_FRAME_BYTES);
    for (auto _ : state) {
        std::memcpy(buffer.data(), raw.data(), ORU_FRAME_BYTES);
        uint16_t frame[ORU_NUM_FILTERS];
        decode_frame(buffer.data(), frame);
        std::memset(buffer.data(), 0, ORU_FRAME_BYTES);
        benchmark::DoNotOptimize(frame);
        benchmark::ClobberMemory();
    }
    count_frames(state, 1);
}
BENCHMARK(BM_CallbackDecode);

// Plain average of n frames (moving average off): taking each frame into the
// running sum, then the average.
void BM_AveragePlain(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<uint16_t> frame = decoded_frame();
    std::vector<double> output(ORU_NUM_FILTERS);
    set_frame_moving_average(false);
    for (auto _ : state) {
        queue_frames(n, frame);
        get_filter_data_from_sensor(output.data(), n, 0, kContinuous, kSensorWithoutHandle);
        benchmark::DoNotOptimize(output.data());
    }
    count_frames(state, n);
}
BENCHMARK(BM_AveragePlain)->Arg(1)->Arg(10)->Arg(100)->Arg(1000);

// Moving average, first request: n frames (at most 100) fill the ring, and
// the ring is averaged.
void BM_AverageMovingFill(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<uint16_t> frame = decoded_frame();
    std::vector<double> output(ORU_NUM_FILTERS);
    for (auto _ : state) {
        state.PauseTiming();
        set_frame_moving_average(true);
        queue_frames(n, frame);
        state.ResumeTiming();
        get_filter_data_from_sensor(output.data(), n, 0, kContinuous, kSensorWithoutHandle);
        benchmark::DoNotOptimize(output.data());
    }
    set_frame_moving_average(false);
    count_frames(state, n);
}
BENCHMARK(BM_AverageMovingFill)->Arg(10)->Arg(100);

// Moving average once the ring is full: each request takes one new frame in
// place of the oldest and averages the whole ring again (n slots). Counted
// in new frames: the raw data a request actually brings.
void BM_AverageMovingBuffered(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<uint16_t> frame = decoded_frame();
    std::vector<double> output(ORU_NUM_FILTERS);
    set_frame_moving_average(true);
    queue_frames(n, frame);
    get_filter_data_from_sensor(output.data(), n, 0, kContinuous, kSensorWithoutHandle);
    for (auto _ : state) {
        state.PauseTiming();
        queue_frames(1, frame);
        state.ResumeTiming();
        get_filter_data_from_sensor(output.data(), n, 0, kContinuous, kSensorWithoutHandle);
        benchmark::DoNotOptimize(output.data());
    }
    set_frame_moving_average(false);
    count_frames(state, 1);
    state.counters["ring_frames/s"] =
        benchmark::Counter(static_cast<double>(state.iterations() * n), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_AverageMovingBuffered)->Arg(10)->Arg(100);

}  // namespace
