#include "log_command.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>

#include "log_health.h"
#include "log_limits.h"
#include "log_status.h"
#include "measurement_api.h"
#include "mqtt_publisher.h"
#include "rotating_log.h"
#include "reading_events.h"
#include "sensor_reader.h"
#include "stop_signals.h"

namespace {

const CLI::Validator kLimit = CLI::Validator(
    [](std::string& text) -> std::string {
        LogLimit limit;
        std::string error;
        return parse_log_limit(text, limit, error) ? "" : error;
    },
    "LIMIT");

// HDF5 files need libhdf5, which the arm cross builds go without.
const CLI::Validator kBuiltFormat = CLI::Validator(
    [](std::string& text) -> std::string {
#ifndef ORU_LOGGER_HDF5
        if (text == "hdf5") return "hdf5 is not in this build of oru-sensor (built without libhdf5); use csv or jsonl";
#endif
        return text.empty() ? "needs a format" : "";
    },
    "");

// The settings the sensor reads at now, for the files' headers.
duSensorMetadata sensor_metadata(const OruApi& api, const SourceSensor& sensor, int shutter_speed) {
    duSensorMetadata meta{};
    std::snprintf(meta.sensor_id, sizeof meta.sensor_id, "%s", sensor.id.c_str());
    api.duActivateSensorWithIndex(sensor.index);
    int gain = 0, range = 0;
    api.duGetSensorParameters(&gain, &range);
    meta.settings = {shutter_speed, 1, gain, range};
    return meta;
}

int log_failure(const std::string& what) {
    std::fprintf(stderr, "oru-sensor: log: %s\n", what.c_str());
    return 1;
}

}  // namespace

CLI::App* describe_log(CLI::App& app, LogOptions& o, int& averages, int& shutter) {
    CLI::App* log = app.add_subcommand(
        "log", "read every sensor (or --sensor) until stopped, into rotating files, optionally to an MQTT broker");
    log->add_option("--dir", o.dir, "directory of the log files (made if missing)")->required();
    log->add_option("--format", o.format, "csv (default), jsonl or hdf5")
        ->check(CLI::IsMember({"csv", "jsonl", "hdf5"}))
        ->check(kBuiltFormat);
    log->add_option("--rotate", o.rotate, "start a new file after a time or size: 10s, 1h (default), 100MB")
        ->check(kLimit);
    log->add_option("--keep", o.keep, "delete the oldest files beyond an age or total size: 30d, 5GB")->check(kLimit);
    log->add_option("--status-every", o.status_every, "seconds between status lines (default 60)")
        ->check(CLI::Range(0.1, 86400.0));
    log->add_option("-n,--averages", averages, "frames averaged per reading (default 10)")
        ->check(CLI::Range(1, INT_MAX));
    log->add_option("--shutter", shutter, "shutter speed to use")->check(CLI::Range(1, 3000));
    describe_mqtt_options(*log, o);
    return log;
}

int run_log(const OruApi& api, bool& connected, const std::vector<SourceSensor>& sensors, int averages,
            const LogOptions& o) {
    MeasurementApi measurement;
    std::string error;
    if (!bind_measurement_api(measurement, error)) return log_failure(error);
    RotatingLogConfig config;
    config.dir = o.dir;
    log_format_from_name(o.format, config.format);
    parse_log_limit(o.rotate, config.rotate, error);
    parse_log_limit(o.keep, config.keep, error);
    // Readers following a file see rows well before it is done.
    if (config.rotate.seconds > 0) config.flush_seconds = std::min(1.0, config.rotate.seconds / 4);
    if (::mkdir(o.dir.c_str(), 0755) != 0 && errno != EEXIST)
        return log_failure("cannot make " + o.dir + ": " + std::strerror(errno));
    prune_log_dir(config.dir, config.keep, {});

    std::vector<std::string> ids;
    std::vector<duSensorMetadata> metadata;
    for (const SourceSensor& s : sensors) {
        ids.push_back(s.id);
        metadata.push_back(sensor_metadata(api, s, s.shutter_speed));
    }
    std::unique_ptr<MqttPublisher> mqtt;
    if (!o.mqtt.empty()) {
        mqtt = create_mqtt_publisher(o, ids, measurement, error);
        if (!mqtt) return log_failure(error);
    }
    RotatingLog files(config, measurement);
    std::vector<ReadingSink*> sinks = {&files};
    if (mqtt) sinks.push_back(mqtt.get());

    LogHealth health(ids);
    LogStatus status(
        health, o.status_every, [&mqtt] { return mqtt ? "; " + mqtt->state_text() : std::string(); },
        [&mqtt](const std::vector<SensorHealth>& s) {
            if (mqtt) mqtt->publish_status(s);
        });
    // One reader thread per sensor, as `read --sensor all` has them: an outage
    // of one never holds up the files of another. This thread writes.
    ReadingEvents events;
    ReaderPlan plan;
    plan.averages = averages;
    plan.repeat = 0;
    std::vector<std::unique_ptr<SensorReader>> readers;
    for (std::size_t i = 0; i < sensors.size(); ++i)
        readers.push_back(std::make_unique<SensorReader>(api, i, sensors[i], plan, events));
    for (auto& reader : readers) reader->start();
    status.start();
    int rc = 0;
    bool sink_failed = false;  // files or broker set-up lost: the run ends
    std::size_t finished = 0;
    auto stop_asked = std::chrono::steady_clock::time_point{};  // the epoch: not asked
    while (finished < readers.size()) {
        health.beat();
        const auto now = std::chrono::steady_clock::now();
        if (stop_asked == std::chrono::steady_clock::time_point{} && (stop_signal() != 0 || sink_failed)) {
            for (auto& reader : readers) reader->stop();
            stop_asked = now;
        }
        // A reader still waiting for a stalled sensor: the disconnect wakes it.
        if (stop_asked != std::chrono::steady_clock::time_point{} && connected &&
            now - stop_asked > std::chrono::milliseconds(300)) {
            api.duDisconnect();
            connected = false;
        }
        ReadingEvent event;
        if (!events.next(event, std::chrono::milliseconds(50))) continue;
        const std::size_t i = event.reader;
        switch (event.kind) {
        case ReadingEvent::Finished:
            ++finished;
            break;
        case ReadingEvent::Failed:
            // The others log on; the run's status says one failed.
            rc = rc == 0 && stop_signal() == 0 ? log_failure(event.text) : rc;
            break;
        case ReadingEvent::Note:
            std::fprintf(stderr, "oru-sensor: %s\n", event.text.c_str());
            break;
        case ReadingEvent::Reading: {
            const Measurement& m = event.reading;
            // A sensor that came back was set up afresh: its settings again.
            if (m.gap > 0 && connected) metadata[i] = sensor_metadata(api, sensors[i], m.shutter_speed);
            metadata[i].settings.shutter_speed = m.shutter_speed;
            health.record(m);
            for (ReadingSink* sink : sinks)
                if (!sink->write(metadata[i], m) && !sink_failed) {
                    sink_failed = true;
                    rc = log_failure(sink->error());
                }
            break;
        }
        }
    }
    readers.clear();  // joined
    status.stop();
    for (ReadingSink* sink : sinks)
        if (!sink->close() && rc == 0) rc = log_failure(sink->error());
    return rc;
}
