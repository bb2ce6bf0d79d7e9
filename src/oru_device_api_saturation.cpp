// The one rule by which every front end counts saturated filters in a
// reading, so that the command line, the binding and the live view agree.
#include "oru_device_api.h"

#include "oru_base_exception.h"

namespace {
// Full scale of the 12-bit converter; 4096 marks a stuck over-range filter.
constexpr double kFullScaleDN = 4095.0;
}  // namespace

extern "C" {

int duCountSaturatedFilters(const double* values, int count) {
    if (values == nullptr) return -lu_ec_filter_buffer_is_null;
    if (count < 0) return -lu_ec_ill_defined_input;
    int saturated = 0;
    for (int i = 0; i < count; ++i)
        if (values[i] >= kFullScaleDN) ++saturated;
    return saturated;
}

}  // extern "C"
