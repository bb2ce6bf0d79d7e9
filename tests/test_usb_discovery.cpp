// Finding, opening and claiming sensors and the LED driver; the handle map.
// Failed opens and descriptors are checked through duConnect (test_faults).
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_led.h"
#include "efm32com/oru_device_interface_stm.h"
#include "efm32com/oru_device_interface_usb.h"

using usbtest::lifecycle_of;

namespace {

class Discovery : public usbtest::UsbTest {
protected:
    void add_sensors(std::vector<unsigned int> faults) {
        for (unsigned int f : faults) {
            vsensor::SensorOptions opts;
            opts.faults = f;
            vsensor::add_sensor(opts);
        }
    }
    // Runs `connect` with standard output captured into m_printed.
    template <typename F>
    int printing(F connect) {
        testing::internal::CaptureStdout();
        const int iResult = connect();
        m_printed = testing::internal::GetCapturedStdout();
        return iResult;
    }
    std::string m_printed;
};

const std::string kClaimBanner = "[Info] Reading first configuration descriptor:\n[Info] nb interfaces: 1\n";
constexpr unsigned int kOk = vsensor::kFaultNone;
using Steps = std::vector<std::string>;

}  // namespace

TEST_F(Discovery, EmptyBusConnectsNothingSilently) {
    EXPECT_EQ(printing([] { return connect_device(0u) + connect_device() + connect_LED_device(); }), 0);
    EXPECT_EQ(m_printed, "");
    EXPECT_EQ(get_connected_total_devices(), 0u);
}

TEST_F(Discovery, IndexSelectsTheNthSensorInBusOrderAndConnectingAgainKeepsTheHandle) {
    add_sensors({kOk, kOk});
    EXPECT_EQ(printing([] { return connect_device(1u); }), 1);
    EXPECT_EQ(m_printed, kClaimBanner);
    EXPECT_FALSE(vsensor::is_open(0));
    EXPECT_EQ(lifecycle_of(1), (Steps{"open", "claim 0"}));
    EXPECT_EQ(find_device_handle(0), nullptr);
    libusb_device_handle* pFirst = find_device_handle(1);
    EXPECT_NE(pFirst, nullptr);
    EXPECT_EQ(get_connected_total_devices(), 1u);
    EXPECT_EQ(printing([] { return connect_device(1u); }), 1);
    EXPECT_EQ(find_device_handle(1), pFirst);
}

TEST_F(Discovery, IndexBeyondTheSensorsFailsEvenIfKnown) {
    add_sensors({kOk});
    do_control_transfer(4, 0, 1);  // leaves index 1 known, with a null handle
    EXPECT_EQ(printing([] { return connect_device(1u); }), 0);
    EXPECT_FALSE(vsensor::is_open(0));
}

TEST_F(Discovery, FailedClaimKeepsTheIndexWithNullHandleUntilAReconnect) {
    add_sensors({vsensor::kFaultClaim});
    EXPECT_EQ(printing([] { return connect_device(0u); }), 1);
    EXPECT_EQ(m_printed, kClaimBanner);
    EXPECT_EQ(lifecycle_of(0), (Steps{"open", "claim 0", "release 0", "close"}));
    EXPECT_EQ(find_device_handle(0), nullptr);
    EXPECT_EQ(get_connected_total_devices(), 1u);
    vsensor::set_faults(0, kOk);
    EXPECT_EQ(printing([] { return connect_device(0u); }), 1);
    EXPECT_NE(find_device_handle(0), nullptr);
    EXPECT_TRUE(vsensor::is_claimed(0));
}

// Forgetting does not close; the dispatcher's lookup leaves a null entry that
// a reconnect fills once the old handle has let go of the interface.
TEST_F(Discovery, ForgetKeepsTheClaimAndAReconnectStoresTheNewHandle) {
    connect_sensors(2);
    EXPECT_EQ(disconnect_device(5), 1);
    libusb_device_handle* pForgotten = find_device_handle(0);
    EXPECT_EQ(disconnect_device(0), 1);
    EXPECT_EQ(find_device_handle(0), nullptr);
    EXPECT_EQ(get_connected_total_devices(), 1u);
    EXPECT_TRUE(vsensor::is_claimed(0));
    EXPECT_TRUE(vsensor::events().empty());
    do_control_transfer(4, 0, 0);
    EXPECT_EQ(get_connected_total_devices(), 2u) << "null entries count";
    libusb_close(pForgotten);
    EXPECT_EQ(printing([] { return connect_device(0u); }), 1);
    EXPECT_NE(find_device_handle(0), nullptr);
    EXPECT_TRUE(vsensor::is_claimed(0));
}

TEST_F(Discovery, ConnectAllStoresSensorsUnderRunningIndicesReusingAFailedClaimsIndex) {
    add_sensors({kOk, vsensor::kFaultClaim, kOk});
    EXPECT_EQ(printing([] { return connect_device(); }), 1);
    EXPECT_EQ(m_printed, "");
    EXPECT_EQ(get_connected_total_devices(), 2u);
    EXPECT_TRUE(vsensor::is_claimed(0));
    EXPECT_TRUE(vsensor::is_claimed(2));
    EXPECT_NE(find_device_handle(1), nullptr);
}

TEST_F(Discovery, ConnectAllStopsAtAFailedOpen) {
    add_sensors({kOk, vsensor::kFaultOpenAccess, kOk});
    EXPECT_EQ(printing([] { return connect_device(); }), 0);
    EXPECT_EQ(m_printed,
              "Device open failed due to a permission denied error.\nlibusb requires write access to USB device "
              "nodes.\ncould not open device, error -3\n");
    EXPECT_FALSE(vsensor::is_open(2));
}

// Nothing tells the driver from sensor 0: the first match is taken, once.
TEST_F(Discovery, LedDriverIsTheFirstMatchingDeviceAndOpensOnce) {
    add_sensors({kOk});
    vsensor::add_led_driver();
    EXPECT_EQ(printing([] { return connect_LED_device() + connect_LED_device(); }), 2);
    EXPECT_EQ(m_printed, "");
    EXPECT_EQ(lifecycle_of(0), (Steps{"open"}));
    EXPECT_TRUE(lifecycle_of(1).empty());
    EXPECT_NE(g_LedDriverHandle, nullptr);
}
