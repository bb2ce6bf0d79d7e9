// Auto exposure: search for the shutter speed that puts the brightest valid
// filter just below saturation, and the two look-up tables loaded at start-up.
#ifndef ORU_DEVICE_INTERFACE_AE_H
#define ORU_DEVICE_INTERFACE_AE_H

#include "oru_base_exception.h"
#include <vector>

struct _oru_def_auto_exposure_parameters {
    int initial_ss;
    int min_ss;
    int max_ss;
    int target_dn_value;
    int upper_dn_value;
    int lower_dn_value;
    int mean_upper_dn_value;
    int mode;
    _oru_def_auto_exposure_parameters() { init(); }
    void init();
};

extern _oru_def_auto_exposure_parameters m_gAEParams;
// Back to the default parameters (tests).
void reset_ae_parameters();
extern double* g_intensityLUT;
extern double* g_ssLUT;
extern int g_aeLUTSize;

// Upper bound on measurements of one search, so that it always ends.
#define ORU_AE_MAX_MEASUREMENTS 100

int set_params_for_ae_module(int saturation_DN, unsigned int iDeviceId);
int set_params_for_ae_module(int target_DN, int upper_DN, int lower_DN, int mean_DN, int max_integ_DN,
                             unsigned int iDeviceId);
int get_valid_filters_only(const std::vector<double>& input_frame, const std::vector<int>& valid_filters,
                           std::vector<double>& output_frame);
// The chosen shutter speed, or -1 when saturated at shutter speed 1. An
// acquisition failure ends the search: -1 and *pErrorCode set to its code.
int find_optimal_shutter_speed_with_ae(const std::vector<int>& valid_filters, int frame_average, int sleep_time,
                                       unsigned int iDeviceId, ORU_ERROR_CODE* pErrorCode = nullptr);
int initialize_ae_module(const char* strFileName_intensityLUT, const char* strFileName_ssLUT);

#endif
