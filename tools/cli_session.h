// What the subcommands share: the loaded library with its connection, the
// choice of sensors, and the one-line messages for failures.
#ifndef ORU_TOOLS_CLI_SESSION_H
#define ORU_TOOLS_CLI_SESSION_H

#include <map>
#include <string>
#include <vector>

#include "cli_options.h"
#include "config_file.h"
#include "oru_api_loader.h"
#include "output_file.h"

struct Session {
    OruApi api{};
    bool connected = false;
    // Each chosen sensor's settings from the configuration files, by sensor ID
    // (mode, dark, reference and calibration are for the commands that read).
    std::map<std::string, SensorSettings> configured;
    ~Session() {
        if (connected) api.duDisconnect();
    }
};

// "oru-sensor: MSG (see oru-sensor --help)"; returns the usage status 2.
int usage_error(const std::string& msg);
// "oru-sensor: WHAT: REASON (code N)"; returns 1.
int fail(const std::string& what, int code);
// The output file's own error; returns 1.
int fail_output(const OutputFile& out);

// The library's lines go to standard error with `verbose`, else nowhere.
void route_library_lines(const OruApi& api, bool verbose);

// The sensor ID of the active sensor, "?" when it cannot be read.
std::string id_of_active(const OruApi& api);

// Connects and chooses the sensors: one (--sensor INDEX|ID, default the
// first) or, where allowed, all of them. 0, or the exit status.
int connect_and_select(Session& s, const Options& o, bool all_allowed, std::vector<int>& chosen);

#endif
