// Loads liboru_device at run time so that, for --virtual, the virtual sensor's
// USB library can be loaded into the process before it.
#ifndef ORU_TOOLS_API_LOADER_H
#define ORU_TOOLS_API_LOADER_H

#include <string>

#include "oru_device_api.h"

struct OruApi {
    int (*duConnect)();
    int (*duDisconnect)();
    char** (*duGetSensorList)();
    int (*duGetMaxSensorCount)();
    int (*duActivateSensorWithIndex)(int);
    int (*duActivateSensorWithID)(const char*);
    int (*duGetTotalSensors)();
    int (*duGetSensorID)(char*);
    int (*duGetShutterSpeed)();
    int (*duGetShutterSpeedLimits)(int*, int*);
    int (*duShutterSpeedToExposureTime)(int, int, double*);
    int (*duExposureTimeToShutterSpeed)(int, double, int*);
    int (*duSetShutterSpeed)(int);
    int (*duGetOptimalShutterSpeed2)(int*, int, int);
    int (*duGetOptimalShutterSpeed)(int*, int);
    int (*duGetFilterData)(double*, int);
    int (*duSetSensorParameters)(int, int);
    int (*duGetSensorParameters)(int*, int*);
    int (*duStartFrameStream)();
    int (*duStopFrameStream)();
    int (*duReadFrameStreamMaskOf)(int, double*, int, int, duFrameStreamInfo*, unsigned char*);
    int (*duGetSensorState)(int);
    int (*duReconnectSensor)(int, const char*);
    void (*duSetLogHandler)(void (*)(int, const char*, void*), void*);
    const char* (*duGetErrorText)(int);
    int (*duExactExposureTimeUs)(int, int, double*);
    void (*duLockSensors)();
    void (*duUnlockSensors)();
    int (*duConvertShutterSpeedToExposureTime)(int, int, double*);
    int (*duConvertExposureTimeToShutterSpeed)(int, double, int*);
};

// virtual_sensors < 0: use the real USB library; otherwise load the virtual
// sensor's drop-in first, configured for that many sensors. On success the
// error messages (describe_result) use the library's words.
bool load_oru_api(OruApi& api, int virtual_sensors, std::string& error);

// Directory of the running executable, with a trailing slash.
std::string executable_dir();

#endif
