// Timed entries of ORU_VSENSOR_FAULTS ("1:unplug@3s,1:replug@5s,0:scene=led:640@3s"): a small
// timer thread runs them on the real monotonic clock.
#ifndef VSENSOR_SCHEDULE_H
#define VSENSOR_SCHEDULE_H

#include <chrono>
#include <string>
#include <vector>

namespace vsensor::detail {

struct TimedAction {
    enum Kind { Unplug, Replug, Fault, Scene };
    Kind kind = Unplug;
    int dev = 0;  // bus position
    unsigned fault = 0;  // Fault: the fault bit added
    std::string scene;  // Scene: the spectral scene from then on
    std::chrono::milliseconds at{0};  // after set_schedule
};

// Replaces the schedule; its times count from now. The thread starts at
// resume_schedule.
void set_schedule(std::vector<TimedAction> actions);
// Starts the timer thread when entries are left (at libusb_init).
void resume_schedule();
// Stops and joins the timer thread; entries not yet due stay (at the last
// libusb_exit; also at process exit).
void pause_schedule();
void clear_schedule();

}  // namespace vsensor::detail

#endif
