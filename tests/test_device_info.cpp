// The 5-byte identity: its two field layouts, the text form and the two reads.
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_device_info.h"
#include "efm32com/oru_device_interface_stm.h"

#include <cstring>

using usbtest::control_events;
using usbtest::Wire;

namespace {

class DeviceInfo : public usbtest::UsbTest {};

// Lot 'A' 4486, wafer 3, x 12, y 40, type 2 in the 6/6/3-bit layout.
const unsigned char kSpecialLot[5] = {0x02, 0x30, 0xC3, 0x32, 0x84};
// The same bytes with lot 4487 (b2 bit 5): the 7/7/2-bit layout applies.
const unsigned char kOrdinaryLot[5] = {0x02, 0x30, 0xE3, 0x32, 0x84};

std::string text_of(std::initializer_list<unsigned char> bytes) {
    unsigned char raw[5];
    std::copy(bytes.begin(), bytes.end(), raw);
    return format_sensor_id(decode_sensor_id_fields(raw));
}

}  // namespace

// ---- decoding ----

TEST_F(DeviceInfo, SpecialLotsUseTheSixSixThreeLayout) {
    const SSensorIdFields f = decode_sensor_id_fields(kSpecialLot);
    EXPECT_EQ(f.lot_char, 'A');
    EXPECT_EQ(f.lot_id, 4486);
    EXPECT_EQ(f.wafer_id, 3);
    EXPECT_EQ(f.x_coord, 12);
    EXPECT_EQ(f.y_coord, 40);
    EXPECT_EQ(f.sensor_type, 2);
    EXPECT_EQ(format_sensor_id(f), "A4486-3-12-40-2");
}

TEST_F(DeviceInfo, OtherLotsUseTheSevenSevenTwoLayout) {
    const SSensorIdFields f = decode_sensor_id_fields(kOrdinaryLot);
    EXPECT_EQ(f.lot_id, 4487);
    EXPECT_EQ(format_sensor_id(f), "A4487-3-25-33-0");
}

TEST_F(DeviceInfo, SecondSpecialLotIsRecognised) {
    // 6529 = 0x1981: upper 0x19 from b0 & 7 = 3 and b1 >> 5 = 1; lower from b1 & 0x1F = 0x10, b2 >> 5 = 1.
    EXPECT_EQ(text_of({0x03, 0x30, 0x20, 0x32, 0x84}), "A6529-0-12-40-2");
}

TEST_F(DeviceInfo, LotNumberMaskDropsBitSixOfSecondByte) {
    EXPECT_EQ(text_of({0x00, 0x40, 0x00, 0x00, 0x00}), "A0-0-0-0-0");
    EXPECT_EQ(text_of({0x00, 0x20, 0x00, 0x00, 0x00}), "A256-0-0-0-0");
    EXPECT_EQ(text_of({0x00, 0x80, 0x00, 0x00, 0x00}), "A1024-0-0-0-0");
}

TEST_F(DeviceInfo, LotLetterIsNotClampedToLetters) {
    const unsigned char raw[5] = {0xFF, 0, 0, 0, 0};
    EXPECT_EQ(decode_sensor_id_fields(raw).lot_char, '`');
}

TEST_F(DeviceInfo, ZerosDecodeAsA0) {
    char raw[5] = {};
    EXPECT_EQ(decode_sensor_id_from_string(raw, 9), "A0-0-0-0-0");
}

TEST_F(DeviceInfo, DecodeFromStringMatchesFieldDecoding) {
    char raw[5];
    std::memcpy(raw, kSpecialLot, 5);
    EXPECT_EQ(decode_sensor_id_from_string(raw, 0), "A4486-3-12-40-2");
}

// ---- reading from the sensor ----

TEST_F(DeviceInfo, RawReadPausesThenTransfersFiveBytes) {
    vsensor::SensorOptions opts;
    opts.raw_identity.assign(kOrdinaryLot, kOrdinaryLot + 5);
    connect_sensors({opts});
    char id[5] = {};
    EXPECT_EQ(get_sensor_id_with_index(id, 0), lu_ec_success);
    EXPECT_EQ(std::memcmp(id, kOrdinaryLot, 5), 0);
    EXPECT_EQ(vsensor::transcript(), Wire().pause_ms(1).cmd(1).str());
    const auto controls = control_events();
    ASSERT_EQ(controls.size(), 1u);
    EXPECT_EQ(controls[0].bmRequestType, 0xA1);
    EXPECT_EQ(controls[0].wLength, 5);
    EXPECT_EQ(controls[0].timeout, 2000u);
}

TEST_F(DeviceInfo, DecodedReadTransfersWithoutPause) {
    vsensor::SensorOptions opts;
    opts.identity = {'C', 4486, 7, 20, 33, 5};
    opts.identity_set = true;
    connect_sensors({opts});
    char lot_char = 0;
    short lot_id = 0, wafer_id = 0, x_coord = 0, y_coord = 0, sensor_type = 0;
    EXPECT_EQ(get_sensor_id_with_index(&lot_char, &lot_id, &wafer_id, &x_coord, &y_coord, &sensor_type, 0),
              lu_ec_success);
    EXPECT_EQ(lot_char, 'C');
    EXPECT_EQ(lot_id, 4486);
    EXPECT_EQ(wafer_id, 7);
    EXPECT_EQ(x_coord, 20);
    EXPECT_EQ(y_coord, 33);
    EXPECT_EQ(sensor_type, 5);
    EXPECT_EQ(vsensor::transcript(), Wire().cmd(1).str());
}

TEST_F(DeviceInfo, FailedReadDecodesAsA0) {
    connect_sensors(1, vsensor::kFaultControlTimeout);
    char raw[5] = {1, 1, 1, 1, 1};
    get_sensor_id_with_index(raw, 0);
    EXPECT_EQ(decode_sensor_id_from_string(raw, 0), "A0-0-0-0-0");
    EXPECT_EQ(control_events().size(), 1u);
}

TEST_F(DeviceInfo, SensorWithoutHandleReadsAsA0AndIsNotRemembered) {
    char raw[5] = {1, 1, 1, 1, 1};
    get_sensor_id_with_index(raw, 2);
    EXPECT_EQ(decode_sensor_id_from_string(raw, 2), "A0-0-0-0-0");
    char lot_char = 0;
    short lot_id = 9, wafer_id = 9, x_coord = 9, y_coord = 9, sensor_type = 9;
    get_sensor_id_with_index(&lot_char, &lot_id, &wafer_id, &x_coord, &y_coord, &sensor_type, 2);
    EXPECT_EQ(lot_char, 'A');
    EXPECT_EQ(lot_id + wafer_id + x_coord + y_coord + sensor_type, 0);
    EXPECT_TRUE(control_events().empty());
    EXPECT_EQ(get_connected_total_devices(), 0u);
}

TEST_F(DeviceInfo, FirmwareVersionIsNotAvailable) {
    connect_sensors(1);
    unsigned char ucVersion = 0xAB;
    EXPECT_EQ(get_firmware_version(&ucVersion), lu_ec_success);
    EXPECT_EQ(ucVersion, 0xAB);
    EXPECT_TRUE(vsensor::events().empty());
}
