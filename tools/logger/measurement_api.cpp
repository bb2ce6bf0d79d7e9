#include "measurement_api.h"

#include <dlfcn.h>

namespace {

template <typename F>
bool bind(const char* name, F& fn, std::string& error) {
    fn = reinterpret_cast<F>(dlsym(RTLD_DEFAULT, name));
    if (!fn) error = std::string("liboru_device lacks ") + name;
    return fn != nullptr;
}

}  // namespace

bool bind_measurement_api(MeasurementApi& api, std::string& error) {
    return bind("duFormatFileHeader", api.duFormatFileHeader, error) &&
           bind("duFormatReadingRow", api.duFormatReadingRow, error) &&
           bind("duExactExposureTimeUs", api.duExactExposureTimeUs, error) &&
           bind("duGetLibraryVersion", api.duGetLibraryVersion, error);
}
