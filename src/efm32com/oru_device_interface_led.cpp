// The external USB LED driver: found on the bus like a sensor, but opened in
// a libusb context of its own, so that closing it ends only that context and
// never the default one that discovery and the event thread use.
#include "efm32com/oru_device_interface_led.h"

#include "efm32com/oru_device_interface_led_request.h"
#include "efm32com/oru_device_interface_usb.h"
#include "lusb_compat/lusb_compat.h"

#include <libusb.h>

// g_LedDriverHandle and g_pLedContext: written only here, by the caller thread that opens or closes the driver
// (bring-up, tear-down, the device object's driver calls); read by the same
// calls. No lock: the event thread never touches the driver.
libusb_device_handle* g_LedDriverHandle = nullptr;

namespace {

constexpr int kUnconfigured = -1;
constexpr int kInterface = 0;

// The driver's own context, alive exactly while the driver is open.
libusb_context* g_pLedContext = nullptr;

// Opens the first device with our ids in g_pLedContext (even when it is
// sensor 0: nothing on the bus tells the two apart). 1 when opened.
int open_first_match() {
    libusb_device** pList = nullptr;
    if (libusb_get_device_list(g_pLedContext, &pList) < 0) return 0;
    const int i = next_oru_device(pList, 0);
    if (i >= 0) g_LedDriverHandle = open_or_report(pList[i]);
    libusb_free_device_list(pList, 1);
    return g_LedDriverHandle != nullptr ? 1 : 0;
}

}  // namespace

int connect_LED_device() {
    if (g_LedDriverHandle != nullptr) return 1;
    usb_init();
    if (!report_libusb_init(libusb_init(&g_pLedContext))) {
        g_pLedContext = nullptr;
        return 0;
    }
    if (open_first_match() == 1) return 1;
    libusb_exit(g_pLedContext);
    g_pLedContext = nullptr;
    return 0;
}

bool is_led_driver_open() { return g_LedDriverHandle != nullptr; }

bool is_led_driver_close() {
    if (g_LedDriverHandle == nullptr) return false;
    libusb_set_configuration(g_LedDriverHandle, kUnconfigured);
    libusb_release_interface(g_LedDriverHandle, kInterface);
    libusb_close(g_LedDriverHandle);
    libusb_exit(g_pLedContext);
    g_pLedContext = nullptr;
    g_LedDriverHandle = nullptr;
    return true;
}

int set_state_to_led_device(bool* OnArray, int nNumOfLED, int intensity) {
    if (g_LedDriverHandle == nullptr) return 0;
    send_led_state_request(g_LedDriverHandle, make_led_state_word(OnArray, nNumOfLED, intensity));
    return 1;
}

bool set_op_mode_to_led_device(int, int) { return g_LedDriverHandle != nullptr; }

void reset_led_driver() { is_led_driver_close(); }
