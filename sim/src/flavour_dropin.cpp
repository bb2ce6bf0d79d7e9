// Drop-in flavour: a user program configures the bus through the environment,
// sees frames at the sensor's real pace and pauses for real.
#include <mutex>

#include "bus.h"
#include "flavour.h"
#include "virtual_clock.h"

extern "C" int vsensor_clock_is_virtual(void) { return 0; }

namespace vsensor::detail {

void on_libusb_init() {
    static std::once_flag once;
    std::call_once(once, [] {
        set_realtime(true);  // ORU_VSENSOR_REALTIME=0 turns it off again
        configure_from_environment();
    });
}

}  // namespace vsensor::detail
