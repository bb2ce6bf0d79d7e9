#include "stop_signals.h"

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

volatile sig_atomic_t g_stopSignal = 0;  // written by the handler only

void on_stop(int signal) { g_stopSignal = signal; }

}  // namespace

void install_stop_signals() {
    struct sigaction action {};
    action.sa_handler = on_stop;
    sigemptyset(&action.sa_mask);
    // Restart interrupted writes; the next signal gets the default action.
    action.sa_flags = SA_RESTART | SA_RESETHAND;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int stop_signal() { return g_stopSignal; }

void sleep_unless_stopped(double seconds) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point until =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    const Clock::duration slice = std::chrono::milliseconds(50);
    while (g_stopSignal == 0 && Clock::now() < until)
        std::this_thread::sleep_for(std::min(slice, until - Clock::now()));
}
