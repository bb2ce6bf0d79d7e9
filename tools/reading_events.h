// What the sensor readers tell the writing thread: readings, notes for
// standard error, a sensor's failure, its end. One queue for all readers, so
// that output and messages are written by one thread, in arrival order.
#ifndef ORU_TOOLS_READING_EVENTS_H
#define ORU_TOOLS_READING_EVENTS_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>

#include "cli_format.h"

struct ReadingEvent {
    enum Kind { Reading, Note, Failed, Finished };
    Kind kind = Note;
    std::size_t reader = 0;  // position in the list of chosen sensors
    Measurement reading;  // Reading
    std::string text;  // Note and Failed: the line without "oru-sensor: "
};

class ReadingEvents {
public:
    // Any reader thread.
    void post(ReadingEvent event);
    // The writing thread: the next event, or false after `wait` without one.
    bool next(ReadingEvent& event, std::chrono::milliseconds wait);

private:
    std::mutex m_lock;  // guards m_events
    std::condition_variable m_posted;
    std::deque<ReadingEvent> m_events;  // written by the readers and the writing thread, under m_lock
};

#endif
