// The one libusb event thread that runs the bulk callbacks of all sensors.
#ifndef ORU_DEVICE_INTERFACE_STM_EVENT_LOOP_H
#define ORU_DEVICE_INTERFACE_STM_EVENT_LOOP_H

#include <atomic>
#include <thread>

// 0 while the event loop runs, 1 normal end, 2 end after an error.
extern std::atomic<int> do_exit;
// 1 once the event thread was started; never reset.
extern int asyncTransferInitialized;
extern std::thread usbEventLoop_thread;

void* usbEventLoop_thread_main(void* arg);
// Starts the event thread (joining one whose loop has ended), do_exit 0 first.
void start_usb_event_loop();
// Whether the event thread's loop runs now (started and not yet ended).
bool usb_event_loop_running();
// Ends the loop with `code` and wakes every waiter on exit_cond.
void request_exit(int code);
// Wakes the loop out of its 1-second wait and joins the thread, if any.
void join_usb_event_loop();

// Joins the thread and puts the loop's state back to its start values (tests).
void reset_usb_event_loop();

#endif
