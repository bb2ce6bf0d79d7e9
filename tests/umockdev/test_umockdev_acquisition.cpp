// Settings and filter data through the real libusb: read-backs that come
// back through usbfs, bulk frames reaped by libusb's event handling on the
// library's event thread, averaged in single-shot and continuous modes, and
// the auto-exposure search on an optical scene.
#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include "efm32com/oru_device_interface_device_settings.h"
#include "oru_base_exception.h"
#include "oru_device_api.h"
#include "oru_device_interface.h"
#include "umock_fixture.h"

using namespace umockbus;

namespace {

class RealUsbAcquisition : public RealUsbTest {};

bool all_equal(const std::vector<double>& values, double expected) {
    return std::all_of(values.begin(), values.end(), [expected](double v) { return v == expected; });
}

int count_of(const std::vector<std::string>& items, const std::string& item) {
    return static_cast<int>(std::count(items.begin(), items.end(), item));
}

}  // namespace

TEST_F(RealUsbAcquisition, ShutterSpeedIsWrittenAndReadBack) {
    plug_sensors(1);
    ASSERT_EQ(connect(), 1);
    vsensor::clear_events();
    EXPECT_EQ(quietly([] { return duSetShutterSpeed(1000); }), 1);
    // Blank time 1032 first, then the shutter bytes, upper first, each read
    // back; a read-back lost on the way would repeat the group.
    const std::string expected =
        "cmd 34 value 4, pause 5 ms, cmd 33 value 8, pause 5 ms, cmd 37 value 3, pause 5 ms, "
        "cmd 5 value 232, pause 5 ms, cmd 36 value 0, pause 5 ms, cmd 4 value 0, pause 5 ms";
    EXPECT_EQ(vsensor::transcript(0).substr(0, expected.size()), expected);
    EXPECT_EQ(transcript_items(0).size(), 13u) << "and the settling pause, no more requests";
    EXPECT_EQ(vsensor::shutter_speed(0), 1000);
    EXPECT_EQ(quietly([] { return duGetShutterSpeed(); }), 1000);

    // The device's own bytes come back: change the lower one behind the library.
    vsensor::set_register_value(0, 5, 17);
    int read_back = 0;
    EXPECT_EQ(get_current_shutter_speed(&read_back, 0), lu_ec_success);
    EXPECT_EQ(read_back, (3 << 8) | 17);
}

TEST_F(RealUsbAcquisition, ShutterWriteIsRepeatedOnceWhenTheSensorEchoesNothing) {
    vsensor::SensorOptions mute;
    mute.faults = vsensor::kFaultNoEcho;
    plug_sensors(1, mute);
    ASSERT_EQ(connect(), 1);
    vsensor::clear_events();
    quietly([] { return duSetShutterSpeed(300); });
    const std::vector<std::string> items = transcript_items(0);
    EXPECT_EQ(count_of(items, "cmd 37 value 1"), 2);
    EXPECT_EQ(count_of(items, "cmd 5 value 44"), 2);
    EXPECT_EQ(count_of(items, "cmd 36 value 0"), 2);
    EXPECT_EQ(vsensor::shutter_speed(0), 300) << "the writes themselves arrived";
}

TEST_F(RealUsbAcquisition, SingleShotAveragesKnownFramesAfterTheTwoThrownAway) {
    plug_sensors(1);
    ASSERT_EQ(connect(), 1);
    // Filter i of frame n reads 3 i + n: position and order of every sample
    // and of every frame show in the average.
    vsensor::set_frame_source(0, [](uint64_t n, uint16_t* out) {
        for (int i = 0; i < vsensor::kFilters; ++i) out[i] = static_cast<uint16_t>(3 * i + n);
    });
    vsensor::clear_events();
    std::vector<double> data(1024, -1.0);
    EXPECT_EQ(quietly([&] { return duGetFilterData(data.data(), 10); }), 1);
    // Frames 0 and 1 are thrown away, frames 2 to 11 averaged: 3 i + 6.5.
    for (int i = 0; i < 1024; ++i) ASSERT_EQ(data[static_cast<size_t>(i)], 3 * i + 6.5) << "filter " << i;

    const std::vector<std::string> items = transcript_items(0);
    const int start = position(items, "out 70 value 0 index 1");
    ASSERT_GT(start, 0);
    const int stop = position(items, "out 71 value 0 index 1");
    EXPECT_GE(stop, 0);
    EXPECT_LT(stop, start) << "stop before start";
    EXPECT_EQ(count_of(items, "out 70 value 0 index 1"), 1);
    EXPECT_EQ(count_of(items, "out 71 value 0 index 1"), 4) << "one before, three after";
    EXPECT_FALSE(vsensor::streaming(0));
    EXPECT_GE(vsensor::frames_sent(0), 12u);
}

TEST_F(RealUsbAcquisition, ContinuousModeKeepsStreamingAndAveragesConsecutiveFrames) {
    plug_sensors(1);
    vsensor::use_frame_counter(0);  // every filter of frame n reads n
    oru_device_interface device;
    ASSERT_EQ(quietly([&] { return device.initialize(0); }), 1);
    std::vector<double> data(1024, -1.0);

    auto read = [&](int frames, int mode) {
        return quietly([&] {
            try {
                device.get_filter_data(data.data(), frames, 0, mode, 0);
                return 1;
            } catch (const oru_base_exception& e) {
                return -static_cast<int>(e.error_code);
            }
        });
    };

    ASSERT_EQ(read(5, 1), 1);
    EXPECT_TRUE(all_equal(data, 2.0)) << "frames 0 to 4, none thrown away; got " << data[0];
    EXPECT_TRUE(vsensor::streaming(0)) << "continuous mode leaves the stream on";

    // The next request takes 4 frames further on in the same run: the mean
    // of 4 consecutive frame numbers k .. k+3 is k + 1.5, the same for every filter.
    ASSERT_EQ(read(4, 1), 1);
    const double k = data[0] - 1.5;
    EXPECT_TRUE(all_equal(data, data[0]));
    EXPECT_EQ(k, static_cast<int>(k)) << "consecutive frames, got mean " << data[0];
    EXPECT_GE(k, 5.0) << "later frames than the first request's";

    // The last request of a series stops the stream.
    ASSERT_EQ(read(3, 2), 1);
    EXPECT_GT(data[0], k);
    EXPECT_FALSE(vsensor::streaming(0));
    quietly([&] {
        device.finalize(0);
        return 0;
    });
    EXPECT_TRUE(files_closed(0));
}

TEST_F(RealUsbAcquisition, AutoExposureBringsAWhiteSceneIntoTheWindow) {
    vsensor::SensorOptions white;
    white.scene = vsensor::Scene::FlatWhite;
    plug_sensors(1, white);
    ASSERT_EQ(connect(), 1);
    // 64 DN dark level + 21.6 DN per shutter unit (gain x2 from the start-up
    // ADC setting): the window 2900..3500 DN means shutter speeds 132..159.
    const int shutter = quietly([] { return duGetOptimalShutterSpeed(nullptr, 0); });
    EXPECT_GE(shutter, 132);
    EXPECT_LE(shutter, 159);
    EXPECT_EQ(vsensor::shutter_speed(0), shutter) << "the sensor is left at the speed found";

    std::vector<double> data(1024, 0.0);
    ASSERT_EQ(quietly([&] { return duGetFilterData(data.data(), 3); }), 1);
    const double mean = std::accumulate(data.begin(), data.end(), 0.0) / 1024.0;
    EXPECT_GE(mean, 2900.0);
    EXPECT_LE(mean, 3500.0);
}
