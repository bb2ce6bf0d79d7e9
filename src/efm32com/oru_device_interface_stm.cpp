// The command dispatcher: every one-byte vendor request to a sensor goes out
// as a class IN control request whose reply byte 0 is the answer.
#include "efm32com/oru_device_interface_stm.h"

#include "efm32com/oru_device_interface_usb.h"
#include "lusb_compat/lusb_compat.h"

#include <algorithm>
#include <initializer_list>
#include <unistd.h>

namespace {

constexpr int kIndex = 0;
constexpr int kLongTimeoutMs = 2000;  // identity and block reads
constexpr int kTimeoutMs = 1000;
constexpr int kMaxReply = 2048;

constexpr int kCmdMode = 3;
constexpr int kModeStart = 3;
constexpr int kModeStop = 1;
constexpr useconds_t kStartStopPauseUs = 10000;

// Result of a code that is not sent at all (or of an index without handle).
constexpr unsigned char kNotSent = 1;

struct SCommandGroup {
    std::initializer_list<int> codes;
    bool bSendsArgument;  // false: wValue 0 whatever the caller passed
    int wLength;
    int iTimeoutMs;
    bool bReplyIsResult;  // false: always kNotSent (identity)
};

// In the order the dispatcher tests them.
const SCommandGroup kGroups[] = {
    {{1}, false, 5, kLongTimeoutMs, false},  // identity
    {{2, 27}, false, 2048, kLongTimeoutMs, true},  // block read
    {{4, 6, 7, 10, 35, 36, 38, 39, 40, 53, 58}, false, 1, kTimeoutMs, true},  // byte read
    {{56}, true, 1, kTimeoutMs, true},  // byte read with argument
    {{8}, false, 4, kTimeoutMs, true},  // word read
    {{11}, false, 2048, kTimeoutMs, true},  // block read, short timeout
    {{12}, false, 12, kTimeoutMs, true},  // record read
    {{13}, false, 12, kTimeoutMs, true},  // record read
    {{3, 5, 19, 20, 33, 34, 37, 54, 80, 81}, true, 1, kTimeoutMs, true},  // byte write
    {{57}, true, 1, kTimeoutMs, true},  // byte write, second form
    {{255}, true, 1, kTimeoutMs, true},  // probe
};

const SCommandGroup* find_group(int iCommand) {
    for (const SCommandGroup& group : kGroups)
        if (std::find(group.codes.begin(), group.codes.end(), iCommand) != group.codes.end()) return &group;
    return nullptr;
}

// Register number (1-based) to command code. Reads know 11 registers, writes
// 10; codes 41 to 52 are in no group, so those registers never reach the wire.
constexpr int kReadRegisterCodes[] = {36, 4, 39, 38, 42, 43, 44, 45, 35, 40, 41};
constexpr int kWriteRegisterCodes[] = {37, 5, 34, 33, 49, 50, 51, 52, 19, 20};

}  // namespace

unsigned char do_control_transfer(int iCommand, int wValue, unsigned int iDeviceId) {
    libusb_device_handle* pHandle = device_handle_entry(iDeviceId);
    if (pHandle == nullptr) return kNotSent;
    const SCommandGroup* pGroup = find_group(iCommand);
    if (pGroup == nullptr) return kNotSent;

    // Zeroed, so a failed or short transfer answers 0; the status itself is
    // not looked at.
    char reply[kMaxReply] = {};
    usb_control_msg(pHandle, ORU_REQUEST_TYPE_CLASS_IN, iCommand, pGroup->bSendsArgument ? wValue : 0, kIndex, reply,
                    pGroup->wLength, pGroup->iTimeoutMs);
    return pGroup->bReplyIsResult ? static_cast<unsigned char>(reply[0]) : kNotSent;
}

int start_sensor(unsigned int iDeviceId) {
    do_control_transfer(kCmdMode, kModeStart, iDeviceId);
    usleep(kStartStopPauseUs);
    return 1;
}

int stop_sensor(unsigned int iDeviceId) {
    do_control_transfer(kCmdMode, kModeStop, iDeviceId);
    usleep(kStartStopPauseUs);
    return 1;
}

unsigned char read_register_data(unsigned char reg, unsigned int iDeviceId) {
    constexpr int nRegisters = sizeof(kReadRegisterCodes) / sizeof(kReadRegisterCodes[0]);
    if (reg < 1 || reg > nRegisters) return 0;
    return do_control_transfer(kReadRegisterCodes[reg - 1], 0, iDeviceId);
}

void write_register_data(unsigned char reg, unsigned char value, unsigned int iDeviceId) {
    constexpr int nRegisters = sizeof(kWriteRegisterCodes) / sizeof(kWriteRegisterCodes[0]);
    if (reg < 1 || reg > nRegisters) return;
    do_control_transfer(kWriteRegisterCodes[reg - 1], value, iDeviceId);
}

// Reserved entry points of the interface.
void send_command_to_device(int, int, unsigned int) {}

bool read_from_device(int, int, unsigned int) { return true; }

int set_device_index(unsigned int idx) {
    remember_device_index(idx);
    return 1;
}

unsigned int get_connected_total_devices() { return static_cast<unsigned int>(stored_handle_count()); }
