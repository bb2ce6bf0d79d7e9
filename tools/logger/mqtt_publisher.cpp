#include "mqtt_publisher.h"

#include <mosquitto.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <deque>
#include <cmath>
#include <cstring>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>

namespace {

constexpr int kQos = 1;
constexpr int kKeepAliveS = 30;
// Back-off between reconnects: 1 s doubling to 30 s.
constexpr unsigned kReconnectMinS = 1, kReconnectMaxS = 30;
// Unacknowledged messages a client hands to libmosquitto at most, and
// messages it keeps while the broker is away (about 10 s of readings at the
// sensor's full rate each); beyond that they are counted as not published.
constexpr int kMaxPending = 1000;
constexpr std::size_t kMaxQueued = 1000;
constexpr const char* kOffline = "offline";

// A message waiting for the broker.
struct Message {
    std::string topic, payload;
    bool retain;
};

// One sensor's connection. The counters are written by the reading loop
// (publish) and the client's network thread (callbacks); atomics, no lock.
// Lock order: queue_lock, then status_lock; libmosquitto's own locks after both.
struct Client {
    std::string sensor_id;
    std::string reading_topic, status_topic;
    mosquitto* mosq = nullptr;
    std::atomic<bool> connected{false};
    std::atomic<bool> ever_connected{false};
    std::atomic<int> pending{0};  // handed to libmosquitto, not yet acknowledged
    std::atomic<uint64_t> reconnects{0};
    std::atomic<uint64_t> not_published{0};
    uint64_t readings_seen = 0;  // reading loop only
    std::mutex queue_lock;  // guards queue
    // What waits while the broker is away (or too much is unacknowledged),
    // oldest first; filled by publish(), emptied by drain().
    std::deque<Message> queue;
    std::mutex status_lock;  // guards last_status
    std::string last_status;  // sent again at every (re)connect
};

bool send(Client& c, const Message& m) {
    if (!c.connected || c.pending >= kMaxPending) return false;
    ++c.pending;
    if (mosquitto_publish(c.mosq, nullptr, m.topic.c_str(), static_cast<int>(m.payload.size()), m.payload.data(), kQos,
                          m.retain) == MOSQ_ERR_SUCCESS)
        return true;
    --c.pending;
    return false;
}

// Sends what waits, in order, as far as the connection takes it. Called
// with queue_lock held.
void drain(Client& c) {
    while (!c.queue.empty() && send(c, c.queue.front())) c.queue.pop_front();
}

bool idle(Client& c) {
    std::lock_guard<std::mutex> hold(c.queue_lock);
    return c.queue.empty() && c.pending == 0;
}

// From the reading loop and the status thread: never waits on the network.
void publish(Client& c, Message m) {
    std::lock_guard<std::mutex> hold(c.queue_lock);
    drain(c);
    if (c.queue.empty() && send(c, m)) return;
    if (c.queue.size() >= kMaxQueued) {
        ++c.not_published;
        return;
    }
    c.queue.push_back(std::move(m));
}

void on_connect(mosquitto*, void* user, int rc) {
    auto* c = static_cast<Client*>(user);
    if (rc != 0) return;
    if (c->ever_connected.exchange(true)) ++c->reconnects;
    c->connected = true;
    std::lock_guard<std::mutex> hold(c->queue_lock);
    drain(*c);
    // The will may have replaced the status while we were away.
    std::lock_guard<std::mutex> hold_status(c->status_lock);
    if (!c->last_status.empty() && c->queue.empty()) send(*c, {c->status_topic, c->last_status, true});
}

void on_disconnect(mosquitto*, void* user, int) { static_cast<Client*>(user)->connected = false; }

void on_publish(mosquitto*, void* user, int) {
    auto* c = static_cast<Client*>(user);
    --c->pending;
    std::lock_guard<std::mutex> hold(c->queue_lock);
    drain(*c);
}

bool read_auth_file(const std::string& path, std::string& user, std::string& password, std::string& error) {
    std::ifstream in(path);
    if (!in || !std::getline(in, user) || user.empty()) {
        error = "cannot read a user name from " + path;
        return false;
    }
    std::getline(in, password);
    return true;
}

class Publisher : public MqttPublisher {
public:
    Publisher(const LogOptions& o, const MqttUrl& url, const MeasurementApi& api)
        : m_options(o), m_url(url), m_api(api) {}

    ~Publisher() override { close(); }

    bool start(const std::vector<std::string>& sensor_ids, std::string& error) {
        std::string user, password;
        if (!m_options.mqtt_auth.empty() && !read_auth_file(m_options.mqtt_auth, user, password, error)) return false;
        mosquitto_lib_init();
        m_lib = true;
        for (const std::string& id : sensor_ids) {
            auto c = std::make_unique<Client>();
            c->sensor_id = id;
            c->reading_topic = m_url.prefix + "/" + id + "/reading";
            c->status_topic = m_url.prefix + "/" + id + "/status";
            const std::string client_id = "oru-sensor-" + id + "-" + std::to_string(::getpid());
            c->mosq = mosquitto_new(client_id.c_str(), true, c.get());
            if (!c->mosq) {
                error = "cannot make an MQTT client";
                return false;
            }
            mosquitto_connect_callback_set(c->mosq, on_connect);
            mosquitto_disconnect_callback_set(c->mosq, on_disconnect);
            mosquitto_publish_callback_set(c->mosq, on_publish);
            mosquitto_reconnect_delay_set(c->mosq, kReconnectMinS, kReconnectMaxS, true);
            mosquitto_will_set(c->mosq, c->status_topic.c_str(), static_cast<int>(std::strlen(kOffline)), kOffline,
                               kQos, true);
            if (!user.empty()) mosquitto_username_pw_set(c->mosq, user.c_str(), password.c_str());
            if (m_url.tls) {
                const char* ca = m_options.mqtt_ca.empty() ? nullptr : m_options.mqtt_ca.c_str();
                if (mosquitto_tls_set(c->mosq, ca, ca ? nullptr : "/etc/ssl/certs", nullptr, nullptr, nullptr) !=
                    MOSQ_ERR_SUCCESS) {
                    error = "cannot use the CA file " + m_options.mqtt_ca;
                    return false;
                }
            }
            // A refused first connection is retried by the network thread.
            mosquitto_connect_async(c->mosq, m_url.host.c_str(), m_url.port, kKeepAliveS);
            if (mosquitto_loop_start(c->mosq) != MOSQ_ERR_SUCCESS) {
                error = "cannot start the MQTT network thread";
                return false;
            }
            m_clients.push_back(std::move(c));
        }
        return true;
    }

    bool write(const duSensorMetadata& sensor, const Measurement& m) override {
        Client* c = find(m.sensor_id);
        if (!c || (c->readings_seen++ % static_cast<uint64_t>(m_options.publish_every)) != 0) return true;
        publish(*c, {c->reading_topic, reading_payload(sensor, m), false});
        return true;
    }

    void publish_status(const std::vector<SensorHealth>& sensors) override {
        for (const SensorHealth& s : sensors) {
            Client* c = find(s.sensor_id);
            if (!c) continue;
            const nlohmann::json status = {{"state", "online"},
                                           {"readings", s.readings},
                                           {"readings_per_s", std::round(s.readings_per_s * 100) / 100},
                                           {"dropped_frames", s.dropped_frames},
                                           {"reconnects", s.reconnects},
                                           {"last_gap_s", std::round(s.last_gap_s * 1000) / 1000},
                                           {"mqtt_reconnects", c->reconnects.load()},
                                           {"not_published", c->not_published.load()},
                                           {"library_version", m_api.duGetLibraryVersion()}};
            const std::string text = status.dump();
            {
                std::lock_guard<std::mutex> hold(c->status_lock);
                c->last_status = text;
            }
            publish(*c, {c->status_topic, text, true});
        }
    }

    std::string state_text() const override {
        uint64_t connected = 0, reconnects = 0, lost = 0;
        for (const auto& c : m_clients) {
            connected += c->connected;
            reconnects += c->reconnects;
            lost += c->not_published;
        }
        char text[160];
        std::snprintf(text, sizeof text, "mqtt %s, %llu reconnect%s, %llu not published",
                      connected == m_clients.size() ? "connected" : "away (reconnecting)",
                      static_cast<unsigned long long>(reconnects), reconnects == 1 ? "" : "s",
                      static_cast<unsigned long long>(lost));
        return text;
    }

    // Says "offline" on purpose (a will is only for a lost connection), lets
    // the network thread send what is queued for a moment, and stops it.
    bool close() override {
        for (auto& c : m_clients) {
            if (!c->mosq) continue;
            if (c->connected) {
                publish(*c, {c->status_topic, kOffline, true});
                for (int i = 0; i < 20 && !idle(*c) && c->connected; ++i) ::usleep(50000);
            }
            mosquitto_disconnect(c->mosq);
            mosquitto_loop_stop(c->mosq, true);
            mosquitto_destroy(c->mosq);
            c->mosq = nullptr;
        }
        m_clients.clear();
        if (m_lib) mosquitto_lib_cleanup();
        m_lib = false;
        return true;
    }

    const std::string& error() const override { return m_error; }

private:
    Client* find(const std::string& id) {
        for (auto& c : m_clients)
            if (c->sensor_id == id) return c.get();
        return nullptr;
    }

    // The reading's row as the files have it (the library's formatter), with
    // the sensor's settings, and its values in full, summarised or left out.
    std::string reading_payload(const duSensorMetadata& sensor, const Measurement& m) const {
        const duReadingRow row = reading_row(m, sensor.settings.master_clock);
        nlohmann::json json = nlohmann::json::parse(format_text(m_api.duFormatReadingRow, DU_FILE_JSONL, row));
        json["master_clock"] = sensor.settings.master_clock;
        json["adc_gain"] = sensor.settings.adc_gain;
        json["adc_range"] = sensor.settings.adc_range;
        json["mode"] = "raw";
        json["library_version"] = m_api.duGetLibraryVersion();
        if (m_options.publish_values == "none") {
            json.erase("values");
        } else if (m_options.publish_values == "summary") {
            json.erase("values");
            const Summary s = summarize(m.values);
            json["summary"] = {
                {"min", s.min}, {"max", s.max}, {"mean", std::round(s.mean * 1e4) / 1e4}, {"saturated", m.saturated}};
        }
        return json.dump();
    }

    LogOptions m_options;
    MqttUrl m_url;
    const MeasurementApi& m_api;
    std::vector<std::unique_ptr<Client>> m_clients;
    bool m_lib = false;
    std::string m_error;
};

}  // namespace

bool parse_mqtt_url(const std::string& text, MqttUrl& url, std::string& error) {
    url = MqttUrl{};
    std::string rest;
    if (text.rfind("mqtt://", 0) == 0) {
        rest = text.substr(7);
    } else if (text.rfind("mqtts://", 0) == 0) {
        url.tls = true;
        url.port = 8883;
        rest = text.substr(8);
    } else {
        error = "needs mqtt://HOST[:PORT]/PREFIX or mqtts://..., got " + text;
        return false;
    }
    const std::size_t slash = rest.find('/');
    std::string host = rest.substr(0, slash);
    url.prefix = slash == std::string::npos ? "" : rest.substr(slash + 1);
    while (!url.prefix.empty() && url.prefix.back() == '/') url.prefix.pop_back();
    // HOST:PORT, or [IPv6]:PORT.
    const std::size_t colon = host.rfind(':'), bracket = host.rfind(']');
    if (colon != std::string::npos && (bracket == std::string::npos || colon > bracket)) {
        char* end = nullptr;
        const long port = std::strtol(host.c_str() + colon + 1, &end, 10);
        if (end == host.c_str() + colon + 1 || *end != '\0' || port < 1 || port > 65535) {
            error = "needs a port 1..65535 in " + text;
            return false;
        }
        url.port = static_cast<int>(port);
        host.resize(colon);
    }
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    url.host = host;
    if (url.host.empty() || url.prefix.empty() || url.prefix.find_first_of("#+") != std::string::npos) {
        error = "needs a host and a topic prefix without # or + in " + text;
        return false;
    }
    return true;
}

void describe_mqtt_options(CLI::App& log, LogOptions& o) {
    const CLI::Validator url_check(
        [](std::string& text) -> std::string {
            MqttUrl url;
            std::string error;
            return parse_mqtt_url(text, url, error) ? "" : error;
        },
        "URL");
    CLI::Option* mqtt =
        log.add_option("--mqtt", o.mqtt, "also publish to a broker: mqtt://HOST[:PORT]/PREFIX or mqtts://...")
            ->check(url_check);
    log.add_option("--mqtt-ca", o.mqtt_ca, "CA file of the broker's certificate (mqtts)")
        ->check(CLI::ExistingFile)
        ->needs(mqtt);
    log.add_option("--mqtt-auth", o.mqtt_auth, "file with the broker's user name on line 1 and password on line 2")
        ->check(CLI::ExistingFile)
        ->needs(mqtt);
    log.add_option("--publish-every", o.publish_every, "publish every Nth reading (default 1)")
        ->check(CLI::Range(1, INT_MAX))
        ->needs(mqtt);
    log.add_option("--publish-values", o.publish_values,
                   "values in a reading message: none, summary (min, max, mean, saturated; default) or all")
        ->check(CLI::IsMember({"none", "summary", "all"}))
        ->needs(mqtt);
}

std::unique_ptr<MqttPublisher> create_mqtt_publisher(const LogOptions& o, const std::vector<std::string>& sensor_ids,
                                                     const MeasurementApi& api, std::string& error) {
    MqttUrl url;
    if (!parse_mqtt_url(o.mqtt, url, error)) return nullptr;
    auto publisher = std::make_unique<Publisher>(o, url, api);
    if (!publisher->start(sensor_ids, error)) return nullptr;
    return publisher;
}
