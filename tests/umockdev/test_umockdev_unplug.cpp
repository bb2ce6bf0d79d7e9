// A sensor pulled out while it streams: the bulk URB comes back from usbfs
// with ESHUTDOWN, libusb completes the transfer with NO_DEVICE, and the
// library must end the read and its tear-down instead of waiting forever.
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <libusb.h>

#include "efm32com/oru_device_interface_stm_frames.h"
#include "oru_base_exception.h"
#include "oru_device_api.h"
#include "umock_bus.h"
#include "umock_fixture.h"

using namespace umockbus;

namespace {

class RealUsbUnplug : public RealUsbTest {};

constexpr auto kPatience = std::chrono::seconds(10);

bool state_becomes(int index, int state) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (duGetSensorState(index) != state) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

bool frames_flow(int dev, uint64_t at_least) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (vsensor::frames_sent(dev) < at_least) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace

TEST_F(RealUsbUnplug, UnplugWhileStreamingEndsTheReadAndTheTearDown) {
    plug_sensors(1);
    ASSERT_EQ(connect(), 1);
    vsensor::use_frame_counter(0);

    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    // Far more frames than will ever come: only the unplug ends this read.
    std::future<int> read = std::async(std::launch::async, [] {
        std::vector<double> data(1024, 0.0);
        return duGetFilterData(data.data(), 1000000);
    });
    const bool flowing = frames_flow(0, 50);
    unplug(0);
    const bool ended = read.wait_for(kPatience) == std::future_status::ready;
    const std::string output = testing::internal::GetCapturedStdout();
    const std::string errors = testing::internal::GetCapturedStderr();
    ASSERT_TRUE(flowing) << "no frames streamed before the unplug";
    ASSERT_TRUE(ended) << "the read still waits after the unplug";

    EXPECT_EQ(read.get(), -lu_ec_fw_recv_timeout);
    // The transfer was either submitted (it completes with NO_DEVICE) or
    // between its callback and its resubmission (which usbfs refuses).
    const bool completed_no_device = errors == "bulk data transfer status 5?\n";
    const bool resubmit_refused =
        errors.empty() && output.find("===>>>> libusb_submit_transfer fail!!!\n") != std::string::npos;
    EXPECT_TRUE(completed_no_device || resubmit_refused) << "stderr: " << errors << "stdout: " << output;
    RecordProperty("unplug_seen_as", completed_no_device ? "completion with NO_DEVICE" : "refused resubmission");
    // Either way only that sensor is marked; the loop goes on for the others.
    const int state = duGetSensorState(0);
    EXPECT_TRUE(state == 2 || state == 3) << state;
    EXPECT_TRUE(usb_event_loop_running());

    std::future<int> down = std::async(std::launch::async, [this] { return quietly([this] { return disconnect(); }); });
    ASSERT_EQ(down.wait_for(kPatience), std::future_status::ready) << "tear-down hangs on the unplugged sensor";
    EXPECT_EQ(down.get(), 1);
    EXPECT_TRUE(files_closed(0)) << "the handles of the unplugged sensor are closed all the same";
}

// A sensor whose transfer already failed has none pending: only libusb's
// hotplug path, fed by the "remove" uevent, can tell that it was pulled out.
TEST_F(RealUsbUnplug, UnplugOfASensorWithNoTransferPendingIsSeenThroughHotplug) {
    ASSERT_TRUE(libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG));
    plug_sensors(2);
    ASSERT_EQ(connect(), 2);
    testing::internal::CaptureStderr();
    vsensor::set_faults(0, vsensor::kFaultBulkError);
    duActivateSensorWithIndex(0);
    EXPECT_EQ(quietly([] { return duStartFrameStream(); }), 1);
    const bool failed = state_becomes(0, 2);
    const auto start = std::chrono::steady_clock::now();
    unplug(0);
    const bool removed = state_becomes(0, 3);
    const auto latency = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "bulk data transfer status 1?\n");
    ASSERT_TRUE(failed) << duGetSensorState(0);
    EXPECT_TRUE(removed) << "no hotplug removal: state " << duGetSensorState(0);
    RecordProperty("hotplug_removal_ms", std::to_string(latency));
    EXPECT_EQ(duGetSensorState(1), 1);
}
