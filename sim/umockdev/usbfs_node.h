// One sensor of the firmware model behind an emulated usbfs node
// (/dev/bus/usb/BBB/DDD): the ioctls the real libusb issues, answered from
// umockdev's worker thread.
#ifndef UMOCKBUS_USBFS_NODE_H
#define UMOCKBUS_USBFS_NODE_H

#include <umockdev.h>

#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "bus.h"
#include "poll_signal.h"

namespace umockbus {

class UsbfsNode {
public:
    explicit UsbfsNode(std::shared_ptr<vsensor::detail::Device> device);
    ~UsbfsNode();
    UsbfsNode(const UsbfsNode&) = delete;
    UsbfsNode& operator=(const UsbfsNode&) = delete;

    // Makes `node_path` (the node under the testbed root) the poll FIFO and
    // attaches the handler to `devname`. Returns an error text or "".
    std::string attach(UMockdevTestbed* testbed, const std::string& devname, const std::string& node_path);
    // The device is gone: its URBs complete with ESHUTDOWN and later ioctls
    // fail with ENODEV, as usbfs does after a disconnect.
    void unplug();
    // With real-time pacing, completes a bulk URB whose frame is due and
    // returns when the next one will be (time_point::max() for none).
    std::chrono::steady_clock::time_point pace();

private:
    // A submitted URB and its buffer, resolved into our memory.
    struct Urb {
        UMockdevIoctlClient* client = nullptr;
        UMockdevIoctlData* urb = nullptr;
        UMockdevIoctlData* buffer = nullptr;
    };

    static gboolean on_ioctl(UMockdevIoctlBase* base, UMockdevIoctlClient* client, gpointer self);
    static void on_connected(UMockdevIoctlBase* base, UMockdevIoctlClient* client, gpointer self);
    static void on_vanished(UMockdevIoctlBase* base, UMockdevIoctlClient* client, gpointer self);
    static void on_client_gone(gpointer self, GObject* client);

    // The bus lock; closed files are dealt with and the poll signal brought
    // up to date before it is let go.
    class Locked {
    public:
        explicit Locked(UsbfsNode& node);
        ~Locked();

    private:
        UsbfsNode& m_node;
        std::lock_guard<std::mutex> m_lock;
    };
    static thread_local bool t_holding_lock;
    void process_closed();

    // Each returns the ioctl's result and sets *err for a failure. Called
    // with the bus lock held.
    long dispatch(UMockdevIoctlClient* client, unsigned long request, int* err);
    long claim(UMockdevIoctlClient* client, unsigned int interface, int* err, const char* what);
    long release(UMockdevIoctlClient* client, unsigned int interface, int* err);
    long submit(UMockdevIoctlClient* client, int* err);
    long discard(UMockdevIoctlClient* client, int* err);
    long reap(UMockdevIoctlClient* client, int* err);
    void run_control(Urb& u);
    // Completes pending bulk URBs with frames while the sensor streams.
    void feed();
    void complete_all_pending(int status);
    void finish(Urb u, int status, int actual_length);
    void drop(Urb& u);
    void drop_reaped(UMockdevIoctlClient* client);
    void update_signal();

    std::shared_ptr<vsensor::detail::Device> m_device;
    UMockdevIoctlBase* m_handler = nullptr;
    std::deque<Urb> m_pending;  // submitted, not complete (bulk, or a control that times out)
    std::deque<Urb> m_done;  // complete, waiting to be reaped
    std::deque<Urb> m_reaped;  // handed back by the client's last reap
    std::set<UMockdevIoctlClient*> m_clients;  // open files
    std::deque<UMockdevIoctlClient*> m_closed;  // files closed, not dealt with yet
    PollSignal m_signal;
};

}  // namespace umockbus

#endif
