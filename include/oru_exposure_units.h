// The two conversions between shutter speed and exposure time in ms. The
// device object and the sensor-free exported functions both use them.
// Internal.
#ifndef ORU_EXPOSURE_UNITS_H
#define ORU_EXPOSURE_UNITS_H

// Both throw oru_base_exception: lu_ec_memory_is_null for a null output,
// lu_ec_ill_defined_input where the formula has no defined result.
void oru_shutter_to_exposure_ms(int MCLK, int shutter, double* exposure_time_val);
void oru_exposure_ms_to_shutter(int MCLK, double exposure_time_val, int* shutter);

#endif
