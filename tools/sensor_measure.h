// What --mode, --dark, --reference and --spectrum do to one sensor's
// readings, all by the library: its stored dark and reference (from files
// holding readings of several sensors, found by sensor ID), the measurement
// mode (duMeasure), and the spectrum (duReconstruct) from the dark-corrected
// values. Used by the writing thread of `read` only.
#ifndef ORU_TOOLS_SENSOR_MEASURE_H
#define ORU_TOOLS_SENSOR_MEASURE_H

#include <memory>
#include <string>
#include <vector>

#include "calibration_api.h"
#include "cli_format.h"
#include "measure_options.h"
#include "measurement_api.h"

class SensorMeasure {
public:
    SensorMeasure(const MeasurementApi& api, const CalibrationApi* calibration_api);

    // Loads what the options name for the sensor `id` reading at `settings`
    // and checks it (a dark at another shutter speed, a saturated reference,
    // a calibration of another sensor); false with one line in `error`.
    bool prepare(const MeasureOptions& o, const std::string& id, const duReadingSettings& settings, std::string& error);
    // Turns a reading's DN into the mode's values and, with a calibration,
    // its spectrum; false with one line in `error`.
    bool apply(Measurement& m, std::string& error);

    int mode() const { return m_mode; }
    duSensorMetadata metadata() const;
    std::vector<double> wavelengths_nm() const;
    std::string algorithm() const { return m_algorithm; }

private:
    bool load_stored(const std::vector<std::string>& files, const std::string& id, duStoredReading& out,
                     std::string& error) const;
    bool prepare_spectrum(const MeasureOptions& o, const std::string& id, std::string& error);
    bool measure(int mode, const std::vector<double>& raw, std::vector<double>& out, std::string& error) const;

    const MeasurementApi& m_api;
    const CalibrationApi* m_cal_api;
    std::string m_id;
    int m_mode = DU_MODE_RAW;
    duReadingSettings m_settings{};
    bool m_has_dark = false, m_has_reference = false;
    duStoredReading m_dark{}, m_reference{};
    std::unique_ptr<duReconstructor, void (*)(duReconstructor*)> m_reconstructor{nullptr, nullptr};
    bool m_other_sensor = false;  // the calibration is another sensor's, as --force allows
    std::string m_algorithm;
    bool m_warned_settings = false;  // the calibration's other settings were reported
};

#endif
