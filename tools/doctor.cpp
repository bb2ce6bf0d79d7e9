#include "doctor.h"

#include <dirent.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

struct UsbDevice {
    std::string sysname;  // e.g. 1-1.2
    int bus = 0, address = 0;
    std::string node;  // /dev/bus/usb/BBB/DDD
};

std::string env_or(const char* name, const char* fallback) {
    const char* v = std::getenv(name);
    return v && *v ? v : fallback;
}

std::string read_line(const std::string& path) {
    std::ifstream in(path);
    std::string s;
    std::getline(in, s);
    return s;
}

std::vector<UsbDevice> find_sensors() {
    const std::string sys = env_or("ORU_DOCTOR_SYSFS", "/sys") + "/bus/usb/devices/";
    const std::string dev = env_or("ORU_DOCTOR_DEVFS", "/dev");
    std::vector<UsbDevice> found;
    DIR* d = opendir(sys.c_str());
    if (!d) return found;
    while (dirent* e = readdir(d)) {
        std::string name = e->d_name;
        if (name[0] == '.' || name.find(':') != std::string::npos) continue;
        if (read_line(sys + name + "/idVendor") != "0483" || read_line(sys + name + "/idProduct") != "5740") continue;
        UsbDevice u;
        u.sysname = name;
        u.bus = std::atoi(read_line(sys + name + "/busnum").c_str());
        u.address = std::atoi(read_line(sys + name + "/devnum").c_str());
        char node[64];
        std::snprintf(node, sizeof node, "/bus/usb/%03d/%03d", u.bus, u.address);
        u.node = dev + node;
        found.push_back(u);
    }
    closedir(d);
    return found;
}

bool udev_rule_installed() {
    for (const char* dir : {"/etc/udev/rules.d", "/lib/udev/rules.d", "/usr/lib/udev/rules.d"}) {
        DIR* d = opendir(dir);
        if (!d) continue;
        bool hit = false;
        while (dirent* e = readdir(d)) {
            std::ifstream in(std::string(dir) + "/" + e->d_name);
            std::string line;
            while (!hit && std::getline(in, line))
                hit = line.find("0483") != std::string::npos && line.find("5740") != std::string::npos;
            if (hit) break;
        }
        closedir(d);
        if (hit) return true;
    }
    return false;
}

bool user_in_group(gid_t gid) {
    if (getegid() == gid) return true;
    int n = getgroups(0, nullptr);
    std::vector<gid_t> groups(static_cast<size_t>(n > 0 ? n : 0));
    if (n > 0) getgroups(n, groups.data());
    for (gid_t g : groups)
        if (g == gid) return true;
    return false;
}

std::string group_name(gid_t gid) {
    const group* g = getgrgid(gid);
    return g ? g->gr_name : std::to_string(gid);
}

std::string bound_driver(const UsbDevice& u) {
    const std::string sys = env_or("ORU_DOCTOR_SYSFS", "/sys") + "/bus/usb/devices/";
    char target[PATH_MAX];
    ssize_t n = readlink((sys + u.sysname + ":1.0/driver").c_str(), target, sizeof target - 1);
    if (n <= 0) return "";
    std::string t(target, static_cast<size_t>(n));
    return t.substr(t.rfind('/') + 1);
}

// Other processes with the device node open.
std::vector<std::string> holders(const UsbDevice& u) {
    std::vector<std::string> out;
    DIR* proc = opendir("/proc");
    if (!proc) return out;
    const std::string self = std::to_string(getpid());
    while (dirent* p = readdir(proc)) {
        std::string pid = p->d_name;
        if (pid.find_first_not_of("0123456789") != std::string::npos || pid == self) continue;
        std::string fddir = "/proc/" + pid + "/fd";
        DIR* fds = opendir(fddir.c_str());
        if (!fds) continue;
        while (dirent* f = readdir(fds)) {
            char target[PATH_MAX];
            ssize_t n = readlink((fddir + "/" + f->d_name).c_str(), target, sizeof target - 1);
            if (n > 0 && std::string(target, static_cast<size_t>(n)) == u.node) {
                out.push_back(pid + " (" + read_line("/proc/" + pid + "/comm") + ")");
                break;
            }
        }
        closedir(fds);
    }
    closedir(proc);
    return out;
}

// Whether interface 0 is a CDC one (communications or CDC data class), as
// where the firmware enumerates as a USB serial device.
bool cdc_interface(const UsbDevice& u) {
    const std::string sys = env_or("ORU_DOCTOR_SYSFS", "/sys") + "/bus/usb/devices/";
    const std::string cls = read_line(sys + u.sysname + ":1.0/bInterfaceClass");
    return cls == "02" || cls == "0a";
}

// Whether a ModemManager process runs (its /proc can be moved for tests).
bool modem_manager_running() {
    const std::string root = env_or("ORU_DOCTOR_PROC", "/proc");
    DIR* proc = opendir(root.c_str());
    if (!proc) return false;
    bool found = false;
    while (dirent* p = readdir(proc)) {
        const std::string pid = p->d_name;
        if (pid.find_first_not_of("0123456789") != std::string::npos) continue;
        if (read_line(root + "/" + pid + "/comm") == "ModemManager") found = true;
    }
    closedir(proc);
    return found;
}

}  // namespace

int run_doctor(FILE* out) {
    int failed = 0;
    auto ok = [&](const std::string& what) { std::fprintf(out, "ok    %s\n", what.c_str()); };
    auto fix = [&](const std::string& what, const std::string& how) {
        ++failed;
        std::fprintf(out, "FIX   %s\n      %s\n", what.c_str(), how.c_str());
    };

    std::vector<UsbDevice> sensors = find_sensors();
    if (sensors.empty()) {
        fix("no 0483:5740 device on the USB bus",
            "Plug the sensor in (a data cable, not a charge-only one) and check `lsusb -d 0483:5740`. "
            "To work without hardware, use --virtual.");
        return failed;
    }
    ok("found " + std::to_string(sensors.size()) + " device(s) 0483:5740");

    const bool rule = udev_rule_installed();
    for (const UsbDevice& u : sensors) {
        const std::string name = "bus " + std::to_string(u.bus) + " device " + std::to_string(u.address);
        struct stat st {};
        if (access(u.node.c_str(), R_OK | W_OK) == 0) {
            ok(name + ": " + u.node + " is readable and writable by you");
        } else if (stat(u.node.c_str(), &st) != 0) {
            fix(name + ": " + u.node + " does not exist", "Is /dev/bus/usb mounted (devtmpfs)? Replug the sensor.");
        } else {
            std::string how;
            if (!rule)
                how =
                    "Install the udev rule (sudo apt install ./liboru-device1_*.deb does), or: sudo cp "
                    "packaging/udev/60-oru-sensor.rules /etc/udev/rules.d/ && "
                    "sudo udevadm control --reload-rules && sudo udevadm trigger, then replug the sensor.";
            else if (!user_in_group(st.st_gid))
                how = "The udev rule is installed; the node belongs to group '" + group_name(st.st_gid) +
                      "'. Add yourself: sudo usermod -aG " + group_name(st.st_gid) +
                      " $USER, then log out and in again.";
            else
                how =
                    "The udev rule is installed but the node is not writable: replug the sensor or run "
                    "sudo udevadm trigger.";
            fix(name + ": you cannot open " + u.node + " (libusb requires write access to USB device nodes)", how);
        }

        std::string driver = bound_driver(u);
        if (driver.empty() || driver == "usbfs")
            ok(name + ": no kernel driver bound to interface 0");
        else
            fix(name + ": kernel driver '" + driver + "' is bound to interface 0",
                "The library asks libusb to detach it when it claims the interface; if claiming still fails, "
                "unbind it: echo -n '" +
                    u.sysname + ":1.0' | sudo tee /sys/bus/usb/drivers/" + driver +
                    "/unbind (or blacklist the driver for 0483:5740).");

        if (cdc_interface(u) && modem_manager_running())
            fix(name +
                    ": ModemManager is running and probes USB serial (CDC) devices such as this one with AT "
                    "commands",
                "Install the udev rule, which sets ID_MM_DEVICE_IGNORE=1 for 0483:5740 (the liboru-device1 package "
                "does; or sudo cp packaging/udev/60-oru-sensor.rules /usr/lib/udev/rules.d/ && sudo udevadm "
                "control --reload-rules && sudo udevadm trigger), or stop it: sudo systemctl disable --now "
                "ModemManager.");

        std::vector<std::string> h = holders(u);
        if (h.empty()) {
            ok(name + ": no other process holds it");
        } else {
            std::string list;
            for (const auto& p : h) list += (list.empty() ? "" : ", ") + p;
            fix(name + ": held by process " + list, "Stop that program; only one process can claim the sensor.");
        }
    }
    return failed;
}
