// The calibration record: making, extending and freeing it, and the exact
// exposure time readings are normalised by.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "calibration/calibration_internal.h"

namespace oru_calibration {

int fail(char* error, int error_size, const std::string& text, int code) {
    if (error && error_size > 0) {
        std::strncpy(error, text.c_str(), static_cast<size_t>(error_size) - 1);
        error[error_size - 1] = '\0';
    }
    return code;
}

bool known_source(const char* source) {
    return !std::strcmp(source, "virtual") || !std::strcmp(source, "sweep") || !std::strcmp(source, "imported");
}

}  // namespace oru_calibration

extern "C" {

duCalibration* duCalibrationCreate(int wavelength_count) {
    if (wavelength_count < 2 || wavelength_count > 1000000) return nullptr;
    auto* cal = static_cast<duCalibration*>(std::calloc(1, sizeof(duCalibration)));
    if (!cal) return nullptr;
    const size_t w = static_cast<size_t>(wavelength_count);
    cal->wavelength_count = wavelength_count;
    cal->wavelength_nm = static_cast<double*>(std::calloc(w, sizeof(double)));
    cal->response = static_cast<double*>(std::calloc(w * DU_CALIBRATION_FILTERS, sizeof(double)));
    if (!cal->wavelength_nm || !cal->response) {
        duCalibrationFree(cal);
        return nullptr;
    }
    cal->master_clock = 1;
    std::strcpy(cal->source, "imported");
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::strftime(cal->created, sizeof cal->created, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return cal;
}

int duCalibrationAddDark(duCalibration* cal) {
    if (!cal) return -1;
    if (!cal->dark) cal->dark = static_cast<double*>(std::calloc(DU_CALIBRATION_FILTERS, sizeof(double)));
    return cal->dark ? 1 : -1;
}

int duCalibrationAddValidFilters(duCalibration* cal) {
    if (!cal) return -1;
    if (!cal->valid_filters) {
        cal->valid_filters = static_cast<unsigned char*>(std::malloc(DU_CALIBRATION_FILTERS));
        if (cal->valid_filters) std::memset(cal->valid_filters, 1, DU_CALIBRATION_FILTERS);
    }
    return cal->valid_filters ? 1 : -1;
}

void duCalibrationFree(duCalibration* cal) {
    if (!cal) return;
    std::free(cal->wavelength_nm);
    std::free(cal->response);
    std::free(cal->dark);
    std::free(cal->valid_filters);
    std::free(cal);
}

}  // extern "C"
