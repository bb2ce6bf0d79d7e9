// oru-sensor: list, inspect and read spectral sensors from the shell.
#include <CLI/CLI.hpp>

#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cli_errors.h"
#include "cli_format.h"
#include "cli_version.h"
#include "doctor.h"
#include "oru_api_loader.h"
#include "output_file.h"
#include "progress.h"
#include "reading_source.h"
#include "stop_signals.h"
#include "svg_plot.h"
#ifdef ORU_SENSOR_LOG
#include "log_command.h"
#endif

namespace {

// Everything the command line can say.
struct Options {
    std::string sensor;
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
};

int usage_error(const std::string& msg) {
    std::fprintf(stderr, "oru-sensor: %s (see oru-sensor --help)\n", msg.c_str());
    return 2;
}

int fail(const std::string& what, int code) {
    std::fprintf(stderr, "oru-sensor: %s: %s (code %d)\n", what.c_str(), describe_result(code).c_str(), code);
    return 1;
}

int fail_output(const OutputFile& out) {
    std::fprintf(stderr, "oru-sensor: %s\n", out.error().c_str());
    return 1;
}

// A number of seconds that is finite, not negative and at most a day.
const CLI::Validator kSeconds = CLI::Validator(
    [](std::string& text) -> std::string {
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        if (end == text.c_str() || *end != '\0' || !std::isfinite(value) || value < 0 || value > 86400)
            return "needs a number of seconds 0..86400, got " + text;
        return "";
    },
    "SECONDS");

// The library's own lines: on standard error with -v, else dropped. A
// permission failure is remembered, to name it and its fix.
bool g_verbose = false;
bool g_permission_denied = false;
void on_library_line(int, const char* line, void*) {
    if (std::strstr(line, "permission denied") != nullptr) g_permission_denied = true;
    if (g_verbose) std::fprintf(stderr, "%s\n", line);
}

struct Session {
    OruApi api{};
    bool connected = false;
    ~Session() {
        if (connected) api.duDisconnect();
    }
};

std::string id_of_active(const OruApi& api) {
    char id[32] = {0};
    if (api.duGetSensorID(id) < 0) return "?";
    return id;
}

// Connects and chooses the sensors: one (--sensor INDEX|ID, default the
// first) or, where allowed, all of them.
int connect_and_select(Session& s, const Options& o, bool all_allowed, std::vector<int>& chosen) {
    const int n = s.api.duConnect();
    if (n < 0) {
        if (g_permission_denied) {
            std::fprintf(stderr,
                         "oru-sensor: permission denied opening the sensor's USB device; "
                         "run `oru-sensor doctor` for the fix\n");
            return 1;
        }
        if (n == -1) {
            std::fprintf(stderr, "oru-sensor: no sensor found (code -1); try `oru-sensor doctor`, or --virtual\n");
            return 1;
        }
        return fail("connecting failed", n);
    }
    s.connected = true;
    if (o.sensor == "all") {
        if (!all_allowed) return usage_error("--sensor all works with read and log only");
        for (int i = 0; i < n; ++i) chosen.push_back(i);
        return 0;
    }
    if (o.sensor.empty()) {
        chosen.push_back(0);
        return 0;
    }
    char* end = nullptr;
    const long index = std::strtol(o.sensor.c_str(), &end, 10);
    if (end != o.sensor.c_str() && *end == '\0') {
        if (index < 0 || index >= n) {
            std::fprintf(stderr, "oru-sensor: no sensor with index %ld (%d connected)\n", index, n);
            return 1;
        }
        chosen.push_back(static_cast<int>(index));
    } else {
        if (s.api.duActivateSensorWithID(o.sensor.c_str()) < 0) {
            std::fprintf(stderr, "oru-sensor: no sensor with ID %s\n", o.sensor.c_str());
            return 1;
        }
        char** ids = s.api.duGetSensorList();
        for (int i = 0; ids != nullptr && i < n; ++i) {
            if (chosen.empty() && o.sensor == ids[i]) chosen.push_back(i);
            std::free(ids[i]);
        }
        std::free(ids);
    }
    s.api.duActivateSensorWithIndex(chosen.front());
    return 0;
}

int cmd_list(Session& s, OutputFile& out) {
    char** ids = s.api.duGetSensorList();
    const int n = s.api.duGetTotalSensors();
    if (!ids) return fail("listing sensors failed", -2);
    char line[64];
    std::snprintf(line, sizeof line, "%-6s %s\n", "index", "sensor ID");
    std::string text = line;
    for (int i = 0; i < n; ++i) {
        std::snprintf(line, sizeof line, "%-6d %s\n", i, ids[i]);
        text += line;
        std::free(ids[i]);
    }
    std::free(ids);
    return out.write(text) ? 0 : fail_output(out);
}

int cmd_info(Session& s, const Options& o, OutputFile& out) {
    const std::string id = id_of_active(s.api);
    char lot = '?';
    int lot_id = 0, wafer = 0, x = 0, y = 0, type = 0;
    std::sscanf(id.c_str(), "%c%d-%d-%d-%d-%d", &lot, &lot_id, &wafer, &x, &y, &type);
    const int ss = s.api.duGetShutterSpeed();
    if (ss < 0) return fail("reading the shutter speed failed", ss);
    double ms = 0;
    int r = s.api.duShutterSpeedToExposureTime(o.clock, ss, &ms);
    if (r < 0) return fail("converting the shutter speed failed", r);
    int gain = 0, range = 0;
    r = s.api.duGetSensorParameters(&gain, &range);
    if (r < 0) return fail("reading the ADC settings failed", r);
    int lo = 0, hi = 0;
    s.api.duGetShutterSpeedLimits(&lo, &hi);
    char text[512];
    std::snprintf(text, sizeof text,
                  "sensor ID:      %s\n  lot:          %c%d\n  wafer:        %d\n  position:     x %d, y %d\n"
                  "  sensor type:  %d\nshutter speed:  %d (limits %d..%d)\nexposure time:  %.3f ms at %d MHz\n"
                  "ADC range:      %d\nADC gain:       %d\n",
                  id.c_str(), lot, lot_id, wafer, x, y, type, ss, lo, hi, ms, o.clock, range, gain);
    return out.write(text) ? 0 : fail_output(out);
}

int cmd_set(Session& s, const Options& o, OutputFile& out) {
    if (o.shutter > 0) {
        const int r = s.api.duSetShutterSpeed(o.shutter);
        if (r < 0) return fail("setting the shutter speed failed", r);
    }
    if (o.gain >= 0 || o.range >= 0) {
        int gain = 0, range = 0;
        int r = s.api.duGetSensorParameters(&gain, &range);
        if (r < 0) return fail("reading the ADC settings failed", r);
        if (o.gain >= 0) gain = o.gain;
        if (o.range >= 0) range = o.range;
        r = s.api.duSetSensorParameters(gain, range);
        if (r < 0) return fail("setting the ADC failed", r);
    }
    int gain = 0, range = 0;
    const int r = s.api.duGetSensorParameters(&gain, &range);
    if (r < 0) return fail("reading the ADC settings failed", r);
    char text[160];
    std::snprintf(text, sizeof text, "shutter speed: %d\nADC gain:      %d\nADC range:     %d\n",
                  s.api.duGetShutterSpeed(), gain, range);
    return out.write(text) ? 0 : fail_output(out);
}

int cmd_convert(Session& s, const Options& o, OutputFile& out) {
    char text[160];
    if (o.shutter > 0) {
        double ms = 0;
        const int r = s.api.duShutterSpeedToExposureTime(o.clock, o.shutter, &ms);
        if (r < 0) return fail("conversion failed", r);
        std::snprintf(text, sizeof text, "shutter speed %d = %.3f ms exposure at %d MHz\n", o.shutter, ms, o.clock);
    } else {
        int ss = 0;
        const int r = s.api.duExposureTimeToShutterSpeed(o.clock, o.ms, &ss);
        if (r < 0) return fail("conversion failed", r);
        std::snprintf(text, sizeof text, "%.3f ms exposure = shutter speed %d at %d MHz\n", o.ms, ss, o.clock);
    }
    return out.write(text) ? 0 : fail_output(out);
}

// Applies --shutter or --auto-exposure to the active sensor; returns 0 or an
// exit status.
int prepare_exposure(Session& s, const Options& o, Progress& progress) {
    if (o.shutter > 0) {
        const int r = s.api.duSetShutterSpeed(o.shutter);
        if (r < 0) return fail("setting the shutter speed failed", r);
    }
    if (o.auto_exposure) {
        progress.spin("searching the optimal shutter speed");
        const int best = o.target != 3500 ? s.api.duGetOptimalShutterSpeed2(nullptr, 0, o.target)
                                          : s.api.duGetOptimalShutterSpeed(nullptr, 0);
        progress.done();
        if (best == -1) {
            std::fprintf(stderr,
                         "oru-sensor: auto exposure failed: the sensor is saturated even at shutter speed 1, "
                         "or the search failed (code -1)\n");
            return 1;
        }
        if (best < 0) return fail("auto exposure failed", best);
        // The search leaves the sensor there; this makes the library agree.
        const int r = s.api.duSetShutterSpeed(best);
        if (r < 0) return fail("setting the shutter speed failed", r);
    }
    return 0;
}

int write_plot(const Options& o, const std::vector<Measurement>& series) {
    const Measurement& last = series.back();
    const std::string title = "Filter outputs of " + last.sensor_id + ": shutter " +
                              std::to_string(last.shutter_speed) + ", " + std::to_string(o.averages) +
                              (o.averages == 1 ? " frame" : " frames averaged");
    OutputFile svg(o.plot, stdout);
    if (!svg.opened() || !svg.write(render_svg_plot(series, title)) || !svg.close()) return fail_output(svg);
    std::fprintf(stderr, "plot written to %s\n", o.plot.c_str());
    return 0;
}

int cmd_read(Session& s, const Options& o, const std::vector<int>& chosen, OutputFile& out) {
    Progress progress(stderr_is_terminal() && !o.verbose);
    std::vector<SourceSensor> sensors;
    for (int index : chosen) {
        s.api.duActivateSensorWithIndex(index);
        if (const int rc = prepare_exposure(s, o, progress)) return rc;
        sensors.push_back({index, id_of_active(s.api), s.api.duGetShutterSpeed()});
    }
    const OutputFormat format = format_from_name(o.format);
    // Back-to-back readings come from the streams, so that none shares or
    // skips a frame; spaced-out readings are fresh requests each.
    ReadingSource source(s.api, sensors, o.averages, o.interval == 0.0, !o.no_recover);
    const std::string header = format_header(format);
    // JSON Lines without a header: the file must at least hold JSON objects.
    if (out.appending() && !out.begins_with(header.empty() ? "{" : header)) {
        std::fprintf(stderr, "oru-sensor: %s has other columns or settings; not appended to\n", o.output.c_str());
        return 1;
    }
    if (!out.appending() && !out.write(header)) return fail_output(out);
    if (const int r = source.start(); r < 0) return fail("starting the frame stream failed", r);

    std::vector<Measurement> kept;  // for the whole-series formats and the plot
    const bool keep = !format_streams(format) || !o.plot.empty();
    const auto start = std::chrono::steady_clock::now();
    const auto deadline = start + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                      std::chrono::duration<double>(o.duration));
    if (o.duration > 0) source.set_deadline(deadline);
    std::size_t readings = 0;
    std::string text;
    for (int round = 0; o.repeat == 0 || round < o.repeat; ++round) {
        if (round > 0 && o.interval > 0) sleep_unless_stopped(o.interval);
        if (stop_signal() != 0 || (o.duration > 0 && std::chrono::steady_clock::now() >= deadline)) break;
        for (std::size_t i = 0; i < sensors.size() && stop_signal() == 0; ++i) {
            Measurement m;
            const int r = source.read(i, m);
            if (r == ReadingSource::kStopped) break;
            if (r < 0) {
                if (stop_signal() != 0) break;
                return fail("reading filter data failed", r);
            }
            m.timestamp = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            text.clear();
            format_reading(format, m, readings++, text);
            if (!out.write(text)) return fail_output(out);
            if (keep) kept.push_back(std::move(m));
        }
        if (o.repeat > 1) progress.step(round + 1, o.repeat, "reading");
    }
    source.stop();
    if (format == OutputFormat::CsvColumns && !out.write(format_csv_columns(kept))) return fail_output(out);
    if (format == OutputFormat::Json && !out.write(format_json_document(kept))) return fail_output(out);
    if (!out.close()) return fail_output(out);
    if (!o.plot.empty() && !kept.empty()) return write_plot(o, kept);
    return 0;
}

#ifdef ORU_SENSOR_LOG
int cmd_log(Session& s, const Options& o, const std::vector<int>& chosen, const LogOptions& lo) {
    Progress progress(false);
    std::vector<SourceSensor> sensors;
    for (int index : chosen) {
        s.api.duActivateSensorWithIndex(index);
        if (const int rc = prepare_exposure(s, o, progress)) return rc;
        sensors.push_back({index, id_of_active(s.api), s.api.duGetShutterSpeed()});
    }
    return run_log(s.api, sensors, o.averages, lo);
}
#endif

// The command line, with a subcommand per job; global options may also
// follow the subcommand.
void describe(CLI::App& app, Options& o) {
    app.description("list, inspect, read and log ORU spectral sensors");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", version_text, "print the program's and the library's version");
    app.add_option("--sensor", o.sensor,
                   "choose the sensor: INDEX, ID, or all (read; log reads all by default); default the first");
    app.add_flag("--virtual{1}", o.virtual_sensors, "run on N virtual sensors (default 1) instead of USB hardware")
        ->expected(0, 1)
        ->check(CLI::Range(0, 16));
    app.add_flag("-v,--verbose", o.verbose, "show the library's own messages on standard error");

    app.add_subcommand("list", "index and sensor ID of each attached sensor");
    CLI::App* info = app.add_subcommand("info", "sensor ID parts, shutter speed, exposure time and ADC settings");
    info->add_option("--clock", o.clock, "master clock in MHz (default 1)")->check(CLI::PositiveNumber);

    CLI::App* read = app.add_subcommand("read", "read filter data (1024 outputs) averaged over n frames");
    read->add_option("-n,--averages", o.averages, "frames averaged per reading (default 10)")
        ->check(CLI::Range(1, INT_MAX));
    CLI::Option* shutter = read->add_option("--shutter", o.shutter, "shutter speed to use")->check(CLI::Range(1, 3000));
    CLI::Option* ae = read->add_flag("--auto-exposure", o.auto_exposure, "search the optimal shutter speed first");
    shutter->excludes(ae);
    read->add_option("--target", o.target, "brightness target of the search in DN (default 3500)")
        ->check(CLI::Range(1, 4095))
        ->needs(ae);
    read->add_option("--repeat", o.repeat, "number of readings; 0 = until stopped (default 1)")
        ->check(CLI::Range(0, INT_MAX));
    read->add_option("--duration", o.duration, "stop after SECONDS (implies --repeat 0 unless given)")
        ->transform(kSeconds);
    read->add_option("--interval", o.interval,
                     "pause between readings; 0 (default) reads the frame stream back to back")
        ->transform(kSeconds);
    read->add_option("--format", o.format,
                     "table (a summary line per reading; the default on standard output), csv (a row per "
                     "reading; the default for -o), jsonl (an object per line), json (one document at the end) "
                     "or csv-columns (a column per reading, at the end)")
        ->check(CLI::IsMember(format_names()));
    CLI::Option* output = read->add_option("-o,--output", o.output, "write to FILE instead of standard output");
    CLI::Option* force = read->add_flag("--force", o.force, "replace the -o file if it exists")->needs(output);
    read->add_flag("--append", o.append, "add to the -o file if it exists (csv and jsonl with the same columns)")
        ->needs(output)
        ->excludes(force);
    read->add_option("--plot", o.plot, "also draw the filter outputs as an SVG line plot");
    read->add_flag("--no-recover", o.no_recover,
                   "end with an error when a sensor is removed or fails, instead of waiting for it to come "
                   "back and reading on");

    CLI::App* set = app.add_subcommand("set", "set shutter speed, ADC gain or ADC range (until the next connect)");
    set->add_option("--shutter", o.shutter, "shutter speed")->check(CLI::Range(1, 3000));
    set->add_option("--gain", o.gain, "ADC gain")->check(CLI::Range(0, 1));
    set->add_option("--range", o.range, "ADC range")->check(CLI::Range(0, 255));

    CLI::App* convert = app.add_subcommand("convert", "shutter speed <-> exposure time in ms for a master clock");
    convert->add_option("--clock", o.clock, "master clock in MHz (default 1)")->check(CLI::PositiveNumber);
    CLI::Option* cs =
        convert->add_option("--shutter", o.shutter, "shutter speed to convert")->check(CLI::PositiveNumber);
    CLI::Option* cm =
        convert->add_option("--ms", o.ms, "exposure time in ms to convert")->check(CLI::NonNegativeNumber);
    cs->excludes(cm);
    convert->require_option(1);

    app.add_subcommand("doctor", "check what keeps a real sensor from working on this machine");
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    CLI::App app{"", "oru-sensor"};
    describe(app, o);
#ifdef ORU_SENSOR_LOG
    LogOptions lo;
    describe_log(app, lo, o.averages, o.shutter);
#endif
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        return usage_error(e.what());
    }
    // CLI11 writes 0 into a flag's variable even when it is absent.
    if (app.count("--virtual") == 0) o.virtual_sensors = -1;
    CLI::App* command = app.get_subcommands().front();
    const std::string cmd = command->get_name();
    if (cmd == "doctor") return run_doctor(stdout) == 0 ? 0 : 1;
    if (cmd == "set" && o.shutter == 0 && o.gain < 0 && o.range < 0)
        return usage_error("set needs --shutter, --gain or --range");
    if (cmd == "read" && command->count("--duration") > 0 && command->count("--repeat") == 0) o.repeat = 0;
    if (cmd == "log" && o.sensor.empty()) o.sensor = "all";
    if (o.format.empty()) o.format = o.output.empty() ? "table" : "csv";
    if (cmd == "read" && o.append && o.format != "csv" && o.format != "jsonl")
        return usage_error("--append works with --format csv or jsonl");
    if (cmd == "read" && (o.format == "json" || o.format == "csv-columns") && o.repeat == 0)
        return usage_error("--format " + o.format + " needs a number of readings (--repeat K)");

    Session s;
    std::string error;
    if (!load_oru_api(s.api, o.virtual_sensors, error)) {
        std::fprintf(stderr, "oru-sensor: %s\n", error.c_str());
        return 1;
    }
    g_verbose = o.verbose;
    s.api.duSetLogHandler(on_library_line, nullptr);
    install_stop_signals();

    std::vector<int> chosen;
    if (const int rc = connect_and_select(s, o, cmd == "read" || cmd == "log", chosen)) return rc;
    OutputFile out(cmd == "read" ? o.output : std::string(), stdout,
                   o.force ? OutputMode::Replace : o.append ? OutputMode::Append : OutputMode::Refuse);
    if (!out.opened()) return fail_output(out);
    int rc = 0;
    if (cmd == "list")
        rc = cmd_list(s, out);
    else if (cmd == "info")
        rc = cmd_info(s, o, out);
    else if (cmd == "read")
        rc = cmd_read(s, o, chosen, out);
    else if (cmd == "set")
        rc = cmd_set(s, o, out);
#ifdef ORU_SENSOR_LOG
    else if (cmd == "log")
        rc = cmd_log(s, o, chosen, lo);
#endif
    else
        rc = cmd_convert(s, o, out);
    if (rc == 0 && !out.close() && out.error().size()) rc = fail_output(out);
    if (stop_signal() != 0) return 128 + stop_signal();
    return rc;
}
