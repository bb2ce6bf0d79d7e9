// The sensor registry of the class interface.
#include "api_test_support.h"

#include "oru_device_interface_stm_usb_connection_helper.h"

#include <string>

namespace {

using Registry = oru_device_usb_connection_helper;

class RegistryTest : public VirtualBusTest {};

TEST_F(RegistryTest, ConnectsConsecutiveDevicesUntilOneFails) {
    add_sensors(3);
    Registry registry;
    StdoutCapture out;
    EXPECT_EQ(registry.connect_multiple_devices(true, 7), 3);
    out.text();
    EXPECT_EQ(registry.numOfDevices, 3);
    EXPECT_EQ(Registry::m_pSpecDevice.size(), 3u);  // index 3 was tried and removed again
    for (int i = 0; i < 3; ++i) {
        EXPECT_NE(Registry::m_pSpecDevice[i], nullptr) << i;
        EXPECT_TRUE(registry.is_sensor_connected(i)) << i;
        EXPECT_EQ(Registry::sidMap[i], default_sensor_id(i)) << i;
        // Connected sensors get ADC range 132, gain 1, resolution 0.
        EXPECT_EQ(vsensor::register_value(i, 19), 132);
        EXPECT_EQ(vsensor::register_value(i, 20), 2);
    }
    EXPECT_FALSE(registry.is_sensor_connected(3));
}

TEST_F(RegistryTest, SingleDeviceByIndex) {
    add_sensors(2);
    Registry registry;
    {
        StdoutCapture quiet;
        EXPECT_EQ(registry.connect_multiple_devices(false, 1), 1);
    }
    EXPECT_EQ(registry.numOfDevices, 1);
    EXPECT_EQ(Registry::m_pSpecDevice.count(0), 0u);
    EXPECT_NE(Registry::m_pSpecDevice[1], nullptr);
    EXPECT_EQ(Registry::sidMap[1], default_sensor_id(1));
    EXPECT_TRUE(vsensor::is_claimed(1));
    EXPECT_FALSE(vsensor::is_claimed(0));
}

TEST_F(RegistryTest, SecondConnectOfTheSameIndexIsRefused) {
    add_sensors(1);
    Registry registry;
    {
        StdoutCapture quiet;
        ASSERT_TRUE(registry.connect_device(0));
    }
    oru_device_interface* first = Registry::m_pSpecDevice[0];
    StdoutCapture out;
    EXPECT_FALSE(registry.connect_device(0));
    EXPECT_EQ(out.text(), ">>>>>>>>>>>>>>>> Sensor device is already connected!!\n");
    EXPECT_EQ(Registry::m_pSpecDevice[0], first);
}

TEST_F(RegistryTest, DisconnectOfAnUnknownIndexRecordsItAsDisconnected) {
    Registry registry;
    StdoutCapture out;
    EXPECT_TRUE(registry.disconnect_device(7));
    EXPECT_EQ(out.text(), "");
    ASSERT_EQ(Registry::sensorConnectionStatus.count(7), 1u);
    EXPECT_FALSE(Registry::sensorConnectionStatus[7]);
    // The subscript lookup leaves a null entry that the removal does not take.
    ASSERT_EQ(Registry::m_pSpecDevice.count(7), 1u);
    EXPECT_EQ(Registry::m_pSpecDevice[7], nullptr);
}

TEST_F(RegistryTest, DisconnectThatFailsIsReported) {
    Registry registry;
    // A facade whose sensor never came up cannot be finalised.
    oru_device_interface* facade = new oru_device_interface;
    {
        StdoutCapture quiet;
        ASSERT_EQ(facade->initialize(4), -1);
    }
    Registry::m_pSpecDevice[4] = facade;
    StdoutCapture out;
    EXPECT_FALSE(registry.disconnect_device(4));
    EXPECT_EQ(out.text(), "[Exception] Fail to disconnect device !\n");
}

TEST_F(RegistryTest, LookupOfAnUnknownIndexLeavesANullEntry) {
    Registry registry;
    std::string id;
    EXPECT_EQ(registry.get_one_device_interface(5, id), nullptr);
    EXPECT_TRUE(id.empty());
    ASSERT_EQ(Registry::m_pSpecDevice.count(5), 1u);
    EXPECT_EQ(Registry::m_pSpecDevice[5], nullptr);
    registry.DestroySensorObject(5);  // a null entry stays
    EXPECT_EQ(Registry::m_pSpecDevice.count(5), 1u);
}

TEST_F(RegistryTest, LookupByIdFindsTheDeviceAndByIndexReturnsItsId) {
    add_sensors(3);
    Registry registry;
    {
        StdoutCapture quiet;
        ASSERT_EQ(registry.connect_multiple_devices(true, 0), 3);
    }
    std::string id = default_sensor_id(2);
    EXPECT_EQ(registry.get_one_device_interface(0, id), Registry::m_pSpecDevice[2]);
    std::string unknown = "Z1-1-1-1-1";
    EXPECT_EQ(registry.get_one_device_interface(1, unknown), Registry::m_pSpecDevice[1]);
    std::string out_id;
    EXPECT_EQ(registry.get_one_device_interface(1, out_id), Registry::m_pSpecDevice[1]);
    EXPECT_EQ(out_id, default_sensor_id(1));
    EXPECT_EQ(registry.get_sensor_id(1), "");
}

TEST_F(RegistryTest, LookupByIdTakesTheLastMatch) {
    vsensor::SensorOptions same;
    same.identity_set = true;
    add_sensors(3, same);
    Registry registry;
    {
        StdoutCapture quiet;
        ASSERT_EQ(registry.connect_multiple_devices(true, 0), 3);
    }
    std::string id = "A4486-3-12-40-2";
    EXPECT_EQ(registry.get_one_device_interface(0, id), Registry::m_pSpecDevice[2]);
}

TEST_F(RegistryTest, DisconnectAllForgetsDevicesAndIds) {
    add_sensors(2);
    Registry registry;
    {
        StdoutCapture quiet;
        ASSERT_EQ(registry.connect_multiple_devices(true, 0), 2);
    }
    vsensor::clear_events();
    StdoutCapture out;
    EXPECT_TRUE(registry.disconnect_multiple_devices(true, 0));
    out.text();
    EXPECT_EQ(registry.numOfDevices, 0);
    EXPECT_TRUE(Registry::sidMap.empty());
    EXPECT_TRUE(Registry::m_pSpecDevice.empty());
    EXPECT_FALSE(registry.is_sensor_connected(0));
    EXPECT_FALSE(registry.is_sensor_connected(1));
    EXPECT_NE(vsensor::transcript(1).find("cmd 3 value 1"), std::string::npos) << vsensor::transcript(1);
}

TEST_F(RegistryTest, ReconnectAfterDisconnect) {
    add_sensors(1);
    Registry registry;
    StdoutCapture quiet;
    ASSERT_TRUE(registry.connect_device(0));
    ASSERT_TRUE(registry.disconnect_device(0));
    EXPECT_TRUE(registry.connect_device(0));
}

}  // namespace
