/* The library's exported C interface: find and open the attached sensors,
 * choose the active one, set and read exposure and ADC parameters, search for
 * the optimal shutter speed and read averaged filter data.
 *
 * Results: 1 or the function's own value on success; a negative number on
 * failure (the negated error code, or -1). No function lets an exception out. */
#ifndef ORU_DEVICE_API_H
#define ORU_DEVICE_API_H

#include "oru_export.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Messages. The library prints its lines on standard output (the bulk
 * transfer status line on standard error); ORU_DEVICE_LOG=stderr sends all of
 * them to standard error, ORU_DEVICE_LOG=off silences them (read once, at the
 * first line). duSetLogHandler hands every line to handler instead: level 0
 * for the normal lines, 1 for errors (the bulk transfer status line, the
 * exception lines), line without its newline. NULL restores the default. The
 * handler runs on the thread that prints: the caller's thread, or the
 * library's event thread for the bulk transfer lines. It must not call
 * duSetLogHandler itself; once duSetLogHandler returns, the previous handler
 * is not called any more. */
ORU_EXPORT void duSetLogHandler(void (*handler)(int level, const char* line, void* user), void* user);

/* Words for a result of the functions below, for messages: the text of the
 * error code a negative result (or 0) stands for, "success" for a result above
 * 0, "unknown error" for a code the library does not have. Never NULL; the
 * text is static. */
ORU_EXPORT const char* duGetErrorText(int result);

/* Connection and sensor selection */
ORU_EXPORT int duConnect(void);
ORU_EXPORT int duDisconnect(void);
/* malloc'ed array of duGetTotalSensors() malloc'ed 26-byte ID strings (no
 * terminating entry); the caller frees every string and the array. */
ORU_EXPORT char** duGetSensorList(void);
ORU_EXPORT int duGetMaxSensorCount(void);
ORU_EXPORT int duActivateSensorWithIndex(int sensor_index);
ORU_EXPORT int duActivateSensorWithID(const char* sensor_id_str);
ORU_EXPORT int duGetTotalSensors(void);
/* sensor_id must hold at least 26 bytes. */
ORU_EXPORT int duGetSensorID(char* sensor_id);

/* Exposure and filter data of the active sensor */
ORU_EXPORT int duGetShutterSpeed(void);
ORU_EXPORT int duGetShutterSpeedLimits(int* min_limit, int* max_limit);
ORU_EXPORT int duShutterSpeedToExposureTime(int master_clock, int shutter_speed, double* exposure_time_val);
ORU_EXPORT int duExposureTimeToShutterSpeed(int master_clock, double exposure_time_val, int* shutter_speed);
ORU_EXPORT int duSetShutterSpeed(int shutter);
/* Filter numbers in valid_filters_in are 1-based; NULL (or a count of 0)
 * means the default set. -24, before any USB traffic, for a number outside
 * 1..1024, a list longer than 1024 or a target_DN of 0 or less. */
ORU_EXPORT int duGetOptimalShutterSpeed2(int* valid_filters_in, int num_of_valid_filters, int target_DN);
ORU_EXPORT int duGetOptimalShutterSpeed(int* valid_filters_in, int num_of_valid_filters);
/* output must hold 1024 values. */
ORU_EXPORT int duGetFilterData(double* output, int number_of_averages);
ORU_EXPORT int duSetSensorParameters(int _adc_gain, int _adc_range);
ORU_EXPORT int duGetSensorParameters(int* _adc_gain, int* _adc_range);

/* The same conversions without a sensor (no sensor need be connected): the
 * arithmetic of duShutterSpeedToExposureTime and duExposureTimeToShutterSpeed.
 * 1; -2 for a NULL output; -24 where the formula has no defined result (a
 * master_clock whose 1000-fold is 0 in 32 bits, a shutter speed beyond int).
 * Ranges are the caller's to check. */
ORU_EXPORT int duConvertShutterSpeedToExposureTime(int master_clock, int shutter_speed, double* exposure_time_val);
ORU_EXPORT int duConvertExposureTimeToShutterSpeed(int master_clock, double exposure_time_val, int* shutter_speed);

/* Saturation, the one rule for every reading (a request, a stream read, any
 * front end): a filter is saturated when any frame of the reading hit the
 * converter's top, 4095 DN, or the stuck-filter mark, 4096. An average hides
 * that (a filter clipped in one frame of ten averages below 4095), so a
 * reading's flags come with it: duReadFrameStreamMaskOf for a stream read
 * (and duFrameStreamInfo.saturated_filters, their count), and
 * duGetLastRequestSaturation for duGetFilterData.
 *
 * duCountSaturatedFilters counts the values at 4095 DN or more: the rule
 * itself for the values of one frame, but for an average only the filters
 * saturated in every frame. Returns how many of the count values are; -19 for
 * NULL values, -24 for count < 0. */
ORU_EXPORT int duCountSaturatedFilters(const double* values, int count);

/* The saturation flags of the last request for filter data on sensor
 * sensor_index (duGetFilterData or a step of the shutter-speed search, its
 * moving-average frames included): saturated (1024 bytes) gets 1 for each
 * filter that any frame of the reading saturated, 0 for the others. Returns
 * their count; -19 for a NULL saturated, -7 for an index with no connected
 * sensor, -26 when there are none: no request on that sensor since it was
 * connected or reconnected, or the last one failed. Requests of other
 * threads replace the flags: hold duLockSensors across the request and this
 * call. */
ORU_EXPORT int duGetLastRequestSaturation(int sensor_index, unsigned char* saturated);

/* State of the connected sensor sensor_index (it need not be active):
 *   1  usable;
 *   2  failed: its bulk transfer ended in error; its reads and stream return
 *      -9 at once until duReconnectSensor (or duDisconnect and duConnect)
 *      brings it up again;
 *   3  removed: unplugged (seen through hotplug where libusb has it, or when
 *      its transfer reports the device gone); reads and stream return -9.
 * -24 for an index outside 0..duGetMaxSensorCount()-1, -7 for an index with
 * no connected sensor. A fault on one sensor leaves the others streaming. */
ORU_EXPORT int duGetSensorState(int sensor_index);
/* Brings sensor sensor_index back under the same index, whatever its state:
 * closes its stream (its readers get -9), drops its transfer and handle, and
 * opens the attached sensor, not held by another index, whose ID (as
 * duGetSensorID gives it) is sensor_id, with the startup settings and its last
 * shutter speed. The other sensors go on streaming meanwhile.
 * 1 when it is back (state 1; start a new stream to read on), 0 when no such
 * sensor is attached yet (call again later), -8 for a null or empty ID,
 * -24 and -7 as duGetSensorState. */
ORU_EXPORT int duReconnectSensor(int sensor_index, const char* sensor_id);

/* Frame streams. While the active sensor's stream is on, every frame it sends
 * is kept, in order, in a ring of that sensor (about 2 s of frames at the
 * fastest shutter speed), stamped on arrival. Reads take averages of
 * consecutive frames: two reads never share or skip a frame unless the ring
 * overflowed, and dropped_frames says so. While a sensor's stream is on,
 * duGetFilterData, the shutter-speed search, duSetShutterSpeed and
 * duSetSensorParameters refuse that sensor with -24, so that a reading never
 * mixes exposures: stop the stream, change, start it again. */
/* What a stream read took:
 *   first_sequence, last_sequence: sequence numbers of the first and last
 *     frame averaged (0 is the first frame after the stream's start);
 *   first_realtime_ns, last_realtime_ns: CLOCK_REALTIME when those frames
 *     arrived, in ns; first_monotonic_ns, last_monotonic_ns: CLOCK_MONOTONIC;
 *   dropped_frames: frames lost to a full ring since the stream started;
 *   shutter_speed: the sensor's shutter speed while the stream runs;
 *   saturated_filters: filters saturated (4095 DN or more) in any frame
 *     averaged: the reading's saturation count. */
typedef struct duFrameStreamInfo {
    uint64_t first_sequence, last_sequence;
    int64_t first_realtime_ns, last_realtime_ns, first_monotonic_ns, last_monotonic_ns;
    uint64_t dropped_frames;
    int32_t shutter_speed;
    int32_t saturated_filters;
} duFrameStreamInfo;

/* Starts the active sensor's stream (stop and start streaming commands, with
 * their pauses). 1, -24 when it is already on, -9 when the sensor has failed
 * or was removed. */
ORU_EXPORT int duStartFrameStream(void);
/* Stops it (three stop commands) and wakes its readers. 1, or -26 when no
 * stream is on. */
ORU_EXPORT int duStopFrameStream(void);
/* Writes into output (1024 values) the average of the next
 * number_of_averages frames and, when info is not NULL, describes them.
 * 1 on success; -9 when the frames do not come within timeout_ms, or the
 * stream stops or fails meanwhile (the frames taken so far are consumed);
 * -19 for a NULL output; -24 for number_of_averages < 1 or timeout_ms < 0;
 * -26 when no stream is on. Safe to call while another thread stops the
 * stream. */
ORU_EXPORT int duReadFrameStream(double* output, int number_of_averages, int timeout_ms, duFrameStreamInfo* info);
/* The same for the stream of sensor sensor_index, active or not (-7 when no
 * sensor is connected there): threads can read different sensors' streams at
 * once without activating them. */
ORU_EXPORT int duReadFrameStreamOf(int sensor_index, double* output, int number_of_averages, int timeout_ms,
                                   duFrameStreamInfo* info);
/* duReadFrameStreamOf that also gives the reading's saturation flags: when
 * saturated is not NULL, its 1024 bytes get 1 for each filter that any frame
 * averaged saturated (4095 DN or more), 0 for the others (written on success
 * only). Their count is info->saturated_filters. */
ORU_EXPORT int duReadFrameStreamMaskOf(int sensor_index, double* output, int number_of_averages, int timeout_ms,
                                       duFrameStreamInfo* info, unsigned char* saturated);

/* Threads. Every function may be called from any thread; each call runs
 * whole, without another thread's call interleaved. The calls that wait for
 * frames (duGetFilterData, the shutter-speed searches) hold the others up
 * while they wait, since all sensors share one frame queue and one
 * shutter-speed value that times the protocol's pauses; a stream read does
 * not. Since the other calls act on the active sensor, a thread that
 * activates a sensor and then calls should hold duLockSensors across both:
 *     duLockSensors(); duActivateSensorWithIndex(1); duGetFilterData(d, 10);
 *     duUnlockSensors();
 * The lock is recursive; the thread that locked it must unlock it. */
ORU_EXPORT void duLockSensors(void);
ORU_EXPORT void duUnlockSensors(void);

#ifdef __cplusplus
}
#endif

#endif /* ORU_DEVICE_API_H */
