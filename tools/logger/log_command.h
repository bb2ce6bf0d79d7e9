// `oru-sensor log`: the unattended reader. Reads every chosen sensor's frame
// stream (recovering from unplugs as `read` does), writes rotating files
// into a directory, publishes to an MQTT broker and reports its health.
#ifndef ORU_TOOLS_LOGGER_LOG_COMMAND_H
#define ORU_TOOLS_LOGGER_LOG_COMMAND_H

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

#include "oru_api_loader.h"
#include "sensor_reader.h"

struct LogOptions {
    std::string dir;
    std::string format = "csv";
    std::string rotate = "1h";
    std::string keep;
    double status_every = 60.0;
    std::string mqtt;  // mqtt://HOST[:PORT]/PREFIX or mqtts://...
    std::string mqtt_ca;  // CA file for mqtts
    std::string mqtt_auth;  // file: user on the first line, password on the second
    int publish_every = 1;
    std::string publish_values = "summary";
};

// Adds the `log` subcommand; -n and --shutter go into the command's own
// averages and shutter speed, as for `read`.
CLI::App* describe_log(CLI::App& app, LogOptions& o, int& averages, int& shutter);

// Runs until a stop signal: 0, 1 on a failure (said on standard error), 2
// for options that do not fit together. A sensor that fails for good is
// reported and the others log on. `connected` turns false when a stop had to
// disconnect to wake a reader waiting on a stalled sensor.
int run_log(const OruApi& api, bool& connected, const std::vector<SourceSensor>& sensors, int averages,
            const LogOptions& o);

#endif
