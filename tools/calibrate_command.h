// `oru-sensor calibrate` (a response matrix from a monochromator sweep, from
// files or recorded on the spot) and `oru-sensor info --calibration FILE`.
#ifndef ORU_TOOLS_CALIBRATE_COMMAND_H
#define ORU_TOOLS_CALIBRATE_COMMAND_H

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

#include "calibration_api.h"
#include "oru_api_loader.h"

struct CalibrateOptions {
    std::string sweep;  // sweep CSV
    bool record = false;
    std::string wavelengths;  // --record: "start:end:step" to step through
    std::string output;
    std::string dark;  // reading file taken with the light off
    std::string grid = "350:1000:1";
    int averages = 10;  // --record: frames per reading
    int gain = 1, range = 132, clock = 1;  // settings the sweep was taken with (files)
    std::string description;
    std::string calibration;  // info --calibration
};

// Adds the calibrate subcommand, and --calibration to `info`.
void describe_calibration(CLI::App& app, CLI::App* info, CalibrateOptions& c);
// Whether the command works on files only (no sensor to connect).
bool calibration_without_sensor(const std::string& command, const CalibrateOptions& c);
// Runs calibrate or info --calibration; `sensor` is the loaded API with a
// sensor chosen, or null for the file-only forms. Exit status.
int run_calibration(const std::string& command, const CalibrateOptions& c, const OruApi* sensor);

// The pieces, in their own files.
struct GridSpec {
    double start, end, step;
};
bool parse_grid(const std::string& text, GridSpec& g);
int print_calibration_summary(const CalibrationApi& cal_api, const std::string& path, FILE* out);
// Steps for --record: the readings, their exposures and the dark (empty when
// none was taken). Exit status.
struct RecordedSweep {
    std::vector<double> wavelength_nm, power, exposure_ms, readings, dark;
    std::string sensor_id;
    int gain = 0, range = 0;
};
int record_sweep(const OruApi& api, const CalibrationApi& cal_api, const CalibrateOptions& c, FILE* in,
                 RecordedSweep& sweep);

#endif
