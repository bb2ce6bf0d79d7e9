// An idle process with sensors connected must not keep a core busy: the
// library's event thread waits in libusb's poll, which must sleep until a
// URB is ready or its 1-second timeout ends.
#include <time.h>

#include <chrono>
#include <thread>

#include "efm32com/oru_device_interface_stm_event_loop.h"
#include "umock_fixture.h"

using namespace umockbus;

namespace {

class RealUsbIdle : public RealUsbTest {};

double process_cpu_seconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

}  // namespace

TEST_F(RealUsbIdle, TwoConnectedSensorsCostLessThanFivePercentOfACoreWhileIdle) {
    plug_sensors(2);
    ASSERT_EQ(connect(), 2);
    ASSERT_TRUE(usb_event_loop_running());
    // Let the bring-up's last completions settle first.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));

    const auto wall_start = std::chrono::steady_clock::now();
    const double cpu_start = process_cpu_seconds();
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    const double cpu = process_cpu_seconds() - cpu_start;
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_start).count();

    ASSERT_TRUE(usb_event_loop_running()) << "the event thread must be running for the measurement to mean anything";
    const double share = cpu / wall;
    RecordProperty("idle_cpu_percent", std::to_string(share * 100.0));
    EXPECT_LT(share, 0.05) << "idle CPU " << share * 100.0 << " % over " << wall << " s";
}
