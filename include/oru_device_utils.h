// Table of the ADC's input ranges that follow from grids of top and bottom
// reference voltages.
#ifndef ORU_DEVICE_UTILS_H
#define ORU_DEVICE_UTILS_H

#include "oru_export.h"

#include <vector>

struct ORU_EXPORT _SOneADCInfo {
    unsigned char adc_index;  // row number, low 8 bits only
    float vrt;
    float vrb;
    float range;  // vrt - vrb
    float resolution;  // range x resolution base

    _SOneADCInfo();
    void reset();
};

class ORU_EXPORT oru_device_utils {
public:
    oru_device_utils();
    ~oru_device_utils();

    // Rebuilds m_AdcRangeTable: ((vrt_end - vrt_start) / vrt_step + 1) x range_size
    // rows, vrt outer, vrb inner with range_size steps. vrb_end is not used.
    // vrt_step must not be 0.
    void calc_adc_range(float vrt_start, float vrt_end, float vrt_step, float vrb_start, float vrb_end, float vrb_step,
                        float adc_resolution_base, short range_size);

    unsigned int m_iDebugLevel;
    std::vector<_SOneADCInfo> m_AdcRangeTable;
};

#endif  // ORU_DEVICE_UTILS_H
