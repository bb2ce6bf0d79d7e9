#include "reading_events.h"

void ReadingEvents::post(ReadingEvent event) {
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        m_events.push_back(std::move(event));
    }
    m_posted.notify_one();
}

bool ReadingEvents::next(ReadingEvent& event, std::chrono::milliseconds wait) {
    std::unique_lock<std::mutex> hold(m_lock);
    if (!m_posted.wait_for(hold, wait, [this] { return !m_events.empty(); })) return false;
    event = std::move(m_events.front());
    m_events.pop_front();
    return true;
}
