// Exposure (shutter speed, blank time) and ADC settings, each a pair of
// one-byte commands with the pauses the microcontroller needs between them.
#include "efm32com/oru_device_interface_device_settings.h"

#include "oru_log.h"

#include "efm32com/oru_device_interface_stm.h"
#include "sensors/oru_sensor_record.h"

#include <climits>
#include <cstdio>
#include <unistd.h>

// Written only here (initialize_sensor goes through count_verified and
// note_blank_time), by the caller thread of a request or of a reconnect,
// which may run at once on different sensors: atomic, no lock.
// g_iCurShutterSpeed: the consumer's wait bound and the pauses read it too.
std::atomic<int> g_iCurShutterSpeed{1};
std::atomic<int> iCurBlankTime{0};
int g_iSleepTime = 30;  // never written by the library
std::atomic<int> iTotalCount{0};
std::atomic<int> iSuccessCount{0};
std::atomic<int> iFailCount{0};

// The shutter speed last written to each sensor (beside the one process-wide
// value above that drives the protocol's pauses) is its record's
// iShutterSpeed, written only here.
int sensor_shutter_speed(unsigned int iDeviceId) {
    const oru_sensor::SSensorRecord* record = oru_sensor::sensor_record(iDeviceId);
    const int iShutter = record != nullptr ? record->iShutterSpeed.load() : 0;
    return iShutter != 0 ? iShutter : g_iCurShutterSpeed.load();
}

void reset_sensor_shutter_speeds() {
    for (unsigned int i = 0; i < oru_sensor::kMaxOpenSensors; ++i) oru_sensor::sensor_record(i)->iShutterSpeed = 0;
}

void reset_device_settings() {
    reset_sensor_shutter_speeds();
    g_iCurShutterSpeed = 1;
    iCurBlankTime = 0;
    g_iSleepTime = 30;
    iTotalCount = iSuccessCount = iFailCount = 0;
}

namespace {

// The shutter commands run back to back with a short fixed pause.
constexpr unsigned int kShutterPauseUs = 5000;
// Reading the shutter speed waits between its two byte reads.
constexpr unsigned int kShutterReadPauseUs = 10000;
// The blank time follows every shutter change with this margin.
constexpr int kBlankTimeMargin = 32;

unsigned int sleep_time_us() { return static_cast<unsigned int>(g_iSleepTime) * 1000; }

unsigned char command(int iCommand, int wValue, unsigned int iPauseUs, unsigned int iDeviceId) {
    const unsigned char ucReply = do_control_transfer(iCommand, wValue, iDeviceId);
    usleep(iPauseUs);
    return ucReply;
}

SBytePair split_word(int iValue) {
    return {static_cast<unsigned char>(iValue >> 8), static_cast<unsigned char>(iValue)};
}

int join_word(SBytePair bytes) { return bytes.ucFirst * 256 + bytes.ucSecond; }

double settling_ms(int iUnits) { return iUnits * 0.7 + 10.0; }

// Unsigned conversion of the settling time. A negative time (only from a
// negative blank time) becomes 0, as the target's float-to-unsigned
// conversion does; the multiplication to microseconds wraps like unsigned.
void settle_unsigned(int iUnits) {
    const double fMs = settling_ms(iUnits);
    unsigned int iMs = 0;
    if (fMs >= static_cast<double>(UINT_MAX))
        iMs = UINT_MAX;
    else if (fMs > 0.0)
        iMs = static_cast<unsigned int>(fMs);
    usleep(iMs * 1000u);
}

void settle_signed(int iUnits) {
    const int iMs = static_cast<int>(settling_ms(iUnits));
    usleep(static_cast<unsigned int>(iMs) * 1000u);
}

}  // namespace

void count_verified(bool bMatched) {
    ++iTotalCount;
    if (bMatched)
        ++iSuccessCount;
    else
        ++iFailCount;
}

void note_blank_time(int iBlankTime) { iCurBlankTime = iBlankTime; }

SBytePair write_verified_pair(SCommandPair write, SCommandPair read, SBytePair value, unsigned int iPauseUs,
                              unsigned int iDeviceId) {
    SBytePair readBack{};
    for (int iTry = 0; iTry < 2; ++iTry) {
        command(write.iFirst, value.ucFirst, iPauseUs, iDeviceId);
        command(write.iSecond, value.ucSecond, iPauseUs, iDeviceId);
        readBack.ucFirst = command(read.iFirst, 0, iPauseUs, iDeviceId);
        readBack.ucSecond = command(read.iSecond, 0, iPauseUs, iDeviceId);
        if (readBack == value) break;
    }
    return readBack;
}

ORU_ERROR_CODE set_shutter_speed_to_sensor(int iShutterSpeedW, unsigned int iDeviceId) {
    g_iCurShutterSpeed = iShutterSpeedW;
    if (oru_sensor::SSensorRecord* record = oru_sensor::sensor_record(iDeviceId)) record->iShutterSpeed = iShutterSpeedW;
    const SBytePair shutterW = split_word(iShutterSpeedW);

    iCurBlankTime = iShutterSpeedW + kBlankTimeMargin;
    const SBytePair blankW = split_word(iCurBlankTime);
    command(ORU_WRITE_BLANK_TIME.iFirst, blankW.ucFirst, kShutterPauseUs, iDeviceId);
    command(ORU_WRITE_BLANK_TIME.iSecond, blankW.ucSecond, kShutterPauseUs, iDeviceId);

    const SBytePair shutterR =
        write_verified_pair(ORU_WRITE_SHUTTER, ORU_READ_SHUTTER, shutterW, kShutterPauseUs, iDeviceId);
    // The whole int must come back: a value beyond 16 bits always counts as failed.
    count_verified(shutterR == shutterW && join_word(shutterR) == iShutterSpeedW);

    // Let the new exposure take effect before anyone reads frames.
    settle_unsigned(iCurBlankTime);
    return lu_ec_success;
}

ORU_ERROR_CODE get_shutter_speed_from_sensor(int* iCurSS, unsigned int iDeviceId) {
    SBytePair shutterR;
    shutterR.ucFirst = command(ORU_READ_SHUTTER.iFirst, 0, kShutterReadPauseUs, iDeviceId);
    shutterR.ucSecond = do_control_transfer(ORU_READ_SHUTTER.iSecond, 0, iDeviceId);
    const int iValue = join_word(shutterR);
    // Settles on the shutter value read, not on the blank time as the setter does.
    settle_signed(iValue);
    *iCurSS = iValue;
    return lu_ec_success;
}

ORU_ERROR_CODE get_current_shutter_speed(int* iShutterSpeed, unsigned int iDeviceId) {
    return get_shutter_speed_from_sensor(iShutterSpeed, iDeviceId);
}

ORU_ERROR_CODE set_blank_time_to_sensor(int iBlankTime, unsigned int iDeviceId) {
    const SBytePair blankW = split_word(iBlankTime);
    command(ORU_WRITE_BLANK_TIME.iFirst, blankW.ucFirst, sleep_time_us(), iDeviceId);
    command(ORU_WRITE_BLANK_TIME.iSecond, blankW.ucSecond, sleep_time_us(), iDeviceId);
    iCurBlankTime = iBlankTime;
    settle_unsigned(iCurBlankTime);
    return lu_ec_success;
}

ORU_ERROR_CODE get_blank_time_from_sensor(int* iBlankTime, unsigned int iDeviceId) {
    SBytePair blankR;
    blankR.ucFirst = command(ORU_READ_BLANK_TIME.iFirst, 0, sleep_time_us(), iDeviceId);
    blankR.ucSecond = command(ORU_READ_BLANK_TIME.iSecond, 0, sleep_time_us(), iDeviceId);
    *iBlankTime = join_word(blankR);
    iCurBlankTime = *iBlankTime;
    return lu_ec_success;
}

ORU_ERROR_CODE set_adc_setting_values(unsigned char ucADCRangeIndex, unsigned char ucGain, unsigned char ucRes,
                                      unsigned int iDeviceId) {
    // The resolution is not masked to one bit: larger values set higher bits.
    const SBytePair adcW = {ucADCRangeIndex, static_cast<unsigned char>((ucGain << 1) | ucRes)};
    const SBytePair adcR = write_verified_pair(ORU_WRITE_ADC, ORU_READ_ADC, adcW, sleep_time_us(), iDeviceId);
    count_verified(adcR == adcW);
    return lu_ec_success;
}

ORU_ERROR_CODE get_adc_setting_values(unsigned char* ucADCRange, unsigned char* ucGain, unsigned char* ucRes,
                                      unsigned int iDeviceId) {
    const unsigned char ucRange = command(ORU_READ_ADC.iFirst, 0, sleep_time_us(), iDeviceId);
    const unsigned char ucGainRes = command(ORU_READ_ADC.iSecond, 0, sleep_time_us(), iDeviceId);
    *ucADCRange = ucRange;
    *ucGain = (ucGainRes >> 1) & 1;
    *ucRes = ucGainRes & 1;
    oru_log(kLogNormal, "[STM] ADC range: %d, Gain: %d, Res: %d, Device Id: %d\n", *ucADCRange, *ucGain, *ucRes,
            static_cast<int>(iDeviceId));
    return lu_ec_success;
}
