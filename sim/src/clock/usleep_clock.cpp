// The virtual clock for test executables: pauses are recorded and advance
// virtual time instead of sleeping. Defining usleep here overrides libc's for
// all code linked statically into the same executable.
#include <unistd.h>

#include <thread>

#include "../virtual_clock.h"

extern "C" int vsensor_clock_is_virtual(void) { return 1; }

extern "C" int usleep(useconds_t us) {
    vsensor::detail::record_pause(us);
    // Let other threads (the event loop) run, as a real pause would.
    std::this_thread::yield();
    return 0;
}
