#include "umock_bus.h"

#include <dlfcn.h>
#include <umockdev.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>

#include "bus.h"
#include "descriptors.h"
#include "usbfs_node.h"
#include "vsensor/vsensor.h"

namespace umockbus {

namespace {

constexpr int kBusNumber = 1;
constexpr int kUsbDeviceMajor = 189;

struct Testbed {
    UMockdevTestbed* testbed = nullptr;
    std::string root;
    std::vector<std::unique_ptr<UsbfsNode>> nodes;  // by bus position
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

// libusb lists the devices in the reverse of udev's enumeration, which goes
// by name: descending two-digit device numbers put position 0 first.
constexpr int kFirstDeviceNumber = 90;
int device_number(int pos) { return kFirstDeviceNumber - pos; }

std::string text(int value, const char* format = "%d") {
    char buf[32];
    std::snprintf(buf, sizeof buf, format, value);
    return buf;
}

// The sysfs device and its usbfs node; returns an error text or "".
std::string add_device(Testbed& tb, const std::shared_ptr<vsensor::detail::Device>& device) {
    if (device_number(device->pos) < 10) return "too many devices for the testbed";
    const int devnum = device_number(device->pos);
    const std::string name = "1-" + text(devnum);
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
    g_free(syspath);

    const std::string node_path = tb.root + devname;
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(node_path).parent_path(), ec);
    if (ec) return "cannot create " + node_path + ": " + ec.message();
    auto node = std::make_unique<UsbfsNode>(device);
    std::string error = node->attach(tb.testbed, devname, node_path);
    if (!error.empty()) return error;
    tb.nodes.push_back(std::move(node));
    return "";
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
    for (size_t pos = tb.nodes.size(); pos < devices.size(); ++pos) {
        std::string error = add_device(tb, devices[pos]);
        if (!error.empty()) return error;
    }
    return "";
}

void unplug(int dev) {
    vsensor::unplug(dev);
    std::lock_guard<std::mutex> lk(g_lock);
    Testbed& tb = testbed();
    if (dev >= 0 && dev < static_cast<int>(tb.nodes.size())) tb.nodes[static_cast<size_t>(dev)]->unplug();
}

}  // namespace umockbus
