// Discovery of the sensors (and of the external LED driver, which carries the
// same USB ids) and the process-wide map of open handles.
#include "efm32com/oru_device_interface_usb.h"

#include "oru_log.h"

#include "lusb_compat/lusb_compat.h"

#include <cstdio>
#include <mutex>
#include <shared_mutex>

// Written only here, by the caller threads that connect, reconnect or forget
// a sensor (several sensors at once since a reconnect holds only its own
// sensor), and read by every call that talks to a sensor; every access goes
// through this file under g_handleMapLock, a leaf lock held only for the map
// operation itself.
std::map<int, libusb_device_handle*> UsbDevHandle::pDevH = UsbDevHandle::create_map();
std::map<int, int> UsbDevId::currentDevId = UsbDevId::create_map();

namespace {

std::shared_mutex g_handleMapLock;
using MapReader = std::shared_lock<std::shared_mutex>;
using MapWriter = std::lock_guard<std::shared_mutex>;

bool has_key(int iKey) {
    const MapReader lk(g_handleMapLock);
    return UsbDevHandle::pDevH.count(iKey) != 0;
}

void set_handle(int iKey, libusb_device_handle* pHandle) {
    const MapWriter lk(g_handleMapLock);
    UsbDevHandle::pDevH[iKey] = pHandle;
}

}  // namespace

std::map<int, libusb_device_handle*> UsbDevHandle::create_map() { return {}; }

std::map<int, int> UsbDevId::create_map() { return {}; }

void reset_usb_handles() {
    const MapWriter lk(g_handleMapLock);
    for (auto& entry : UsbDevHandle::pDevH)
        if (entry.second != nullptr) libusb_close(entry.second);
    UsbDevHandle::pDevH.clear();
    UsbDevId::currentDevId.clear();
}

bool report_libusb_init(int iResult) {
    if (iResult >= 0) return true;
    oru_log(kLogError, "libusb_init() was failed !!\n");
    return false;
}

int next_oru_device(libusb_device** pList, int iFrom) {
    for (int i = iFrom; pList[i] != nullptr; ++i) {
        libusb_device_descriptor desc;
        if (libusb_get_device_descriptor(pList[i], &desc) < 0) return kUnreadable;
        if (desc.idVendor == ORU_USB_VENDOR_ID && desc.idProduct == ORU_USB_PRODUCT_ID) return i;
    }
    return kEndOfList;
}

namespace {

void report_open_failure(int iError) {
    if (iError == LIBUSB_ERROR_ACCESS) {
        oru_log(kLogError, "Device open failed due to a permission denied error.\n");
        oru_log(kLogError, "libusb requires write access to USB device nodes.\n");
    }
    oru_log(kLogError, "could not open device, error %d\n", iError);
}

}  // namespace

libusb_device_handle* open_or_report(libusb_device* pDev) {
    libusb_device_handle* pHandle = nullptr;
    const int iError = libusb_open(pDev, &pHandle);
    if (iError == LIBUSB_SUCCESS) return pHandle;
    report_open_failure(iError);
    return nullptr;
}

namespace {

constexpr int kNoInterface = -1;
constexpr int kFirstInterface = 0;
constexpr uint8_t kFirstConfiguration = 0;

bool init_default_context() {
    usb_init();
    return report_libusb_init(libusb_init(NULL));
}

// The sensor scans report an unreadable descriptor; the LED search does not.
int next_sensor(libusb_device** pList, int iFrom) {
    const int i = next_oru_device(pList, iFrom);
    if (i == kUnreadable) oru_log(kLogError, "failed to get device descriptor\n");
    return i;
}

// Map insert that keeps a live handle already stored under the key, but fills
// an entry left null (failed claim, or a dispatcher lookup after a forget), so
// that a reconnect really stores its new handle. Returns the stored handle.
libusb_device_handle* store_handle(int iKey, libusb_device_handle* pHandle) {
    const MapWriter lk(g_handleMapLock);
    auto inserted = UsbDevHandle::pDevH.insert({iKey, pHandle});
    if (!inserted.second && inserted.first->second == nullptr) inserted.first->second = pHandle;
    return inserted.first->second;
}

// Claims the interface of the stored handle. On failure the handle is closed
// and the entry stays with a null handle, which later transfers skip.
bool claim_or_forget(int iKey, int iInterface) {
    libusb_device_handle* pHandle = find_device_handle(static_cast<unsigned int>(iKey));
    // A USB serial driver often binds to these ids; let libusb detach it.
    libusb_set_auto_detach_kernel_driver(pHandle, 1);
    if (libusb_claim_interface(pHandle, iInterface) == LIBUSB_SUCCESS) return true;
    libusb_release_interface(pHandle, iInterface);
    libusb_close(pHandle);
    set_handle(iKey, nullptr);
    return false;
}

int connect_nth_device(libusb_device** pList, unsigned int iDeviceId) {
    const int iKey = static_cast<int>(iDeviceId);
    int i = -1;
    for (unsigned int nMatching = 0; nMatching <= iDeviceId; ++nMatching) {
        i = next_sensor(pList, i + 1);
        if (i < 0) return 0;
    }
    libusb_device_handle* pHandle = open_or_report(pList[i]);
    if (pHandle == nullptr) return 0;

    libusb_device_handle* pStored = store_handle(iKey, pHandle);
    // The index still holds a live handle (a connect that failed half-way
    // left it): that one is used, and the new one must not leak.
    if (pStored != pHandle) libusb_close(pHandle);
    if (pStored != nullptr) {
        oru_log(kLogNormal, "[Info] Reading first configuration descriptor:\n");
        int nInterfaces = 0;
        const int iInterface = first_interface_number(pStored, &nInterfaces);
        oru_log(kLogNormal, "[Info] nb interfaces: %d\n", nInterfaces);
        claim_or_forget(iKey, iInterface);
    }
    return has_key(iKey) ? 1 : 0;
}

int connect_all_devices(libusb_device** pList) {
    int iKey = 0;
    bool bOpened = false;
    int i = next_sensor(pList, 0);
    for (; i >= 0; i = next_sensor(pList, i + 1)) {
        libusb_device_handle* pHandle = open_or_report(pList[i]);
        if (pHandle == nullptr) return 0;
        bOpened = true;
        if (store_handle(iKey, pHandle) != nullptr && claim_or_forget(iKey, kFirstInterface)) ++iKey;
    }
    if (i == kUnreadable) return 0;
    return bOpened && has_key(iKey - 1) ? 1 : 0;
}

// Runs one scan over a fresh device list of the default context. Open
// handles keep their own device references, so the list can go afterwards.
template <typename Scan>
int scan_bus(Scan scan) {
    if (!init_default_context()) return 0;
    libusb_device** pList = nullptr;
    if (libusb_get_device_list(NULL, &pList) < 0) return 0;
    const int iResult = scan(pList);
    libusb_free_device_list(pList, 1);
    return iResult;
}

}  // namespace

int connect_device(unsigned int iDeviceId) {
    return scan_bus([iDeviceId](libusb_device** pList) { return connect_nth_device(pList, iDeviceId); });
}

int connect_device() { return scan_bus(connect_all_devices); }

int connect_device(int, int, unsigned int) { return 0; }

int disconnect_device(unsigned int iDeviceId) {
    // Only forgets the handle: the interface stays claimed and the handle
    // open, as the tear-down expects.
    const MapWriter lk(g_handleMapLock);
    auto it = UsbDevHandle::pDevH.find(static_cast<int>(iDeviceId));
    if (it != UsbDevHandle::pDevH.end() && it->second != nullptr) UsbDevHandle::pDevH.erase(it);
    return 1;
}

int reconnect_device(unsigned int&, libusb_device*, libusb_context*, bool) { return 1; }

std::vector<libusb_device*> free_sensor_devices() {
    std::vector<libusb_device*> free;
    scan_bus([&free](libusb_device** pList) {
        for (int i = next_oru_device(pList, 0); i >= 0; i = next_oru_device(pList, i + 1)) {
            bool bHeld = false;
            const MapReader lk(g_handleMapLock);
            for (const auto& entry : UsbDevHandle::pDevH)
                bHeld = bHeld || (entry.second != nullptr && libusb_get_device(entry.second) == pList[i]);
            if (!bHeld) free.push_back(libusb_ref_device(pList[i]));
        }
        return 1;
    });
    return free;
}

int open_sensor_as(unsigned int iDeviceId, libusb_device* pDev) {
    libusb_device_handle* pHandle = nullptr;
    if (libusb_open(pDev, &pHandle) != LIBUSB_SUCCESS) return 0;
    const int iKey = static_cast<int>(iDeviceId);
    set_handle(iKey, pHandle);
    if (claim_or_forget(iKey, first_interface_number(pHandle))) return 1;
    const MapWriter lk(g_handleMapLock);
    UsbDevHandle::pDevH.erase(iKey);
    return 0;
}

void close_sensor_as(unsigned int iDeviceId) {
    libusb_device_handle* pHandle = nullptr;
    {
        // Forgotten first, so no other call picks up a handle being closed.
        const MapWriter lk(g_handleMapLock);
        auto it = UsbDevHandle::pDevH.find(static_cast<int>(iDeviceId));
        if (it == UsbDevHandle::pDevH.end()) return;
        pHandle = it->second;
        UsbDevHandle::pDevH.erase(it);
    }
    if (pHandle != nullptr) {
        const int iInterface = first_interface_number(pHandle);
        if (iInterface >= 0) libusb_release_interface(pHandle, iInterface);
        libusb_close(pHandle);
    }
}

int first_interface_number(libusb_device_handle* pHandle, int* pnInterfaces) {
    libusb_config_descriptor* pConfig = nullptr;
    int nInterfaces = 0;
    int iInterface = kNoInterface;
    if (libusb_get_config_descriptor(libusb_get_device(pHandle), kFirstConfiguration, &pConfig) == LIBUSB_SUCCESS) {
        nInterfaces = pConfig->bNumInterfaces;
        if (nInterfaces > 0) iInterface = pConfig->interface[0].altsetting[0].bInterfaceNumber;
        libusb_free_config_descriptor(pConfig);
    }
    if (pnInterfaces != nullptr) *pnInterfaces = nInterfaces;
    return iInterface;
}

libusb_device_handle* device_handle_entry(unsigned int iDeviceId) {
    if (libusb_device_handle* pHandle = find_device_handle(iDeviceId)) return pHandle;
    // A subscript on purpose: an unknown index is remembered with a null handle.
    const MapWriter lk(g_handleMapLock);
    return UsbDevHandle::pDevH[static_cast<int>(iDeviceId)];
}

void remember_device_index(unsigned int iDeviceId) {
    const MapWriter lk(g_handleMapLock);
    UsbDevId::currentDevId[static_cast<int>(iDeviceId)] = static_cast<int>(iDeviceId);
}

libusb_device_handle* find_device_handle(unsigned int iDeviceId) {
    const MapReader lk(g_handleMapLock);
    auto it = UsbDevHandle::pDevH.find(static_cast<int>(iDeviceId));
    return it == UsbDevHandle::pDevH.end() ? nullptr : it->second;
}

std::size_t stored_handle_count() {
    const MapReader lk(g_handleMapLock);
    return UsbDevHandle::pDevH.size();
}
