// Module state of the exported functions and the helpers they share: the
// table of facades, the active sensor, and the rule that turns exceptions
// into negative results. Internal.
#ifndef ORU_DEVICE_API_STATE_H
#define ORU_DEVICE_API_STATE_H

#include "oru_base_exception.h"
#include "oru_device_api_lock.h"

#define ORU_API_SLOTS 100

class oru_device_interface;

// Slot i holds the facade of sensor i; only the first 10 are ever used.
extern oru_device_interface* g_pDeviceInterface[ORU_API_SLOTS];
extern int g_total_num_of_sensors;
extern int g_current_device_index;

// The facade in a slot. An empty slot (no sensor connected, or an index that
// was never opened) is reported as lu_ec_device_object_is_null.
oru_device_interface& oru_api_device_at(int index);
// The facade of the active sensor.
oru_device_interface& oru_api_active_device();

// Print the API's line for a caught exception and give the result to return.
int oru_api_report(const oru_base_exception& e);
int oru_api_report_unknown();

// Runs one API operation: its own result on success, -code for an
// oru_base_exception, -1 for anything else.
template <typename Work>
int oru_api_call(Work&& work) noexcept {
    try {
        return work();
    } catch (const oru_base_exception& e) {
        return oru_api_report(e);
    } catch (...) {
        return oru_api_report_unknown();
    }
}

// Runs work(facade, index) for the active sensor with `hold` taken (see
// ApiCall): the facade is found under g_apiLock, which is let go before the
// work talks to the sensor. Returns as oru_api_call does.
template <typename Work>
int oru_api_on_active(ApiHold hold, Work&& work) noexcept {
    return oru_api_call([&] {
        ApiCall call(hold);
        oru_device_interface& device = oru_api_device_at(call.sensor());
        call.release_module_state();
        return work(device, static_cast<unsigned int>(call.sensor()));
    });
}

#endif  // ORU_DEVICE_API_STATE_H
