// Everything the command line can say, filled in by the parser in
// oru_sensor_main.cpp and read by the subcommands.
#ifndef ORU_TOOLS_CLI_OPTIONS_H
#define ORU_TOOLS_CLI_OPTIONS_H

#include <string>

#include "measure_options.h"

struct Options {
    std::string sensor;  // INDEX, ID or all; empty: the first
    int virtual_sensors = -1;  // -1: USB hardware
    bool verbose = false;
    int averages = 10;
    int shutter = 0;
    bool auto_exposure = false;
    bool no_recover = false;
    bool force = false;   // -o replaces an existing file
    bool append = false;  // -o adds to an existing file
    int target = 3500;
    int repeat = 1;  // 0: until stopped
    double duration = 0.0;  // 0: no time limit
    double interval = 0.0;
    std::string format;  // default: table on standard output, csv into a file
    std::string output;
    std::string plot;
    int gain = -1;
    int range = -1;
    int clock = 1;
    double ms = -1.0;
    std::string config;  // --config FILE, read after the system's and the user's file
    bool save = false;  // set --save
    MeasureOptions measure;  // read: --mode, --dark, --reference, --spectrum
    int kind = 0;  // a duFileKind: read writes readings; dark and reference a stored reading
};

#endif
