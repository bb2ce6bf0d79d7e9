// The lock of the exported functions. Internal.
//
// Every exported function that touches the module state (the facade table,
// the active sensor, the settings and the one frame queue) holds g_apiLock
// for its whole run, so calls from several threads never interleave. It is
// recursive so that an application can hold it across several calls
// (duLockSensors) and still call them. A frame-stream read holds it only to
// find its sensor: it then waits on that sensor's ring, so reads of
// different sensors' streams, and any other call, go on meanwhile. The event
// thread never takes it. Lock order: g_apiLock before exit_cond_lock and the
// bulk-transfer lock; a stream ring's lock and the log sink's lock are never
// held while taking g_apiLock.
#ifndef ORU_DEVICE_API_LOCK_H
#define ORU_DEVICE_API_LOCK_H

#include <mutex>

extern std::recursive_mutex g_apiLock;
using ApiGuard = std::lock_guard<std::recursive_mutex>;

#endif
