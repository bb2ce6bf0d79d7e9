// Exposure (shutter speed, blank time) and ADC settings of a sensor.
#ifndef ORU_DEVICE_INTERFACE_DEVICE_SETTINGS_H
#define ORU_DEVICE_INTERFACE_DEVICE_SETTINGS_H

#include "oru_base_exception.h"
#include <atomic>

// Last shutter speed requested; the event-thread side reads it for pauses.
extern std::atomic<int> g_iCurShutterSpeed;
// The shutter speed last written to this sensor (the process-wide value when
// none was): what its frames' period follows.
int sensor_shutter_speed(unsigned int iDeviceId);
// Tests: forget every sensor's own value.
void reset_sensor_shutter_speeds();
extern std::atomic<int> iCurBlankTime;
extern int g_iSleepTime;  // ms after each blank-time / ADC command
// Statistics of verified writes (nothing reads them back).
extern std::atomic<int> iTotalCount;
extern std::atomic<int> iSuccessCount;
extern std::atomic<int> iFailCount;
// One verified write counted in the statistics.
void count_verified(bool bMatched);
// Records the blank time last set on a sensor.
void note_blank_time(int iBlankTime);
// Puts the variables above back to their start values (tests).
void reset_device_settings();

// A setting written as two one-byte commands and read back by two more.
struct SCommandPair {
    int iFirst, iSecond;
};
struct SBytePair {
    unsigned char ucFirst, ucSecond;
    bool operator==(const SBytePair& o) const { return ucFirst == o.ucFirst && ucSecond == o.ucSecond; }
};

// The command pairs of the verified settings: upper (or first) byte first.
constexpr SCommandPair ORU_WRITE_SHUTTER = {37, 5};
constexpr SCommandPair ORU_READ_SHUTTER = {36, 4};
constexpr SCommandPair ORU_WRITE_BLANK_TIME = {34, 33};
constexpr SCommandPair ORU_READ_BLANK_TIME = {39, 38};
constexpr SCommandPair ORU_WRITE_ADC = {19, 20};  // range byte, gain/resolution byte
constexpr SCommandPair ORU_READ_ADC = {35, 40};
// Writes `value`, reads it back, pausing iPauseUs after every command, and
// repeats both once when the read-back differs. Returns the last read-back.
SBytePair write_verified_pair(SCommandPair write, SCommandPair read, SBytePair value, unsigned int iPauseUs,
                              unsigned int iDeviceId);

ORU_ERROR_CODE set_shutter_speed_to_sensor(int iShutterSpeedW, unsigned int iDeviceId);
ORU_ERROR_CODE get_shutter_speed_from_sensor(int* iCurSS, unsigned int iDeviceId);
ORU_ERROR_CODE get_current_shutter_speed(int* iShutterSpeed, unsigned int iDeviceId);
ORU_ERROR_CODE set_blank_time_to_sensor(int iBlankTime, unsigned int iDeviceId);
ORU_ERROR_CODE get_blank_time_from_sensor(int* iBlankTime, unsigned int iDeviceId);
ORU_ERROR_CODE set_adc_setting_values(unsigned char ucADCRangeIndex, unsigned char ucGain, unsigned char ucRes,
                                      unsigned int iDeviceId);
ORU_ERROR_CODE get_adc_setting_values(unsigned char* ucADCRange, unsigned char* ucGain, unsigned char* ucRes,
                                      unsigned int iDeviceId);

#endif
