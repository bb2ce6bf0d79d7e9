#include "virtual_clock.h"

#include <atomic>
#include <chrono>

#include "event_log.h"
#include "vsensor/vsensor.h"

namespace vsensor {
namespace detail {

namespace {
std::atomic<uint64_t> g_virtual_us{0};
std::atomic<uint64_t> g_total_pause_us{0};

uint64_t real_elapsed_us() {
    static const auto start = std::chrono::steady_clock::now();
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start).count());
}
}  // namespace

void record_pause(uint64_t us) {
    if (us == 0) return;
    const uint64_t at = g_virtual_us.fetch_add(us);
    g_total_pause_us.fetch_add(us);
    log_pause(us, vsensor_clock_is_virtual() ? at : real_elapsed_us());
}

void reset_clock() {
    g_virtual_us = 0;
    g_total_pause_us = 0;
}

}  // namespace detail

uint64_t now_us() { return vsensor_clock_is_virtual() ? detail::g_virtual_us.load() : detail::real_elapsed_us(); }

uint64_t total_pause_us() { return detail::g_total_pause_us.load(); }

}  // namespace vsensor
