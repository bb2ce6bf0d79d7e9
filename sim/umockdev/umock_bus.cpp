#include "umock_bus.h"

#include <dlfcn.h>
#include <umockdev.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "bus.h"
#include "descriptors.h"
#include "usbfs_node.h"
#include "vsensor/vsensor.h"

namespace umockbus {

namespace {

constexpr int kBusNumber = 1;
constexpr int kUsbDeviceMajor = 189;

// libusb lists the devices in the reverse of udev's enumeration, which goes
// by name: descending two-digit device numbers put position 0 first.
constexpr int kFirstDeviceNumber = 90;
int device_number(int pos) { return kFirstDeviceNumber - pos; }

// A bus position on the testbed: its sysfs device and usbfs node.
struct Port {
    std::string syspath;  // "" once unplugged
    std::unique_ptr<UsbfsNode> node;
};

struct Testbed {
    UMockdevTestbed* testbed = nullptr;
    std::string root;
    std::vector<Port> ports;  // by bus position
    // Nodes of unplugged devices: umockdev may still hand them a closing file.
    std::vector<std::unique_ptr<UsbfsNode>> retired;
    int next_replug_number = kFirstDeviceNumber + 1;
    bool pacing = false;
};

std::mutex g_lock;

// Lives to the end of the process: libusb's threads may look at the testbed
// until then. Its directory goes at exit.
Testbed& testbed() {
    static Testbed* tb = [] {
        auto* t = new Testbed;
        t->testbed = umockdev_testbed_new();
        gchar* root = umockdev_testbed_get_root_dir(t->testbed);
        t->root = root;
        g_free(root);
        std::atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(testbed().root, ec);
        });
        return t;
    }();
    return *tb;
}

std::string text(int value, const char* format = "%d") {
    char buf[32];
    std::snprintf(buf, sizeof buf, format, value);
    return buf;
}

// The sysfs device (named after its bus position, like a port) with device
// number `devnum`, and its usbfs node; returns an error text or "".
// umockdev sends an "add" uevent before the descriptors are there; the
// caller sends another once the device is complete.
std::string add_device(Testbed& tb, const std::shared_ptr<vsensor::detail::Device>& device, int devnum, Port* port) {
    if (devnum < 10 || devnum > 127) return "too many devices for the testbed";
    const std::string name = "1-" + text(device_number(device->pos));
    const std::string devname = "/dev/bus/usb/" + text(kBusNumber, "%03d") + "/" + text(devnum, "%03d");
    const std::string dev = text(kUsbDeviceMajor) + ":" + text((kBusNumber - 1) * 128 + devnum - 1);
    const std::string busnum = text(kBusNumber), devnum_text = text(devnum);
    const gchar* attributes[] = {"busnum",
                                 busnum.c_str(),
                                 "devnum",
                                 devnum_text.c_str(),
                                 "idVendor",
                                 "0483",
                                 "idProduct",
                                 "5740",
                                 "speed",
                                 "12",
                                 "bConfigurationValue",
                                 "1",
                                 "bNumConfigurations",
                                 "1",
                                 "dev",
                                 dev.c_str(),
                                 nullptr};
    const gchar* properties[] = {"DEVTYPE", "usb_device",        "DEVNAME", devname.c_str(), "BUSNUM", busnum.c_str(),
                                 "DEVNUM",  devnum_text.c_str(), "PRODUCT", "483/5740/200",  nullptr};
    gchar* syspath = umockdev_testbed_add_devicev(tb.testbed, "usb", name.c_str(), nullptr,
                                                  const_cast<gchar**>(attributes), const_cast<gchar**>(properties));
    if (!syspath) return "umockdev_testbed_add_device failed for " + name;
    std::vector<uint8_t> descriptors = vsensor::detail::raw_device_descriptor();
    const std::vector<uint8_t> config = vsensor::detail::raw_config_descriptor();
    descriptors.insert(descriptors.end(), config.begin(), config.end());
    umockdev_testbed_set_attribute_binary(tb.testbed, syspath, "descriptors", descriptors.data(),
                                          static_cast<gint>(descriptors.size()));
    port->syspath = syspath;
    g_free(syspath);

    const std::string node_path = tb.root + devname;
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(node_path).parent_path(), ec);
    if (ec) return "cannot create " + node_path + ": " + ec.message();
    auto node = std::make_unique<UsbfsNode>(device);
    std::string error = node->attach(tb.testbed, devname, node_path);
    if (!error.empty()) return error;
    port->node = std::move(node);
    return "";
}

// Frames due with real-time pacing complete here: the node itself only acts
// when libusb calls it. Runs to the end of the process.
void pace_forever() {
    for (;;) {
        auto wake = std::chrono::steady_clock::now() + std::chrono::milliseconds(1);
        {
            std::lock_guard<std::mutex> lk(g_lock);
            for (Port& port : testbed().ports)
                if (port.node) wake = std::min(wake, port.node->pace());
        }
        std::this_thread::sleep_until(wake);
    }
}

}  // namespace

bool preload_loaded() {
    // Not umockdev_in_mock_environment(): it needs a testbed already and
    // remembers its first answer.
    void* lib = dlopen(kPreloadLibrary, RTLD_NOW | RTLD_NOLOAD);
    if (!lib) return false;
    dlclose(lib);
    return true;
}

std::string unavailable_reason() {
    if (!preload_loaded())
        return std::string("not running under umockdev's preload library (") + kPreloadLibrary + " is not loaded)";
    return "";
}

std::string plug_bus_devices() {
    std::lock_guard<std::mutex> lk(g_lock);
    Testbed& tb = testbed();
    std::vector<std::shared_ptr<vsensor::detail::Device>> devices;
    {
        std::lock_guard<std::mutex> bus_lock(vsensor::detail::bus().m);
        devices = vsensor::detail::bus().devices;
    }
    for (size_t pos = tb.ports.size(); pos < devices.size(); ++pos) {
        tb.ports.emplace_back();
        std::string error = add_device(tb, devices[pos], device_number(static_cast<int>(pos)), &tb.ports.back());
        if (!error.empty()) return error;
    }
    return "";
}

void unplug(int dev) {
    vsensor::unplug(dev);
    std::lock_guard<std::mutex> lk(g_lock);
    Testbed& tb = testbed();
    if (dev < 0 || dev >= static_cast<int>(tb.ports.size())) return;
    Port& port = tb.ports[static_cast<size_t>(dev)];
    if (port.syspath.empty()) return;
    port.node->unplug();
    // libusb's udev monitor reads the node's name from the uevent; the
    // device leaves sysfs after it, as in the kernel.
    umockdev_testbed_uevent(tb.testbed, port.syspath.c_str(), "remove");
    umockdev_testbed_remove_device(tb.testbed, port.syspath.c_str());
    port.syspath.clear();
}

std::string replug(int dev) {
    if (dev < 0 || dev >= vsensor::device_count()) return "no device at bus position " + std::to_string(dev);
    unplug(dev);
    vsensor::replug(dev);  // the model's fresh device: same options, faults cleared
    std::shared_ptr<vsensor::detail::Device> device;
    {
        std::lock_guard<std::mutex> lk(vsensor::detail::bus().m);
        device = vsensor::detail::bus().devices[static_cast<size_t>(dev)];
    }
    std::lock_guard<std::mutex> lk(g_lock);
    Testbed& tb = testbed();
    Port& port = tb.ports[static_cast<size_t>(dev)];
    tb.retired.push_back(std::move(port.node));
    std::string error = add_device(tb, device, tb.next_replug_number++, &port);
    if (!error.empty()) return error;
    umockdev_testbed_uevent(tb.testbed, port.syspath.c_str(), "add");
    return "";
}

void set_realtime(bool on) {
    vsensor::set_realtime(on);
    std::lock_guard<std::mutex> lk(g_lock);
    Testbed& tb = testbed();
    if (!on || tb.pacing) return;
    tb.pacing = true;
    std::thread(pace_forever).detach();
}

}  // namespace umockbus
