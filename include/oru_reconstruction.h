/* Spectra from filter readings: with a sensor's calibration (oru_calibration.h)
 * the 1024 dark-corrected filter values of one reading become a spectrum on
 * a wavelength grid, by regularised least squares.
 *
 * A reconstructor is prepared once per calibration: everything that depends
 * on the calibration alone (the factorisation of its response) is computed
 * then, so a reading costs matrix-vector work. A reading that leaves out
 * other filters than the one before (a new saturated filter, say) costs one
 * new factorisation; the last few are kept.
 *
 * Functions that can fail return 1 (or a pointer) on success and one of the
 * negative DU_RECON_E_* codes (or NULL) on failure, with one line saying why
 * in `error` (when not NULL, at most error_size bytes). One reconstructor may
 * be used from several threads; its calls then take turns. */
#ifndef ORU_RECONSTRUCTION_H
#define ORU_RECONSTRUCTION_H

#include "oru_calibration.h"
#include "oru_export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define DU_RECON_E_ARGUMENT -1      /* a NULL pointer, a bad option */
#define DU_RECON_E_ALGORITHM -2     /* an algorithm this library does not provide */
#define DU_RECON_E_RANGE -3         /* wavelength range or step outside the calibration's grid */
#define DU_RECON_E_SENSOR -4        /* the reading's sensor is not the calibration's */
#define DU_RECON_E_NO_FILTERS -5    /* no usable filter left (all saturated or left out) */
#define DU_RECON_E_NOT_A_NUMBER -6  /* NaN or infinity in the reading or the calibration */
#define DU_RECON_E_MEMORY -7

/* Warning bits of a result. */
#define DU_RECON_WARN_SETTINGS 1 /* master clock, ADC gain or range differ from the calibration's */

typedef struct duReconstructionOptions {
    const char* algorithm;  /* NULL: "TNNLS-LCurve" */
    double range_start_nm;  /* 0: the calibration's first wavelength */
    double range_end_nm;    /* 0: its last */
    double step_nm;         /* 0: the calibration's own step; otherwise at least that */
    int all_filters;        /* 1: ignore the calibration's valid_filters flags */
} duReconstructionOptions;

/* What the caller knows of the reading besides its values. */
typedef struct duReadingInfo {
    const char* sensor_id;  /* of the sensor that gave it; NULL: not checked */
    int allow_other_sensor; /* 1: accept a reading of another sensor than the calibration's */
    int shutter_speed;      /* exposure: duExactExposureTimeUs(master_clock, shutter_speed) */
    int master_clock;
    int adc_gain;
    int adc_range;
} duReadingInfo;

typedef struct duReconstructionResult {
    double weight;      /* the regularisation weight used (lambda, or the L1 weight) */
    double residual_dn; /* RMS of reading - response x spectrum over the filters used, in DN */
    int filters_used;
    int warnings;       /* DU_RECON_WARN_* bits */
} duReconstructionResult;

typedef struct duReconstructor duReconstructor;

/* Algorithm names in a stable order, NULL past the last; also accepted are
 * the published table's names that are not provided, which give
 * DU_RECON_E_ALGORITHM. */
ORU_EXPORT const char* duReconstructionAlgorithmName(int index);

/* `options` may be NULL (all defaults). The calibration is copied; it may be
 * freed afterwards. */
ORU_EXPORT duReconstructor* duReconstructorCreate(const duCalibration* cal, const duReconstructionOptions* options,
                                                  char* error, int error_size);
ORU_EXPORT void duReconstructorFree(duReconstructor* r);
/* Switches the algorithm (its factorisation is prepared now); 1 or a code. */
ORU_EXPORT int duReconstructorSetAlgorithm(duReconstructor* r, const char* algorithm, char* error, int error_size);
/* Number of grid points; copies at most `capacity` wavelengths when
 * `wavelength_nm` is not NULL. -1 for a NULL reconstructor. */
ORU_EXPORT int duReconstructorGrid(const duReconstructor* r, double* wavelength_nm, int capacity);

/* Marks as usable (1) each filter whose raw reading is below saturation
 * (4095 DN; abnormal filters read 4096); returns how many are usable. */
ORU_EXPORT int duReadingUsableFilters(const double* raw_dn, unsigned char* usable);

/* One reading: `values` are 1024 dark-corrected DN; `usable` (1024 flags,
 * NULL: all) leaves out saturated or abnormal filters for this reading only.
 * Writes duReconstructorGrid() values of the spectrum, in the calibration's
 * radiance unit, and fills `result` (may be NULL). */
ORU_EXPORT int duReconstruct(duReconstructor* r, const double* values, const unsigned char* usable,
                             const duReadingInfo* info, double* spectrum, duReconstructionResult* result,
                             char* error, int error_size);

#ifdef __cplusplus
}
#endif

#endif /* ORU_RECONSTRUCTION_H */
