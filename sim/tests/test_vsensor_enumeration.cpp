// Enumeration, descriptors, open/claim/close and contexts through libusb.
#include <gtest/gtest.h>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

class Enumeration : public ::testing::Test {
protected:
    void SetUp() override {
        vsensor::reset();
        ASSERT_EQ(libusb_init(nullptr), 0);
    }
    void TearDown() override { libusb_exit(nullptr); }
};

TEST_F(Enumeration, ListsEverySensorWithTheSensorIdsInBusOrder) {
    vsensor::add_sensor();
    vsensor::add_led_driver();
    vsensor::add_sensor();
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(nullptr, &list), 3);
    EXPECT_EQ(list[3], nullptr);
    for (int i = 0; i < 3; ++i) {
        libusb_device_descriptor d{};
        ASSERT_EQ(libusb_get_device_descriptor(list[i], &d), 0);
        EXPECT_EQ(d.idVendor, 0x0483);
        EXPECT_EQ(d.idProduct, 0x5740);
        EXPECT_EQ(d.bNumConfigurations, 1);
        EXPECT_EQ(libusb_get_bus_number(list[i]), 1);
        EXPECT_EQ(libusb_get_port_number(list[i]), i + 1);
        EXPECT_EQ(libusb_get_device_speed(list[i]), LIBUSB_SPEED_FULL);
    }
    EXPECT_NE(libusb_get_device_address(list[0]), libusb_get_device_address(list[2]));
    libusb_free_device_list(list, 1);
}

TEST_F(Enumeration, RepeatedListsHandOutTheSameDeviceObjects) {
    vsensor::add_sensor();
    libusb_device **a = nullptr, **b = nullptr;
    ASSERT_EQ(libusb_get_device_list(nullptr, &a), 1);
    ASSERT_EQ(libusb_get_device_list(nullptr, &b), 1);
    EXPECT_EQ(a[0], b[0]);
    libusb_device* kept = libusb_ref_device(a[0]);
    libusb_free_device_list(a, 1);
    libusb_free_device_list(b, 1);
    libusb_device_descriptor d{};
    EXPECT_EQ(libusb_get_device_descriptor(kept, &d), 0);
    libusb_unref_device(kept);
}

TEST_F(Enumeration, ConfigDescriptorIsOneInterfaceWithBulkInEndpoint0x81) {
    vsensor::add_sensor();
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(nullptr, &list), 1);
    libusb_config_descriptor* config = nullptr;
    ASSERT_EQ(libusb_get_config_descriptor(list[0], 0, &config), 0);
    ASSERT_EQ(config->bNumInterfaces, 1);
    ASSERT_EQ(config->interface[0].num_altsetting, 1);
    const libusb_interface_descriptor& alt = config->interface[0].altsetting[0];
    EXPECT_EQ(alt.bInterfaceNumber, 0);
    ASSERT_EQ(alt.bNumEndpoints, 1);
    EXPECT_EQ(alt.endpoint[0].bEndpointAddress, 0x81);
    EXPECT_EQ(alt.endpoint[0].bmAttributes & 3, LIBUSB_TRANSFER_TYPE_BULK);
    EXPECT_EQ(alt.endpoint[0].wMaxPacketSize, 64);
    libusb_free_config_descriptor(config);
    EXPECT_EQ(libusb_get_config_descriptor(list[0], 1, &config), LIBUSB_ERROR_NOT_FOUND);
    ASSERT_EQ(libusb_get_active_config_descriptor(list[0], &config), 0);
    EXPECT_EQ(config->bConfigurationValue, 1);
    libusb_free_config_descriptor(config);
    libusb_free_device_list(list, 1);
}

TEST_F(Enumeration, OpenClaimReleaseCloseAreVisibleAndLogged) {
    vsensor::add_sensor();
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    EXPECT_TRUE(vsensor::is_open(0));
    EXPECT_FALSE(vsensor::is_claimed(0));
    EXPECT_EQ(libusb_kernel_driver_active(h, 0), 0);
    EXPECT_EQ(libusb_set_auto_detach_kernel_driver(h, 1), 0);
    ASSERT_EQ(libusb_claim_interface(h, 0), 0);
    EXPECT_TRUE(vsensor::is_claimed(0));
    EXPECT_EQ(libusb_claim_interface(h, 1), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_set_configuration(h, -1), LIBUSB_ERROR_BUSY);  // interface still claimed
    EXPECT_EQ(libusb_release_interface(h, 0), 0);
    EXPECT_FALSE(vsensor::is_claimed(0));
    EXPECT_EQ(libusb_release_interface(h, 0), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_set_configuration(h, -1), 0);
    libusb_close(h);
    EXPECT_FALSE(vsensor::is_open(0));
    EXPECT_EQ(vsensor::transcript(0, true),
              "init, dev0 open, dev0 claim 0, dev0 claim 1, dev0 set_configuration -1, dev0 release 0, dev0 release 0, "
              "dev0 set_configuration -1, dev0 close");
}

TEST_F(Enumeration, ASecondHandleCannotClaimTheClaimedInterfaceButCanSendRequests) {
    // The library opens the first device a second time as its LED driver.
    vsensor::add_sensor();
    libusb_device_handle* a = open_nth(0);
    libusb_device_handle* b = open_nth(0);
    ASSERT_TRUE(a && b);
    ASSERT_EQ(libusb_claim_interface(a, 0), 0);
    EXPECT_EQ(libusb_claim_interface(b, 0), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_control_transfer(b, 0x21, 9, 0x0100, 0, nullptr, 0, 1000), 0);
    EXPECT_EQ(vsensor::led_state_word(0), 0x0100);
    EXPECT_EQ(libusb_release_interface(b, 0), LIBUSB_ERROR_NOT_FOUND);
    libusb_close(b);
    EXPECT_TRUE(vsensor::is_open(0));
    EXPECT_TRUE(vsensor::is_claimed(0));
    libusb_close(a);
    EXPECT_FALSE(vsensor::is_claimed(0));  // closing releases what the handle held
}

TEST_F(Enumeration, DefaultContextIsReferenceCounted) {
    vsensor::add_sensor();
    ASSERT_EQ(libusb_init(nullptr), 0);
    libusb_exit(nullptr);
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(nullptr, &list), 1);  // still one reference left
    libusb_free_device_list(list, 1);
    libusb_exit(nullptr);
    EXPECT_LT(libusb_get_device_list(nullptr, &list), 0);
    timeval tv{0, 0};
    EXPECT_LT(libusb_handle_events_timeout(nullptr, &tv), 0);
    ASSERT_EQ(libusb_init(nullptr), 0);  // for TearDown
}

TEST_F(Enumeration, SeparateContextsSeeTheSameBusIndependently) {
    vsensor::add_sensor();
    vsensor::add_sensor();
    libusb_context* ctx = nullptr;
    ASSERT_EQ(libusb_init(&ctx), 0);
    ASSERT_NE(ctx, nullptr);
    libusb_device** mine = nullptr;
    libusb_device** deflt = nullptr;
    ASSERT_EQ(libusb_get_device_list(ctx, &mine), 2);
    ASSERT_EQ(libusb_get_device_list(nullptr, &deflt), 2);
    EXPECT_NE(mine[0], deflt[0]);
    libusb_free_device_list(deflt, 1);
    libusb_device_handle* h = nullptr;
    ASSERT_EQ(libusb_open(mine[1], &h), 0);
    EXPECT_TRUE(vsensor::is_open(1));
    libusb_close(h);
    libusb_free_device_list(mine, 1);
    libusb_exit(ctx);
    libusb_device** again = nullptr;
    ASSERT_EQ(libusb_get_device_list(nullptr, &again), 2);  // the default context is untouched
    libusb_free_device_list(again, 1);
}

TEST_F(Enumeration, UnpluggedDevicesLeaveTheListAndRefuseOpening) {
    vsensor::add_sensor();
    vsensor::add_sensor();
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(nullptr, &list), 2);
    vsensor::unplug(0);
    libusb_device_handle* h = nullptr;
    EXPECT_EQ(libusb_open(list[0], &h), LIBUSB_ERROR_NO_DEVICE);
    libusb_free_device_list(list, 1);
    ASSERT_EQ(libusb_get_device_list(nullptr, &list), 1);
    EXPECT_EQ(libusb_get_port_number(list[0]), 2);
    libusb_free_device_list(list, 1);
}

TEST(LibusbInfo, NamesVersionAndCapabilities) {
    EXPECT_STREQ(libusb_error_name(LIBUSB_ERROR_TIMEOUT), "LIBUSB_ERROR_TIMEOUT");
    EXPECT_STREQ(libusb_error_name(LIBUSB_ERROR_ACCESS), "LIBUSB_ERROR_ACCESS");
    EXPECT_STREQ(libusb_strerror(LIBUSB_ERROR_NO_DEVICE), "No such device (it may have been disconnected)");
    const libusb_version* v = libusb_get_version();
    EXPECT_EQ(v->major, 1);
    EXPECT_EQ(v->minor, 0);
    EXPECT_EQ(v->micro, 26);
    EXPECT_TRUE(libusb_has_capability(LIBUSB_CAP_HAS_CAPABILITY));
    EXPECT_FALSE(libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG));
    EXPECT_EQ(libusb_set_option(nullptr, LIBUSB_OPTION_LOG_LEVEL, LIBUSB_LOG_LEVEL_WARNING), 0);
    EXPECT_EQ(libusb_set_option(nullptr, LIBUSB_OPTION_USE_USBDK), LIBUSB_ERROR_NOT_SUPPORTED);
}

}  // namespace
