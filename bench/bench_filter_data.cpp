// duGetFilterData(n) end to end on a virtual sensor. The protocol's pauses
// run on the virtual clock: they are added up (vsensor::total_pause_us) but
// take no real time, so what real time a call takes is time the pauses do
// not account for.
//   free-running: the sensor sends frames as fast as they are read, so the
//     real time is the library's overhead plus the virtual sensor's work of
//     making every frame (about 120 more than requested are made and dropped
//     while the streaming commands go out).
//   paced: one frame per frame period, as the sensor does; the real time
//     minus the (n + 2) frame periods a single shot waits for is the
//     library's overhead.
#include "bench_support.h"

#include "efm32com/oru_device_interface_stm_bringup.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "oru_device_api.h"
#include "vsensor/vsensor.h"

#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace {

double thread_cpu_us(clockid_t clock) {
    timespec ts{};
    if (clock_gettime(clock, &ts) != 0) return 0.0;
    return static_cast<double>(ts.tv_sec) * 1e6 + static_cast<double>(ts.tv_nsec) / 1e3;
}

// Frame period of the virtual sensor: the slower of the exposure and the bus.
double frame_period_us(int shutter) { return static_cast<double>(frame_period_ns(shutter)) / 1000.0; }

void get_filter_data(benchmark::State& state, bool paced) {
    const int n = static_cast<int>(state.range(0));
    const int shutter = static_cast<int>(state.range(1));
    if (!connect_virtual_sensors(state, 1)) return;
    duSetShutterSpeed(shutter);
    vsensor::set_realtime(paced);
    clockid_t event_clock{};
    const bool event_clock_known = pthread_getcpuclockid(usbEventLoop_thread.native_handle(), &event_clock) == 0;
    std::vector<double> output(1024);
    int failures = 0;
    const uint64_t pauses_before = vsensor::total_pause_us();
    const uint64_t frames_before = vsensor::frames_sent(0);
    const double main_cpu_before = thread_cpu_us(CLOCK_THREAD_CPUTIME_ID);
    const double event_cpu_before = event_clock_known ? thread_cpu_us(event_clock) : 0.0;
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        if (duGetFilterData(output.data(), n) != 1) ++failures;
        benchmark::DoNotOptimize(output.data());
    }
    const double real_us = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
    const double calls = static_cast<double>(std::max<int64_t>(state.iterations(), 1));
    const double pause_us = static_cast<double>(vsensor::total_pause_us() - pauses_before) / calls;
    // A single shot waits for n frames after the two it throws away.
    const double frames_us = paced ? (n + 2) * frame_period_us(shutter) : 0.0;
    const double overhead_us = real_us / calls - frames_us;
    state.counters["pauses_ms"] = pause_us / 1000.0;
    if (paced) state.counters["frames_ms"] = frames_us / 1000.0;
    state.counters["overhead_us"] = overhead_us;
    state.counters["overhead_%"] = 100.0 * overhead_us / pause_us;
    // Target: at most 1 % of the required pauses, or 1 ms, whichever is larger.
    state.counters["target_us"] = std::max(pause_us / 100.0, 1000.0);
    state.counters["main_cpu_us"] = (thread_cpu_us(CLOCK_THREAD_CPUTIME_ID) - main_cpu_before) / calls;
    if (event_clock_known) state.counters["event_cpu_us"] = (thread_cpu_us(event_clock) - event_cpu_before) / calls;
    state.counters["frames/call"] = static_cast<double>(vsensor::frames_sent(0) - frames_before) / calls;
    state.counters["failures"] = failures;
    vsensor::set_realtime(false);
    disconnect_sensors();
}

void BM_GetFilterDataFreeRunning(benchmark::State& state) { get_filter_data(state, false); }
BENCHMARK(BM_GetFilterDataFreeRunning)
    ->ArgNames({"n", "shutter"})
    ->ArgsProduct({{1, 10, 100, 1000}, {1, 1000}})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void BM_GetFilterDataPaced(benchmark::State& state) { get_filter_data(state, true); }
BENCHMARK(BM_GetFilterDataPaced)
    ->ArgNames({"n", "shutter"})
    ->Args({1, 1})
    ->Args({10, 1})
    ->Args({100, 1})
    ->Args({1000, 1})
    ->Args({10, 100})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
