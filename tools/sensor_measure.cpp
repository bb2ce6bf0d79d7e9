#include "sensor_measure.h"

#include <cmath>
#include <cstdio>

namespace {

constexpr int kCannotOpen = -27;  // duLoadStoredReading: the file cannot be opened

bool parse_range(const std::string& text, double& start, double& end) {
    char tail = 0;
    return std::sscanf(text.c_str(), "%lf:%lf%c", &start, &end, &tail) == 2 && std::isfinite(start) &&
           std::isfinite(end) && end > start;
}

}  // namespace

SensorMeasure::SensorMeasure(const MeasurementApi& api, const CalibrationApi* calibration_api)
    : m_api(api), m_cal_api(calibration_api) {}

// The first file holding a reading of `id`; a file that cannot be opened, or
// none of them holding it, is the error.
bool SensorMeasure::load_stored(const std::vector<std::string>& files, const std::string& id, duStoredReading& out,
                                std::string& error) const {
    std::string first_error;
    for (const std::string& path : files) {
        char why[512] = "";
        const int r = m_api.duLoadStoredReading(path.c_str(), id.c_str(), &out, nullptr, why, sizeof why);
        if (r == 1) return true;
        if (r == kCannotOpen) return error = why, false;
        if (first_error.empty()) first_error = why;
    }
    error = first_error;
    return false;
}

bool SensorMeasure::prepare(const MeasureOptions& o, const std::string& id, const duReadingSettings& settings,
                            std::string& error) {
    m_id = id;
    m_settings = settings;
    const std::string mode = !o.mode.empty()        ? o.mode
                             : !o.reference.empty() ? "transmittance"
                             : !o.dark.empty()      ? "dark"
                                                    : "raw";
    m_mode = m_api.duMeasureModeFromName(mode.c_str());
    if (m_mode < 0) return error = "unknown mode " + mode, false;
    if (!o.dark.empty() && !(m_has_dark = load_stored(o.dark, id, m_dark, error))) return false;
    if (!o.reference.empty() && !(m_has_reference = load_stored(o.reference, id, m_reference, error))) return false;
    // The library checks the dark and reference against the settings: a
    // reading of zeros at them is refused for the same reasons a real one
    // would be, before anything is read.
    std::vector<double> zeros(DU_FILTER_COUNT, 0.0), out;
    if (!measure(m_mode, zeros, out, error)) return false;
    if (!o.spectrum.empty() && !measure(DU_MODE_DARK, zeros, out, error)) return false;
    return o.spectrum.empty() || prepare_spectrum(o, id, error);
}

bool SensorMeasure::prepare_spectrum(const MeasureOptions& o, const std::string& id, std::string& error) {
    if (m_mode >= DU_MODE_TRANSMITTANCE)
        return error = "--spectrum works with --mode raw, dark or rate (spectra of ratios are not provided)", false;
    char why[512] = "";
    duCalibration* chosen = nullptr;
    std::string chosen_path;
    for (const std::string& path : o.spectrum) {
        duCalibration* cal = m_cal_api->read(path.c_str(), why, sizeof why);
        if (cal == nullptr) return error = why, false;
        if (chosen == nullptr || (id == cal->sensor_id && id != chosen->sensor_id)) {
            if (chosen != nullptr) m_cal_api->free(chosen);
            chosen = cal;
            chosen_path = path;
        } else {
            m_cal_api->free(cal);
        }
    }
    m_other_sensor = id != chosen->sensor_id;
    if (m_other_sensor && !o.force) {
        error = chosen_path + " is the calibration of sensor " + chosen->sensor_id + ", not of " + id +
                " (--force uses it anyway)";
        m_cal_api->free(chosen);
        return false;
    }
    duReconstructionOptions options{};
    m_algorithm = o.algorithm;
    options.algorithm = m_algorithm.c_str();
    options.step_nm = o.step_nm;
    if (!o.wavelength_range.empty() && !parse_range(o.wavelength_range, options.range_start_nm, options.range_end_nm)) {
        m_cal_api->free(chosen);
        return error = "--range needs START:END in nm, e.g. 400:700, got " + o.wavelength_range, false;
    }
    m_reconstructor = {m_cal_api->reconstructor_create(chosen, &options, why, sizeof why),
                       m_cal_api->reconstructor_free};
    m_cal_api->free(chosen);
    if (!m_reconstructor) return error = chosen_path + ": " + why, false;
    return true;
}

bool SensorMeasure::measure(int mode, const std::vector<double>& raw, std::vector<double>& out,
                            std::string& error) const {
    out.assign(DU_FILTER_COUNT, 0.0);
    duMeasureResult result{};
    if (m_api.duMeasure(mode, raw.data(), &m_settings, nullptr, m_has_dark ? &m_dark : nullptr,
                        m_has_reference ? &m_reference : nullptr, out.data(), &result) == 1)
        return true;
    error = m_api.duMeasureRefusalText(result.refusal);
    return false;
}

bool SensorMeasure::apply(Measurement& m, std::string& error) {
    m_settings.shutter_speed = m.shutter_speed;
    const std::vector<double> raw = m.values;
    if (m_mode != DU_MODE_RAW && !measure(m_mode, raw, m.values, error)) return false;
    if (!m_reconstructor) return true;
    std::vector<double> corrected;
    if (!measure(DU_MODE_DARK, raw, corrected, error)) return false;
    // Saturated and stuck filters say nothing of the light: left out.
    std::vector<unsigned char> usable(DU_FILTER_COUNT, 0);
    m_cal_api->usable_filters(raw.data(), usable.data());
    const duReadingInfo info{
        m_id.c_str(),        m_other_sensor ? 1 : 0, m_settings.shutter_speed, m_settings.master_clock,
        m_settings.adc_gain, m_settings.adc_range};
    m.spectrum.assign(static_cast<std::size_t>(m_cal_api->reconstructor_grid(m_reconstructor.get(), nullptr, 0)), 0.0);
    duReconstructionResult result{};
    char why[512] = "";
    if (m_cal_api->reconstruct(m_reconstructor.get(), corrected.data(), usable.data(), &info, m.spectrum.data(),
                               &result, why, sizeof why) != 1)
        return error = why, false;
    if ((result.warnings & DU_RECON_WARN_SETTINGS) != 0 && !m_warned_settings) {
        m_warned_settings = true;
        std::fprintf(stderr,
                     "oru-sensor: warning: %s: the calibration was made at another master clock, ADC gain or "
                     "range than this reading\n",
                     m_id.c_str());
    }
    m.weight = result.weight;
    m.residual_dn = result.residual_dn;
    m.filters_used = result.filters_used;
    return true;
}

duSensorMetadata SensorMeasure::metadata() const {
    duSensorMetadata meta{};
    std::snprintf(meta.sensor_id, sizeof meta.sensor_id, "%s", m_id.c_str());
    meta.settings = m_settings;
    if (m_has_dark) {
        meta.dark_taken_ns = m_dark.taken_realtime_ns;
        meta.dark_averages = m_dark.averages;
    }
    if (m_has_reference) {
        meta.reference_taken_ns = m_reference.taken_realtime_ns;
        meta.reference_averages = m_reference.averages;
    }
    return meta;
}

std::vector<double> SensorMeasure::wavelengths_nm() const {
    if (!m_reconstructor) return {};
    std::vector<double> grid(
        static_cast<std::size_t>(m_cal_api->reconstructor_grid(m_reconstructor.get(), nullptr, 0)));
    m_cal_api->reconstructor_grid(m_reconstructor.get(), grid.data(), static_cast<int>(grid.size()));
    return grid;
}
