// Reads one sensor on a thread of its own, so that an outage, a stall or a
// fault of one sensor never holds up or ends the reading of another. Readings
// come from the sensor's frame stream: back to back from one stream (every
// frame once, in order), or, when readings are spaced out in time, from a
// fresh stream each. Frames are taken in chunks of a fifth of a second at
// most, with a look at the stop flag between them, so that a stop takes
// effect within a second even in the middle of a long reading (a read that
// waits for a stalled sensor is woken by the disconnect).
#ifndef ORU_TOOLS_SENSOR_READER_H
#define ORU_TOOLS_SENSOR_READER_H

#include <atomic>
#include <string>
#include <thread>

#include "cli_format.h"
#include "oru_api_loader.h"
#include "reading_events.h"

struct SourceSensor {
    int index;
    std::string id;
    int shutter_speed;
};

struct ReaderPlan {
    int averages = 10;
    int repeat = 1;  // readings to take; 0: until stopped
    double interval = 0.0;  // seconds between readings; 0: back to back from one stream
    // Wait for a removed or failed sensor (the same sensor ID) to come back,
    // reopen it and read on, recording the time it was away.
    bool recover = true;
};

class SensorReader {
public:
    // `position` is the reader's number in its events.
    SensorReader(const OruApi& api, std::size_t position, SourceSensor sensor, const ReaderPlan& plan,
                 ReadingEvents& events);
    ~SensorReader();
    SensorReader(const SensorReader&) = delete;
    SensorReader& operator=(const SensorReader&) = delete;

    void start();
    // Ends the reader soon: a reading in progress is abandoned, and a stream
    // left on is closed by the disconnect. Any thread.
    void stop();
    void join();
    // "sensor 1 (A4486-3-13-40-2)", for messages.
    std::string name() const;

private:
    void run();
    int take_reading(Measurement& m);
    int read_once(Measurement& m);
    int read_frames(Measurement& m);
    int start_stream();
    void stop_stream();
    int wait_and_reopen(double* seconds_away);
    bool stopping() const;
    // Sleeps up to `seconds`, less when a stop comes.
    void pause(double seconds) const;
    bool lost() const;
    void post(ReadingEvent::Kind kind, std::string text);

    const OruApi& m_api;
    const std::size_t m_position;
    const SourceSensor m_sensor;
    const ReaderPlan m_plan;
    ReadingEvents& m_events;
    std::atomic<bool> m_stop{false};  // written by stop() (any thread), read by the reader thread
    bool m_streaming = false;  // the reader thread's own: its stream is on
    std::thread m_thread;
};

#endif
