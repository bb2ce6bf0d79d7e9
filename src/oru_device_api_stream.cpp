// Exported functions of the frame streams of the active sensor.
#include "oru_device_api.h"

#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_sensor_state.h"
#include "efm32com/oru_device_interface_stm_streaming.h"
#include "oru_device_api_lock.h"
#include "oru_device_api_state.h"
#include "stream/oru_frame_stream.h"

namespace {

// The stream read of sensor_index, with or without the saturation flags.
int read_stream_of(int sensor_index, double* output, int number_of_averages, int timeout_ms, duFrameStreamInfo* info,
                   unsigned char* saturated) {
    return oru_api_call([&] {
        if (output == nullptr) return -lu_ec_filter_buffer_is_null;
        if (number_of_averages < 1 || timeout_ms < 0) return -lu_ec_ill_defined_input;
        {
            // Only to find the sensor; the wait below holds up nobody.
            const ApiGuard guard(g_apiLock);
            oru_api_device_at(sensor_index);
        }
        const auto sensor = static_cast<unsigned int>(sensor_index);
        const int result = oru_stream::read(sensor, output, number_of_averages, timeout_ms, info, saturated);
        // The exposure cannot change while the stream is on.
        if (result == 1 && info != nullptr) info->shutter_speed = sensor_shutter_speed(sensor);
        return result;
    });
}

}  // namespace

extern "C" {

// Start and stop hold only their own sensor: a request or a reconnect on
// another sensor goes on meanwhile.
int duStartFrameStream(void) {
    return oru_api_on_active(ApiHold::kSensor, [](oru_device_interface&, unsigned int sensor) {
        if (sensor_health(sensor) != kSensorUsable) return -lu_ec_fw_recv_timeout;
        const int result = oru_stream::open(sensor);
        if (result != 1) return result;
        start_frame_streaming(sensor);
        return 1;
    });
}

int duStopFrameStream(void) {
    return oru_api_on_active(ApiHold::kSensor, [](oru_device_interface&, unsigned int sensor) {
        if (!oru_stream::is_on(sensor)) return -lu_ec_initialization_required;
        stop_frame_streaming(sensor);
        return oru_stream::close(sensor);
    });
}

int duReadFrameStream(double* output, int number_of_averages, int timeout_ms, duFrameStreamInfo* info) {
    int sensor = -1;
    {
        const ApiGuard guard(g_apiLock);
        sensor = g_current_device_index;
    }
    return duReadFrameStreamOf(sensor, output, number_of_averages, timeout_ms, info);
}

int duReadFrameStreamOf(int sensor_index, double* output, int number_of_averages, int timeout_ms,
                        duFrameStreamInfo* info) {
    return read_stream_of(sensor_index, output, number_of_averages, timeout_ms, info, nullptr);
}

int duReadFrameStreamMaskOf(int sensor_index, double* output, int number_of_averages, int timeout_ms,
                            duFrameStreamInfo* info, unsigned char* saturated) {
    return read_stream_of(sensor_index, output, number_of_averages, timeout_ms, info, saturated);
}

}  // extern "C"
