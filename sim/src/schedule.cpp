#include "schedule.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "bus.h"

namespace vsensor::detail {

namespace {

struct Schedule {
    std::mutex control;  // serialises starting and joining the thread
    std::mutex m;  // guards the fields below
    std::condition_variable cv;
    std::vector<TimedAction> left;
    SteadyClock::time_point t0{};
    bool stop = false;
    std::thread thread;
    ~Schedule() { pause_schedule(); }  // a program that never calls libusb_exit
};

Schedule& schedule() {
    static Schedule s;
    return s;
}

void run(const TimedAction& a) {
    try {
        if (a.kind == TimedAction::Unplug) {
            unplug(a.dev);
        } else if (a.kind == TimedAction::Replug) {
            replug(a.dev);
        } else if (a.kind == TimedAction::Scene) {
            set_spectral_scene(a.dev, a.scene);
        } else {
            {
                std::lock_guard<std::mutex> lk(bus().m);
                checked_device(a.dev).faults |= a.fault;
            }
            bus().cv.notify_all();
        }
    } catch (const std::out_of_range&) {
        // The bus was reset under the schedule: nothing to act on.
    }
}

void loop() {
    Schedule& s = schedule();
    std::unique_lock<std::mutex> lk(s.m);
    while (!s.stop && !s.left.empty()) {
        auto next = std::min_element(s.left.begin(), s.left.end(),
                                     [](const TimedAction& x, const TimedAction& y) { return x.at < y.at; });
        const auto due = s.t0 + next->at;
        if (SteadyClock::now() < due) {
            s.cv.wait_until(lk, due);
            continue;
        }
        const TimedAction a = *next;
        s.left.erase(next);
        lk.unlock();
        run(a);
        lk.lock();
    }
}

}  // namespace

void set_schedule(std::vector<TimedAction> actions) {
    pause_schedule();
    Schedule& s = schedule();
    std::lock_guard<std::mutex> lk(s.m);
    s.left = std::move(actions);
    s.t0 = SteadyClock::now();
}

void resume_schedule() {
    Schedule& s = schedule();
    std::lock_guard<std::mutex> ctl(s.control);
    {
        std::lock_guard<std::mutex> lk(s.m);
        if (s.left.empty()) return;
        s.stop = false;
    }
    if (!s.thread.joinable()) s.thread = std::thread(loop);
}

void pause_schedule() {
    Schedule& s = schedule();
    std::lock_guard<std::mutex> ctl(s.control);
    {
        std::lock_guard<std::mutex> lk(s.m);
        s.stop = true;
    }
    s.cv.notify_all();
    if (s.thread.joinable()) s.thread.join();
}

void clear_schedule() { set_schedule({}); }

}  // namespace vsensor::detail
