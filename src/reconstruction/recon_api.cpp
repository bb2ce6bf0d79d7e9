// The reconstruction's C functions: argument checks, the factor cache and
// one line of error for the caller. No exception leaves them.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>

#include "oru_measurement.h"
#include "reconstruction/reconstruction_internal.h"

using namespace oru_recon;

struct duReconstructor {
    Problem problem;
    char sensor_id[sizeof duCalibration::sensor_id];
    int master_clock, adc_gain, adc_range;
    // Guards `algorithm` and `factors`; every call on the reconstructor, from
    // any thread, holds it throughout.
    std::mutex lock;
    const Algorithm* algorithm = nullptr;
    // Most recently used first; at most kKeptFactors.
    std::vector<std::shared_ptr<const Factor>> factors;
};

namespace {

// One per penalty for the calibration's own filters, and one or two for
// readings that leave out more.
constexpr size_t kKeptFactors = 4;
constexpr int kFilters = DU_CALIBRATION_FILTERS;

int fail(char* error, int error_size, const std::string& text, int code) {
    if (error && error_size > 0) std::snprintf(error, size_t(error_size), "%s", text.c_str());
    return code;
}

// Caller holds r.lock.
const Factor& factor_for(duReconstructor& r, Penalty penalty, const std::vector<char>& used) {
    for (size_t i = 0; i < r.factors.size(); ++i) {
        if (r.factors[i]->penalty == penalty && r.factors[i]->used == used) {
            std::rotate(r.factors.begin(), r.factors.begin() + long(i), r.factors.begin() + long(i) + 1);
            return *r.factors.front();
        }
    }
    r.factors.insert(r.factors.begin(), factorise(r.problem, penalty, used));
    if (r.factors.size() > kKeptFactors) r.factors.pop_back();
    return *r.factors.front();
}

// Caller holds r.lock.
int use_algorithm(duReconstructor& r, const char* name, char* error, int error_size) {
    std::string why;
    const Algorithm* a = find_algorithm(name, &why);
    if (!a) return fail(error, error_size, why, DU_RECON_E_ALGORITHM);
    factor_for(r, a->penalty, r.problem.lit);
    r.algorithm = a;
    return 1;
}

bool same_settings(const duReconstructor& r, const duReadingInfo& info) {
    return info.master_clock == r.master_clock && info.adc_gain == r.adc_gain && info.adc_range == r.adc_range;
}

int reconstruct(duReconstructor& r, const double* values, const unsigned char* usable, const duReadingInfo& info,
                double* spectrum, duReconstructionResult* result, char* error, int error_size) {
    for (int i = 0; i < kFilters; ++i)
        if (!std::isfinite(values[i]))
            return fail(error, error_size, "reading value of filter " + std::to_string(i) + " is not a number",
                        DU_RECON_E_NOT_A_NUMBER);
    if (info.sensor_id && r.sensor_id[0] && std::strcmp(info.sensor_id, r.sensor_id) && !info.allow_other_sensor)
        return fail(error, error_size,
                    std::string("calibration is for sensor ") + r.sensor_id + ", the reading is from " + info.sensor_id,
                    DU_RECON_E_SENSOR);
    double exposure_us = 0.0;
    if (duExactExposureTimeUs(info.master_clock, info.shutter_speed, &exposure_us) != 1)
        return fail(error, error_size, "reading without an exposure (master clock or shutter speed)",
                    DU_RECON_E_ARGUMENT);
    const double exposure_ms = exposure_us / 1000.0;
    std::vector<char> used(r.problem.lit);
    int lit = 0, count = 0;
    for (int i = 0; i < kFilters; ++i) {
        lit += used[size_t(i)];
        used[size_t(i)] = used[size_t(i)] && (!usable || usable[i]);
        count += used[size_t(i)];
    }
    if (count == 0)
        return fail(error, error_size,
                    "no usable filter: all " + std::to_string(lit) + " filters that see light are saturated or left out",
                    DU_RECON_E_NO_FILTERS);

    const std::lock_guard<std::mutex> hold(r.lock);
    const Factor& f = factor_for(r, r.algorithm->penalty, used);
    VectorXd b(count);
    for (int k = 0; k < count; ++k) b[k] = values[f.rows[size_t(k)]] / exposure_ms;
    VectorXd x;
    const double weight = solve(*r.algorithm, f, b, &x);
    Eigen::Map<VectorXd>(spectrum, x.size()) = x;
    if (result) {
        result->weight = weight;
        result->residual_dn = (f.au * x - b).norm() / std::sqrt(double(count)) * exposure_ms;
        result->filters_used = count;
        result->warnings = same_settings(r, info) ? 0 : DU_RECON_WARN_SETTINGS;
    }
    return 1;
}

}  // namespace

extern "C" {

ORU_EXPORT const char* duReconstructionAlgorithmName(int index) {
    const Algorithm* a = algorithm_at(index);
    return a ? a->name : nullptr;
}

ORU_EXPORT duReconstructor* duReconstructorCreate(const duCalibration* cal, const duReconstructionOptions* options,
                                                  char* error, int error_size) {
    if (!cal) return fail(error, error_size, "no calibration", 0), nullptr;
    const duReconstructionOptions defaults{};
    const duReconstructionOptions& o = options ? *options : defaults;
    try {
        auto r = std::make_unique<duReconstructor>();
        std::string why;
        const int rc = build_problem(*cal, o, &r->problem, &why);
        if (rc < 0) return fail(error, error_size, why, rc), nullptr;
        std::snprintf(r->sensor_id, sizeof r->sensor_id, "%s", cal->sensor_id);
        r->master_clock = cal->master_clock;
        r->adc_gain = cal->adc_gain;
        r->adc_range = cal->adc_range;
        if (use_algorithm(*r, o.algorithm, error, error_size) < 0) return nullptr;
        return r.release();
    } catch (const std::bad_alloc&) {
        return fail(error, error_size, "out of memory", 0), nullptr;
    } catch (const std::exception& e) {
        return fail(error, error_size, e.what(), 0), nullptr;
    }
}

ORU_EXPORT void duReconstructorFree(duReconstructor* r) { delete r; }

ORU_EXPORT int duReconstructorSetAlgorithm(duReconstructor* r, const char* algorithm, char* error, int error_size) {
    if (!r) return fail(error, error_size, "no reconstructor", DU_RECON_E_ARGUMENT);
    try {
        const std::lock_guard<std::mutex> hold(r->lock);
        return use_algorithm(*r, algorithm, error, error_size);
    } catch (const std::exception&) {
        return fail(error, error_size, "out of memory", DU_RECON_E_MEMORY);
    }
}

ORU_EXPORT int duReconstructorGrid(const duReconstructor* r, double* wavelength_nm, int capacity) {
    if (!r) return -1;
    const int n = int(r->problem.grid_nm.size());
    for (int i = 0; wavelength_nm && i < std::min(n, capacity); ++i) wavelength_nm[i] = r->problem.grid_nm[i];
    return n;
}

ORU_EXPORT int duReadingUsableFilters(const double* raw_dn, unsigned char* usable) {
    if (!raw_dn || !usable) return -1;
    int count = 0;
    for (int i = 0; i < kFilters; ++i) count += usable[i] = raw_dn[i] < 4095.0;
    return count;
}

ORU_EXPORT int duReconstruct(duReconstructor* r, const double* values, const unsigned char* usable,
                             const duReadingInfo* info, double* spectrum, duReconstructionResult* result,
                             char* error, int error_size) {
    if (!r || !values || !info || !spectrum)
        return fail(error, error_size, "reconstructor, values, reading info and spectrum are needed",
                    DU_RECON_E_ARGUMENT);
    try {
        return reconstruct(*r, values, usable, *info, spectrum, result, error, error_size);
    } catch (const std::exception&) {
        return fail(error, error_size, "out of memory", DU_RECON_E_MEMORY);
    }
}

}  // extern "C"
