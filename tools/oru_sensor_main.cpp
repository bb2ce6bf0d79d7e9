// oru-sensor: list, inspect and read spectral sensors from the shell.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "cli_args.h"
#include "cli_errors.h"
#include "cli_format.h"
#include "doctor.h"
#include "oru_api_loader.h"
#include "progress.h"
#include "svg_plot.h"

namespace {

const char* const kUsage =
    "usage: oru-sensor [--sensor INDEX|ID] [--virtual[=N]] [-v] <command> [options]\n"
    "\n"
    "commands:\n"
    "  list       index and sensor ID of each attached sensor\n"
    "  info       sensor ID parts, shutter speed, exposure time and ADC settings\n"
    "  read       read filter data (1024 outputs) averaged over n frames\n"
    "  set        set shutter speed, ADC gain or ADC range (until the next connect)\n"
    "  convert    shutter speed <-> exposure time in ms for a master clock\n"
    "  doctor     check what keeps a real sensor from working on this machine\n"
    "\n"
    "global options:\n"
    "  --sensor INDEX|ID   choose the sensor (default: the first)\n"
    "  --virtual[=N]       run on N virtual sensors (default 1) instead of USB hardware\n"
    "  -v, --verbose       show the library's own messages on standard error\n"
    "  -h, --help          help; `oru-sensor <command> --help` for a command\n";

const char* const kReadHelp =
    "usage: oru-sensor read [options]\n"
    "  -n, --averages N       frames averaged per reading (default 10)\n"
    "  --shutter S            shutter speed to use (1..3000)\n"
    "  --auto-exposure        search the optimal shutter speed first\n"
    "  --target DN            brightness target of the search (default 3500)\n"
    "  --repeat K             take K readings (a time series; default 1)\n"
    "  --interval SECONDS     pause between readings (default 0)\n"
    "  --format table|csv|json  output format (default table: a summary per reading)\n"
    "  -o, --output FILE      write the output to FILE instead of standard output\n"
    "  --plot FILE.svg        also draw the filter outputs as an SVG line plot\n";

const char* const kListHelp = "usage: oru-sensor list\n  prints the index and sensor ID of each sensor\n";
const char* const kInfoHelp =
    "usage: oru-sensor info [--clock MHZ]\n"
    "  prints the sensor ID and its parts, shutter speed, exposure time (for master clock MHZ, default 1)\n"
    "  and the ADC settings of the chosen sensor\n";
const char* const kSetHelp =
    "usage: oru-sensor set [--shutter S] [--gain 0|1] [--range 0..255]\n"
    "  applies the settings to the chosen sensor and prints them; every connect starts the sensor\n"
    "  at shutter speed 1, gain 1, range 132, so settings last for this run only\n";
const char* const kConvertHelp =
    "usage: oru-sensor convert [--clock MHZ] (--shutter S | --ms T)\n"
    "  converts a shutter speed to an exposure time in ms, or back, for master clock MHZ (default 1)\n";
const char* const kDoctorHelp =
    "usage: oru-sensor doctor\n"
    "  checks: a 0483:5740 device on the bus, permission to open it (udev rule, group), a kernel\n"
    "  driver bound to its interface, another process holding it; prints ok or the fix for each\n";

const std::vector<OptionInfo> kOptions = {
    {"sensor", 0, true, false},   {"virtual", 0, true, true},    {"verbose", 'v', false, false},
    {"help", 'h', false, false},  {"averages", 'n', true, false}, {"shutter", 0, true, false},
    {"auto-exposure", 0, false, false}, {"target", 0, true, false}, {"repeat", 0, true, false},
    {"interval", 0, true, false}, {"format", 0, true, false},    {"output", 'o', true, false},
    {"plot", 0, true, false},     {"gain", 0, true, false},      {"range", 0, true, false},
    {"clock", 0, true, false},    {"ms", 0, true, false},
};

int usage_error(const std::string& msg) {
    std::fprintf(stderr, "oru-sensor: %s\n%s", msg.c_str(), kUsage);
    return 2;
}

int fail(const std::string& what, int code) {
    std::fprintf(stderr, "oru-sensor: %s: %s (code %d)\n", what.c_str(), describe_result(code).c_str(), code);
    return 1;
}

// The library prints its own progress lines on standard output; keep them
// out of ours (to standard error with -v, otherwise discarded).
FILE* take_stdout(bool verbose) {
    std::fflush(stdout);
    int saved = dup(STDOUT_FILENO);
    int target = verbose ? dup(STDERR_FILENO) : open("/dev/null", O_WRONLY);
    if (saved < 0 || target < 0) return stdout;
    dup2(target, STDOUT_FILENO);
    close(target);
    FILE* out = fdopen(saved, "w");
    return out ? out : stdout;
}

struct Session {
    OruApi api{};
    FILE* out = stdout;
    bool connected = false;
    ~Session() {
        if (connected) api.duDisconnect();
    }
};

std::string current_id(const OruApi& api) {
    char id[32] = {0};
    if (api.duGetSensorID(id) < 0) return "?";
    return id;
}

int connect_and_select(Session& s, const ParsedArgs& args) {
    int n = s.api.duConnect();
    if (n < 0) {
        if (n == -1)
            std::fprintf(stderr, "oru-sensor: no sensor found (code -1); try `oru-sensor doctor`, or --virtual\n");
        else
            return fail("connecting failed", n);
        return 1;
    }
    s.connected = true;
    if (!args.has("sensor")) return 0;
    std::string which = args.get("sensor");
    int index = 0;
    if (parse_int(which, index)) {
        if (index < 0 || index >= n) {
            std::fprintf(stderr, "oru-sensor: no sensor with index %d (%d connected)\n", index, n);
            return 1;
        }
        s.api.duActivateSensorWithIndex(index);
    } else if (s.api.duActivateSensorWithID(which.c_str()) < 0) {
        std::fprintf(stderr, "oru-sensor: no sensor with ID %s\n", which.c_str());
        return 1;
    }
    return 0;
}

int cmd_list(Session& s) {
    char** ids = s.api.duGetSensorList();
    int n = s.api.duGetTotalSensors();
    if (!ids) return fail("listing sensors failed", -2);
    std::fprintf(s.out, "%-6s %s\n", "index", "sensor ID");
    for (int i = 0; i < n; ++i) {
        std::fprintf(s.out, "%-6d %s\n", i, ids[i]);
        std::free(ids[i]);
    }
    std::free(ids);
    return 0;
}

int cmd_info(Session& s, const ParsedArgs& args) {
    int clock = 1;
    if (args.has("clock") && (!parse_int(args.get("clock"), clock) || clock <= 0))
        return usage_error("--clock needs a positive whole number of MHz");
    std::string id = current_id(s.api);
    char lot = '?';
    int lot_id = 0, wafer = 0, x = 0, y = 0, type = 0;
    std::sscanf(id.c_str(), "%c%d-%d-%d-%d-%d", &lot, &lot_id, &wafer, &x, &y, &type);
    int ss = s.api.duGetShutterSpeed();
    if (ss < 0) return fail("reading the shutter speed failed", ss);
    double ms = 0;
    int r = s.api.duShutterSpeedToExposureTime(clock, ss, &ms);
    if (r < 0) return fail("converting the shutter speed failed", r);
    int gain = 0, range = 0;
    r = s.api.duGetSensorParameters(&gain, &range);
    if (r < 0) return fail("reading the ADC settings failed", r);
    int lo = 0, hi = 0;
    s.api.duGetShutterSpeedLimits(&lo, &hi);
    std::fprintf(s.out,
                 "sensor ID:      %s\n  lot:          %c%d\n  wafer:        %d\n  position:     x %d, y %d\n"
                 "  sensor type:  %d\nshutter speed:  %d (limits %d..%d)\nexposure time:  %.3f ms at %d MHz\n"
                 "ADC range:      %d\nADC gain:       %d\n",
                 id.c_str(), lot, lot_id, wafer, x, y, type, ss, lo, hi, ms, clock, range, gain);
    return 0;
}

int cmd_set(Session& s, const ParsedArgs& args) {
    if (!args.has("shutter") && !args.has("gain") && !args.has("range"))
        return usage_error("set needs --shutter, --gain or --range");
    if (args.has("shutter")) {
        int ss = 0;
        if (!parse_int(args.get("shutter"), ss)) return usage_error("--shutter needs a whole number");
        int r = s.api.duSetShutterSpeed(ss);
        if (r < 0) return fail("setting the shutter speed failed", r);
    }
    if (args.has("gain") || args.has("range")) {
        int gain = 0, range = 0;
        int r = s.api.duGetSensorParameters(&gain, &range);
        if (r < 0) return fail("reading the ADC settings failed", r);
        if (args.has("gain") && !parse_int(args.get("gain"), gain)) return usage_error("--gain needs 0 or 1");
        if (args.has("range") && !parse_int(args.get("range"), range))
            return usage_error("--range needs a whole number 0..255");
        r = s.api.duSetSensorParameters(gain, range);
        if (r < 0) return fail("setting the ADC failed", r);
    }
    int gain = 0, range = 0;
    int r = s.api.duGetSensorParameters(&gain, &range);
    if (r < 0) return fail("reading the ADC settings failed", r);
    std::fprintf(s.out, "shutter speed: %d\nADC gain:      %d\nADC range:     %d\n", s.api.duGetShutterSpeed(), gain,
                 range);
    return 0;
}

int cmd_convert(Session& s, const ParsedArgs& args) {
    int clock = 1;
    if (args.has("clock") && (!parse_int(args.get("clock"), clock) || clock <= 0))
        return usage_error("--clock needs a positive whole number of MHz");
    if (args.has("shutter") == args.has("ms")) return usage_error("convert needs exactly one of --shutter or --ms");
    if (args.has("shutter")) {
        int ss = 0;
        if (!parse_int(args.get("shutter"), ss)) return usage_error("--shutter needs a whole number");
        double ms = 0;
        int r = s.api.duShutterSpeedToExposureTime(clock, ss, &ms);
        if (r < 0) return fail("conversion failed", r);
        std::fprintf(s.out, "shutter speed %d = %.3f ms exposure at %d MHz\n", ss, ms, clock);
    } else {
        double ms = 0;
        if (!parse_double(args.get("ms"), ms)) return usage_error("--ms needs a number");
        int ss = 0;
        int r = s.api.duExposureTimeToShutterSpeed(clock, ms, &ss);
        if (r < 0) return fail("conversion failed", r);
        std::fprintf(s.out, "%.3f ms exposure = shutter speed %d at %d MHz\n", ms, ss, clock);
    }
    return 0;
}

int cmd_read(Session& s, const ParsedArgs& args) {
    int averages = 10, repeat = 1, target = 3500, shutter = 0;
    double interval = 0;
    OutputFormat format = OutputFormat::Table;
    if (args.has("averages") && (!parse_int(args.get("averages"), averages) || averages < 1))
        return usage_error("--averages needs a whole number of at least 1");
    if (args.has("repeat") && (!parse_int(args.get("repeat"), repeat) || repeat < 1))
        return usage_error("--repeat needs a whole number of at least 1");
    if (args.has("interval") && (!parse_double(args.get("interval"), interval) || interval < 0))
        return usage_error("--interval needs a number of seconds >= 0");
    if (args.has("format") && !parse_format(args.get("format"), format))
        return usage_error("--format must be table, csv or json");
    if (args.has("shutter") && args.has("auto-exposure"))
        return usage_error("use either --shutter or --auto-exposure");
    if (args.has("target") && !args.has("auto-exposure")) return usage_error("--target needs --auto-exposure");
    if (args.has("target") && (!parse_int(args.get("target"), target) || target < 1 || target > 4095))
        return usage_error("--target needs a DN value 1..4095");
    if (args.has("shutter") && (!parse_int(args.get("shutter"), shutter) || shutter < 1 || shutter > 3000))
        return usage_error("--shutter needs a whole number 1..3000");

    Progress progress(stderr_is_terminal() && !args.has("verbose"));
    if (shutter > 0) {
        int r = s.api.duSetShutterSpeed(shutter);
        if (r < 0) return fail("setting the shutter speed failed", r);
    }
    if (args.has("auto-exposure")) {
        progress.spin("searching the optimal shutter speed");
        int best = args.has("target") ? s.api.duGetOptimalShutterSpeed2(nullptr, 0, target)
                                       : s.api.duGetOptimalShutterSpeed(nullptr, 0);
        progress.done();
        if (best == -1) {
            std::fprintf(stderr,
                         "oru-sensor: auto exposure failed: the sensor is saturated even at shutter speed 1, "
                         "or the search failed (code -1)\n");
            return 1;
        }
        if (best < 0) return fail("auto exposure failed", best);
        int r = s.api.duSetShutterSpeed(best);
        if (r < 0) return fail("setting the shutter speed failed", r);
    }

    std::vector<Measurement> series;
    const std::string id = current_id(s.api);
    const auto start = std::chrono::steady_clock::now();
    for (int k = 0; k < repeat; ++k) {
        if (k > 0 && interval > 0) std::this_thread::sleep_for(std::chrono::duration<double>(interval));
        Measurement m;
        m.sensor_id = id;
        m.averages = averages;
        m.shutter_speed = s.api.duGetShutterSpeed();
        m.values.assign(1024, 0.0);
        m.timestamp = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        int r = s.api.duGetFilterData(m.values.data(), averages);
        if (r < 0) return fail("reading filter data failed", r);
        series.push_back(std::move(m));
        if (repeat > 1) progress.step(k + 1, repeat, "reading");
    }

    FILE* dest = s.out;
    if (args.has("output")) {
        dest = std::fopen(args.get("output").c_str(), "w");
        if (!dest) {
            std::fprintf(stderr, "oru-sensor: cannot write %s: %s\n", args.get("output").c_str(), std::strerror(errno));
            return 1;
        }
    }
    switch (format) {
    case OutputFormat::Table: write_table(dest, series); break;
    case OutputFormat::Csv: write_csv(dest, series); break;
    case OutputFormat::Json: write_json(dest, series); break;
    }
    if (dest != s.out) std::fclose(dest);

    if (args.has("plot")) {
        std::string title = "Filter outputs of " + id + ": shutter " + std::to_string(series.back().shutter_speed) +
                            ", " + std::to_string(averages) + (averages == 1 ? " frame" : " frames averaged");
        FILE* svg = std::fopen(args.get("plot").c_str(), "w");
        if (!svg) {
            std::fprintf(stderr, "oru-sensor: cannot write %s: %s\n", args.get("plot").c_str(), std::strerror(errno));
            return 1;
        }
        std::string doc = render_svg_plot(series, title);
        std::fwrite(doc.data(), 1, doc.size(), svg);
        std::fclose(svg);
        std::fprintf(stderr, "plot written to %s\n", args.get("plot").c_str());
    }
    return 0;
}

const char* help_for(const std::string& cmd) {
    if (cmd == "read") return kReadHelp;
    if (cmd == "list") return kListHelp;
    if (cmd == "info") return kInfoHelp;
    if (cmd == "set") return kSetHelp;
    if (cmd == "convert") return kConvertHelp;
    if (cmd == "doctor") return kDoctorHelp;
    return kUsage;
}

}  // namespace

int main(int argc, char** argv) {
    ParsedArgs args;
    std::string error;
    if (!parse_args(argc, argv, kOptions, args, error)) return usage_error(error);
    if (args.has("help")) {
        std::fputs(help_for(args.command), stdout);
        return 0;
    }
    if (args.command.empty()) return usage_error("no command given");
    if (!args.positional.empty()) return usage_error("unexpected argument " + args.positional.front());
    const std::string& cmd = args.command;
    if (cmd != "list" && cmd != "info" && cmd != "read" && cmd != "set" && cmd != "convert" && cmd != "doctor")
        return usage_error("unknown command " + cmd);
    if (cmd == "doctor") return run_doctor(stdout) == 0 ? 0 : 1;

    int virtual_sensors = -1;
    if (args.has("virtual")) {
        virtual_sensors = 1;
        if (!args.get("virtual").empty() && (!parse_int(args.get("virtual"), virtual_sensors) ||
                                             virtual_sensors < 0 || virtual_sensors > 16))
            return usage_error("--virtual needs a number of sensors 0..16");
    }

    Session s;
    if (!load_oru_api(s.api, virtual_sensors, error)) {
        std::fprintf(stderr, "oru-sensor: %s\n", error.c_str());
        return 1;
    }
    s.out = take_stdout(args.has("verbose"));
    int rc = connect_and_select(s, args);
    if (rc != 0) return rc;
    if (cmd == "list") rc = cmd_list(s);
    else if (cmd == "info") rc = cmd_info(s, args);
    else if (cmd == "read") rc = cmd_read(s, args);
    else if (cmd == "set") rc = cmd_set(s, args);
    else rc = cmd_convert(s, args);
    std::fflush(s.out);
    return rc;
}
