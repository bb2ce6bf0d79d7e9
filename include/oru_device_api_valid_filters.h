// The filters that the auto-exposure search looks at when the caller names
// none: every filter away from the edges and the gaps of the filter array.
#ifndef ORU_DEVICE_API_VALID_FILTERS_H
#define ORU_DEVICE_API_VALID_FILTERS_H

#include <array>

constexpr int num_valid_filters = 824;

extern const std::array<int, num_valid_filters> g_default_valid_filters;

#endif  // ORU_DEVICE_API_VALID_FILTERS_H
