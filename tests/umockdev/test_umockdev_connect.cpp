// Finding, opening, bringing up and releasing sensors through the real
// libusb: enumeration from sysfs, usbfs claims, the bring-up commands as
// they leave libusb, and a reconnect that must find the interface free.
#include <cstdlib>
#include <string>
#include <vector>

#include <libusb.h>

#include "efm32com/oru_device_interface_stm_event_loop.h"
#include "oru_base_exception.h"
#include "oru_device_api.h"
#include "umock_fixture.h"

using namespace umockbus;

namespace {

class RealUsbConnect : public RealUsbTest {};

// Written, then read back, each with its pause.
std::string verified(int write1, int value1, int write2, int value2, int read1, int read2, int pause_ms = 30) {
    std::string text;
    for (const auto& [code, value] : {std::pair{write1, value1}, {write2, value2}, {read1, 0}, {read2, 0}})
        text += "cmd " + std::to_string(code) + " value " + std::to_string(value) + ", pause " +
                std::to_string(pause_ms) + " ms, ";
    return text;
}

// What the bring-up of one sensor sends: initial ADC, shutter speed 1 and
// blank time 2 with read-backs, start, ADC 132 / gain 1 / resolution 0, no
// on-board averaging, stop streaming.
std::string bring_up_wire() {
    return verified(19, 132, 20, 0, 35, 40) + verified(37, 0, 5, 1, 36, 4) + verified(34, 0, 33, 2, 39, 38) +
           "cmd 3 value 3, pause 10 ms, " + verified(19, 132, 20, 2, 35, 40) +
           "cmd 54 value 0, pause 20 ms, cmd 53 value 0, pause 20 ms, out 71 value 0 index 1, pause 30 ms";
}

// A sensor's own part of the wire from its first request on (the transcript
// keeps every pause, also those of sensors brought up before it).
std::string wire_from_first_request(int dev) {
    const std::vector<std::string> items = transcript_items(dev);
    std::string text;
    bool started = false;
    for (const std::string& item : items) {
        started = started || item.rfind("pause", 0) != 0;
        if (started) text += (text.empty() ? "" : ", ") + item;
    }
    return text;
}

bool starts_with_bring_up(int dev) { return wire_from_first_request(dev).rfind(bring_up_wire(), 0) == 0; }

std::vector<std::string> sensor_list() {
    std::vector<std::string> ids;
    char** list = duGetSensorList();
    if (!list) return ids;
    for (int i = 0; i < duGetTotalSensors(); ++i) {
        ids.push_back(list[i]);
        std::free(list[i]);
    }
    std::free(list);
    return ids;
}

std::string active_sensor_id() {
    char id[32] = {};
    testing::internal::CaptureStdout();
    duGetSensorID(id);
    testing::internal::GetCapturedStdout();
    return id;
}

}  // namespace

// The configuration descriptor comes from sysfs, the identity and every
// command's read-back travel through libusb (a reply that came back wrong
// would show as a repeated group of commands). The claim asks the kernel
// to let go of the interface first (a serial driver often binds to these
// ids). The LED driver shares the sensor's ids, so sensor 0's node is
// opened a second time for it, without a claim.
TEST_F(RealUsbConnect, OneSensorIsFoundClaimedAndBroughtUpByteForByte) {
    plug_sensors(1);
    EXPECT_EQ(connect(), 1);
    EXPECT_EQ(connect_output(),
              "[Info] Reading first configuration descriptor:\n[Info] nb interfaces: 1\n"
              "**** [oru_device_api] Total number of sensors: 1\n");
    EXPECT_EQ(active_sensor_id(), default_sensor_id(0));
    EXPECT_TRUE(vsensor::is_claimed(0));
    EXPECT_TRUE(usb_event_loop_running());
    EXPECT_TRUE(starts_with_bring_up(0)) << wire_from_first_request(0);
    EXPECT_FALSE(vsensor::streaming(0)) << "the sensor is left idle";
    const std::vector<std::string> life = transcript_items(0, true);
    ASSERT_GE(life.size(), 2u);
    EXPECT_EQ(life[0], "dev0 open");
    EXPECT_EQ(life[1], "dev0 detach_and_claim 0");
    EXPECT_GT(find_item(life, "dev0 open", 1), 1);
    EXPECT_EQ(find_item(life, "dev0 detach_and_claim 0", 2), -1);
}

// Two sensors in bus order, each with its own handle; the disconnect releases
// and closes every file, so the next connect finds the interfaces free
// (usbfs refuses a claim while an old file still holds one).
TEST_F(RealUsbConnect, TwoSensorsComeUpAreReleasedAndClaimedAgain) {
    plug_sensors(2);
    ASSERT_EQ(connect(), 2);
    EXPECT_EQ(sensor_list(), (std::vector<std::string>{default_sensor_id(0), default_sensor_id(1)}));
    vsensor::clear_events();
    testing::internal::CaptureStdout();
    const int result = disconnect();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Sensor is disconnected.\n");
    EXPECT_EQ(result, 1);
    EXPECT_FALSE(usb_event_loop_running());
    for (int dev = 0; dev < 2; ++dev) {
        const std::string prefix = "dev" + std::to_string(dev) + " ";
        EXPECT_TRUE(files_closed(dev)) << "sensor " << dev << ": a file is still open";
        EXPECT_FALSE(vsensor::is_claimed(dev)) << "sensor " << dev;
        EXPECT_GE(find_item(transcript_items(dev, true), prefix + "release 0"), 0) << "sensor " << dev;
        EXPECT_GE(find_item(transcript_items(dev, true), prefix + "close"), 0) << "sensor " << dev;
    }

    vsensor::clear_events();
    ASSERT_EQ(connect(), 2) << connect_output();
    for (int dev = 0; dev < 2; ++dev) {
        const std::vector<std::string> life = transcript_items(dev, true);
        const std::string prefix = "dev" + std::to_string(dev) + " ";
        const int opened = find_item(life, prefix + "open");
        ASSERT_GE(opened, 0) << "sensor " << dev;
        EXPECT_EQ(find_item(life, prefix + "detach_and_claim 0"), opened + 1)
            << "sensor " << dev << " claims right after its open";
        EXPECT_TRUE(vsensor::is_claimed(dev)) << "sensor " << dev;
        EXPECT_TRUE(starts_with_bring_up(dev)) << wire_from_first_request(dev);
    }
    vsensor::set_constant_frame(0, 1234);
    vsensor::set_constant_frame(1, 2345);
    std::vector<double> data(1024, 0.0), data1(1024, 0.0);
    EXPECT_EQ(quietly([&] { return duGetFilterData(data.data(), 4); }), 1);
    EXPECT_EQ(quietly([] { return duActivateSensorWithIndex(1); }), 1);
    EXPECT_EQ(quietly([&] { return duGetFilterData(data1.data(), 4); }), 1);
    EXPECT_EQ(data, std::vector<double>(1024, 1234.0)) << "the event thread and bulk transfer came back";
    EXPECT_EQ(data1, std::vector<double>(1024, 2345.0));
}

// Another program holding the interface: usbfs refuses the library's claim,
// and the library closes its handle and keeps an unusable entry, so reads
// fail at once instead of waiting for frames.
TEST_F(RealUsbConnect, InterfaceHeldByAnotherProgramLeavesTheSensorUnusable) {
    plug_sensors(1);
    libusb_context* other = nullptr;
    ASSERT_EQ(libusb_init(&other), 0);
    libusb_device_handle* holder = libusb_open_device_with_vid_pid(other, vsensor::kVendorId, vsensor::kProductId);
    ASSERT_NE(holder, nullptr);
    ASSERT_EQ(libusb_claim_interface(holder, 0), 0);

    EXPECT_EQ(connect(), 1) << "a failed claim still counts as found";
    bool busy = false;
    for (const vsensor::Event& e : vsensor::events())
        busy = busy || (e.dev == 0 && e.what == "detach_and_claim 0" && e.status == LIBUSB_ERROR_BUSY);
    EXPECT_TRUE(busy) << "the library tried to claim, usbfs answered EBUSY";
    EXPECT_EQ(vsensor::transcript(0).find("cmd "), std::string::npos) << "no command reaches the sensor";

    std::vector<double> data(1024, 0.0);
    EXPECT_EQ(quietly([&] { return duGetFilterData(data.data(), 3); }), -lu_ec_fw_recv_timeout);

    libusb_release_interface(holder, 0);
    libusb_close(holder);
    libusb_exit(other);
}
