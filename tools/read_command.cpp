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

// The sensors ready to read, their readers not yet started; a sensor whose
// exposure cannot be set is reported and left out. `failed` counts those.
std::vector<std::unique_ptr<SensorReader>> make_readers(Session& s, const Options& o,
                                                         const std::vector<int>& chosen, ReadingEvents& events,
                                                         int& failed) {
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
        std::string what;
        if (const int r = prepare_exposure(s, o, progress, what); r < 0) {
            fail("sensor " + std::to_string(index) + " (" + id + "): " + what, r);
            ++failed;
            continue;
        }
        readers.push_back(std::make_unique<SensorReader>(
            s.api, readers.size(), SourceSensor{index, id, s.api.duGetShutterSpeed()}, plan, events));
    }
    return readers;
}

}  // namespace

int cmd_read(Session& s, const Options& o, const std::vector<int>& chosen, OutputFile& out) {
    ReadingEvents events;
    int failed = 0;
    std::vector<std::unique_ptr<SensorReader>> readers = make_readers(s, o, chosen, events, failed);
    const OutputFormat format = format_from_name(o.format);
    const std::string header = format_header(format);
    // JSON Lines without a header: the file must at least hold JSON objects.
    if (out.appending() && !out.begins_with(header.empty() ? "{" : header)) {
        std::fprintf(stderr, "oru-sensor: %s has other columns or settings; not appended to\n", o.output.c_str());
        return 1;
    }
    if (!out.appending() && !out.write(header)) return fail_output(out);
    for (auto& reader : readers) reader->start();

    std::vector<Measurement> kept;  // for the whole-series formats and the plot
    const bool keep = !format_streams(format) || !o.plot.empty();
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
            m.timestamp = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            if (m.saturated > 0 && warned.insert(event.reader).second)
                std::fprintf(stderr,
                             "oru-sensor: warning: %s: %d filters saturated (at 4095 DN in some frame); "
                             "lower the shutter speed\n",
                             readers[event.reader]->name().c_str(), m.saturated);
            text.clear();
            format_reading(format, m, readings++, text);
            if (!out.write(text)) output_lost = true;
            if (keep) kept.push_back(std::move(m));
            if (total > 0) progress.step(static_cast<int>(readings), total, "reading");
            break;
        }
        }
    }
    readers.clear();  // joined
    if (output_lost) return fail_output(out);
    if (format == OutputFormat::CsvColumns && !out.write(format_csv_columns(kept))) return fail_output(out);
    if (format == OutputFormat::Json && !out.write(format_json_document(kept))) return fail_output(out);
    if (!out.close()) return fail_output(out);
    const int plotted = !o.plot.empty() && !kept.empty() ? write_plot(o, kept) : 0;
    return failed > 0 ? 1 : plotted;
}
