// Bring-up and tear-down of sensors: their order, the one event thread, the
// bulk transfer per sensor, and what tear-down releases and what it keeps.
#include "api_test_support.h"
#include "stream_fixture.h"

#include "efm32com/oru_device_interface_ae.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "efm32com/oru_device_interface_stm_bringup.h"
#include "efm32com/oru_device_interface_stm_bulk.h"
#include "efm32com/oru_device_interface_stm_event_loop.h"
#include "efm32com/oru_device_interface_usb.h"

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

using streamtest::all_equal;
using streamtest::stream_cmd;
using usbtest::Wire;

namespace {

class BringUp : public streamtest::StreamTest {};

// Bulk transfers that tear-down found submitted and cancelled.
long cancellations(int dev) {
    std::vector<std::string> steps = usbtest::lifecycle_of(dev);
    return std::count(steps.begin(), steps.end(), "cancel");
}

}  // namespace

TEST_F(BringUp, EachSensorIsSetUpStartedAndLeftIdleInThatOrder) {
    vsensor::add_sensor();
    vsensor::add_sensor();
    for (int dev = 0; dev < 2; ++dev) {
        vsensor::clear_events();
        EXPECT_EQ(bring_up_index(static_cast<unsigned int>(dev)), lu_ec_success);
        std::vector<std::string> items = transcript_items(dev);
        int iStart = find_item(items, "cmd 3 value 3");
        int iAdc = find_item(items, "cmd 19 value 132", iStart);
        int iGainRes = find_item(items, "cmd 20 value 2", iAdc);  // gain 1, resolution 0
        int iAvgSet = find_item(items, "cmd 54 value 0", iGainRes);
        int iAvgGet = find_item(items, "cmd 53 value 0", iAvgSet);
        ASSERT_GT(iStart, 0) << "sensor " << dev << ": initial settings come first";
        ASSERT_GT(iAdc, iStart);
        ASSERT_GT(iGainRes, iAdc);
        ASSERT_GT(iAvgSet, iGainRes);
        ASSERT_GT(iAvgGet, iAvgSet);
        ASSERT_GE(items.size(), 2u);
        EXPECT_EQ(items[items.size() - 2], "out 71 value 0 index 1") << "sensor " << dev << " ends idle";
        EXPECT_EQ(items.back(), "pause 30 ms");
        EXPECT_EQ(find_item(items, "out 70 value 0 index 1"), -1);
        EXPECT_TRUE(vsensor::is_claimed(dev));
        EXPECT_FALSE(vsensor::streaming(dev));
    }
}

TEST_F(BringUp, TwoSensorsShareTheEventThreadStartedBySensorZero) {
    vsensor::add_sensor();
    vsensor::add_sensor();
    EXPECT_EQ(bring_up_index(0), lu_ec_success);
    std::thread::id first = usbEventLoop_thread.get_id();
    EXPECT_TRUE(usb_event_loop_running());
    EXPECT_EQ(asyncTransferInitialized, 1);
    EXPECT_EQ(allocTransferBulkMap.size(), 256u);
    EXPECT_EQ(bring_up_index(1), lu_ec_success);
    EXPECT_EQ(bring_up_index(1), lu_ec_success) << "a second bring-up adds no transfer";
    EXPECT_EQ(usbEventLoop_thread.get_id(), first) << "started once";
    EXPECT_TRUE(allocTransferBulkMap.at(0));
    EXPECT_TRUE(allocTransferBulkMap.at(1));
    EXPECT_FALSE(allocTransferBulkMap.at(2));

    vsensor::set_constant_frame(0, 1000);
    vsensor::set_constant_frame(1, 2000);
    std::vector<double> out;
    EXPECT_EQ(read(out, 3, 3, 1), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 2000.0));
    EXPECT_EQ(read(out, 3, 3, 0), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 1000.0));

    vsensor::clear_events();
    EXPECT_EQ(tear_down_index(1), 1);
    EXPECT_EQ(tear_down_index(0), 1);
    EXPECT_EQ(cancellations(0), 1) << "one bulk transfer per sensor";
    EXPECT_EQ(cancellations(1), 1);
}

TEST_F(BringUp, MissingSensorFailsButSensorZeroStillStartsTheEventThread) {
    EXPECT_EQ(bring_up_index(0), lu_ec_fail_to_initialize_device);
    EXPECT_TRUE(usb_event_loop_running());
    EXPECT_EQ(asyncTransferInitialized, 1);
    EXPECT_FALSE(allocTransferBulkMap.at(0));
    EXPECT_EQ(vsensor::transcript(), "");
}

// A program that opens only index 1 still gets an event thread and frames.
TEST_F(BringUp, SensorOneAloneStartsTheThreadAndGetsFrames) {
    vsensor::add_sensor();
    vsensor::add_sensor();
    vsensor::set_constant_frame(1, 777);
    EXPECT_EQ(bring_up_index(1), lu_ec_success);
    EXPECT_TRUE(usb_event_loop_running());
    EXPECT_TRUE(allocTransferBulkMap.at(1));
    EXPECT_NE(find_item(transcript_items(1), "out 71 value 0 index 1"), -1);
    std::vector<double> output(1024, 0.0);
    ORU_ERROR_CODE code = lu_ec_fail;
    get_filter_data_from_sensor(output.data(), 3, 0, 0, 1, &code);
    EXPECT_EQ(code, lu_ec_success);
    EXPECT_DOUBLE_EQ(output[5], 777.0);
    EXPECT_EQ(tear_down_index(1), 1);
    EXPECT_EQ(cancellations(1), 1);
}

// A sensor whose claim failed gets no bulk transfer; one whose transfer
// cannot be allocated is marked all the same (it is not tried again), its
// buffer freed and nothing submitted.
TEST_F(BringUp, SensorWithoutABulkTransferHasNothingToCancel) {
    vsensor::SensorOptions opts;
    opts.faults = vsensor::kFaultClaim;
    vsensor::add_sensor(opts);
    vsensor::add_sensor();
    EXPECT_EQ(bring_up_index(0), lu_ec_success);  // the scan found it
    EXPECT_FALSE(allocTransferBulkMap.at(0));
    EXPECT_EQ(bring_up_index(1), lu_ec_success);
    EXPECT_EQ(release_transfer_bulk(1), 1);
    vsensor::clear_events();
    EXPECT_EQ(alloc_transfer_bulk_l(-1, 2048, nullptr, 1), -1);  // no transfer with -1 packets
    EXPECT_TRUE(bulk_transfer_made(1));
    EXPECT_EQ(release_transfer_bulk(1), 0) << "nothing was submitted";
    EXPECT_EQ(tear_down_index(1), 1);
    EXPECT_EQ(tear_down_index(0), 1);
    EXPECT_EQ(cancellations(0) + cancellations(1), 0);
}

TEST_F(BringUp, BringUpLoadsTheLookUpTablesOfTheWorkingDirectory) {
    namespace fs = std::filesystem;
    fs::path oldDir = fs::current_path();
    char dirTemplate[] = "/tmp/oru_bringup_XXXXXX";
    ASSERT_NE(mkdtemp(dirTemplate), nullptr);
    fs::current_path(dirTemplate);
    fs::create_directory("config");
    std::ofstream("config/intensity_LUT.csv") << "0.5,1,1.5\n";
    std::ofstream("config/ss_LUT.csv") << "1,2,4,8\n";
    vsensor::add_sensor();
    EXPECT_EQ(bring_up_index(0), lu_ec_success);
    fs::current_path(oldDir);
    fs::remove_all(dirTemplate);
    EXPECT_EQ(g_aeLUTSize, 4);
    ASSERT_NE(g_intensityLUT, nullptr);
    EXPECT_EQ(g_intensityLUT[2], 1.5);
    ASSERT_NE(g_ssLUT, nullptr);
    EXPECT_EQ(g_ssLUT[3], 8.0);
}

// ---- tear-down ----

TEST_F(BringUp, TearDownStopsTheSensorThenReleasesEverythingOfIt) {
    bring_up(1);
    std::vector<double> out;
    EXPECT_EQ(read(out, 2, 1), lu_ec_success);  // leave streaming on
    vsensor::clear_events();
    testing::internal::CaptureStderr();
    EXPECT_EQ(tear_down_index(0), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the cancelled transfer is no failure";
    EXPECT_EQ(do_exit, 1);
    // The three stop commands find no handle any more: only their pauses remain.
    EXPECT_EQ(vsensor::transcript(), Wire().cmd_then_pause(3, 1, 10).pause_ms(20).pause_ms(20).pause_ms(10).str());
    std::vector<std::string> steps = usbtest::lifecycle_of(0);
    EXPECT_NE(std::find(steps.begin(), steps.end(), "close"), steps.end());
    EXPECT_FALSE(vsensor::is_open(0));
    EXPECT_FALSE(vsensor::is_claimed(0));
    EXPECT_FALSE(usbEventLoop_thread.joinable());
    EXPECT_FALSE(usb_event_loop_running());
    EXPECT_EQ(asyncTransferInitialized, 1) << "stays set for the whole process";
    EXPECT_FALSE(allocTransferBulkMap.at(0));
    EXPECT_EQ(UsbDevHandle::pDevH.count(0), 0u);
}

TEST_F(BringUp, TearDownOfAnUnknownSensorOrATearDownRepeatedReturnsOne) {
    EXPECT_EQ(close_device_interface(7), 1);
    bring_up(1);
    EXPECT_EQ(tear_down_index(0), 1);
    EXPECT_EQ(close_device_interface(0), 1);  // as the device object's destructor does
    EXPECT_FALSE(usbEventLoop_thread.joinable());
}

// Sensor 1 torn down first ends the one event thread: sensor 0 is still
// released, both come up again, and a sensor left without the thread times
// out instead of hanging.
TEST_F(BringUp, SensorsTornDownAfterTheEventThreadEndedAreReleasedAndComeUpAgain) {
    bring_up(2);
    EXPECT_EQ(tear_down_index(1), 1);
    EXPECT_FALSE(usb_event_loop_running());
    EXPECT_EQ(tear_down_index(0), 1);
    EXPECT_FALSE(vsensor::is_open(0));
    EXPECT_FALSE(vsensor::is_claimed(0));
    vsensor::set_constant_frame(0, 100);
    vsensor::set_constant_frame(1, 200);
    ASSERT_EQ(bring_up_index(0), lu_ec_success);
    ASSERT_EQ(bring_up_index(1), lu_ec_success);
    std::vector<double> out;
    EXPECT_EQ(read(out, 2, 3, 1), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 200.0));
    EXPECT_EQ(read(out, 2, 3, 0), lu_ec_success);
    EXPECT_TRUE(all_equal(out, 100.0));
    EXPECT_EQ(tear_down_index(0), 1);  // the thread ends with sensor 0's tear-down
    set_frame_wait_margin_ms(100);
    EXPECT_EQ(read(out, 2, 3, 1), lu_ec_fw_recv_timeout);
}
