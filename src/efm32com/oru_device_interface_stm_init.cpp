// Initial state of a freshly connected sensor: ADC 132/0, shutter speed 1,
// blank time 2, each written, read back and written once more on a mismatch.
#include "efm32com/oru_device_interface_stm_init.h"

#include "efm32com/oru_device_interface_device_settings.h"

namespace {

constexpr SCommandPair kWriteAdc = {19, 20};
constexpr SCommandPair kReadAdc = {35, 40};
constexpr SCommandPair kWriteShutter = {37, 5};  // upper byte first
constexpr SCommandPair kReadShutter = {36, 4};
constexpr SCommandPair kWriteBlankTime = {34, 33};
constexpr SCommandPair kReadBlankTime = {39, 38};

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

    iCurBlankTime = kInitialBlankTime;

    write_verified_pair(kWriteAdc, kReadAdc, {ucAdcRangeW, ucAdcResW}, iPauseUs, iDeviceId);
    const SBytePair shutterR =
        write_verified_pair(kWriteShutter, kReadShutter, {ucUpperByteW, ucLowerByteW}, iPauseUs, iDeviceId);
    write_verified_pair(kWriteBlankTime, kReadBlankTime, {ucBtUpperByteW, ucBtLowerByteW}, iPauseUs, iDeviceId);

    // Only the shutter speed counts in the statistics.
    ++iTotalCount;
    if (shutterR.ucFirst * 256 + shutterR.ucSecond == iShutterSpeedW)
        ++iSuccessCount;
    else
        ++iFailCount;
}
