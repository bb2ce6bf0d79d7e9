// The library under a continuous stream and at rest, on virtual sensors that
// pace their frames in real time (one per frame period, the slower of the
// exposure and full-speed bulk: about 594 frames/s at shutter speed 1).
#include "bench_support.h"

#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "oru_device_api.h"
#include "vsensor/vsensor.h"

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr auto kRunTime = std::chrono::seconds(10);
constexpr int kContinuous = 1;
constexpr int kContinuousLast = 2;
constexpr int kFilters = 1024;
constexpr double kFullScale = 4095.0;

// Frame k lights filter k % 1024 alone. The average of a request then tells
// exactly which frames it took: filter j reads 4095 * (frames with k % 1024
// == j) / n. (A plain frame counter would only show their mean, which a
// symmetric gap leaves unchanged.)
void one_hot_frame(uint64_t frame_no, uint16_t* out) {
    std::fill(out, out + kFilters, 0);
    out[frame_no % kFilters] = static_cast<uint16_t>(kFullScale);
}

// True when the n frames averaged into `average` were consecutive; `first`
// receives the number (mod 1024) of the first of them. n <= 1024.
bool consecutive_frames(const std::vector<double>& average, int n, int* first) {
    std::vector<long> taken(kFilters);
    long total = 0;
    for (int j = 0; j < kFilters; ++j) {
        taken[j] = std::lround(average[j] * n / kFullScale);
        total += taken[j];
    }
    if (total != n) return false;
    int start = -1;
    for (int j = 0; j < kFilters && start < 0; ++j)
        if (taken[j] == 1 && (n == kFilters || taken[(j + kFilters - 1) % kFilters] == 0)) start = j;
    if (start < 0) return false;
    for (int k = 0; k < n; ++k)
        if (taken[(start + k) % kFilters] != 1) return false;
    *first = start;
    return true;
}

// Times the calling thread gave up the CPU to wait (each sleep on a lock or a
// condition variable is one).
long own_voluntary_switches() {
    rusage use{};
    getrusage(RUSAGE_THREAD, &use);
    return use.ru_nvcsw;
}

double own_cpu_seconds() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

double process_cpu_seconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// Repeated continuous-mode requests of n frames for 10 s, then the last
// request of the series, which switches streaming off.
void BM_ContinuousAcquisition(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    if (!connect_virtual_sensors(state, 1)) return;
    vsensor::set_frame_source(0, one_hot_frame);
    vsensor::set_realtime(true);
    std::vector<double> average(kFilters);
    long requests = 0, failed = 0, with_gap = 0, frames_between = 0;
    double longest_request_ms = 0.0;
    uint64_t sent = 0;
    double seconds = 0.0, cpu = 0.0;
    for (auto _ : state) {
        const double cpu_before = process_cpu_seconds();
        const uint64_t sent_before = vsensor::frames_sent(0);
        const auto start = std::chrono::steady_clock::now();
        int previous_last = -1;
        while (std::chrono::steady_clock::now() - start < kRunTime) {
            const auto request_start = std::chrono::steady_clock::now();
            ORU_ERROR_CODE code = lu_ec_success;
            get_filter_data_from_sensor(average.data(), n, 0, kContinuous, 0, &code);
            longest_request_ms = std::max(
                longest_request_ms,
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - request_start).count());
            ++requests;
            int first = 0;
            if (code != lu_ec_success) {
                ++failed;
            } else if (!consecutive_frames(average, n, &first)) {
                ++with_gap;
            } else {
                // Frames that came while no request was waiting were dropped.
                if (previous_last >= 0) frames_between += (first - previous_last - 1 + kFilters) % kFilters;
                previous_last = (first + n - 1) % kFilters;
            }
        }
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        cpu = process_cpu_seconds() - cpu_before;
        sent = vsensor::frames_sent(0) - sent_before;
        ORU_ERROR_CODE code = lu_ec_success;
        get_filter_data_from_sensor(average.data(), n, 0, kContinuousLast, 0, &code);
    }
    vsensor::set_realtime(false);
    const double sensor_fps = 1e9 / static_cast<double>(frame_period_ns(1));
    state.counters["requests/s"] = static_cast<double>(requests) / seconds;
    state.counters["averaged_fps"] = static_cast<double>(requests - failed - with_gap) * n / seconds;
    state.counters["delivered_fps"] = static_cast<double>(sent) / seconds;
    state.counters["sensor_fps"] = sensor_fps;
    state.counters["gaps"] = static_cast<double>(with_gap);
    state.counters["failed"] = static_cast<double>(failed);
    state.counters["dropped_between"] = static_cast<double>(frames_between) / std::max(1L, requests - 1);
    state.counters["longest_ms"] = longest_request_ms;
    // Both threads, and the virtual sensor's work of making the frames.
    state.counters["cpu_%"] = 100.0 * cpu / seconds;
    disconnect_sensors();
}
BENCHMARK(BM_ContinuousAcquisition)
    ->ArgName("n")
    ->Arg(1)
    ->Arg(10)
    ->Arg(100)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kSecond);

long rss_kb() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    return -1;
}

// The frame stream for ORU_BENCH_STREAM_SECONDS (default 10; 600 for the
// soak figures), reading averages of n frames back to back: every frame must
// arrive once, in order (sequence numbers, and the one-hot frames show which
// frames each reading took), none dropped, memory flat after the first minute.
void BM_FrameStream(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    const char* env = std::getenv("ORU_BENCH_STREAM_SECONDS");
    const auto run_time = std::chrono::seconds(env != nullptr ? std::atol(env) : 10);
    if (!connect_virtual_sensors(state, 1)) return;
    vsensor::set_frame_source(0, one_hot_frame);
    vsensor::set_realtime(true);
    std::vector<double> average(kFilters);
    long readings = 0, failed = 0, skipped = 0, wrong_frames = 0;
    uint64_t dropped = 0, frames = 0;
    long rss_at_minute = -1, rss_end = 0;
    double seconds = 0.0, cpu = 0.0;
    long reader_waits = 0;
    double reader_cpu = 0.0;
    for (auto _ : state) {
        const double cpu_before = process_cpu_seconds();
        const double reader_cpu_before = own_cpu_seconds();
        const long waits_before = own_voluntary_switches();
        const auto start = std::chrono::steady_clock::now();
        if (duStartFrameStream() != 1) {
            state.SkipWithError("duStartFrameStream failed");
            break;
        }
        uint64_t next = 0;
        while (std::chrono::steady_clock::now() - start < run_time) {
            duFrameStreamInfo info{};
            if (duReadFrameStream(average.data(), n, 2000, &info) != 1) {
                ++failed;
                continue;
            }
            ++readings;
            frames += static_cast<uint64_t>(n);
            if (info.first_sequence != next) ++skipped;
            next = info.last_sequence + 1;
            dropped = info.dropped_frames;
            int first = 0;
            if (!consecutive_frames(average, n, &first) ||
                static_cast<uint64_t>(first) != info.first_sequence % kFilters)
                ++wrong_frames;
            if (rss_at_minute < 0 && std::chrono::steady_clock::now() - start >= std::chrono::minutes(1))
                rss_at_minute = rss_kb();
        }
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        cpu = process_cpu_seconds() - cpu_before;
        reader_waits = own_voluntary_switches() - waits_before;
        reader_cpu = own_cpu_seconds() - reader_cpu_before;
        rss_end = rss_kb();
        QuietStdout quiet;
        duStopFrameStream();
    }
    vsensor::set_realtime(false);
    state.counters["fps"] = static_cast<double>(frames) / seconds;
    state.counters["readings"] = static_cast<double>(readings);
    state.counters["failed"] = static_cast<double>(failed);
    state.counters["skipped"] = static_cast<double>(skipped);
    state.counters["wrong_frames"] = static_cast<double>(wrong_frames);
    state.counters["dropped"] = static_cast<double>(dropped);
    state.counters["cpu_%"] = 100.0 * cpu / seconds;
    // Whole process (the virtual sensor's frame making included) per frame read.
    state.counters["cpu_us/frame"] = 1e6 * cpu / static_cast<double>(std::max<uint64_t>(frames, 1));
    state.counters["reader_us/frame"] = 1e6 * reader_cpu / static_cast<double>(std::max<uint64_t>(frames, 1));
    // The rest: the event thread (the virtual sensor's frame making, the
    // completion path and its wake-up per frame) and anything else.
    state.counters["others_us/frame"] = 1e6 * (cpu - reader_cpu) / static_cast<double>(std::max<uint64_t>(frames, 1));
    state.counters["waits/reading"] = static_cast<double>(reader_waits) / static_cast<double>(std::max(readings, 1L));
    state.counters["rss_kb"] = static_cast<double>(rss_end);
    state.counters["rss_growth_kb"] = rss_at_minute < 0 ? 0.0 : static_cast<double>(rss_end - rss_at_minute);
    disconnect_sensors();
}
BENCHMARK(BM_FrameStream)->ArgName("n")->Arg(1)->Arg(10)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

// The floor under BM_FrameStream's CPU per frame: a thread that only sleeps
// on a condition variable until each frame is due, at the virtual sensor's
// pace (one frame every 1.684 ms), as its event thread does between two
// frames; nothing is made, sent or read. Whole process CPU per wake-up.
void BM_PacedWakeFloor(benchmark::State& state) {
    const char* env = std::getenv("ORU_BENCH_STREAM_SECONDS");
    const auto run_time = std::chrono::seconds(env != nullptr ? std::atol(env) : 10);
    const auto period = std::chrono::nanoseconds(frame_period_ns(1));
    long wakes = 0;
    double cpu = 0.0;
    for (auto _ : state) {
        const double cpu_before = process_cpu_seconds();
        std::thread sleeper([&] {
            std::mutex lock;
            std::condition_variable never_notified;
            std::unique_lock<std::mutex> lk(lock);
            const auto start = std::chrono::steady_clock::now();
            for (auto due = start + period; due - start < run_time; due += period, ++wakes)
                while (std::chrono::steady_clock::now() < due) never_notified.wait_until(lk, due);
        });
        sleeper.join();
        cpu = process_cpu_seconds() - cpu_before;
    }
    state.counters["wakes"] = static_cast<double>(wakes);
    state.counters["cpu_us/frame"] = 1e6 * cpu / static_cast<double>(std::max(wakes, 1L));
}
BENCHMARK(BM_PacedWakeFloor)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

// Context switches (each wake-up of a sleeping thread is one) per thread id.
std::map<int, long> thread_switches() {
    std::map<int, long> use;
    DIR* tasks = opendir("/proc/self/task");
    if (tasks == nullptr) return use;
    while (dirent* entry = readdir(tasks)) {
        if (entry->d_name[0] == '.') continue;
        const int tid = std::stoi(entry->d_name);
        std::ifstream status(std::string("/proc/self/task/") + entry->d_name + "/status");
        std::string line;
        while (std::getline(status, line)) {
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0 || line.rfind("nonvoluntary_ctxt_switches:", 0) == 0)
                use[tid] += std::stol(line.substr(line.find(':') + 1));
        }
    }
    closedir(tasks);
    return use;
}

// Two sensors connected, nothing requested, for 10 s.
void BM_Idle(benchmark::State& state) {
    if (!connect_virtual_sensors(state, 2)) return;
    vsensor::set_realtime(true);
    double cpu = 0.0, seconds = 0.0, busiest_wakeups = 0.0;
    size_t threads = 0;
    for (auto _ : state) {
        const std::map<int, long> before = thread_switches();
        const double cpu_before = process_cpu_seconds();
        const auto start = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(kRunTime);
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        cpu = process_cpu_seconds() - cpu_before;
        const std::map<int, long> after = thread_switches();
        threads = after.size();
        // The calling thread (its id is the process id) only slept here.
        for (const auto& [tid, switches] : after) {
            if (tid == getpid()) continue;
            auto it = before.find(tid);
            const long earlier = it == before.end() ? 0 : it->second;
            busiest_wakeups = std::max(busiest_wakeups, static_cast<double>(switches - earlier) / seconds);
        }
    }
    vsensor::set_realtime(false);
    state.counters["cpu_%"] = 100.0 * cpu / seconds;
    state.counters["threads"] = static_cast<double>(threads);
    state.counters["wakeups/s"] = busiest_wakeups;
    disconnect_sensors();
}
BENCHMARK(BM_Idle)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace
