// The locks of the exported functions. Internal.
//
// g_apiLock guards the module state (the facade table, the number of sensors,
// the active sensor). Every exported function takes it to find its sensor,
// and lets it go before it talks to the sensor, unless it changes the table
// (connect, disconnect). It is recursive so that an application can hold it
// across several calls (duLockSensors) and still call them; other threads'
// calls then wait at their start.
//
// g_requestLock lets the requests on the specified path (filter data,
// exposure, auto exposure, ADC settings, sensor IDs, connect) run one at a
// time: they share one frame queue and one process-wide shutter speed.
//
// Each sensor's record has a callLock, held by every call that talks to that
// sensor or changes it: its requests, its stream start and stop, its
// reconnect. So a stream read, a stream start or stop, a state query and a
// reconnect of one sensor never wait for a request, a reconnect or a search on
// another.
//
// The lock order is written in sensors/oru_sensor_record.h. To keep one
// sensor's long call from holding up the others, a call never waits for
// g_requestLock or a callLock while it holds g_apiLock: ApiCall tries them,
// and when one is busy it lets everything go, waits for that one alone and
// starts again. (A thread that holds g_apiLock through duLockSensors waits
// with it held; that is what it asked for.) The event thread takes none of
// these.
#ifndef ORU_DEVICE_API_LOCK_H
#define ORU_DEVICE_API_LOCK_H

#include <array>
#include <cstddef>
#include <mutex>

extern std::recursive_mutex g_apiLock;
extern std::recursive_mutex g_requestLock;
using ApiGuard = std::lock_guard<std::recursive_mutex>;

// What a call holds beside g_apiLock.
enum class ApiHold {
    kSensor,  // the call lock of its sensor (stream start and stop, reconnect)
    kRequest,  // g_requestLock and the call lock of its sensor (a request)
    kEverything,  // g_requestLock and every sensor's call lock (connect, disconnect, the sensor list)
};

// The active sensor, as resolved under g_apiLock.
constexpr int kActiveSensor = -1;

class ApiCall {
public:
    // Takes g_apiLock and what `hold` names for `sensor` (kActiveSensor: the
    // sensor active now). A sensor index without a record takes no call lock.
    explicit ApiCall(ApiHold hold, int sensor = kActiveSensor);
    ~ApiCall();
    ApiCall(const ApiCall&) = delete;
    ApiCall& operator=(const ApiCall&) = delete;

    // The sensor the call is for.
    int sensor() const { return m_sensor; }
    // Lets g_apiLock go; the call goes on under its other locks and must not
    // read the module state any more.
    void release_module_state();

private:
    // Tries each lock of the call in order; on a busy one lets the ones taken
    // go and gives it back, else null.
    std::recursive_mutex* try_take(ApiHold hold);

    void release_held();

    int m_sensor = -1;
    bool m_bModuleState = false;
    // g_requestLock and at most every sensor's call lock, in the order taken.
    std::array<std::recursive_mutex*, 11> m_held{};
    std::size_t m_nHeld = 0;
};

#endif
