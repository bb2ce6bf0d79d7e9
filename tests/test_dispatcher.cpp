// The command dispatcher and the thin register/start/stop functions on it.
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_stm.h"
#include "efm32com/oru_device_interface_usb.h"

#include <cstdint>

using usbtest::control_events;
using usbtest::Wire;

namespace {

class Dispatcher : public usbtest::UsbTest {};

struct SExpectedSetup {
    int iCode;
    bool bSendsArgument;
    uint16_t wLength;
    unsigned int iTimeoutMs;
};

// Every code the dispatcher knows, group by group, in its test order.
const SExpectedSetup kKnownCodes[] = {
    {1, false, 5, 2000},  // identity
    {2, false, 2048, 2000},  {27, false, 2048, 2000},  // block read
    {4, false, 1, 1000},     {6, false, 1, 1000},     {7, false, 1, 1000},  {10, false, 1, 1000},
    {35, false, 1, 1000},    {36, false, 1, 1000},    {38, false, 1, 1000}, {39, false, 1, 1000},
    {40, false, 1, 1000},    {53, false, 1, 1000},    {58, false, 1, 1000},  // byte read
    {56, true, 1, 1000},  // byte read with argument
    {8, false, 4, 1000},  // word read
    {11, false, 2048, 1000},  // block read, short timeout
    {12, false, 12, 1000},   {13, false, 12, 1000},  // record read
    {3, true, 1, 1000},      {5, true, 1, 1000},      {19, true, 1, 1000},  {20, true, 1, 1000},
    {33, true, 1, 1000},     {34, true, 1, 1000},     {37, true, 1, 1000},  {54, true, 1, 1000},
    {80, true, 1, 1000},     {81, true, 1, 1000},  // byte write
    {57, true, 1, 1000},  // byte write, second form
    {255, true, 1, 1000},  // probe
};

}  // namespace

TEST_F(Dispatcher, EachKnownCodeGoesOutWithItsGroupsSetup) {
    connect_sensors(1);
    const int kArgument = 0x77;
    for (const SExpectedSetup& expected : kKnownCodes) {
        SCOPED_TRACE("code " + std::to_string(expected.iCode));
        vsensor::clear_events();
        do_control_transfer(expected.iCode, kArgument, 0);
        const auto controls = control_events();
        ASSERT_EQ(controls.size(), 1u);
        EXPECT_EQ(controls[0].bmRequestType, 0xA1);
        EXPECT_EQ(controls[0].bRequest, expected.iCode);
        EXPECT_EQ(controls[0].wValue, expected.bSendsArgument ? kArgument : 0);
        EXPECT_EQ(controls[0].wIndex, 0);
        EXPECT_EQ(controls[0].wLength, expected.wLength);
        EXPECT_EQ(controls[0].timeout, expected.iTimeoutMs);
    }
}

TEST_F(Dispatcher, ResultIsReplyByteZeroExceptForTheIdentity) {
    vsensor::SensorOptions opts;
    opts.raw_identity = {0x00, 0x00, 0x00, 0x00, 0x00};
    connect_sensors({opts});
    do_control_transfer(37, 0x12, 0);
    do_control_transfer(5, 0x34, 0);
    EXPECT_EQ(do_control_transfer(36, 0, 0), 0x12);
    EXPECT_EQ(do_control_transfer(4, 0, 0), 0x34);
    // The identity record starts with 0, yet the dispatcher answers 1.
    EXPECT_EQ(do_control_transfer(1, 0, 0), 1);
}

TEST_F(Dispatcher, FailedTransfersAnswerZero) {
    connect_sensors(1);
    do_control_transfer(5, 0x34, 0);
    vsensor::set_faults(0, vsensor::kFaultControlTimeout);
    EXPECT_EQ(do_control_transfer(4, 0, 0), 0);
    vsensor::set_faults(0, vsensor::kFaultNoEcho);
    EXPECT_EQ(do_control_transfer(4, 0, 0), 0);
}

TEST_F(Dispatcher, UnknownCodesAreNotSentAndAnswerOne) {
    connect_sensors(1);
    for (int iCode : {0, 9, 41, 49, 70, 71, 254, 256}) {
        EXPECT_EQ(do_control_transfer(iCode, 0, 0), 1) << "code " << iCode;
    }
    EXPECT_TRUE(control_events().empty());
}

TEST_F(Dispatcher, IndexWithoutHandleAnswersOneAndIsRemembered) {
    connect_sensors(1);
    EXPECT_EQ(do_control_transfer(4, 0, 7), 1);
    EXPECT_TRUE(control_events().empty());
    EXPECT_EQ(get_connected_total_devices(), 2u);
    EXPECT_EQ(find_device_handle(7), nullptr);
}

TEST_F(Dispatcher, CommandsGoToTheSensorOfTheirIndex) {
    connect_sensors(2);
    do_control_transfer(5, 9, 1);
    EXPECT_EQ(vsensor::transcript(1), "cmd 5 value 9");
    EXPECT_EQ(vsensor::transcript(0), "");
}

TEST_F(Dispatcher, StartAndStopSendModeCommandAndPause) {
    connect_sensors(1);
    start_sensor(0);
    stop_sensor(0);
    EXPECT_EQ(vsensor::transcript(), Wire().cmd_then_pause(3, 3, 10).cmd_then_pause(3, 1, 10).str());
}

// Registers 1 to 11 (reads) and 1 to 10 (writes) map to codes; 0 marks one
// in no group, which is not sent and reads as 1. Others read as 0.
TEST_F(Dispatcher, RegisterTables) {
    connect_sensors(1);
    const int kReadCodes[] = {36, 4, 39, 38, 0, 0, 0, 0, 35, 40, 0};
    const int kWriteCodes[] = {37, 5, 34, 33, 0, 0, 0, 0, 19, 20};
    for (int reg = 0; reg <= 12; ++reg) {
        SCOPED_TRACE("register " + std::to_string(reg));
        vsensor::clear_events();
        const unsigned char ucValue = read_register_data(static_cast<unsigned char>(reg), 0);
        const int iRead = reg >= 1 && reg <= 11 ? kReadCodes[reg - 1] : 0;
        EXPECT_EQ(vsensor::transcript(), iRead ? Wire().cmd(iRead).str() : "");
        if (iRead == 0) {
            EXPECT_EQ(ucValue, reg >= 1 && reg <= 11 ? 1 : 0);
        }
        vsensor::clear_events();
        write_register_data(static_cast<unsigned char>(reg), 0x5A, 0);
        const int iWrite = reg >= 1 && reg <= 10 ? kWriteCodes[reg - 1] : 0;
        EXPECT_EQ(vsensor::transcript(), iWrite ? Wire().cmd(iWrite, 0x5A).str() : "");
    }
}
