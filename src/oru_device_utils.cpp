#include "oru_device_utils.h"

#include <cmath>

_SOneADCInfo::_SOneADCInfo() { reset(); }

void _SOneADCInfo::reset() {
    adc_index = 0;
    vrt = vrb = range = resolution = 0.0f;
}

oru_device_utils::oru_device_utils() : m_iDebugLevel(0) {}

oru_device_utils::~oru_device_utils() = default;

void oru_device_utils::calc_adc_range(float vrt_start, float vrt_end, float vrt_step, float vrb_start, float vrb_end,
                                      float vrb_step, float adc_resolution_base, short range_size) {
    (void)vrb_end;  // the number of vrb steps is range_size
    m_AdcRangeTable.clear();

    float fTableSize = ((vrt_end - vrt_start) / vrt_step + 1.0f) * static_cast<float>(range_size);
    // std::round rounds half away from zero. A size that is not a finite int
    // (zero step) gives no table rather than an undefined conversion.
    float fRounded = std::round(fTableSize);
    if (!(fRounded >= 1.0f && fRounded <= 2147483520.0f)) return;
    int iTableSize = static_cast<int>(fRounded);

    m_AdcRangeTable.resize(static_cast<std::size_t>(iTableSize));
    for (int i = 0; i < iTableSize; ++i) {
        int iVrtRangeIndex = i / range_size;
        int iVrbRangeIndex = i % range_size;
        _SOneADCInfo row;
        row.adc_index = static_cast<unsigned char>(i & 0xFF);
        row.vrt = static_cast<float>(iVrtRangeIndex) * vrt_step + vrt_start;
        row.vrb = static_cast<float>(iVrbRangeIndex) * vrb_step + vrb_start;
        row.range = row.vrt - row.vrb;
        row.resolution = row.range * adc_resolution_base;
        m_AdcRangeTable[static_cast<std::size_t>(i)] = row;
    }
}
