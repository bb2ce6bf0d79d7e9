// Initial state of a freshly connected sensor: ADC 132/0, shutter speed 1,
// blank time 2, each written, read back and written once more on a mismatch.
#include "efm32com/oru_device_interface_stm_init.h"

#include "efm32com/oru_device_interface_device_settings.h"

namespace {

constexpr int kInitialBlankTime = 2;

}  // namespace

void initialize_sensor(unsigned int iDeviceId) {
    const unsigned char ucAdcRangeW = 132;
    const unsigned char ucAdcResW = 0;
    const int iShutterSpeedW = 1;
    const unsigned char ucUpperByteW = static_cast<unsigned char>(iShutterSpeedW >> 8);
    const unsigned char ucLowerByteW = static_cast<unsigned char>(iShutterSpeedW);
    const unsigned char ucBtUpperByteW = static_cast<unsigned char>(kInitialBlankTime >> 8);
    const unsigned char ucBtLowerByteW = static_cast<unsigned char>(kInitialBlankTime);
    const unsigned int iPauseUs = static_cast<unsigned int>(g_iSleepTime) * 1000;

    note_blank_time(kInitialBlankTime);

    write_verified_pair(ORU_WRITE_ADC, ORU_READ_ADC, {ucAdcRangeW, ucAdcResW}, iPauseUs, iDeviceId);
    const SBytePair shutterR =
        write_verified_pair(ORU_WRITE_SHUTTER, ORU_READ_SHUTTER, {ucUpperByteW, ucLowerByteW}, iPauseUs, iDeviceId);
    write_verified_pair(ORU_WRITE_BLANK_TIME, ORU_READ_BLANK_TIME, {ucBtUpperByteW, ucBtLowerByteW}, iPauseUs,
                        iDeviceId);

    // Only the shutter speed counts in the statistics.
    count_verified(shutterR.ucFirst * 256 + shutterR.ucSecond == iShutterSpeedW);
}
