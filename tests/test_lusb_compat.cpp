// The 0.1-style control call and its error translation.
#include "usb_fixture.h"

#include "efm32com/oru_device_interface_usb.h"
#include "lusb_compat/lusb_compat.h"

#include <cerrno>

namespace {

class LusbCompat : public usbtest::UsbTest {
protected:
    libusb_device_handle* sensor() { return find_device_handle(0); }
};

}  // namespace

TEST(LibusbToErrno, TranslatesEveryLibusbErrorAndAnythingElseIsOutOfRange) {
    const std::pair<int, int> kTable[] = {
        {LIBUSB_SUCCESS, 0},
        {LIBUSB_ERROR_IO, EIO},
        {LIBUSB_ERROR_INVALID_PARAM, EINVAL},
        {LIBUSB_ERROR_ACCESS, EACCES},
        {LIBUSB_ERROR_NO_DEVICE, ENXIO},
        {LIBUSB_ERROR_NOT_FOUND, ENOENT},
        {LIBUSB_ERROR_BUSY, EBUSY},
        {LIBUSB_ERROR_TIMEOUT, ETIMEDOUT},
        {LIBUSB_ERROR_OVERFLOW, EOVERFLOW},
        {LIBUSB_ERROR_PIPE, EPIPE},
        {LIBUSB_ERROR_INTERRUPTED, EINTR},
        {LIBUSB_ERROR_NO_MEM, ENOMEM},
        {LIBUSB_ERROR_NOT_SUPPORTED, ENOSYS},
        {LIBUSB_ERROR_OTHER, ERANGE},
        {-13, ERANGE},
        {5, ERANGE},
    };
    for (const auto& entry : kTable)
        EXPECT_EQ(libusb_to_errno(entry.first), entry.second) << "libusb error " << entry.first;
}

TEST_F(LusbCompat, SuccessReturnsBytesMovedAndTheReplyFieldsAreCutToTheirWidths) {
    connect_sensors(1);
    char reply[4] = {};
    ASSERT_EQ(usb_control_msg(sensor(), 0xA1, 5, 77, 0, reply, 1, 1000), 1);
    vsensor::clear_events();
    ASSERT_EQ(usb_control_msg(sensor(), 0x1A1, 0x104, 0x10000, 0x10000, reply, 0x10001, 700), 1);
    EXPECT_EQ(reply[0], 77);
    EXPECT_EQ(usbtest::setups(), std::vector<std::string>{usbtest::setup(0, 0xA1, 4, 0, 0, 1, 700)});
}

TEST_F(LusbCompat, TimeoutIsNegatedErrnoAndSetsErrno) {
    connect_sensors(1, vsensor::kFaultControlTimeout);
    char reply[1] = {};
    errno = 0;
    EXPECT_EQ(usb_control_msg(sensor(), 0xA1, 4, 0, 0, reply, 1, 1000), -110);
    EXPECT_EQ(errno, 110);
}
