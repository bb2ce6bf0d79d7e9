#include "oru_api_loader.h"

#include "cli_errors.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <vector>

#ifndef ORU_INSTALL_LIBDIR
#define ORU_INSTALL_LIBDIR "lib"
#endif

std::string executable_dir() {
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0) return "./";
    std::string path(buf, static_cast<size_t>(n));
    return path.substr(0, path.rfind('/') + 1);
}

namespace {

void* open_first(const std::vector<std::string>& candidates, int flags, std::string& tried) {
    for (const auto& c : candidates) {
        if (c.empty()) continue;
        if (void* h = dlopen(c.c_str(), flags)) return h;
        tried += "\n  " + c + ": " + dlerror();
    }
    return nullptr;
}

std::vector<std::string> dropin_candidates() {
    const std::string exe = executable_dir();
    std::vector<std::string> c;
    if (const char* env = std::getenv("ORU_VSENSOR_LIBRARY")) c.push_back(env);
    c.push_back(exe + "../virtual-sensor/libusb-1.0.so.0");  // build tree
    c.push_back(exe + "../" ORU_INSTALL_LIBDIR "/oru_device/virtual-sensor/libusb-1.0.so.0");  // installed
    return c;
}

std::vector<std::string> library_candidates() {
    const std::string exe = executable_dir();
    std::vector<std::string> c;
    if (const char* env = std::getenv("ORU_DEVICE_LIBRARY")) c.push_back(env);
    c.push_back(exe + "../liboru_device.so.1");  // build tree
    c.push_back(exe + "../" ORU_INSTALL_LIBDIR "/liboru_device.so.1");  // installed
    c.push_back("liboru_device.so.1");  // system search path
    return c;
}

template <typename F>
bool bind(void* lib, const char* name, F& fn, std::string& error) {
    fn = reinterpret_cast<F>(dlsym(lib, name));
    if (!fn) error = std::string("liboru_device lacks ") + name;
    return fn != nullptr;
}

}  // namespace

bool load_oru_api(OruApi& api, int virtual_sensors, std::string& error) {
    std::string tried;
    if (virtual_sensors >= 0) {
        setenv("ORU_VSENSOR_COUNT", std::to_string(virtual_sensors).c_str(), 1);
        // Loaded globally first, it answers for libusb-1.0.so.0 when
        // liboru_device is loaded below.
        if (!open_first(dropin_candidates(), RTLD_NOW | RTLD_GLOBAL, tried)) {
            error = "cannot load the virtual sensor library:" + tried;
            return false;
        }
    }
    void* lib = open_first(library_candidates(), RTLD_NOW | RTLD_GLOBAL, tried);
    if (!lib) {
        error = "cannot load liboru_device:" + tried;
        return false;
    }
    const bool bound = bind(lib, "duConnect", api.duConnect, error) && bind(lib, "duDisconnect", api.duDisconnect, error) &&
           bind(lib, "duGetSensorList", api.duGetSensorList, error) &&
           bind(lib, "duGetMaxSensorCount", api.duGetMaxSensorCount, error) &&
           bind(lib, "duActivateSensorWithIndex", api.duActivateSensorWithIndex, error) &&
           bind(lib, "duActivateSensorWithID", api.duActivateSensorWithID, error) &&
           bind(lib, "duGetTotalSensors", api.duGetTotalSensors, error) &&
           bind(lib, "duGetSensorID", api.duGetSensorID, error) &&
           bind(lib, "duGetShutterSpeed", api.duGetShutterSpeed, error) &&
           bind(lib, "duGetShutterSpeedLimits", api.duGetShutterSpeedLimits, error) &&
           bind(lib, "duShutterSpeedToExposureTime", api.duShutterSpeedToExposureTime, error) &&
           bind(lib, "duExposureTimeToShutterSpeed", api.duExposureTimeToShutterSpeed, error) &&
           bind(lib, "duSetShutterSpeed", api.duSetShutterSpeed, error) &&
           bind(lib, "duGetOptimalShutterSpeed2", api.duGetOptimalShutterSpeed2, error) &&
           bind(lib, "duGetOptimalShutterSpeed", api.duGetOptimalShutterSpeed, error) &&
           bind(lib, "duGetFilterData", api.duGetFilterData, error) &&
           bind(lib, "duSetSensorParameters", api.duSetSensorParameters, error) &&
           bind(lib, "duGetSensorParameters", api.duGetSensorParameters, error) &&
           bind(lib, "duStartFrameStream", api.duStartFrameStream, error) &&
           bind(lib, "duStopFrameStream", api.duStopFrameStream, error) &&
           bind(lib, "duReadFrameStreamMaskOf", api.duReadFrameStreamMaskOf, error) &&
           bind(lib, "duGetSensorState", api.duGetSensorState, error) &&
           bind(lib, "duReconnectSensor", api.duReconnectSensor, error) &&
           bind(lib, "duSetLogHandler", api.duSetLogHandler, error) &&
           bind(lib, "duLockSensors", api.duLockSensors, error) &&
           bind(lib, "duUnlockSensors", api.duUnlockSensors, error) &&
           bind(lib, "duConvertShutterSpeedToExposureTime", api.duConvertShutterSpeedToExposureTime, error) &&
           bind(lib, "duConvertExposureTimeToShutterSpeed", api.duConvertExposureTimeToShutterSpeed, error) &&
           bind(lib, "duExactExposureTimeUs", api.duExactExposureTimeUs, error) &&
           bind(lib, "duGetErrorText", api.duGetErrorText, error);
    if (bound) use_error_texts(api.duGetErrorText);
    return bound;
}
