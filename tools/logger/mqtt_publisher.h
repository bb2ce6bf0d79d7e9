// Readings and health to an MQTT broker: PREFIX/SENSOR_ID/reading (the
// reading's metadata with all values, a summary or none; every Nth reading)
// and PREFIX/SENSOR_ID/status (retained; "offline" as the last will), QoS 1.
// Each sensor has its own client (a will is per connection) whose network
// thread (mosquitto_loop_start) connects, reconnects with back-off and
// sends; the reading loop only hands messages over and never waits. What
// does not fit the bounded queue of unacknowledged messages is counted.
#ifndef ORU_TOOLS_LOGGER_MQTT_PUBLISHER_H
#define ORU_TOOLS_LOGGER_MQTT_PUBLISHER_H

#include <CLI/CLI.hpp>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "log_command.h"
#include "log_health.h"
#include "measurement_api.h"
#include "reading_sink.h"

struct MqttUrl {
    bool tls = false;
    std::string host;
    int port = 1883;
    std::string prefix;
};

// mqtt://HOST[:PORT]/PREFIX or mqtts://HOST[:PORT]/PREFIX (port 8883).
bool parse_mqtt_url(const std::string& text, MqttUrl& url, std::string& error);

// --mqtt, --mqtt-ca, --mqtt-auth, --publish-every, --publish-values.
void describe_mqtt_options(CLI::App& log, LogOptions& o);

class MqttPublisher : public ReadingSink {
public:
    virtual std::string state_text() const = 0;
    // From the status thread: each sensor's retained status.
    virtual void publish_status(const std::vector<SensorHealth>& sensors) = 0;
};

// Starts the clients (connecting in the background: a broker that is away
// is not an error). Null, with the reason, for a bad URL or auth file.
std::unique_ptr<MqttPublisher> create_mqtt_publisher(const LogOptions& o, const std::vector<std::string>& sensor_ids,
                                                     const MeasurementApi& api, std::string& error);

#endif
