// The firmware's answers to class control requests.
#include <gtest/gtest.h>

#include <utility>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

class Control : public ::testing::Test {
protected:
    void SetUp() override {
        vsensor::reset();
        ASSERT_EQ(libusb_init(nullptr), 0);
    }
    void TearDown() override {
        if (h) libusb_close(h);
        libusb_exit(nullptr);
    }
    void open(int n = 0) {
        h = open_nth(n);
        ASSERT_NE(h, nullptr);
    }
    libusb_device_handle* h = nullptr;
};

// The library's decoder of the identity record.
struct Decoded {
    char lot_char;
    int lot_id, wafer, x, y, type;
};
Decoded decode(const std::vector<uint8_t>& b) {
    Decoded d{};
    d.lot_char = static_cast<char>((b[0] >> 3) + 'A');
    const int upper = ((b[0] << 3) & 0x38) | ((b[1] >> 5) & 5);
    const int lower = ((b[1] << 3) & 0xFF) | (b[2] >> 5);
    d.lot_id = static_cast<int16_t>(upper << 8 | lower);
    d.wafer = b[2] & 0x1F;
    if (d.lot_id == 4486 || d.lot_id == 6529) {
        d.x = b[3] >> 2;
        d.y = ((b[3] << 4) & 0x30) | (b[4] >> 4);
        d.type = (b[4] >> 1) & 7;
    } else {
        d.x = b[3] >> 1;
        d.y = ((b[3] << 6) & 0x40) | (b[4] >> 2);
        d.type = b[4] & 3;
    }
    return d;
}

TEST_F(Control, WritesEchoTheirValueAndReadsAnswerTheMatchingRegister) {
    vsensor::add_sensor();
    open();
    const std::pair<int, int> pairs[] = {{5, 4}, {37, 36}, {33, 38}, {34, 39}, {19, 35}, {20, 40}, {54, 53}};
    int value = 11;
    for (const auto& [write, read] : pairs) {
        EXPECT_EQ(cmd(h, write, static_cast<uint16_t>(0x100 | value)), value) << "write code " << write;
        EXPECT_EQ(cmd(h, read, 0), value) << "read code " << read;
        EXPECT_EQ(vsensor::register_value(0, write), value);
        value += 17;
    }
    for (int code : {3, 57, 80, 81}) EXPECT_EQ(cmd(h, code, 0x42), 0x42) << code;
    EXPECT_EQ(vsensor::register_value(0, 3), 0x42);
}

TEST_F(Control, UnmappedReadCodesAnswerZeroForTheirWholeLength) {
    vsensor::add_sensor();
    open();
    cmd(h, 5, 99);
    for (int code : {6, 7, 10, 58, 56}) EXPECT_EQ(cmd(h, code, 0), 0) << code;
    unsigned char buf[12];
    std::fill(buf, buf + 12, 0xEE);
    EXPECT_EQ(libusb_control_transfer(h, 0xA1, 12, 0, 0, buf, 12, 1000), 12);
    EXPECT_EQ(std::vector<unsigned char>(buf, buf + 12), std::vector<unsigned char>(12, 0));
    EXPECT_EQ(libusb_control_transfer(h, 0xA1, 8, 0, 0, buf, 4, 1000), 4);
}

TEST_F(Control, ShutterSpeedComesFromCodes37And5) {
    vsensor::add_sensor();
    open();
    cmd(h, 37, 3);
    cmd(h, 5, 232);
    EXPECT_EQ(vsensor::shutter_speed(0), 1000);
    vsensor::set_register_value(0, 5, 7);
    EXPECT_EQ(cmd(h, 4, 0), 7);
    EXPECT_EQ(vsensor::shutter_speed(0), 3 * 256 + 7);
}

TEST_F(Control, IdentityRecordDecodesToTheDefaultIdentityPerBusPosition) {
    vsensor::add_sensor();
    vsensor::add_sensor();
    for (int n = 0; n < 2; ++n) {
        libusb_device_handle* dh = open_nth(n);
        ASSERT_NE(dh, nullptr);
        std::vector<uint8_t> raw(5);
        ASSERT_EQ(libusb_control_transfer(dh, 0xA1, 1, 0, 0, raw.data(), 5, 2000), 5);
        const Decoded d = decode(raw);
        EXPECT_EQ(d.lot_char, 'A');
        EXPECT_EQ(d.lot_id, 4486);
        EXPECT_EQ(d.wafer, 3);
        EXPECT_EQ(d.x, 12 + n);
        EXPECT_EQ(d.y, 40);
        EXPECT_EQ(d.type, 2);
        libusb_close(dh);
    }
}

TEST_F(Control, RawIdentityIsSentVerbatim) {
    vsensor::SensorOptions o;
    o.raw_identity = {0xFF, 0x40, 0x01, 0x02, 0x03};
    vsensor::add_sensor(o);
    open();
    std::vector<uint8_t> raw(5);
    ASSERT_EQ(libusb_control_transfer(h, 0xA1, 1, 0, 0, raw.data(), 5, 2000), 5);
    EXPECT_EQ(raw, o.raw_identity);
}

TEST_F(Control, A2048ByteReadAnswersOneEncodedFrame) {
    vsensor::add_sensor();
    vsensor::set_constant_frame(0, 0xABC);
    open();
    std::vector<unsigned char> raw(2048, 0);
    ASSERT_EQ(libusb_control_transfer(h, 0xA1, 2, 0x84, 1, raw.data(), 2048, 2000), 2048);
    EXPECT_EQ(raw[0], 0xAB);
    EXPECT_EQ(raw[1], 0xC0);
    EXPECT_EQ(decode_frame(raw.data()), std::vector<int>(1024, 0xABC));
    std::fill(raw.begin(), raw.end(), 0);
    // Any 2048-byte IN request is a frame read, whatever its code.
    ASSERT_EQ(libusb_control_transfer(h, 0xA1, 99, 0x84, 1, raw.data(), 2048, 2000), 2048);
    EXPECT_EQ(decode_frame(raw.data())[1023], 0xABC);
}

TEST_F(Control, StreamingRequestsNeedIndexOne) {
    vsensor::add_sensor();
    open();
    EXPECT_EQ(out(h, 70, 0, 0), 0);
    EXPECT_FALSE(vsensor::streaming(0));
    EXPECT_EQ(out(h, 70, 0, 1), 0);
    EXPECT_TRUE(vsensor::streaming(0));
    EXPECT_EQ(out(h, 71, 0, 1), 0);
    EXPECT_FALSE(vsensor::streaming(0));
}

TEST_F(Control, LedStateWordIsKeptOnSensorAndDriver) {
    vsensor::add_led_driver();
    vsensor::add_sensor();
    EXPECT_EQ(vsensor::led_state_word(0), -1);
    open(0);
    EXPECT_EQ(libusb_control_transfer(h, 0x21, 9, 0x0505, 0, nullptr, 0, 1000), 0);
    EXPECT_EQ(vsensor::led_state_word(0), 0x0505);
    // The driver understands nothing else: a sensor command stalls.
    unsigned char b = 0xEE;
    EXPECT_EQ(libusb_control_transfer(h, 0xA1, 1, 0, 0, &b, 1, 2000), LIBUSB_ERROR_PIPE);
    libusb_device_handle* s = open_nth(1);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(libusb_control_transfer(s, 0x21, 9, 7, 0, nullptr, 0, 1000), 0);
    EXPECT_EQ(vsensor::led_state_word(1), 7);
    EXPECT_EQ(vsensor::led_state_word(0), 0x0505);
    libusb_close(s);
}

TEST_F(Control, StandardDescriptorRequestsAnswerTheDescriptors) {
    vsensor::add_sensor();
    open();
    unsigned char buf[64] = {};
    ASSERT_EQ(libusb_control_transfer(h, 0x80, LIBUSB_REQUEST_GET_DESCRIPTOR, LIBUSB_DT_DEVICE << 8, 0, buf, 64, 1000),
              18);
    EXPECT_EQ(buf[8] | buf[9] << 8, 0x0483);
    EXPECT_EQ(buf[10] | buf[11] << 8, 0x5740);
    ASSERT_EQ(libusb_control_transfer(h, 0x80, LIBUSB_REQUEST_GET_DESCRIPTOR, LIBUSB_DT_CONFIG << 8, 0, buf, 64, 1000),
              25);
    EXPECT_EQ(buf[9 + 9 + 2], 0x81);
}

TEST_F(Control, EveryRequestIsLoggedWithItsSetupAndTimeout) {
    vsensor::add_sensor();
    open();
    unsigned char b[5];
    libusb_control_transfer(h, 0xA1, 34, 4, 0, b, 1, 1000);
    libusb_control_transfer(h, 0xA1, 1, 0, 0, b, 5, 2000);
    out(h, 70, 0, 1);
    libusb_control_transfer(h, 0xC0, 5, 0, 0, b, 1, 500);
    std::vector<vsensor::Event> control;
    for (const auto& e : vsensor::events())
        if (e.kind == vsensor::EventKind::Control) control.push_back(e);
    ASSERT_EQ(control.size(), 4u);
    EXPECT_EQ(control[0].dev, 0);
    EXPECT_EQ(control[0].bmRequestType, 0xA1);
    EXPECT_EQ(control[0].bRequest, 34);
    EXPECT_EQ(control[0].wValue, 4);
    EXPECT_EQ(control[0].wLength, 1);
    EXPECT_EQ(control[0].timeout, 1000u);
    EXPECT_EQ(control[1].wLength, 5);
    EXPECT_EQ(control[1].timeout, 2000u);
    EXPECT_EQ(control[1].status, 5);
    EXPECT_EQ(control[2].wIndex, 1);
    EXPECT_EQ(vsensor::transcript(), "cmd 34 value 4, cmd 1 value 0, out 70 value 0 index 1, req 0xC0 5 value 0 index 0 length 1");
}

}  // namespace

namespace identity {

class IdentityRoundTrip : public ::testing::TestWithParam<vsensor::Identity> {};

TEST_P(IdentityRoundTrip, EncoderOutputDecodesToTheFields) {
    const vsensor::Identity& id = GetParam();
    const Decoded d = decode(vsensor::encode_identity(id));
    EXPECT_EQ(d.lot_char, id.lot_char);
    EXPECT_EQ(d.lot_id, id.lot_id);
    EXPECT_EQ(d.wafer, id.wafer_id);
    EXPECT_EQ(d.x, id.x_coord);
    EXPECT_EQ(d.y, id.y_coord);
    EXPECT_EQ(d.type, id.sensor_type);
}

vsensor::Identity make(char c, int lot, int wafer, int x, int y, int type) {
    vsensor::Identity id;
    id.lot_char = c;
    id.lot_id = lot;
    id.wafer_id = wafer;
    id.x_coord = x;
    id.y_coord = y;
    id.sensor_type = type;
    return id;
}

INSTANTIATE_TEST_SUITE_P(Lots, IdentityRoundTrip,
                         ::testing::Values(make('A', 4486, 3, 12, 40, 2), make('A', 6529, 31, 63, 63, 7),
                                           make('C', 4487, 1, 127, 127, 3), make('Z', 1, 0, 0, 0, 0),
                                           make('B', 0x3DFF, 17, 100, 65, 1)));

}  // namespace identity
