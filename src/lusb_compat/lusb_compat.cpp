// The two calls of the libusb-0.1 style API that the command dispatcher uses,
// on top of libusb-1.0.
#include "lusb_compat/lusb_compat.h"

#include <cerrno>
#include <cstdlib>

namespace {

// The compatibility layer keeps its own context, separate from the default
// context the discovery code uses; it lives until process exit.
libusb_context* s_pCompatContext = nullptr;

// libusb-0.1 programs turn on libusb's own logging through USB_DEBUG; libusb
// writes that log to standard error.
constexpr int kLibusbDebugLevel = 3;

int compat_debug_level() {
    const char* pValue = std::getenv("USB_DEBUG");
    return pValue ? std::atoi(pValue) : 0;
}

void compat_exit() {
    if (s_pCompatContext) {
        libusb_exit(s_pCompatContext);
        s_pCompatContext = nullptr;
    }
}

}  // namespace

void usb_init(void) {
    if (s_pCompatContext) return;
    if (libusb_init(&s_pCompatContext) != 0) {
        s_pCompatContext = nullptr;
        return;
    }
    if (compat_debug_level() != 0) libusb_set_option(s_pCompatContext, LIBUSB_OPTION_LOG_LEVEL, kLibusbDebugLevel);
    std::atexit(compat_exit);
}

int usb_control_msg(libusb_device_handle* dev, int requesttype, int request, int value, int index, char* bytes,
                    int size, int timeout) {
    const int r = libusb_control_transfer(dev, static_cast<uint8_t>(requesttype), static_cast<uint8_t>(request),
                                          static_cast<uint16_t>(value), static_cast<uint16_t>(index),
                                          reinterpret_cast<unsigned char*>(bytes), static_cast<uint16_t>(size),
                                          static_cast<unsigned int>(timeout));
    if (r >= 0) return r;
    errno = libusb_to_errno(r);
    return -errno;
}

int libusb_to_errno(int result) {
    switch (result) {
    case LIBUSB_SUCCESS:
        return 0;
    case LIBUSB_ERROR_IO:
        return EIO;
    case LIBUSB_ERROR_INVALID_PARAM:
        return EINVAL;
    case LIBUSB_ERROR_ACCESS:
        return EACCES;
    case LIBUSB_ERROR_NO_DEVICE:
        return ENXIO;
    case LIBUSB_ERROR_NOT_FOUND:
        return ENOENT;
    case LIBUSB_ERROR_BUSY:
        return EBUSY;
    case LIBUSB_ERROR_TIMEOUT:
        return ETIMEDOUT;
    case LIBUSB_ERROR_OVERFLOW:
        return EOVERFLOW;
    case LIBUSB_ERROR_PIPE:
        return EPIPE;
    case LIBUSB_ERROR_INTERRUPTED:
        return EINTR;
    case LIBUSB_ERROR_NO_MEM:
        return ENOMEM;
    case LIBUSB_ERROR_NOT_SUPPORTED:
        return ENOSYS;
    default:
        return ERANGE;
    }
}
