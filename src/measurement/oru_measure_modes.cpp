// The measurement modes: dark subtraction, exposure-normalised rate and the
// ratio modes against a reference.
#include <cmath>
#include <cstring>
#include <limits>

#include "efm32com/oru_sensor_constants.h"
#include "oru_measurement.h"

namespace {

struct ModeInfo {
    const char* name;
    const char* unit;
};
constexpr ModeInfo kModes[] = {{"raw", "DN"},         {"dark", "DN"},        {"rate", "DN/ms"},
                               {"transmittance", "%"}, {"reflectance", "%"}, {"absorbance", "AU"}};
constexpr int kModeCount = sizeof kModes / sizeof kModes[0];

bool is_ratio_mode(int mode) {
    return mode == DU_MODE_TRANSMITTANCE || mode == DU_MODE_REFLECTANCE || mode == DU_MODE_ABSORBANCE;
}

bool same_settings(const duReadingSettings& a, const duReadingSettings& b) {
    return a.shutter_speed == b.shutter_speed && a.master_clock == b.master_clock && a.adc_gain == b.adc_gain &&
           a.adc_range == b.adc_range;
}

// The sensor's three background filters see no light: their mean is the dark
// level of the reading they belong to.
double background_level(const double* values) {
    double sum = 0.0;
    for (int index : SENSOR_TYPE_BACKGROUND_FILTER_INDEX) sum += values[index];
    return sum / (sizeof SENSOR_TYPE_BACKGROUND_FILTER_INDEX / sizeof SENSOR_TYPE_BACKGROUND_FILTER_INDEX[0]);
}

// The refusal for a stored reading used as `role`, or NONE when it fits.
duMeasureRefusal check_stored(const duStoredReading* stored, const duReadingSettings& settings,
                              duMeasureRefusal wrong_settings, duMeasureRefusal saturated) {
    if (stored == nullptr) return DU_REFUSAL_NONE;
    if (!same_settings(stored->settings, settings)) return wrong_settings;
    if (stored->saturated_filters > 0) return saturated;
    return DU_REFUSAL_NONE;
}

duMeasureRefusal check(int mode, const duReadingSettings& settings, const duStoredReading* dark,
                       const duStoredReading* reference, double& exposure_us) {
    if (mode < 0 || mode >= kModeCount) return DU_REFUSAL_BAD_MODE;
    if (is_ratio_mode(mode) && reference == nullptr) return DU_REFUSAL_NEEDS_REFERENCE;
    if (duExactExposureTimeUs(settings.master_clock, settings.shutter_speed, &exposure_us) != 1) {
        exposure_us = std::numeric_limits<double>::quiet_NaN();
        if (mode == DU_MODE_RATE) return DU_REFUSAL_BAD_EXPOSURE;
    }
    if (mode == DU_MODE_RAW) return DU_REFUSAL_NONE;
    duMeasureRefusal refusal =
        check_stored(dark, settings, DU_REFUSAL_DARK_SETTINGS, DU_REFUSAL_DARK_SATURATED);
    if (refusal == DU_REFUSAL_NONE && is_ratio_mode(mode))
        refusal = check_stored(reference, settings, DU_REFUSAL_REFERENCE_SETTINGS, DU_REFUSAL_REFERENCE_SATURATED);
    return refusal;
}

}  // namespace

extern "C" ORU_EXPORT const char* duMeasureModeName(int mode) {
    return mode >= 0 && mode < kModeCount ? kModes[mode].name : nullptr;
}

extern "C" ORU_EXPORT const char* duMeasureModeUnit(int mode) {
    return mode >= 0 && mode < kModeCount ? kModes[mode].unit : nullptr;
}

extern "C" ORU_EXPORT int duMeasureModeFromName(const char* name) {
    if (name == nullptr) return -1;
    for (int mode = 0; mode < kModeCount; ++mode)
        if (std::strcmp(kModes[mode].name, name) == 0) return mode;
    return -1;
}

extern "C" ORU_EXPORT const char* duMeasureRefusalText(int refusal) {
    switch (refusal) {
    case DU_REFUSAL_NONE: return "";
    case DU_REFUSAL_BAD_MODE: return "unknown measurement mode";
    case DU_REFUSAL_BAD_ARGUMENT: return "no sample, settings or output given";
    case DU_REFUSAL_NEEDS_REFERENCE: return "this mode needs a reference reading";
    case DU_REFUSAL_DARK_SETTINGS:
        return "the dark was taken at another shutter speed, master clock or ADC setting: take a new dark";
    case DU_REFUSAL_REFERENCE_SETTINGS:
        return "the reference was taken at another shutter speed, master clock or ADC setting: take a new "
               "reference";
    case DU_REFUSAL_DARK_SATURATED: return "the dark has saturated filters: take it with the light blocked";
    case DU_REFUSAL_REFERENCE_SATURATED:
        return "the reference has saturated filters: lower the shutter speed and take it again";
    case DU_REFUSAL_BAD_EXPOSURE: return "the shutter speed and master clock must be at least 1 for a rate";
    default: return "unknown refusal";
    }
}

extern "C" ORU_EXPORT int duMeasure(int mode, const double* sample, const duReadingSettings* settings,
                                    const unsigned char* saturated, const duStoredReading* dark,
                                    const duStoredReading* reference, double* output, duMeasureResult* result) {
    duMeasureResult local{};
    duMeasureResult& r = result != nullptr ? *result : local;
    r = duMeasureResult{};
    if (sample == nullptr || settings == nullptr || output == nullptr) {
        r.refusal = DU_REFUSAL_BAD_ARGUMENT;
        return -19;
    }
    r.refusal = check(mode, *settings, dark, reference, r.exposure_us);
    if (r.refusal != DU_REFUSAL_NONE) return -24;

    if (saturated != nullptr)
        for (int i = 0; i < DU_FILTER_COUNT; ++i) r.saturated_count += saturated[i] != 0;

    // Dark of the sample and of the reference, per filter: the stored dark,
    // or each reading's own background level.
    const bool subtract = mode != DU_MODE_RAW;
    r.dark_source = !subtract ? DU_DARK_NONE : dark != nullptr ? DU_DARK_STORED : DU_DARK_BACKGROUND;
    r.sample_dark_level = r.dark_source == DU_DARK_BACKGROUND ? background_level(sample) : 0.0;
    const double reference_level =
        reference != nullptr && r.dark_source == DU_DARK_BACKGROUND ? background_level(reference->values) : 0.0;
    const double exposure_ms = r.exposure_us / 1000.0;
    const double nan = std::numeric_limits<double>::quiet_NaN();

    for (int i = 0; i < DU_FILTER_COUNT; ++i) {
        const double d = dark != nullptr ? dark->values[i] : r.sample_dark_level;
        const double corrected = subtract ? sample[i] - d : sample[i];
        double value = corrected;
        if (mode == DU_MODE_RATE) {
            value = corrected / exposure_ms;
        } else if (is_ratio_mode(mode)) {
            const double span = reference->values[i] - (dark != nullptr ? dark->values[i] : reference_level);
            const double ratio = span > 0.0 ? corrected / span : nan;
            value = mode == DU_MODE_ABSORBANCE ? (ratio > 0.0 ? -std::log10(ratio) : nan) : 100.0 * ratio;
        }
        r.invalid_count += std::isnan(value);
        output[i] = value;
    }
    return 1;
}
