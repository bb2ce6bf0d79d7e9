// Published constants of the sensor: filter index tables, light sources,
// filter subgroups and reconstruction algorithm names. Nothing in the library
// reads them; each translation unit gets its own read-only copy.
#ifndef ORU_SENSOR_CONSTANTS_H
#define ORU_SENSOR_CONSTANTS_H

#include <cstdint>

// Filter indexes (out of 1024) of the sensor-type marker filters.
constexpr std::int32_t SENSOR_TYPE_FILTER_INDEX[8] = {1021, 1020, 1019, 1018, 1017, 1016, 1015, 1014};

// Filter indexes of the background (dark) filters.
constexpr std::int32_t SENSOR_TYPE_BACKGROUND_FILTER_INDEX[3] = {1011, 1012, 1013};

// ADC range byte values of the sensor (start-up itself writes 132).
constexpr unsigned char Efm32_ADCRangeList[3] = {65, 69, 73};

// Visible range, in nm.
constexpr int iVisibleRangeStartIndex = 380;
constexpr int iVisibleRangeEndIndex = 780;

// Numbers beside the light-source names below; entries 7 to 10 do not match
// their names and are published as they are.
constexpr int wavelength_list[12] = {468, 529, 572, 610, 640, 740, 880, 900, 190, 422, 430, 850};

// Light sources: LEDs by peak wavelength, two white sources by colour temperature.
constexpr const char* wavelength_type[12] = {"468 nm", "529 nm", "572 nm", "610 nm", "640 nm", "740 nm",
                                             "940 nm", "574 nm", "15000K", "6600K",  "430 nm", "850 nm"};

// First and last filter index of each of the 18 filter subgroups.
constexpr double subgroup_range[18][2] = {{4, 255},   {257, 272}, {274, 305}, {307, 322}, {330, 387}, {388, 447},
                                          {450, 483}, {485, 506}, {508, 574}, {577, 600}, {602, 649}, {651, 674},
                                          {680, 701}, {704, 727}, {730, 767}, {768, 783}, {816, 859}, {862, 898}};

// Spectrum-reconstruction algorithm names, index 0 to 5.
constexpr const char* pReconAlgoType[6] = {"TNNLS-LCurve",    "TNNLS-GCV",    "NNLS-SC",
                                           "NNLS-SCA-LCurve", "NNLS-SCA-GCV", "NNLS-L1"};

#endif  // ORU_SENSOR_CONSTANTS_H
