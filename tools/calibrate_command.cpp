#include "calibrate_command.h"

#include <cmath>
#include <cstdlib>
#include <memory>

#include "reading_file.h"
#include "sweep_file.h"

namespace {

int fail(const std::string& text) {
    std::fprintf(stderr, "oru-sensor: %s\n", text.c_str());
    return 1;
}

int build_and_write(const CalibrationApi& cal_api, const CalibrateOptions& c, const RecordedSweep& s) {
    GridSpec g{};
    if (!parse_grid(c.grid, g)) return fail("--grid needs START:END:STEP in nm, e.g. 350:1000:1");
    char error[256] = "";
    std::unique_ptr<duCalibration, void (*)(duCalibration*)> cal(
        cal_api.from_sweep(static_cast<int>(s.wavelength_nm.size()), s.wavelength_nm.data(), s.power.data(),
                           s.exposure_ms.data(), s.readings.data(), s.dark.empty() ? nullptr : s.dark.data(), g.start,
                           g.end, g.step, error, sizeof error),
        cal_api.free);
    if (!cal) return fail(std::string("calibration failed: ") + error);
    std::snprintf(cal->sensor_id, sizeof cal->sensor_id, "%s", s.sensor_id.c_str());
    cal->master_clock = c.clock;
    cal->adc_gain = s.gain;
    cal->adc_range = s.range;
    std::snprintf(cal->description, sizeof cal->description, "%s",
                  c.description.empty() ? "Monochromator sweep recorded with oru-sensor" : c.description.c_str());
    if (cal_api.write(cal.get(), c.output.c_str(), error, sizeof error) < 0) return fail(error);
    int valid = 0;
    for (int f = 0; f < DU_CALIBRATION_FILTERS; ++f) valid += cal->valid_filters[f];
    std::printf("calibration written to %s: %zu steps, %d wavelengths, %d valid filters\n", c.output.c_str(),
                s.wavelength_nm.size(), cal->wavelength_count, valid);
    return 0;
}

int from_sweep_file(const CalibrationApi& cal_api, const CalibrateOptions& c, RecordedSweep& s) {
    std::vector<SweepStep> steps;
    std::string error;
    if (!load_sweep_file(c.sweep, steps, error)) return fail(error);
    if (!c.dark.empty()) {
        ReadingFile dark;
        if (!load_reading_file(c.dark, dark, error)) return fail(error);
        s.dark = dark.values;
    }
    for (const SweepStep& step : steps) {
        s.wavelength_nm.push_back(step.wavelength_nm);
        s.power.push_back(step.power);
        s.exposure_ms.push_back(exposure_ms(cal_api, c.clock, step.reading.shutter_speed));
        s.readings.insert(s.readings.end(), step.reading.values.begin(), step.reading.values.end());
    }
    s.sensor_id = steps.front().reading.sensor_id;
    s.gain = c.gain;
    s.range = c.range;
    return 0;
}

}  // namespace

bool parse_grid(const std::string& text, GridSpec& g) {
    char tail = 0;
    return std::sscanf(text.c_str(), "%lf:%lf:%lf%c", &g.start, &g.end, &g.step, &tail) == 3 && g.step > 0 &&
           g.end > g.start && std::isfinite(g.start) && std::isfinite(g.end);
}

void describe_calibration(CLI::App& app, CLI::App* info, CalibrateOptions& c) {
    info->add_option("--calibration", c.calibration,
                     "show a calibration file instead: its settings and each filter's centroid and band");
    CLI::App* cal = app.add_subcommand("calibrate", "build a spectral calibration (HDF5) from a monochromator sweep");
    CLI::Option* sweep =
        cal->add_option("--sweep", c.sweep, "sweep CSV: wavelength_nm, power, reading (a file of read -o)");
    CLI::Option* record = cal->add_flag("--record", c.record,
                                        "take the sweep now: a reading per wavelength line on standard input "
                                        "('dark' takes the dark reading)");
    sweep->excludes(record);
    cal->add_option("--wavelengths", c.wavelengths, "with --record: step through START:END:STEP nm, waiting "
                                                    "for a line (an optional power) before each")
        ->needs(record);
    cal->add_option("-o,--output", c.output, "the calibration file to write")->required();
    cal->add_option("--dark", c.dark, "a reading file taken with the light off (default: the background filters)");
    cal->add_option("--grid", c.grid, "wavelength grid START:END:STEP in nm (default 350:1000:1)");
    cal->add_option("-n,--averages", c.averages, "with --record: frames averaged per reading (default 10)")
        ->check(CLI::Range(1, 100000));
    cal->add_option("--gain", c.gain, "with --sweep: the ADC gain of the readings (default 1)")->check(CLI::Range(0, 1));
    cal->add_option("--range", c.range, "with --sweep: the ADC range of the readings (default 132)")
        ->check(CLI::Range(0, 255));
    cal->add_option("--clock", c.clock, "master clock in MHz (default 1)")->check(CLI::PositiveNumber);
    cal->add_option("--description", c.description, "free text stored with the calibration");
    cal->require_option(2, 12);
}

bool calibration_without_sensor(const std::string& command, const CalibrateOptions& c) {
    return (command == "calibrate" && !c.record) || (command == "info" && !c.calibration.empty());
}

int run_calibration(const std::string& command, const CalibrateOptions& c, const OruApi* sensor) {
    CalibrationApi cal_api{};
    std::string error;
    if (!load_calibration_api(cal_api, error)) return fail(error);
    if (command == "info") return print_calibration_summary(cal_api, c.calibration, stdout);
    if (c.sweep.empty() && !c.record) return fail("calibrate needs --sweep FILE or --record");
    RecordedSweep s;
    const int rc = c.record ? record_sweep(*sensor, cal_api, c, stdin, s) : from_sweep_file(cal_api, c, s);
    return rc != 0 ? rc : build_and_write(cal_api, c, s);
}
