// The locks of the exported functions, and the exported way to hold the first.
#include "oru_device_api_lock.h"

#include "oru_device_api.h"
#include "oru_device_api_state.h"
#include "sensors/oru_sensor_record.h"

std::recursive_mutex g_apiLock;
std::recursive_mutex g_requestLock;

ApiCall::ApiCall(ApiHold hold, int sensor) {
    for (;;) {
        g_apiLock.lock();
        m_sensor = sensor == kActiveSensor ? g_current_device_index : sensor;
        std::recursive_mutex* busy = try_take(hold);
        if (busy == nullptr) break;
        g_apiLock.unlock();
        // Wait for the busy one alone, then try the whole set again.
        const ApiGuard wait(*busy);
    }
    m_bModuleState = true;
}

ApiCall::~ApiCall() {
    release_held();
    release_module_state();
}

void ApiCall::release_held() {
    while (m_nHeld > 0) m_held[--m_nHeld]->unlock();
}

void ApiCall::release_module_state() {
    if (!m_bModuleState) return;
    m_bModuleState = false;
    g_apiLock.unlock();
}

std::recursive_mutex* ApiCall::try_take(ApiHold hold) {
    std::array<std::recursive_mutex*, 11> wanted{};
    static_assert(1 + oru_sensor::kMaxOpenSensors <= wanted.size(), "room for every call lock");
    std::size_t nWanted = 0;
    if (hold != ApiHold::kSensor) wanted[nWanted++] = &g_requestLock;
    if (hold == ApiHold::kEverything) {
        for (unsigned int i = 0; i < oru_sensor::kMaxOpenSensors; ++i)
            wanted[nWanted++] = &oru_sensor::sensor_record(i)->callLock;
    } else if (oru_sensor::SSensorRecord* record =
                   m_sensor >= 0 ? oru_sensor::sensor_record(static_cast<unsigned int>(m_sensor)) : nullptr) {
        wanted[nWanted++] = &record->callLock;
    }
    for (std::size_t i = 0; i < nWanted; ++i) {
        if (!wanted[i]->try_lock()) {
            release_held();
            return wanted[i];
        }
        m_held[m_nHeld++] = wanted[i];
    }
    return nullptr;
}

extern "C" {

void duLockSensors(void) { g_apiLock.lock(); }

void duUnlockSensors(void) { g_apiLock.unlock(); }

}  // extern "C"
