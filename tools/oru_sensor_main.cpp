// oru-sensor: list, inspect and read spectral sensors from the shell.
#include <CLI/CLI.hpp>

#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "calibrate_command.h"
#include "cli_version.h"
#include "cli_format.h"
#include "cli_options.h"
#include "cli_session.h"
#include "commands.h"
#include "config_command.h"
#include "doctor.h"
#include "measuring_commands.h"
#include "oru_api_loader.h"
#include "output_file.h"
#include "progress.h"
#include "stop_signals.h"
#ifdef ORU_SENSOR_LOG
#include "log_command.h"
#endif

namespace {

// The library opens at most this many sensors; more virtual ones would be
// made and never seen.
constexpr int kMaxSensors = 10;

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

// A time in ms that is finite and above 0.
const CLI::Validator kMilliseconds = CLI::Validator(
    [](std::string& text) -> std::string {
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        if (end == text.c_str() || *end != '\0' || !std::isfinite(value) || value <= 0)
            return "needs a time in ms above 0, got " + text;
        return "";
    },
    "MS");

// An empty value is a mistake (a shell variable that was not set), not "absent".
const CLI::Validator kNotEmpty = CLI::Validator(
    [](std::string& text) -> std::string { return text.empty() ? "needs a value, got an empty one" : ""; }, "");

// The command line, with a subcommand per job; global options may also
// follow the subcommand.
void describe(CLI::App& app, Options& o, CalibrateOptions& c) {
    app.description("list, inspect, read and log ORU spectral sensors");
    app.set_version_flag("--version", version_text, "print the program's and the library's version");
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option("--sensor", o.sensor, "choose the sensor: INDEX, ID, or all (read; log reads all by default); default the first")
        ->check(kNotEmpty);
    app.add_flag("--virtual{1}", o.virtual_sensors,
                 "run on N virtual sensors (default 1, at most 10) instead of USB hardware")
        ->expected(0, 1)
        ->check(CLI::Range(0, kMaxSensors));
    app.add_flag("-v,--verbose", o.verbose, "show the library's own messages on standard error");

    app.add_subcommand("list", "index and sensor ID of each attached sensor");
    CLI::App* info = app.add_subcommand("info", "sensor ID parts, shutter speed, exposure time and ADC settings");
    info->add_option("--clock", o.clock, "master clock in MHz, 1..1000 (default 1)")->check(CLI::Range(1, 1000));

    CLI::App* read = app.add_subcommand("read", "read filter data (1024 outputs) averaged over n frames");
    add_exposure_options(read, o);
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
    CLI::Option* output =
        read->add_option("-o,--output", o.output, "write to FILE instead of standard output")->check(kNotEmpty);
    CLI::Option* force = read->add_flag("--force", o.force,
                                        "replace the -o file if it exists; with --spectrum, use a calibration of "
                                        "another sensor");
    read->add_flag("--append", o.append, "add to the -o file if it exists (csv and jsonl with the same columns)")
        ->needs(output)
        ->excludes(force);
    read->add_option("--plot", o.plot, "also draw the filter outputs as an SVG line plot")->check(kNotEmpty);
    read->add_flag("--no-recover", o.no_recover,
                   "give up on a sensor that is removed or fails (the others read on; exit status 1), instead "
                   "of waiting for it to come back and reading on");

    CLI::App* set = app.add_subcommand("set", "set shutter speed, ADC gain or ADC range (until the next connect; --save keeps them)");
    set->add_option("--shutter", o.shutter, "shutter speed")->check(CLI::Range(1, 3000));
    set->add_option("--gain", o.gain, "ADC gain")->check(CLI::Range(0, 1));
    set->add_option("--range", o.range, "ADC range")->check(CLI::Range(0, 255));

    CLI::App* convert = app.add_subcommand("convert", "shutter speed <-> exposure time in ms for a master clock");
    convert->add_option("--clock", o.clock, "master clock in MHz, 1..1000 (default 1)")->check(CLI::Range(1, 1000));
    CLI::Option* cs =
        convert->add_option("--shutter", o.shutter, "shutter speed to convert, 1..3000")->check(CLI::Range(1, 3000));
    CLI::Option* cm = convert->add_option("--ms", o.ms, "exposure time in ms to convert")->transform(kMilliseconds);
    cs->excludes(cm);

    describe_measuring(app, read, o);
    app.add_subcommand("doctor", "check what keeps a real sensor from working on this machine");
    describe_calibration(app, info, c);
    describe_config(app, o);
}

#ifdef ORU_SENSOR_LOG
int cmd_log(Session& s, const Options& o, const std::vector<int>& chosen, const LogOptions& lo) {
    Progress progress(false);
    std::vector<SourceSensor> sensors;
    for (int index : chosen) {
        s.api.duActivateSensorWithIndex(index);
        const std::string id = id_of_active(s.api);
        std::string what;
        if (const int r = prepare_exposure(s, o, progress, what); r < 0)
            return fail("sensor " + std::to_string(index) + " (" + id + "): " + what, r);
        sensors.push_back({index, id, s.api.duGetShutterSpeed()});
    }
    return run_log(s.api, s.connected, sensors, o.averages, lo);
}
#endif

// Whether two paths name one file, also when written differently.
bool same_file(const std::string& a, const std::string& b) {
    if (b.empty()) return false;
    const auto resolved = [](const std::string& path) {
        std::error_code ec;
        const std::filesystem::path whole = std::filesystem::weakly_canonical(std::filesystem::absolute(path, ec), ec);
        return ec ? std::filesystem::path(path) : whole.lexically_normal();
    };
    return a == b || resolved(a) == resolved(b);
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    CalibrateOptions cal;
    CLI::App app{"", "oru-sensor"};
    describe(app, o, cal);
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
    if (cmd == "read" && o.force && o.output.empty() && o.measure.spectrum.empty())
        return usage_error("--force needs -o or --spectrum");
    o.measure.force = o.force;
    if (cmd == "dark" || cmd == "reference") stored_reading_defaults(cmd, o);
    if (cmd == "log" && o.sensor.empty()) o.sensor = "all";
    if (o.format.empty()) o.format = o.output.empty() ? "table" : "csv";
    if (cmd == "read" && o.append && o.format != "csv" && o.format != "jsonl")
        return usage_error("--append works with --format csv or jsonl");
    if (cmd == "read" && (o.format == "json" || o.format == "csv-columns") && o.repeat == 0)
        return usage_error("--format " + o.format + " needs a number of readings (--repeat K)");
    if (cmd == "read" && !o.output.empty() && same_file(o.output, o.plot))
        return usage_error("-o and --plot name the same file, " + o.output);
    if (cmd == "convert" && command->count("--shutter") + command->count("--ms") != 1)
        return usage_error("convert needs --shutter or --ms");
    ConfigFiles config;
    const bool configured = cmd != "convert" && cmd != "list";
    if (configured)
        if (const int rc = load_config(o, config)) return rc;
    if (cmd == "config") {
        OutputFile out(std::string(), stdout);
        const int rc = cmd_config_show(config, o, out);
        return rc == 0 && !out.close() ? fail_output(out) : rc;
    }

    Session s;
    std::string error;
    if (!load_oru_api(s.api, o.virtual_sensors, error)) {
        std::fprintf(stderr, "oru-sensor: %s\n", error.c_str());
        return 1;
    }
    route_library_lines(s.api, o.verbose);
    install_stop_signals();
    if (calibration_without_sensor(cmd, cal)) return run_calibration(cmd, cal, nullptr);
    if (cmd == "convert") {
        OutputFile out(std::string(), stdout);
        const int rc = cmd_convert(s.api, o, out);
        return rc == 0 && !out.close() ? fail_output(out) : rc;
    }

    std::vector<int> chosen;
    const bool reads = cmd == "read" || cmd == "dark" || cmd == "reference";
    if (const int rc = connect_and_select(s, o, reads || cmd == "log", chosen)) return rc;
    if (configured)
        if (const int rc = apply_config(s, config, chosen, *command, o)) return rc;
    OutputFile out(cmd == "read" ? o.output : std::string(), stdout,
                   o.force ? OutputMode::Replace : o.append ? OutputMode::Append : OutputMode::Refuse);
    if (!out.opened()) return fail_output(out);
    int rc = 0;
    if (cmd == "list")
        rc = cmd_list(s, out);
    else if (cmd == "info")
        rc = cmd_info(s, o, out);
    else if (reads)
        rc = cmd_read(s, o, chosen, out);
    else if (cmd == "calibrate")
        rc = run_calibration(cmd, cal, &s.api);
#ifdef ORU_SENSOR_LOG
    else if (cmd == "log")
        rc = cmd_log(s, o, chosen, lo);
#endif
    else if ((rc = cmd_set(s, o, out)) == 0 && o.save)
        rc = save_set(s, o);
    if (rc == 0 && !out.close() && out.error().size()) rc = fail_output(out);
    if (stop_signal() != 0) return 128 + stop_signal();
    return rc;
}
