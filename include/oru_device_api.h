/* The library's exported C interface: find and open the attached sensors,
 * choose the active one, set and read exposure and ADC parameters, search for
 * the optimal shutter speed and read averaged filter data.
 *
 * Results: 1 or the function's own value on success; a negative number on
 * failure (the negated error code, or -1). No function lets an exception out. */
#ifndef ORU_DEVICE_API_H
#define ORU_DEVICE_API_H

#include "oru_export.h"

#ifdef __cplusplus
extern "C" {
#endif

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
/* Filter indices in valid_filters_in are 1-based; NULL means the default set. */
ORU_EXPORT int duGetOptimalShutterSpeed2(int* valid_filters_in, int num_of_valid_filters, int target_DN);
ORU_EXPORT int duGetOptimalShutterSpeed(int* valid_filters_in, int num_of_valid_filters);
/* output must hold 1024 values. */
ORU_EXPORT int duGetFilterData(double* output, int number_of_averages);
ORU_EXPORT int duSetSensorParameters(int _adc_gain, int _adc_range);
ORU_EXPORT int duGetSensorParameters(int* _adc_gain, int* _adc_range);

#ifdef __cplusplus
}
#endif

#endif /* ORU_DEVICE_API_H */
