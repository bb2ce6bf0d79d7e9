#include "cli_version.h"

#include <dlfcn.h>

#include "oru_api_loader.h"

#ifndef ORU_SENSOR_VERSION
#define ORU_SENSOR_VERSION "unknown"
#endif

std::string version_text() {
    std::string text = "oru-sensor " ORU_SENSOR_VERSION;
    OruApi api{};
    std::string error;
    if (!load_oru_api(api, -1, error)) return text + " (liboru_device not found)";
    using Version = const char* (*)();
    const auto library_version = reinterpret_cast<Version>(dlsym(RTLD_DEFAULT, "duGetLibraryVersion"));
    return text + " (liboru_device " + (library_version ? library_version() : "before 1.0.0") + ")";
}
