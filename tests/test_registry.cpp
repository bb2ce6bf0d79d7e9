// The sensor registry of the class interface.
#include "api_test_support.h"

#include "oru_device_interface_stm_usb_connection_helper.h"

#include <string>

namespace {

using Registry = oru_device_usb_connection_helper;

class RegistryTest : public VirtualBusTest {
protected:
    int connect_all(int sensors, const vsensor::SensorOptions& options = {}) {
        add_sensors(sensors, options);
        StdoutCapture quiet;
        return m_registry.connect_multiple_devices(true, 7);
    }
    Registry m_registry;
};

TEST_F(RegistryTest, ConnectsConsecutiveDevicesUntilOneFails) {
    EXPECT_EQ(connect_all(3), 3);
    EXPECT_EQ(m_registry.numOfDevices, 3);
    EXPECT_EQ(Registry::m_pSpecDevice.size(), 3u);  // index 3 was tried and removed again
    for (int i = 0; i < 3; ++i) {
        EXPECT_NE(Registry::m_pSpecDevice[i], nullptr) << i;
        EXPECT_TRUE(m_registry.is_sensor_connected(i)) << i;
        EXPECT_EQ(Registry::sidMap[i], default_sensor_id(i)) << i;
        // Connected sensors get ADC range 132, gain 1, resolution 0.
        EXPECT_EQ(vsensor::register_value(i, 19), 132);
        EXPECT_EQ(vsensor::register_value(i, 20), 2);
    }
    EXPECT_FALSE(m_registry.is_sensor_connected(3));
}

TEST_F(RegistryTest, SingleDeviceByIndex) {
    add_sensors(2);
    {
        StdoutCapture quiet;
        EXPECT_EQ(m_registry.connect_multiple_devices(false, 1), 1);
    }
    EXPECT_EQ(m_registry.numOfDevices, 1);
    EXPECT_EQ(Registry::m_pSpecDevice.count(0), 0u);
    EXPECT_EQ(Registry::sidMap[1], default_sensor_id(1));
    EXPECT_TRUE(vsensor::is_claimed(1));
    EXPECT_FALSE(vsensor::is_claimed(0));
}

TEST_F(RegistryTest, SecondConnectOfTheSameIndexIsRefusedUntilADisconnect) {
    add_sensors(1);
    {
        StdoutCapture quiet;
        ASSERT_TRUE(m_registry.connect_device(0));
    }
    oru_device_interface* first = Registry::m_pSpecDevice[0];
    {
        StdoutCapture out;
        EXPECT_FALSE(m_registry.connect_device(0));
        EXPECT_EQ(out.text(), ">>>>>>>>>>>>>>>> Sensor device is already connected!!\n");
    }
    EXPECT_EQ(Registry::m_pSpecDevice[0], first);
    StdoutCapture quiet;
    ASSERT_TRUE(m_registry.disconnect_device(0));
    EXPECT_TRUE(m_registry.connect_device(0));
}

// Subscript lookups leave null entries that the removals do not take.
TEST_F(RegistryTest, UnknownIndicesLeaveNullEntries) {
    StdoutCapture out;
    EXPECT_TRUE(m_registry.disconnect_device(7));
    ASSERT_EQ(Registry::sensorConnectionStatus.count(7), 1u);
    EXPECT_FALSE(Registry::sensorConnectionStatus[7]);
    std::string id;
    EXPECT_EQ(m_registry.get_one_device_interface(5, id), nullptr);
    EXPECT_TRUE(id.empty());
    m_registry.DestroySensorObject(5);
    for (int index : {5, 7}) {
        ASSERT_EQ(Registry::m_pSpecDevice.count(index), 1u) << index;
        EXPECT_EQ(Registry::m_pSpecDevice[index], nullptr) << index;
    }
    EXPECT_EQ(out.text(), "");
}

TEST_F(RegistryTest, DisconnectThatFailsIsReported) {
    // A facade whose sensor never came up cannot be finalised.
    oru_device_interface* facade = new oru_device_interface;
    {
        StdoutCapture quiet;
        ASSERT_EQ(facade->initialize(4), -1);
    }
    Registry::m_pSpecDevice[4] = facade;
    StdoutCapture out;
    EXPECT_FALSE(m_registry.disconnect_device(4));
    EXPECT_EQ(out.text(), "[Exception] Fail to disconnect device !\n");
}

// A known ID wins over the index, the last of equal IDs; an unknown ID falls
// back to the index, an empty one is filled in.
TEST_F(RegistryTest, LookupByIdTakesTheLastMatchElseTheIndex) {
    vsensor::SensorOptions same;
    same.identity_set = true;
    same.identity.x_coord = 30;
    add_sensors(1);
    ASSERT_EQ(connect_all(2, same), 3);
    std::string id = "A4486-3-30-40-2";
    EXPECT_EQ(m_registry.get_one_device_interface(0, id), Registry::m_pSpecDevice[2]);
    std::string unknown = "Z1-1-1-1-1";
    EXPECT_EQ(m_registry.get_one_device_interface(1, unknown), Registry::m_pSpecDevice[1]);
    std::string out_id;
    EXPECT_EQ(m_registry.get_one_device_interface(0, out_id), Registry::m_pSpecDevice[0]);
    EXPECT_EQ(out_id, default_sensor_id(0));
    EXPECT_EQ(m_registry.get_sensor_id(1), "");
}

TEST_F(RegistryTest, DisconnectAllForgetsDevicesAndIdsAndStopsTheSensors) {
    ASSERT_EQ(connect_all(2), 2);
    vsensor::clear_events();
    StdoutCapture out;
    EXPECT_TRUE(m_registry.disconnect_multiple_devices(true, 0));
    out.text();
    EXPECT_EQ(m_registry.numOfDevices, 0);
    EXPECT_TRUE(Registry::sidMap.empty());
    EXPECT_TRUE(Registry::m_pSpecDevice.empty());
    EXPECT_FALSE(m_registry.is_sensor_connected(0));
    EXPECT_FALSE(m_registry.is_sensor_connected(1));
    EXPECT_NE(vsensor::transcript(1).find("cmd 3 value 1"), std::string::npos) << vsensor::transcript(1);
}

}  // namespace
