// The two calls of the libusb-0.1 style API that the dispatcher uses.
#ifndef ORU_LUSB_COMPAT_H
#define ORU_LUSB_COMPAT_H

#include <libusb.h>

void usb_init(void);
int usb_control_msg(libusb_device_handle* dev, int requesttype, int request, int value, int index, char* bytes,
                    int size, int timeout);
int libusb_to_errno(int result);

#endif
