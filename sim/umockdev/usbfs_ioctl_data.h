// Access to the memory behind an ioctl's argument, for the usbfs emulation.
#ifndef UMOCKBUS_USBFS_IOCTL_DATA_H
#define UMOCKBUS_USBFS_IOCTL_DATA_H

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <umockdev.h>

#include <cstddef>
#include <cstring>

namespace umockbus {

// An ioctl's failure: result -1 with errno `e`.
inline long fail(int* err, int e) {
    *err = e;
    return -1;
}

// The structure the ioctl's argument points to, copied into our memory; an
// owned reference, null on failure. Changes go back to the client when the
// ioctl completes.
UMockdevIoctlData* resolve_arg(UMockdevIoctlClient* client, size_t size);

template <typename T>
bool read_arg(UMockdevIoctlClient* client, T* out) {
    UMockdevIoctlData* data = resolve_arg(client, sizeof(T));
    if (!data) return false;
    std::memcpy(out, data->data, sizeof(T));
    g_object_unref(data);
    return true;
}

inline usbdevfs_urb* urb_of(UMockdevIoctlData* d) { return reinterpret_cast<usbdevfs_urb*>(d->data); }

}  // namespace umockbus

#endif
