#include "stop_signals.h"

#include <signal.h>

#include <atomic>

namespace {

// Written by the handler only; read by the main thread and the reader
// threads. A lock-free atomic is safe in a handler and between threads.
std::atomic<int> g_stopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "the stop flag must be lock-free");

void on_stop(int signal) { g_stopSignal.store(signal); }

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

int stop_signal() { return g_stopSignal.load(); }
