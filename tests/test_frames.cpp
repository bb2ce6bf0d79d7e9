// Frame streaming: raw frame decoding, the streaming commands and their
// pauses, the bulk callback's counting and error paths, and the control-mode read.
#include "stream_fixture.h"

#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_sensor_state.h"
#include "efm32com/oru_device_interface_stm_bulk.h"
#include "efm32com/oru_device_interface_stm_streaming.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "efm32com/oru_device_interface_stm_request.h"
#include "efm32com/oru_device_interface_stm_event_loop.h"
#include "efm32com/oru_device_interface_usb.h"
#include "sensors/oru_sensor_record.h"

#include <chrono>
#include <cstring>

using streamtest::stream_cmd;
using usbtest::Wire;

namespace {

class Streaming : public streamtest::StreamTest {};

// Waits (bounded) until the request has taken n frames.
bool wait_for_frames_taken(size_t n) {
    return wait_for_queued_frames(n, std::chrono::steady_clock::now() + std::chrono::seconds(10), 0) >= n;
}

// Filter j of the frame the request kept in place i.
double kept_value(size_t i, int j) {
    double frame[1024];
    copy_queued_frame(i, frame);
    return frame[j];
}

}  // namespace

// ---- raw frame layout ----

// Twelve bits, left-aligned, most significant byte first; the low nibble
// never matters. The input is consumed; null buffers change nothing.
TEST(FrameDecode, SamplesAreTwelveBitsLeftAlignedMostSignificantByteFirst) {
    char raw[2048] = {};
    const unsigned char pairs[][2] = {{0xAB, 0xCD}, {0xFF, 0xFF}, {0x12, 0x30}, {0x12, 0x3F}, {0x00, 0x10}};
    for (int i = 0; i < 5; ++i) {
        raw[2 * i] = static_cast<char>(pairs[i][0]);
        raw[2 * i + 1] = static_cast<char>(pairs[i][1]);
    }
    double out[1024];
    convert_2048C_to_1024F(nullptr, out);
    convert_2048C_to_1024F(raw, nullptr);
    EXPECT_EQ(raw[0], static_cast<char>(0xAB));
    convert_2048C_to_1024F(raw, out);
    EXPECT_EQ(std::vector<double>(out, out + 6), (std::vector<double>{0xABC, 4095, 0x123, 0x123, 1, 0}));
    EXPECT_EQ(out[1023], 0.0);
    char zeros[2048] = {};
    EXPECT_EQ(std::memcmp(raw, zeros, sizeof raw), 0) << "the input is consumed";
}

TEST(StreamPause, GrowsWithShutterSpeedAboveTheMinimumPause) {
    g_iSleepTime = 30;
    EXPECT_EQ(get_sleep_time_for_shutter_speed(0), 30);
    EXPECT_EQ(get_sleep_time_for_shutter_speed(1), 30);
    EXPECT_EQ(get_sleep_time_for_shutter_speed(54), 30);  // 29.6 rounds up to 30
    EXPECT_EQ(get_sleep_time_for_shutter_speed(55), 31);  // 30.2 rounds up to 31
    EXPECT_EQ(get_sleep_time_for_shutter_speed(1000), 548);
    g_iSleepTime = 100;
    EXPECT_EQ(get_sleep_time_for_shutter_speed(55), 100);
    EXPECT_EQ(get_sleep_time_for_shutter_speed(1000), 548);
    g_iSleepTime = 30;
}

// ---- streaming commands ----

TEST_F(Streaming, StreamingCommandsAreClassRequestsToInterfaceOneWithAShutterDependentPause) {
    connect_sensors(1);
    acquire_frame_data_bulk(70, 0);
    g_iCurShutterSpeed = 1000;
    acquire_frame_data_bulk(71, 0);
    EXPECT_EQ(vsensor::transcript(), Wire().then(stream_cmd(70, 30)).then(stream_cmd(71, 548)).str());
    EXPECT_EQ(usbtest::setups(), (std::vector<std::string>{usbtest::setup(0, 0x21, 70, 0, 1, 0, 2000),
                                                           usbtest::setup(0, 0x21, 71, 0, 1, 0, 2000)}));
    EXPECT_FALSE(vsensor::streaming(0));
}

TEST_F(Streaming, StreamingCommandForAnUnknownSensorSendsNothingAndLeavesNoEntry) {
    connect_sensors(1);
    EXPECT_EQ(acquire_frame_data_bulk(70, 5), 0);
    EXPECT_EQ(vsensor::transcript(), "");
    EXPECT_EQ(UsbDevHandle::pDevH.count(5), 0u);
}

TEST_F(Streaming, AcquisitionPreparationSetsBlankTimeTwoAndRetriesOnce) {
    connect_sensors(1);
    Wire once =
        Wire().cmd_then_pause(34, 0, 30).cmd_then_pause(33, 2, 30).cmd_then_pause(39, 0, 30).cmd_then_pause(38, 0, 30);
    EXPECT_EQ(set_frame_data_acq_mode(5, 0), 1);
    EXPECT_EQ(vsensor::transcript(), once.str());

    vsensor::clear_events();
    vsensor::set_faults(0, vsensor::kFaultNoEcho);
    EXPECT_EQ(set_frame_data_acq_mode(5, 0), 1);
    EXPECT_EQ(vsensor::transcript(), Wire().then(once).then(once).str());
}

// ---- bulk callback ----

TEST_F(Streaming, SingleShotModeCountsTwoFramesMoreAndQueuesFromTheThird) {
    bring_up(1);
    vsensor::use_frame_counter(0);
    begin_frame_request(3, 4, 4);
    acquire_frame_data_bulk(70, 0);
    ASSERT_TRUE(wait_for_frames_taken(4));
    acquire_frame_data_bulk(71, 0);
    ASSERT_EQ(queued_frames(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(kept_value(i, 0), i + 2.0) << "frames 0 and 1 are thrown away";
        EXPECT_EQ(kept_value(i, 1023), i + 2.0);
    }
    double sum[1024] = {};
    add_queued_frames(sum);
    EXPECT_EQ(sum[500], 2 + 3 + 4 + 5);
    {
        std::lock_guard<std::mutex> lk(exit_cond_lock);
        EXPECT_EQ(g_count, 6) << "frames after the request is served are not counted";
    }
    end_frame_request(0);
}

TEST_F(Streaming, CompletedFrameIsQueuedThenAFailedResubmissionIsReported) {
    connect_sensors(1);
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    unsigned char buffer[2048];
    std::vector<uint16_t> values(1024);
    for (int i = 0; i < 1024; ++i) values[i] = static_cast<uint16_t>(i * 4);
    std::vector<uint8_t> wire = vsensor::encode_frame(values.data());
    std::memcpy(buffer, wire.data(), sizeof buffer);
    // As the library makes them: the transfer carries its sensor's record.
    libusb_fill_bulk_transfer(transfer, find_device_handle(0), 0x81, buffer, 2048, cb_bulkdata,
                              oru_sensor::sensor_record(0), 0);
    transfer->status = LIBUSB_TRANSFER_COMPLETED;
    transfer->actual_length = 2048;
    begin_frame_request(1, 1, 1);
    vsensor::unplug(0);

    testing::internal::CaptureStdout();
    cb_bulkdata(transfer);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "===>>>> libusb_submit_transfer fail!!!\n");
    EXPECT_EQ(do_exit, 0) << "the loop goes on for the other sensors";
    EXPECT_EQ(sensor_health(0), kSensorRemoved) << "the refused resubmission is this sensor's removal";
    ASSERT_EQ(queued_frames(), 1u);
    EXPECT_EQ(kept_value(0, 1), 4);
    EXPECT_EQ(kept_value(0, 1023), 4092);
    EXPECT_EQ(g_count, 1);
    unsigned char zeros[2048] = {};
    EXPECT_EQ(std::memcmp(buffer, zeros, sizeof buffer), 0) << "the buffer is zeroed after each frame";
    libusb_free_transfer(transfer);
}

// ---- control-mode read ----

// Frames 0 .. n are requested one by one with their pauses, each reported
// at the first and the last; a stop request ends the loop at once.
TEST_F(Streaming, ControlModeReadQueuesTheRequestedFramesAndStopsWhenAsked) {
    connect_sensors(1);
    begin_frame_request(0, 3, 0);
    stopFlag = true;
    EXPECT_EQ(acquire_frame_data_control(2, 0), 1);
    EXPECT_EQ(vsensor::transcript(), "");
    EXPECT_EQ(queued_frames(), 0u);
    stopFlag = false;
    testing::internal::CaptureStdout();
    EXPECT_EQ(acquire_frame_data_control(2, 0), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Received data Count = 0\n===>>>> curent count : 0\n"
              "Received data Count = 2\n===>>>> curent count : 2\n");
    EXPECT_EQ(queued_frames(), 3u);
    EXPECT_EQ(usbtest::setups(), std::vector<std::string>(3, usbtest::setup(0, 0xA1, 2, 132, 1, 2048, 2000)));
    EXPECT_EQ(vsensor::total_pause_us(), 3u * 30000u);
    // A read that fails gives a zero frame, not the last one again.
    begin_frame_request(0, 1, 1);
    vsensor::set_faults(0, vsensor::kFaultControlTimeout);
    testing::internal::CaptureStdout();
    EXPECT_EQ(acquire_frame_data_control(2, 0), 1);
    testing::internal::GetCapturedStdout();
    for (int j : {0, 1, 1023}) EXPECT_EQ(kept_value(0, j), 0.0) << j;
}
