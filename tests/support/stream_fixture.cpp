#include "stream_fixture.h"

#include "efm32com/oru_device_interface_sensor_state.h"
#include "efm32com/oru_device_interface_stm_bulk.h"
#include "efm32com/oru_device_interface_stm_streaming.h"
#include "efm32com/oru_device_interface_stm_request.h"
#include "efm32com/oru_device_interface_stm_event_loop.h"

#include <chrono>

#include "efm32com/oru_device_interface_ae.h"
#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "efm32com/oru_device_interface_stm_bringup.h"
#include "efm32com/oru_device_interface_stm_frames.h"
#include "oru_device_interface_base.h"
#include "stream/oru_frame_stream.h"

#include <algorithm>

namespace streamtest {

usbtest::Wire stream_cmd(int iCommand, unsigned int iPauseMs) {
    return usbtest::Wire().out(iCommand, 0, 1).pause_ms(iPauseMs);
}

usbtest::Wire stream_start(unsigned int iPauseMs) {
    return stream_cmd(71, iPauseMs).pause_ms(20).then(stream_cmd(70, iPauseMs));
}

usbtest::Wire stream_stop(unsigned int iPauseMs) {
    return stream_cmd(71, iPauseMs)
        .pause_ms(20)
        .then(stream_cmd(71, iPauseMs))
        .pause_ms(20)
        .then(stream_cmd(71, iPauseMs));
}

std::vector<int> shutter_speeds_written(int dev) {
    std::vector<int> speeds;
    int iUpper = -1;
    for (const vsensor::Event& e : usbtest::control_events()) {
        if (e.dev != dev || e.bmRequestType != 0xA1) continue;
        if (e.bRequest == 37) iUpper = e.wValue;
        if (e.bRequest == 5 && iUpper >= 0) {
            speeds.push_back(iUpper * 256 + e.wValue);
            iUpper = -1;
        }
    }
    return speeds;
}

bool wait_for_health(unsigned int iDeviceId, int iHealth) {
    std::unique_lock<std::mutex> lk(exit_cond_lock);
    return exit_cond.wait_for(lk, std::chrono::seconds(10), [&] { return sensor_health(iDeviceId) == iHealth; });
}

::testing::AssertionResult all_equal(const std::vector<double>& values, double value) {
    if (values.size() != 1024) return ::testing::AssertionFailure() << values.size() << " values";
    for (size_t i = 0; i < values.size(); ++i) {
        if (values[i] != value) {
            return ::testing::AssertionFailure() << "value " << i << " is " << values[i] << ", not " << value;
        }
    }
    return ::testing::AssertionSuccess();
}

void StreamTest::SetUp() {
    usbtest::UsbTest::SetUp();
    reset_frame_request();
    reset_usb_event_loop();
    reset_bulk_transfers();
    reset_frame_streaming();
    reset_frame_ring();
    reset_acquisition();
    reset_ae_parameters();
    reset_device_object_state();
    reset_sensor_health();
    oru_stream::reset_for_tests();
}

void StreamTest::TearDown() {
    testing::internal::CaptureStdout();
    for (auto it = m_up.rbegin(); it != m_up.rend(); ++it) close_device_interface(*it);
    m_up.clear();
    reset_usb_event_loop();
    testing::internal::GetCapturedStdout();
    usbtest::UsbTest::TearDown();
}

void StreamTest::bring_up(int nSensors, unsigned int faults) {
    for (int i = 0; i < nSensors; ++i) {
        vsensor::SensorOptions opts;
        opts.faults = faults;
        vsensor::add_sensor(opts);
    }
    for (int i = 0; i < nSensors; ++i) {
        EXPECT_EQ(bring_up_index(static_cast<unsigned int>(i)), lu_ec_success) << "sensor " << i;
    }
    vsensor::clear_events();
}

int StreamTest::bring_up_index(unsigned int iDeviceId) {
    testing::internal::CaptureStdout();
    int iResult = initialize_device_interface(iDeviceId);
    testing::internal::GetCapturedStdout();
    if (std::find(m_up.begin(), m_up.end(), iDeviceId) == m_up.end()) m_up.push_back(iDeviceId);
    return iResult;
}

int StreamTest::tear_down_index(unsigned int iDeviceId) {
    m_up.erase(std::remove(m_up.begin(), m_up.end(), iDeviceId), m_up.end());
    return close_device_interface(iDeviceId);
}

ORU_ERROR_CODE StreamTest::read(std::vector<double>& out, int nAverages, int iMode, unsigned int iDeviceId) {
    out.assign(1024, -1.0);
    ORU_ERROR_CODE eCode = lu_ec_undefined_fail;
    double fDark = get_filter_data_from_sensor(out.data(), nAverages, 0, iMode, iDeviceId, &eCode);
    EXPECT_EQ(fDark, 0.0);
    return eCode;
}

vsensor::FrameSource shutter_dependent(std::function<int(int, int)> value) {
    return [value](uint64_t, uint16_t* out) {
        int iShutterSpeed = g_iCurShutterSpeed;
        for (int i = 0; i < 1024; ++i) {
            out[i] = static_cast<uint16_t>(std::clamp(value(i, iShutterSpeed), 0, 4095));
        }
    };
}

}  // namespace streamtest
