// The 5-byte identity: its two field layouts, the text form and the two reads.
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_device_info.h"
#include "efm32com/oru_device_interface_stm.h"

#include <cstring>

using usbtest::setup;
using usbtest::setups;
using usbtest::Wire;

namespace {

class DeviceInfo : public usbtest::UsbTest {};

// Lot 'A' 4486, wafer 3, x 12, y 40, type 2 in the 6/6/3-bit layout.
const unsigned char kSpecialLot[5] = {0x02, 0x30, 0xC3, 0x32, 0x84};
// The same bytes with lot 4487 (b2 bit 5): the 7/7/2-bit layout applies.
const unsigned char kOrdinaryLot[5] = {0x02, 0x30, 0xE3, 0x32, 0x84};

}  // namespace

// Lots 4486 and 6529 use the 6/6/3-bit layout, the others 7/7/2; bit 6 of
// the second byte is not part of the lot number, and the letter is not
// clamped to letters.
TEST(SensorIdDecode, LayoutsAndMasks) {
    const std::pair<std::vector<unsigned char>, std::string> kCases[] = {
        {{0x02, 0x30, 0xC3, 0x32, 0x84}, "A4486-3-12-40-2"}, {{0x02, 0x30, 0xE3, 0x32, 0x84}, "A4487-3-25-33-0"},
        {{0x03, 0x30, 0x20, 0x32, 0x84}, "A6529-0-12-40-2"}, {{0x00, 0x40, 0x00, 0x00, 0x00}, "A0-0-0-0-0"},
        {{0x00, 0x20, 0x00, 0x00, 0x00}, "A256-0-0-0-0"},    {{0x00, 0x80, 0x00, 0x00, 0x00}, "A1024-0-0-0-0"}};
    for (const auto& [bytes, text] : kCases) {
        EXPECT_EQ(format_sensor_id(decode_sensor_id_fields(bytes.data())), text);
        char raw[5];
        std::memcpy(raw, bytes.data(), 5);
        EXPECT_EQ(decode_sensor_id_from_string(raw, 9), text);
    }
    const SSensorIdFields f = decode_sensor_id_fields(kSpecialLot);
    EXPECT_EQ(std::vector<int>({f.lot_char, f.lot_id, f.wafer_id, f.x_coord, f.y_coord, f.sensor_type}),
              std::vector<int>({'A', 4486, 3, 12, 40, 2}));
    const unsigned char kHighLetter[5] = {0xFF, 0, 0, 0, 0};
    EXPECT_EQ(decode_sensor_id_fields(kHighLetter).lot_char, '`');
}

TEST_F(DeviceInfo, RawReadPausesThenTransfersFiveBytesDecodedReadDoesNotPause) {
    vsensor::SensorOptions opts;
    opts.raw_identity.assign(kOrdinaryLot, kOrdinaryLot + 5);
    connect_sensors({opts});
    char id[5] = {};
    EXPECT_EQ(get_sensor_id_with_index(id, 0), lu_ec_success);
    EXPECT_EQ(std::memcmp(id, kOrdinaryLot, 5), 0);
    EXPECT_EQ(vsensor::transcript(), Wire().pause_ms(1).cmd(1).str());
    EXPECT_EQ(setups(), std::vector<std::string>{setup(0, 0xA1, 1, 0, 0, 5, 2000)});
    vsensor::clear_events();
    char lot_char = 0;
    short n[5] = {};
    EXPECT_EQ(get_sensor_id_with_index(&lot_char, &n[0], &n[1], &n[2], &n[3], &n[4], 0), lu_ec_success);
    EXPECT_EQ(lot_char, 'A');
    EXPECT_EQ(std::vector<short>(n, n + 5), (std::vector<short>{4487, 3, 25, 33, 0}));
    EXPECT_EQ(vsensor::transcript(), Wire().cmd(1).str());
}

TEST_F(DeviceInfo, FailedReadOrMissingHandleReadsAsA0) {
    connect_sensors(1, vsensor::kFaultControlTimeout);
    char raw[5] = {1, 1, 1, 1, 1};
    get_sensor_id_with_index(raw, 0);
    EXPECT_EQ(decode_sensor_id_from_string(raw, 0), "A0-0-0-0-0");
    EXPECT_EQ(setups().size(), 1u);
    vsensor::clear_events();
    std::memset(raw, 1, sizeof raw);
    get_sensor_id_with_index(raw, 2);
    EXPECT_EQ(decode_sensor_id_from_string(raw, 2), "A0-0-0-0-0");
    char lot_char = 0;
    short n[5] = {9, 9, 9, 9, 9};
    get_sensor_id_with_index(&lot_char, &n[0], &n[1], &n[2], &n[3], &n[4], 2);
    EXPECT_EQ(lot_char, 'A');
    EXPECT_EQ(std::vector<short>(n, n + 5), std::vector<short>(5, 0));
    EXPECT_TRUE(setups().empty());
    EXPECT_EQ(get_connected_total_devices(), 1u) << "index 2 is not remembered";
}

TEST_F(DeviceInfo, FirmwareVersionIsNotAvailable) {
    connect_sensors(1);
    unsigned char ucVersion = 0xAB;
    EXPECT_EQ(get_firmware_version(&ucVersion), lu_ec_success);
    EXPECT_EQ(ucVersion, 0xAB);
    EXPECT_TRUE(vsensor::events().empty());
}
