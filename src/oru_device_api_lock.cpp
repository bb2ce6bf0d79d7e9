// The lock of the exported functions, and the exported way to hold it.
#include "oru_device_api_lock.h"

#include "oru_device_api.h"

std::recursive_mutex g_apiLock;

extern "C" {

void duLockSensors(void) { g_apiLock.lock(); }

void duUnlockSensors(void) { g_apiLock.unlock(); }

}  // extern "C"
