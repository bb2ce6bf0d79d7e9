// Finding, opening and claiming sensors and the LED driver; the handle map.
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_stm.h"
#include "efm32com/oru_device_interface_usb.h"

using usbtest::lifecycle_of;

namespace {

class Discovery : public usbtest::UsbTest {
protected:
    void add_sensors(int n, unsigned int faults = vsensor::kFaultNone) {
        for (int i = 0; i < n; ++i) {
            vsensor::SensorOptions opts;
            opts.faults = faults;
            vsensor::add_sensor(opts);
        }
    }
    void add_sensor_with(unsigned int faults) { add_sensors(1, faults); }

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
const std::string kPermissionLines =
    "Device open failed due to a permission denied error.\nlibusb requires write access to USB device nodes.\n";

using Steps = std::vector<std::string>;

}  // namespace

// ---- one sensor by index ----

TEST_F(Discovery, NoSensorOnTheBusConnectsNothing) {
    EXPECT_EQ(printing([] { return connect_device(0u); }), 0);
    EXPECT_EQ(m_printed, "");
    EXPECT_EQ(get_connected_total_devices(), 0u);
}

TEST_F(Discovery, IndexSelectsTheNthSensorInBusOrder) {
    add_sensors(2);
    EXPECT_EQ(printing([] { return connect_device(1u); }), 1);
    EXPECT_EQ(m_printed, kClaimBanner);
    EXPECT_FALSE(vsensor::is_open(0));
    EXPECT_TRUE(vsensor::is_claimed(1));
    EXPECT_EQ(lifecycle_of(1), (Steps{"open", "claim 0"}));
    EXPECT_NE(find_device_handle(1), nullptr);
    EXPECT_EQ(find_device_handle(0), nullptr);
    EXPECT_EQ(get_connected_total_devices(), 1u);
}

TEST_F(Discovery, IndexBeyondTheSensorsFailsEvenIfKnown) {
    add_sensors(1);
    do_control_transfer(4, 0, 1);  // leaves index 1 known, with a null handle
    EXPECT_EQ(printing([] { return connect_device(1u); }), 0);
    EXPECT_FALSE(vsensor::is_open(0));
}

TEST_F(Discovery, PermissionDeniedIsExplained) {
    add_sensor_with(vsensor::kFaultOpenAccess);
    EXPECT_EQ(printing([] { return connect_device(0u); }), 0);
    EXPECT_EQ(m_printed, kPermissionLines + "could not open device, error -3\n");
    EXPECT_EQ(get_connected_total_devices(), 0u);
}

TEST_F(Discovery, DescriptorFailureEndsTheScan) {
    add_sensor_with(vsensor::kFaultDescriptor);
    add_sensors(1);
    EXPECT_EQ(printing([] { return connect_device(0u); }), 0);
    EXPECT_EQ(m_printed, "failed to get device descriptor\n");
    EXPECT_FALSE(vsensor::is_open(1));
}

TEST_F(Discovery, FailedClaimKeepsTheIndexWithNullHandle) {
    add_sensor_with(vsensor::kFaultClaim);
    EXPECT_EQ(printing([] { return connect_device(0u); }), 1);
    EXPECT_EQ(m_printed, kClaimBanner);
    EXPECT_EQ(lifecycle_of(0), (Steps{"open", "claim 0", "release 0", "close"}));
    EXPECT_FALSE(vsensor::is_open(0));
    EXPECT_EQ(find_device_handle(0), nullptr);
    EXPECT_EQ(get_connected_total_devices(), 1u);
}

TEST_F(Discovery, ReconnectFillsANullEntry) {
    add_sensor_with(vsensor::kFaultClaim);
    printing([] { return connect_device(0u); });
    vsensor::set_faults(0, vsensor::kFaultNone);
    EXPECT_EQ(printing([] { return connect_device(0u); }), 1);
    EXPECT_NE(find_device_handle(0), nullptr);
    EXPECT_TRUE(vsensor::is_claimed(0));
}

TEST_F(Discovery, ReconnectAfterForgetAndLookupStoresTheNewHandle) {
    add_sensors(1);
    printing([] { return connect_device(0u); });
    libusb_device_handle* pForgotten = find_device_handle(0);
    disconnect_device(0);
    do_control_transfer(4, 0, 0);  // the dispatcher's lookup leaves a null entry
    // Forgetting does not close; until the old handle is closed it keeps the
    // interface and a new claim would fail.
    libusb_close(pForgotten);
    EXPECT_EQ(printing([] { return connect_device(0u); }), 1);
    EXPECT_NE(find_device_handle(0), nullptr);
    EXPECT_TRUE(vsensor::is_claimed(0));
}

TEST_F(Discovery, ConnectingAgainKeepsTheFirstHandle) {
    add_sensors(1);
    printing([] { return connect_device(0u); });
    libusb_device_handle* pFirst = find_device_handle(0);
    EXPECT_EQ(printing([] { return connect_device(0u); }), 1);
    EXPECT_EQ(find_device_handle(0), pFirst);
}

// ---- all sensors ----

TEST_F(Discovery, ConnectAllStoresSensorsUnderRunningIndices) {
    add_sensors(3);
    EXPECT_EQ(printing([] { return connect_device(); }), 1);
    EXPECT_EQ(m_printed, "");
    EXPECT_EQ(get_connected_total_devices(), 3u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(vsensor::is_claimed(i)) << i;
        EXPECT_NE(find_device_handle(static_cast<unsigned int>(i)), nullptr) << i;
    }
}

TEST_F(Discovery, ConnectAllWithNoSensorFails) {
    EXPECT_EQ(printing([] { return connect_device(); }), 0);
}

TEST_F(Discovery, ConnectAllReusesTheIndexOfAFailedClaim) {
    add_sensors(1);
    add_sensor_with(vsensor::kFaultClaim);
    add_sensors(1);
    EXPECT_EQ(printing([] { return connect_device(); }), 1);
    EXPECT_EQ(get_connected_total_devices(), 2u);
    EXPECT_TRUE(vsensor::is_claimed(2));
    EXPECT_NE(find_device_handle(1), nullptr);
}

TEST_F(Discovery, ConnectAllStopsAtAFailedOpen) {
    add_sensors(1);
    add_sensor_with(vsensor::kFaultOpenAccess);
    add_sensors(1);
    EXPECT_EQ(printing([] { return connect_device(); }), 0);
    EXPECT_EQ(m_printed, kPermissionLines + "could not open device, error -3\n");
    EXPECT_FALSE(vsensor::is_open(2));
}

// ---- forgetting ----

TEST_F(Discovery, DisconnectForgetsWithoutClosing) {
    connect_sensors(2);
    EXPECT_EQ(disconnect_device(0), 1);
    EXPECT_EQ(find_device_handle(0), nullptr);
    EXPECT_EQ(get_connected_total_devices(), 1u);
    EXPECT_TRUE(vsensor::is_claimed(0));
    EXPECT_TRUE(vsensor::events().empty());
}

TEST_F(Discovery, DisconnectOfUnknownIndexCreatesNothing) {
    EXPECT_EQ(disconnect_device(5), 1);
    EXPECT_EQ(get_connected_total_devices(), 0u);
}

TEST_F(Discovery, TotalCountsNullEntries) {
    connect_sensors(1);
    do_control_transfer(4, 0, 3);
    EXPECT_EQ(get_connected_total_devices(), 2u);
}

// ---- LED driver ----

TEST_F(Discovery, LedDriverIsTheFirstMatchingDeviceAndOpensOnce) {
    add_sensors(1);
    vsensor::add_led_driver();
    EXPECT_EQ(printing([] { return connect_LED_device(); }), 1);
    EXPECT_EQ(printing([] { return connect_LED_device(); }), 1);
    EXPECT_EQ(m_printed, "");
    // Nothing tells the driver from sensor 0: the first match is taken.
    EXPECT_EQ(lifecycle_of(0), (Steps{"open"}));
    EXPECT_TRUE(lifecycle_of(1).empty());
    EXPECT_NE(g_LedDriverHandle, nullptr);
}

TEST_F(Discovery, LedDriverPermissionDenied) {
    vsensor::add_sensor();
    vsensor::set_faults(0, vsensor::kFaultOpenAccess);
    EXPECT_EQ(printing([] { return connect_LED_device(); }), 0);
    EXPECT_EQ(m_printed, kPermissionLines + "could not open device, error -3\n");
    EXPECT_EQ(g_LedDriverHandle, nullptr);
}

TEST_F(Discovery, LedDriverDescriptorFailureIsSilent) {
    add_sensor_with(vsensor::kFaultDescriptor);
    EXPECT_EQ(printing([] { return connect_LED_device(); }), 0);
    EXPECT_EQ(m_printed, "");
}

TEST_F(Discovery, NoLedDriverOnEmptyBus) {
    EXPECT_EQ(printing([] { return connect_LED_device(); }), 0);
}
