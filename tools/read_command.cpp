// read: readings of one sensor or of all, each sensor on a reader thread of
// its own (sensor_reader.h); this thread writes what they read, in arrival
// order, and ends the run on a stop signal, at the deadline or when every
// reader is done. The whole-series formats are written with what was read
// also when the run ends early.
#include <chrono>
#include <cstdio>
#include <memory>
#include <set>

#include "commands.h"
#include "progress.h"
#include "reading_writer.h"
#include "sensor_measure.h"
#include "sensor_reader.h"
#include "stop_signals.h"
#include "svg_plot.h"

// Applies --shutter or --auto-exposure to the active sensor; returns 0 or the
// library's negative result, with `what` saying which step failed.
int prepare_exposure(Session& s, const Options& o, Progress& progress, std::string& what) {
    if (o.shutter > 0) {
        what = "setting the shutter speed failed";
        if (const int r = s.api.duSetShutterSpeed(o.shutter); r < 0) return r;
    }
    if (o.auto_exposure) {
        progress.spin("searching the optimal shutter speed");
        const int best = o.target != 3500 ? s.api.duGetOptimalShutterSpeed2(nullptr, 0, o.target)
                                          : s.api.duGetOptimalShutterSpeed(nullptr, 0);
        progress.done();
        what = best == -1 ? "auto exposure failed: the sensor is saturated even at shutter speed 1, or the search "
                            "failed"
                          : "auto exposure failed";
        if (best < 0) return best;
        // The search leaves the sensor there; this makes the library agree.
        what = "setting the shutter speed failed";
        if (const int r = s.api.duSetShutterSpeed(best); r < 0) return r;
    }
    return 0;
}

namespace {

// How long the readers have to see a stop before the disconnect wakes them.
constexpr std::chrono::milliseconds kWakeAfter{300};

// The library's functions a reading goes through on its way to the file.
struct ReadApis {
    MeasurementApi measurement;
    CalibrationApi calibration{};
};

int write_plot(const Options& o, const std::vector<Measurement>& series, const PlotAxes& axes) {
    const Measurement& last = series.back();
    const std::string title = (axes.x.empty() ? "Filter outputs of " : "Spectrum of ") + last.sensor_id +
                              ": shutter " + std::to_string(last.shutter_speed) + ", " + std::to_string(o.averages) +
                              (o.averages == 1 ? " frame" : " frames averaged");
    OutputFile svg(o.plot, stdout);
    if (!svg.opened() || !svg.write(render_svg_plot(series, title, axes)) || !svg.close()) return fail_output(svg);
    std::fprintf(stderr, "plot written to %s\n", o.plot.c_str());
    return 0;
}

// The settings the active sensor reads at now, for its dark, reference and
// the file's header.
duReadingSettings active_settings(const OruApi& api) {
    int gain = 0, range = 0;
    api.duGetSensorParameters(&gain, &range);
    return {api.duGetShutterSpeed(), 1, gain, range};
}

// The sensors ready to read, their readers not yet started, with what
// --mode, --dark, --reference and --spectrum need for each; a sensor whose
// exposure cannot be set is reported and left out (`failed` counts those).
// A dark, reference or calibration that does not fit ends the run before
// anything is read: `refused`.
std::vector<std::unique_ptr<SensorReader>> make_readers(Session& s, const Options& o, const ReadApis& apis,
                                                         const std::vector<int>& chosen, ReadingEvents& events,
                                                         std::vector<SensorMeasure>& measures, int& failed,
                                                         bool& refused) {
    Progress progress(stderr_is_terminal() && !o.verbose);
    ReaderPlan plan;
    plan.averages = o.averages;
    plan.repeat = o.repeat;
    plan.interval = o.interval;
    plan.recover = !o.no_recover;
    std::vector<std::unique_ptr<SensorReader>> readers;
    for (int index : chosen) {
        if (stop_signal() != 0) break;
        s.api.duActivateSensorWithIndex(index);
        const std::string id = id_of_active(s.api);
        const std::string name = "sensor " + std::to_string(index) + " (" + id + ")";
        std::string what;
        if (const int r = prepare_exposure(s, o, progress, what); r < 0) {
            fail(name + ": " + what, r);
            ++failed;
            continue;
        }
        SensorMeasure measure(apis.measurement, &apis.calibration);
        if (!measure.prepare(o.measure, id, active_settings(s.api), what)) {
            std::fprintf(stderr, "oru-sensor: %s: %s\n", name.c_str(), what.c_str());
            refused = true;
            break;
        }
        measures.push_back(std::move(measure));
        readers.push_back(std::make_unique<SensorReader>(
            s.api, readers.size(), SourceSensor{index, id, s.api.duGetShutterSpeed()}, plan, events));
    }
    return readers;
}

duFileHeader file_header(const Options& o, const std::vector<SensorMeasure>& measures) {
    duFileHeader header{};
    header.kind = o.kind;
    header.mode = measures.empty() ? DU_MODE_RAW : measures.front().mode();
    for (const SensorMeasure& m : measures)
        if (header.sensor_count < DU_FILE_MAX_SENSORS) header.sensors[header.sensor_count++] = m.metadata();
    return header;
}

// One grid for the whole file: the sensors' calibrations must agree on it.
bool spectrum_header(const Options& o, const std::vector<SensorMeasure>& measures, SpectrumHeader& out) {
    if (o.measure.spectrum.empty() || measures.empty()) return true;
    out.calibration = o.measure.spectrum.front();
    for (std::size_t i = 1; i < o.measure.spectrum.size(); ++i) out.calibration += " " + o.measure.spectrum[i];
    out.algorithm = measures.front().algorithm();
    out.wavelengths_nm = measures.front().wavelengths_nm();
    for (const SensorMeasure& m : measures)
        if (m.wavelengths_nm() != out.wavelengths_nm) return false;
    return true;
}

// A dark or reference is kept only whole: a reading of every sensor, none
// saturated; then the file is written at once.
int save_stored(const Options& o, const ReadingWriter& writer, const std::vector<Measurement>& kept,
                std::size_t sensors, int failed) {
    const char* what = o.kind == DU_KIND_DARK ? "dark" : "reference";
    if (failed > 0 || kept.size() != sensors || sensors == 0) {
        std::fprintf(stderr, "oru-sensor: no %s saved: not every sensor gave a reading\n", what);
        return 1;
    }
    for (const Measurement& m : kept)
        if (m.saturated > 0) {
            std::fprintf(stderr,
                         "oru-sensor: %s: the %s has %d saturated filters and is not saved; lower the shutter "
                         "speed\n",
                         m.sensor_id.c_str(), what, m.saturated);
            return 1;
        }
    OutputFile out(o.output, stdout, o.force ? OutputMode::Replace : OutputMode::Refuse);
    std::string text = writer.header();
    for (std::size_t k = 0; k < kept.size(); ++k) writer.append(kept[k], k, text);
    if (!out.opened() || !out.write(text) || !out.close()) return fail_output(out);
    std::fprintf(stderr, "%s of %zu sensor%s written to %s\n", what, sensors, sensors == 1 ? "" : "s",
                 o.output.c_str());
    return 0;
}

}  // namespace

int cmd_read(Session& s, const Options& o, const std::vector<int>& chosen, OutputFile& out) {
    ReadApis apis;
    std::string error;
    if (!bind_measurement_api(apis.measurement, error) ||
        (!o.measure.spectrum.empty() && !load_calibration_api(apis.calibration, error))) {
        std::fprintf(stderr, "oru-sensor: %s\n", error.c_str());
        return 1;
    }
    ReadingEvents events;
    int failed = 0;
    bool refused = false;
    std::vector<SensorMeasure> measures;
    std::vector<std::unique_ptr<SensorReader>> readers =
        make_readers(s, o, apis, chosen, events, measures, failed, refused);
    if (refused) return 1;
    SpectrumHeader spectrum;
    if (!spectrum_header(o, measures, spectrum)) {
        std::fprintf(stderr, "oru-sensor: the sensors' calibrations have different wavelength grids\n");
        return 1;
    }
    const bool stored = o.kind != DU_KIND_READINGS;
    const OutputFormat format = format_from_name(o.format);
    const ReadingWriter writer(apis.measurement, format, file_header(o, measures), spectrum);
    const std::string header = writer.header();
    // Added to only when written with the same header: columns, mode, settings, dark and reference.
    if (out.appending() && !out.begins_with(header)) {
        std::fprintf(stderr, "oru-sensor: %s has other columns or settings; not appended to\n", o.output.c_str());
        return 1;
    }
    if (!stored && !out.appending() && !out.write(header)) return fail_output(out);
    for (auto& reader : readers) reader->start();

    std::vector<Measurement> kept;  // for the whole-series formats, the plot and a dark or reference
    const bool keep = stored || !format_streams(format) || !o.plot.empty();
    const auto start = std::chrono::steady_clock::now();
    const auto deadline = start + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                      std::chrono::duration<double>(o.duration));
    Progress progress(stderr_is_terminal() && !o.verbose && o.repeat > 1);
    const int total = o.repeat * static_cast<int>(readers.size());
    std::set<std::size_t> warned;  // readers whose saturation was reported
    std::size_t readings = 0, finished = 0;
    bool output_lost = false;
    std::string text;
    std::chrono::steady_clock::time_point stop_asked{};  // the epoch: not asked
    while (finished < readers.size()) {
        const auto now = std::chrono::steady_clock::now();
        if (stop_asked == std::chrono::steady_clock::time_point{} &&
            (stop_signal() != 0 || output_lost || (o.duration > 0 && now >= deadline))) {
            for (auto& reader : readers) reader->stop();
            stop_asked = now;
        }
        // A reader still waiting for a stalled sensor's frames: the disconnect
        // closes every stream, which wakes it.
        if (stop_asked != std::chrono::steady_clock::time_point{} && s.connected && now - stop_asked > kWakeAfter) {
            s.api.duDisconnect();
            s.connected = false;
        }
        ReadingEvent event;
        if (!events.next(event, std::chrono::milliseconds(50))) continue;
        switch (event.kind) {
        case ReadingEvent::Finished:
            ++finished;
            break;
        case ReadingEvent::Failed:
            ++failed;
            [[fallthrough]];
        case ReadingEvent::Note:
            std::fprintf(stderr, "oru-sensor: %s\n", event.text.c_str());
            break;
        case ReadingEvent::Reading: {
            Measurement& m = event.reading;
            if (output_lost) break;
            if (!measures[event.reader].apply(m, error)) {
                std::fprintf(stderr, "oru-sensor: %s: %s\n", readers[event.reader]->name().c_str(), error.c_str());
                ++failed;
                readers[event.reader]->stop();
                break;
            }
            m.timestamp = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            if (!stored && m.saturated > 0 && warned.insert(event.reader).second)
                std::fprintf(stderr,
                             "oru-sensor: warning: %s: %d filters saturated (at 4095 DN in some frame); "
                             "lower the shutter speed\n",
                             readers[event.reader]->name().c_str(), m.saturated);
            text.clear();
            writer.append(m, readings++, text);
            if (!stored && !out.write(text)) output_lost = true;
            if (keep) kept.push_back(std::move(m));
            if (total > 0) progress.step(static_cast<int>(readings), total, "reading");
            break;
        }
        }
    }
    const std::size_t sensor_count = readers.size();
    readers.clear();  // joined
    if (output_lost) return fail_output(out);
    if (stored) return save_stored(o, writer, kept, sensor_count, failed);
    if (!format_streams(format) && !out.write(writer.whole_series(kept))) return fail_output(out);
    if (!out.close()) return fail_output(out);
    PlotAxes axes;
    if (!spectrum.wavelengths_nm.empty()) {
        axes.x = spectrum.wavelengths_nm;
        axes.x_title = "Wavelength (nm)";
        axes.y_title = "Spectral radiance (calibration units)";
        axes.spectra = true;
    } else if (!measures.empty() && measures.front().mode() != DU_MODE_RAW) {
        axes.y_title = std::string("Filter output (") + apis.measurement.duMeasureModeUnit(measures.front().mode()) + ")";
        axes.dn_scale = false;
    }
    const int plotted = !o.plot.empty() && !kept.empty() ? write_plot(o, kept, axes) : 0;
    return failed > 0 ? 1 : plotted;
}
