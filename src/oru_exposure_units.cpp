#include "oru_exposure_units.h"

#include "oru_base_exception.h"

#include <cmath>
#include <limits>

// The integer formula reproduces 32-bit signed arithmetic, as the rest of the
// library does: products and sums wrap in two's complement (never undefined
// overflow), division truncates toward zero.
namespace {
int wrap_to_int32(long long value) { return static_cast<int>(static_cast<unsigned int>(value)); }
}  // namespace

// Forward conversion: 912 counts per shutter step plus 160, integer division.
// A clock whose 1000-fold wraps to 0 has no defined result.
void oru_shutter_to_exposure_ms(int MCLK, int shutter, double* exposure_time_val) {
    if (exposure_time_val == nullptr) throw oru_base_exception(lu_ec_memory_is_null);
    const int counts = wrap_to_int32(static_cast<long long>(shutter) * 912 + 160);
    const int divisor = wrap_to_int32(1000LL * MCLK);
    if (divisor == 0) throw oru_base_exception(lu_ec_ill_defined_input);
    *exposure_time_val = static_cast<double>(counts / divisor);
}

// Reverse conversion: 528 counts per step after 160 + 384, truncated toward
// zero. Not the inverse of the forward one.
void oru_exposure_ms_to_shutter(int MCLK, double exposure_time_val, int* shutter) {
    if (shutter == nullptr) throw oru_base_exception(lu_ec_memory_is_null);
    const double value = (static_cast<double>(MCLK) * 1000 * exposure_time_val - 160 - 384) / 528;
    if (!(std::fabs(value) < static_cast<double>(std::numeric_limits<int>::max())))
        throw oru_base_exception(lu_ec_ill_defined_input);
    *shutter = static_cast<int>(value);
}
