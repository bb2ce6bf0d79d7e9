// The libusb event thread: started by the bring-up of sensor 0, ended by
// request_exit and joined at tear-down (or at process exit).
#include "efm32com/oru_device_interface_stm_event_loop.h"

#include "efm32com/oru_device_interface_stm_request.h"

#include <libusb.h>

#include <cstdlib>

// Written only here. do_exit: by request_exit (any thread; atomic, the
// waiting consumer is woken after it) and by start_usb_event_loop (caller thread); read by the
// loop once per cycle and by the consumer's wait.
std::atomic<int> do_exit{0};
// Caller thread only (bring-up); nothing in the library reads it back.
int asyncTransferInitialized = 0;
// Caller thread only: started, joined.
std::thread usbEventLoop_thread;

namespace {

// True from just before the event thread starts until its loop has ended.
// Written by start_usb_event_loop (caller) and the loop's end (event thread).
std::atomic<bool> g_bEventLoopRunning{false};

// A program that ends without tear-down must not meet a joinable std::thread
// in static destruction (that would terminate it).
void end_event_thread_at_exit() {
    request_exit(1);
    join_usb_event_loop();
}

}  // namespace

void* usbEventLoop_thread_main(void* /*arg*/) {
    while (do_exit == 0) {
        timeval tv{1, 0};
        if (libusb_handle_events_timeout(nullptr, &tv) < 0) {
            request_exit(2);
            break;
        }
    }
    g_bEventLoopRunning = false;
    return nullptr;
}

void start_usb_event_loop() {
    static bool bAtExitRegistered = false;
    if (usbEventLoop_thread.joinable()) usbEventLoop_thread.join();  // its loop has ended
    do_exit = 0;
    g_bEventLoopRunning = true;  // before the thread exists, so no caller sees a gap
    usbEventLoop_thread = std::thread(usbEventLoop_thread_main, nullptr);
    asyncTransferInitialized = 1;
    if (!bAtExitRegistered) {
        std::atexit(end_event_thread_at_exit);
        bAtExitRegistered = true;
    }
}

bool usb_event_loop_running() { return g_bEventLoopRunning; }

void request_exit(int code) {
    do_exit = code;
    wake_frame_request();
}

void join_usb_event_loop() {
    if (!usbEventLoop_thread.joinable()) return;
    // Wake the loop out of its 1-second wait rather than sit it out.
    libusb_interrupt_event_handler(nullptr);
    usbEventLoop_thread.join();
}

void reset_usb_event_loop() {
    if (usbEventLoop_thread.joinable()) {
        request_exit(1);
        join_usb_event_loop();
    }
    do_exit = 0;
    asyncTransferInitialized = 0;
}
