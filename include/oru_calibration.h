/* A sensor's spectral calibration: how strongly each of the 1024 filters
 * answers light of each wavelength. Read from and written to the open HDF5
 * layout described in docs/calibration-format.md, built from a monochromator
 * sweep, and summarised per filter (centroid and band at half maximum).
 *
 * Functions that can fail return 1 (or a pointer) on success and a negative
 * code (or NULL) on failure, with one line saying why in `error` (when not
 * NULL, at most error_size bytes). Nothing is half-loaded: a failed read
 * returns NULL and keeps nothing. */
#ifndef ORU_CALIBRATION_H
#define ORU_CALIBRATION_H

#include "oru_export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define DU_CALIBRATION_FILTERS 1024

typedef struct duCalibration {
    int wavelength_count;          /* W, at least 2 */
    double* wavelength_nm;         /* W wavelengths, strictly ascending */
    double* response;              /* 1024 rows of W: DN per unit radiance per ms */
    double* dark;                  /* 1024 dark readings in DN, or NULL */
    unsigned char* valid_filters;  /* 1024 flags (1 = usable), or NULL */
    char sensor_id[32];
    int master_clock;              /* MHz */
    int adc_gain;
    int adc_range;
    char created[32];              /* UTC, "2026-11-25T11:40:00Z" */
    char source[16];               /* "virtual", "sweep" or "imported" */
    char description[256];
} duCalibration;

/* A calibration of W wavelengths, all zero, created now, master clock 1,
 * source "imported"; NULL when W < 2 or memory runs out. */
ORU_EXPORT duCalibration* duCalibrationCreate(int wavelength_count);
/* Adds the optional arrays (zeroed dark, all-valid flags); 1 or -1. */
ORU_EXPORT int duCalibrationAddDark(duCalibration* cal);
ORU_EXPORT int duCalibrationAddValidFilters(duCalibration* cal);
ORU_EXPORT void duCalibrationFree(duCalibration* cal);

ORU_EXPORT duCalibration* duCalibrationRead(const char* path, char* error, int error_size);
/* Written to a temporary file beside `path` and renamed over it. */
ORU_EXPORT int duCalibrationWrite(const duCalibration* cal, const char* path, char* error, int error_size);

/* Per filter: centroid of the response, and the lowest and highest
 * wavelength where it reaches half its maximum (linearly interpolated).
 * Filters without response get NaN. Each array holds 1024 doubles; returns
 * the number of filters with a band, or -1 for a bad argument. */
ORU_EXPORT int duCalibrationFilterBands(const duCalibration* cal, double* centroid_nm, double* band_low_nm,
                                        double* band_high_nm);

/* The response from a monochromator sweep. For each of `points` steps: the
 * wavelength, the source's relative power there (radiance summed over its
 * line), the exposure in ms and one reading of 1024 DN (readings holds the
 * points' readings one after another). `dark` is 1024 DN read with the
 * light off, or NULL to take each reading's background filters as its dark.
 * Each filter's (reading - dark) / (power x exposure) is interpolated
 * linearly onto start, start + step, ... <= end; grid wavelengths outside
 * the sweep get 0. Filters saturated at any step and the background filters
 * are marked not valid. Source "sweep". */
ORU_EXPORT duCalibration* duCalibrationFromSweep(int points, const double* wavelength_nm, const double* power,
                                                 const double* exposure_ms, const double* readings,
                                                 const double* dark, double grid_start_nm, double grid_end_nm,
                                                 double grid_step_nm, char* error, int error_size);

#ifdef __cplusplus
}
#endif

#endif /* ORU_CALIBRATION_H */
