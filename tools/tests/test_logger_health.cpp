// The logger's health counters and the broker address it is given.
#include <gtest/gtest.h>

#include "log_health.h"
#include "mqtt_publisher.h"
#include "text_case_test.h"

namespace {

struct UrlCase {
    const char* text;
    bool ok;
    bool tls = false;
    const char* host = "";
    int port = 0;
    const char* prefix = "";
};

// Names each case by its text in the test's output.
void PrintTo(const UrlCase& c, std::ostream* os) { *os << '"' << c.text << '"'; }

class MqttUrlParse : public TextCaseTest<UrlCase> {};

TEST_P(MqttUrlParse, GivesHostPortPrefixOrRefuses) {
    const UrlCase& c = GetParam();
    MqttUrl url;
    if (!taken(url, parse_mqtt_url)) return;
    EXPECT_EQ(url.tls, c.tls);
    EXPECT_EQ(url.host, c.host);
    EXPECT_EQ(url.port, c.port);
    EXPECT_EQ(url.prefix, c.prefix);
}

INSTANTIATE_TEST_SUITE_P(Texts, MqttUrlParse,
                         ::testing::Values(UrlCase{"mqtt://127.0.0.1/lab", true, false, "127.0.0.1", 1883, "lab"},
                                           UrlCase{"mqtt://broker.local:1884/site/lab/", true, false, "broker.local",
                                                   1884, "site/lab"},
                                           UrlCase{"mqtts://broker/lab", true, true, "broker", 8883, "lab"},
                                           UrlCase{"mqtts://[::1]:9883/lab", true, true, "::1", 9883, "lab"},
                                           UrlCase{"mqtt://[fe80::1]/lab", true, false, "fe80::1", 1883, "lab"},
                                           UrlCase{"http://broker/lab", false, false, "", 0, ""},
                                           UrlCase{"mqtt://broker", false, false, "", 0, ""},
                                           UrlCase{"mqtt://broker/", false, false, "", 0, ""},
                                           UrlCase{"mqtt:///lab", false, false, "", 0, ""},
                                           UrlCase{"mqtt://broker:0/lab", false, false, "", 0, ""},
                                           UrlCase{"mqtt://broker:65536/lab", false, false, "", 0, ""},
                                           UrlCase{"mqtt://broker:/lab", false, false, "", 0, ""},
                                           UrlCase{"mqtt://broker:12x/lab", false, false, "", 0, ""},
                                           UrlCase{"mqtt://broker/lab/#", false, false, "", 0, ""},
                                           UrlCase{"mqtt://broker/+/lab", false, false, "", 0, ""}));

Measurement reading(const char* id, int64_t first, int64_t last, double gap = 0.0) {
    Measurement m;
    m.sensor_id = id;
    m.first_sequence = first;
    m.last_sequence = last;
    m.gap = gap;
    return m;
}

TEST(LogHealth, CountsSkippedFramesPerSensorAndStartsOverAfterAReconnect) {
    LogHealth health({"A", "B"});
    health.record(reading("A", 0, 9));
    health.record(reading("B", 100, 109));  // a stream need not start at 0
    health.record(reading("A", 10, 19));
    health.record(reading("A", 25, 34));  // frames 20..24 lost
    health.record(reading("A", 0, 9, 3.5));  // back after 3.5 s, numbered afresh
    health.record(reading("A", 10, 19));
    health.record(reading("B", 110, 119));
    health.record(reading("C", 0, 9));  // not one of ours: ignored
    const std::vector<SensorHealth> s = health.snapshot();
    ASSERT_EQ(s.size(), 2u);
    EXPECT_EQ((std::vector<uint64_t>{s[0].readings, s[0].dropped_frames, s[0].reconnects}),
              (std::vector<uint64_t>{5, 5, 1}));
    EXPECT_DOUBLE_EQ(s[0].last_gap_s, 3.5);
    EXPECT_EQ((std::vector<uint64_t>{s[1].readings, s[1].dropped_frames, s[1].reconnects}),
              (std::vector<uint64_t>{2, 0, 0}));
    EXPECT_EQ(health.snapshot()[0].readings_per_s, 0.0);  // nothing since the last snapshot
}

TEST(LogHealth, StatusTextNamesEachSensorAndTheLastGapOnlyWhenThereWasOne) {
    std::vector<SensorHealth> s(2);
    s[0].sensor_id = "A4486-3-12-40-2";
    s[0].readings_per_s = 9.84;
    s[1].sensor_id = "A4486-3-13-40-2";
    s[1].readings_per_s = 10;
    s[1].dropped_frames = 12;
    s[1].reconnects = 1;
    s[1].last_gap_s = 3.25;
    EXPECT_EQ(health_text(s),
              "A4486-3-12-40-2 9.8 readings/s, 0 frames dropped, 0 reconnects; "
              "A4486-3-13-40-2 10.0 readings/s, 12 frames dropped, 1 reconnect (last gap 3.2 s)");
}

}  // namespace
