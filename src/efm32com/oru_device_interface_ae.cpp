// Auto exposure: the process-wide parameter record, its setters, and the
// search for the shutter speed that puts the brightest valid filter into the
// window just below saturation.
#include "efm32com/oru_device_interface_ae.h"

#include "efm32com/oru_device_interface_device_settings.h"
#include "efm32com/oru_device_interface_stm_acquisition.h"
#include "efm32com/oru_device_interface_stm_frames.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>

// Caller thread only; written by the setters below and by the device object's
// parameter calls through them.
_oru_def_auto_exposure_parameters m_gAEParams;

void reset_ae_parameters() { m_gAEParams.init(); }

void _oru_def_auto_exposure_parameters::init() {
    initial_ss = 5;
    min_ss = 1;
    max_ss = 1200;
    target_dn_value = 3300;
    upper_dn_value = 4000;
    lower_dn_value = 3000;
    mean_upper_dn_value = target_dn_value;
    mode = 1;
}

// The device id is not used: one parameter record serves every sensor.
int set_params_for_ae_module(int saturation_DN, unsigned int /*iDeviceId*/) {
    m_gAEParams.lower_dn_value = saturation_DN - 600;
    m_gAEParams.target_dn_value = saturation_DN - 300;
    m_gAEParams.upper_dn_value = saturation_DN;
    m_gAEParams.mean_upper_dn_value = saturation_DN;
    return 1;
}

int set_params_for_ae_module(int target_DN, int upper_DN, int lower_DN, int mean_DN, int max_integ_DN,
                             unsigned int /*iDeviceId*/) {
    m_gAEParams.target_dn_value = target_DN;
    m_gAEParams.upper_dn_value = upper_DN;
    m_gAEParams.lower_dn_value = lower_DN;
    m_gAEParams.mean_upper_dn_value = mean_DN;
    m_gAEParams.max_ss = max_integ_DN;
    return 1;
}

int get_valid_filters_only(const std::vector<double>& input_frame, const std::vector<int>& valid_filters,
                           std::vector<double>& output_frame) {
    if (input_frame.empty() || valid_filters.empty() || input_frame.size() < valid_filters.size()) {
        output_frame.clear();
        return 0;
    }
    int iMaxIndex = *std::max_element(valid_filters.begin(), valid_filters.end());
    if (iMaxIndex >= static_cast<int>(input_frame.size())) {
        output_frame.clear();
        return 0;
    }
    output_frame.clear();
    output_frame.resize(valid_filters.size());
    for (size_t i = 0; i < valid_filters.size(); ++i) output_frame[i] = input_frame[valid_filters[i]];
    return 1;
}

namespace {

enum Indicator { kNotFound = -1, kInWindow = 0, kDarkAtMax = 1, kBrightAtMin = 2 };

constexpr int kSaturationCheckSS = 1;

// Double to int as the target board (ARM) converts: out-of-range values
// saturate and NaN becomes 0, where x86 would give INT_MIN.
int to_int(double x) {
    if (std::isnan(x)) return 0;
    if (x >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (x <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(x);
}

int round_half_away_from_zero(double x) { return to_int(x >= 0 ? std::floor(x + 0.5) : std::ceil(x - 0.5)); }

// Summed in an int on purpose: every partial sum is truncated, which shifts
// the secant steps slightly; kept so the search chooses the same speeds.
double integer_accumulated_mean(const std::vector<double>& frame) {
    int iSum = 0;
    for (double v : frame) iSum = to_int(iSum + v);
    return static_cast<double>(iSum) / static_cast<double>(frame.size());
}

double frame_max(const std::vector<double>& frame) {
    return frame.empty() ? 0.0 : *std::max_element(frame.begin(), frame.end());
}

// One search: the measurements it makes and how it ends when it cannot go on.
class AeSearch {
public:
    AeSearch(const std::vector<int>& valid_filters, int frame_average, int sleep_time, unsigned int iDeviceId)
        : m_valid(valid_filters), m_frameAverage(frame_average), m_sleepTime(sleep_time), m_deviceId(iDeviceId) {}

    int run();

    // Why run() stopped without a result of the search itself.
    ORU_ERROR_CODE error() const { return m_error; }

private:
    bool acquire(int iSS, double* frame);
    bool measure(int iSS);
    int stop_result() const { return m_error != lu_ec_success ? -1 : m_lastMeasuredSS; }
    bool saturated_at_shortest_exposure(const double* frame) const;
    Indicator classify(int iSS, bool bWithDarkAtMax) const;

    const std::vector<int>& m_valid;
    int m_frameAverage;
    int m_sleepTime;
    unsigned int m_deviceId;
    const _oru_def_auto_exposure_parameters& P = m_gAEParams;  // shared by all sensors

    std::vector<double> m_curFrame;
    double m_fCurMaxVal = 0.0;
    int m_iCurMaxVal = 0;
    int m_nMeasurements = 0;
    int m_lastMeasuredSS = 0;
    ORU_ERROR_CODE m_error = lu_ec_success;
};

// Sets the shutter speed, lets it settle and reads an averaged frame. Fails
// on an acquisition error, or when the search has used up its measurements.
bool AeSearch::acquire(int iSS, double* frame) {
    if (m_nMeasurements >= ORU_AE_MAX_MEASUREMENTS) return false;
    ++m_nMeasurements;
    m_lastMeasuredSS = iSS;
    ORU_ERROR_CODE eSet = set_shutter_speed_to_sensor(iSS, m_deviceId);
    if (eSet != lu_ec_success) {
        m_error = eSet;
        return false;
    }
    usleep(static_cast<useconds_t>(m_sleepTime) * 1000);
    ORU_ERROR_CODE eAcq = lu_ec_success;
    get_filter_data_from_sensor(frame, m_frameAverage, 0, 0, m_deviceId, &eAcq);
    if (eAcq != lu_ec_success) {
        m_error = eAcq;
        return false;
    }
    return true;
}

bool AeSearch::measure(int iSS) {
    double cur_frame_data[ORU_NUM_FILTERS];
    if (!acquire(iSS, cur_frame_data)) return false;
    std::vector<double> input_frame(cur_frame_data, cur_frame_data + ORU_NUM_FILTERS);
    get_valid_filters_only(input_frame, m_valid, m_curFrame);
    m_fCurMaxVal = frame_max(m_curFrame);
    m_iCurMaxVal = to_int(m_fCurMaxVal);
    return true;
}

// Integer ratio on purpose: only a frame in which every filter reaches the
// upper value counts as saturated.
bool AeSearch::saturated_at_shortest_exposure(const double* frame) const {
    int nSaturated = 0;
    for (int i = 0; i < ORU_NUM_FILTERS; ++i) {
        if (frame[i] >= P.upper_dn_value) ++nSaturated;
    }
    double saturation_ratio = static_cast<double>(nSaturated / ORU_NUM_FILTERS);
    return saturation_ratio >= 0.5;
}

Indicator AeSearch::classify(int iSS, bool bWithDarkAtMax) const {
    if (P.lower_dn_value <= m_iCurMaxVal && m_iCurMaxVal <= P.upper_dn_value) return kInWindow;
    if (bWithDarkAtMax && iSS == P.max_ss && m_iCurMaxVal < P.lower_dn_value) return kDarkAtMax;
    if (iSS == P.min_ss && m_iCurMaxVal > P.upper_dn_value) return kBrightAtMin;
    return kNotFound;
}

int AeSearch::run() {
    double raw[ORU_NUM_FILTERS];
    if (!acquire(kSaturationCheckSS, raw)) return stop_result();
    if (saturated_at_shortest_exposure(raw)) return -1;

    const size_t nValid = m_valid.size();
    int iTempSS = P.initial_ss;
    int nCountForSameSS = 0;
    std::vector<double> prev_frame;

    for (;;) {  // one pass, from iTempSS
        int iCurSS = iTempSS;
        int iPrevSS = 0;
        std::fill(prev_frame.begin(), prev_frame.end(), 0.0);
        int indicator = kInWindow;

        // Coarse: measure where the pass starts.
        while (indicator == kInWindow || indicator == kBrightAtMin) {
            if (!measure(iCurSS)) return stop_result();
            indicator = classify(iCurSS, false);
            if (P.mode == 1 && indicator != kNotFound) return iCurSS;
        }
        double fCurMeanVal = integer_accumulated_mean(m_curFrame);
        if (!(fCurMeanVal < P.mean_upper_dn_value)) {
            iTempSS = P.min_ss;
            continue;
        }
        prev_frame.resize(nValid, 0.0);

        // Secant steps on the mean towards the mean the frame would have with
        // its brightest filter at the target.
        while (fCurMeanVal < P.mean_upper_dn_value && iCurSS != iPrevSS) {
            double fCurMaxVal = frame_max(m_curFrame);
            fCurMeanVal = integer_accumulated_mean(m_curFrame);
            double fPrevMeanVal = integer_accumulated_mean(prev_frame);
            indicator = kInWindow;
            double fTargetMeanVal = P.target_dn_value * fCurMeanVal / fCurMaxVal;
            double fTempVal =
                iCurSS + (iCurSS - iPrevSS) * (fTargetMeanVal - fCurMeanVal) / (fCurMeanVal - fPrevMeanVal);
            nCountForSameSS = iPrevSS == iCurSS ? nCountForSameSS + 1 : 0;
            if (nCountForSameSS == 3) return iCurSS;
            iPrevSS = iCurSS;
            iCurSS = round_half_away_from_zero(fTempVal);
            if (iCurSS >= P.max_ss) {
                iCurSS = P.max_ss;
            } else if (iCurSS <= P.min_ss) {
                iCurSS = P.min_ss;
            }
            if (iCurSS == P.min_ss) return iCurSS;  // the floor ends the search unmeasured

            // Fine: measure at the proposal.
            while (indicator == kInWindow || indicator == kDarkAtMax || indicator == kBrightAtMin) {
                prev_frame = m_curFrame;
                if (!measure(iCurSS)) return stop_result();
                fCurMeanVal = integer_accumulated_mean(m_curFrame);
                indicator = classify(iCurSS, true);
                if (P.mode == 1 && indicator != kNotFound) return iCurSS;
            }
            if (iCurSS == iPrevSS) {
                // No progress: restart the secant from a zero history.
                iPrevSS = 0;
                prev_frame.assign(nValid, 0.0);
            }
        }
        if (!(fCurMeanVal < P.mean_upper_dn_value)) iTempSS = P.min_ss;
    }
}

}  // namespace

int find_optimal_shutter_speed_with_ae(const std::vector<int>& valid_filters, int frame_average, int sleep_time,
                                       unsigned int iDeviceId, ORU_ERROR_CODE* pErrorCode) {
    AeSearch search(valid_filters, frame_average, sleep_time, iDeviceId);
    int iResult = search.run();
    if (pErrorCode != nullptr) *pErrorCode = search.error();
    return iResult;
}
