// The usbfs node of one sensor: umockdev's callbacks, the lock, open and
// closed files, interface claims and the dispatch of each ioctl.
#include "usbfs_node.h"

#include <libusb.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "event_log.h"
#include "usbfs_ioctl_data.h"

namespace umockbus {

using vsensor::detail::bus;
using vsensor::detail::Device;

namespace {

// What a current kernel reports; with NO_PACKET_SIZE_LIM libusb sends each
// transfer as one URB.
constexpr uint32_t kCapabilities = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_CONTINUATION |
                                   USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
constexpr unsigned int kInterface = 0;

bool trace_on() {
    static const bool on = [] {
        const char* v = std::getenv("UMOCKBUS_TRACE");
        return v && *v && *v != '0';
    }();
    return on;
}

// Lifecycle events carry libusb's code for the result, as the virtual face logs them.
int libusb_code(int err) {
    switch (err) {
    case 0:
        return LIBUSB_SUCCESS;
    case EBUSY:
        return LIBUSB_ERROR_BUSY;
    case ENOENT:
        return LIBUSB_ERROR_NOT_FOUND;
    case ENODEV:
        return LIBUSB_ERROR_NO_DEVICE;
    case EINVAL:
        return LIBUSB_ERROR_INVALID_PARAM;
    default:
        return LIBUSB_ERROR_OTHER;
    }
}

}  // namespace

UsbfsNode::UsbfsNode(std::shared_ptr<Device> device) : m_device(std::move(device)) {}

UsbfsNode::~UsbfsNode() {
    if (m_handler) g_object_unref(m_handler);
}

std::string UsbfsNode::attach(UMockdevTestbed* testbed, const std::string& devname, const std::string& node_path) {
    m_handler = umockdev_ioctl_base_new();
    g_signal_connect(m_handler, "handle-ioctl", G_CALLBACK(on_ioctl), this);
    g_signal_connect(m_handler, "client-connected", G_CALLBACK(on_connected), this);
    g_signal_connect(m_handler, "client-vanished", G_CALLBACK(on_vanished), this);
    GError* error = nullptr;
    if (!umockdev_testbed_attach_ioctl(testbed, devname.c_str(), m_handler, &error)) {
        std::string text = error ? error->message : "attach_ioctl failed";
        if (error) g_error_free(error);
        return text;
    }
    return m_signal.create(node_path);
}

// ---- umockdev's callbacks (worker thread) ----------------------------------

gboolean UsbfsNode::on_ioctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
    auto* node = static_cast<UsbfsNode*>(self);
    const unsigned long request = umockdev_ioctl_client_get_request(client);
    int err = 0;
    long result;
    {
        Locked lk(*node);
        result = node->dispatch(client, request, &err);
    }
    if (trace_on())
        std::fprintf(stderr, "umockbus: dev%d ioctl 0x%lx -> %ld errno %d\n", node->m_device->pos, request, result,
                     err);
    // At once, always: a reply left for later would stall every libusb thread.
    umockdev_ioctl_client_complete(client, result, err);
    return TRUE;
}

void UsbfsNode::on_connected(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
    auto* node = static_cast<UsbfsNode*>(self);
    // umockdev 0.17 drops the client object when the file is closed but
    // does not emit client-vanished; the object's end is the reliable sign.
    g_object_weak_ref(G_OBJECT(client), on_client_gone, self);
    Locked lk(*node);
    node->m_clients.insert(client);
    ++node->m_device->open_handles;
    vsensor::detail::log_lifecycle(node->m_device->pos, "open");
}

void UsbfsNode::on_vanished(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
    on_client_gone(self, G_OBJECT(client));
}

void UsbfsNode::on_client_gone(gpointer self, GObject* client) {
    auto* node = static_cast<UsbfsNode*>(self);
    auto* gone = reinterpret_cast<UMockdevIoctlClient*>(client);
    // Our own unref of URB data can end a client while we hold the lock.
    if (t_holding_lock) {
        node->m_closed.push_back(gone);
        return;
    }
    Locked lk(*node);
    node->m_closed.push_back(gone);
}

// ---- locking ---------------------------------------------------------------

thread_local bool UsbfsNode::t_holding_lock = false;

UsbfsNode::Locked::Locked(UsbfsNode& node) : m_node(node), m_lock(bus().m) { t_holding_lock = true; }

UsbfsNode::Locked::~Locked() {
    m_node.process_closed();
    m_node.update_signal();
    t_holding_lock = false;
}

// A closed file: as usbfs does, its claim goes and its URBs are dropped.
void UsbfsNode::process_closed() {
    while (!m_closed.empty()) {
        UMockdevIoctlClient* client = m_closed.front();
        m_closed.pop_front();
        if (m_clients.erase(client) == 0) continue;  // already seen
        Device& d = *m_device;
        for (auto* list : {&m_pending, &m_done, &m_reaped}) {
            for (auto it = list->begin(); it != list->end();) {
                if (it->client != client) {
                    ++it;
                    continue;
                }
                drop(*it);
                it = list->erase(it);
            }
        }
        if (d.claimed_by == client) d.claimed_by = nullptr;
        if (d.open_handles > 0) --d.open_handles;
        vsensor::detail::log_lifecycle(d.pos, "close");
    }
}

// ---- the ioctls (bus lock held) --------------------------------------------

long UsbfsNode::dispatch(UMockdevIoctlClient* client, unsigned long request, int* err) {
    Device& d = *m_device;
    drop_reaped(client);
    // Reaping still works after a disconnect; nothing else does.
    if (request == USBDEVFS_REAPURBNDELAY || request == USBDEVFS_REAPURB) return reap(client, err);
    if (d.unplugged) return fail(err, ENODEV);
    switch (request) {
    case USBDEVFS_GET_CAPABILITIES: {
        UMockdevIoctlData* data = resolve_arg(client, sizeof(uint32_t));
        if (!data) return fail(err, EFAULT);
        std::memcpy(data->data, &kCapabilities, sizeof kCapabilities);
        g_object_unref(data);
        return 0;
    }
    case USBDEVFS_SETCONFIGURATION: {
        int configuration = 0;
        if (!read_arg(client, &configuration)) return fail(err, EFAULT);
        // usbfs refuses while any interface is claimed, by anyone.
        int e = 0;
        if (d.claimed_by)
            e = EBUSY;
        else if (configuration != -1 && configuration != 0 && configuration != 1)
            e = EINVAL;
        else
            d.configuration = std::max(configuration, 0);
        vsensor::detail::log_lifecycle(d.pos, "set_configuration " + std::to_string(configuration), libusb_code(e));
        return e ? fail(err, e) : 0;
    }
    case USBDEVFS_CLAIMINTERFACE: {
        unsigned int interface = 0;
        if (!read_arg(client, &interface)) return fail(err, EFAULT);
        return claim(client, interface, err, "claim ");
    }
    case USBDEVFS_DISCONNECT_CLAIM: {  // what libusb sends when it may detach a kernel driver
        usbdevfs_disconnect_claim dc{};
        if (!read_arg(client, &dc)) return fail(err, EFAULT);
        return claim(client, dc.interface, err, "detach_and_claim ");
    }
    case USBDEVFS_RELEASEINTERFACE: {
        unsigned int interface = 0;
        if (!read_arg(client, &interface)) return fail(err, EFAULT);
        return release(client, interface, err);
    }
    case USBDEVFS_SUBMITURB:
        return submit(client, err);
    case USBDEVFS_DISCARDURB:
        return discard(client, err);
    case USBDEVFS_GETDRIVER:
    case USBDEVFS_IOCTL:
        return fail(err, ENODATA);  // no kernel driver bound, none to attach
    default:
        return fail(err, ENOTTY);
    }
}

long UsbfsNode::claim(UMockdevIoctlClient* client, unsigned int interface, int* err, const char* what) {
    Device& d = *m_device;
    int e = 0;
    if (d.configuration == 0 || interface != kInterface)
        e = ENOENT;
    else if (d.faults & vsensor::kFaultClaim)
        e = EBUSY;
    else if (d.claimed_by && d.claimed_by != client)
        e = EBUSY;
    else
        d.claimed_by = client;
    vsensor::detail::log_lifecycle(d.pos, what + std::to_string(interface), libusb_code(e));
    return e ? fail(err, e) : 0;
}

long UsbfsNode::release(UMockdevIoctlClient* client, unsigned int interface, int* err) {
    Device& d = *m_device;
    int e = 0;
    if (d.configuration == 0 || interface != kInterface)
        e = ENOENT;
    else if (d.claimed_by != client)
        e = EINVAL;
    else
        d.claimed_by = nullptr;
    vsensor::detail::log_lifecycle(d.pos, "release " + std::to_string(interface), libusb_code(e));
    return e ? fail(err, e) : 0;
}

}  // namespace umockbus
