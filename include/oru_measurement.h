/* Measurements from filter data: exact exposure, dark and reference readings,
 * and the ratio modes users compute with. Every front end (the command line,
 * the Python binding, the live view) calls these; none re-derives them.
 *
 * The functions work on arrays of 1024 doubles in DN and on stored readings
 * (values with the settings they were taken at). They touch no sensor and
 * may be called from any thread. */
#ifndef ORU_MEASUREMENT_H
#define ORU_MEASUREMENT_H

#include "oru_export.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DU_FILTER_COUNT 1024

/* The library's version, "MAJOR.MINOR.PATCH". */
ORU_EXPORT const char* duGetLibraryVersion(void);

/* The time the sensor integrates at shutter_speed and master_clock, in
 * microseconds: (shutter_speed * 912 + 160) / master_clock, without the
 * integer division of duShutterSpeedToExposureTime (which gives 1.000 ms for
 * shutter speed 2, where the sensor integrates 1.984 ms).
 * 1, or -24 for a master_clock below 1, a shutter_speed below 1 or a NULL
 * exposure_us. */
ORU_EXPORT int duExactExposureTimeUs(int master_clock, int shutter_speed, double* exposure_us);

/* The settings a reading was taken at. A dark or reference applies only to
 * readings taken at the same settings. */
typedef struct duReadingSettings {
    int32_t shutter_speed;
    int32_t master_clock;
    int32_t adc_gain;
    int32_t adc_range;
} duReadingSettings;

/* A stored reading: a dark (light blocked) or a reference (white). */
typedef struct duStoredReading {
    double values[DU_FILTER_COUNT];
    duReadingSettings settings;
    int32_t averages;
    /* Filters that hit 4095 DN or the stuck-filter mark in any frame. */
    int32_t saturated_filters;
    /* CLOCK_REALTIME when it was taken, in ns: its identity in files. */
    int64_t taken_realtime_ns;
} duStoredReading;

typedef enum duMeasureMode {
    DU_MODE_RAW = 0,           /* DN as read */
    DU_MODE_DARK = 1,          /* DN minus dark */
    DU_MODE_RATE = 2,          /* dark-corrected DN per ms of exact exposure */
    DU_MODE_TRANSMITTANCE = 3, /* 100 * (sample - dark) / (reference - dark), % */
    DU_MODE_REFLECTANCE = 4,   /* the same ratio, for reflection set-ups, % */
    DU_MODE_ABSORBANCE = 5     /* -log10((sample - dark) / (reference - dark)) */
} duMeasureMode;

/* Where the dark of a measurement came from. */
typedef enum duDarkSource {
    DU_DARK_NONE = 0,      /* raw mode: nothing subtracted */
    DU_DARK_STORED = 1,    /* the stored dark reading */
    DU_DARK_BACKGROUND = 2 /* the mean of the three background filters of each reading */
} duDarkSource;

/* Why a measurement was refused (duMeasure returned -24). */
typedef enum duMeasureRefusal {
    DU_REFUSAL_NONE = 0,
    DU_REFUSAL_BAD_MODE,
    DU_REFUSAL_BAD_ARGUMENT,
    DU_REFUSAL_NEEDS_REFERENCE,
    DU_REFUSAL_DARK_SETTINGS,
    DU_REFUSAL_REFERENCE_SETTINGS,
    DU_REFUSAL_DARK_SATURATED,
    DU_REFUSAL_REFERENCE_SATURATED,
    DU_REFUSAL_BAD_EXPOSURE
} duMeasureRefusal;

typedef struct duMeasureResult {
    int32_t refusal;          /* a duMeasureRefusal */
    int32_t dark_source;      /* a duDarkSource */
    int32_t saturated_count;  /* filters of the sample flagged saturated */
    int32_t invalid_count;    /* outputs that are NaN: a reference at or below its dark,
                                 or a ratio at or below 0 in absorbance */
    double sample_dark_level; /* background level of the sample, DN (background dark only) */
    double exposure_us;       /* exact exposure of the sample */
} duMeasureResult;

/* One line, for a user, that says why a measurement was refused. */
ORU_EXPORT const char* duMeasureRefusalText(int refusal);

/* Computes mode from sample (1024 DN, taken at *settings) into output (1024
 * values). saturated (1024 flags, or NULL for none known) marks the sample's
 * saturated filters and is only counted. dark and reference may be NULL:
 * without a stored dark the dark is the mean of the background filters
 * (1011..1013) of each reading. Values are never clipped: a corrected value
 * below the dark stays negative. The ratio modes need a reference.
 * A dark or reference taken at other settings, or with saturated filters, is
 * refused. 1 on success; -19 for a NULL sample, settings or output; -24 when
 * refused (result->refusal says why; output is left as it was). */
ORU_EXPORT int duMeasure(int mode, const double* sample, const duReadingSettings* settings,
                         const unsigned char* saturated, const duStoredReading* dark,
                         const duStoredReading* reference, double* output, duMeasureResult* result);

/* The mode's name ("raw", "dark", "rate", "transmittance", "reflectance",
 * "absorbance") and its unit ("DN", "DN", "DN/ms", "%", "%", "AU"); NULL for
 * an unknown mode. duMeasureModeFromName gives the mode of a name, -1 for
 * none. */
ORU_EXPORT const char* duMeasureModeName(int mode);
ORU_EXPORT const char* duMeasureModeUnit(int mode);
ORU_EXPORT int duMeasureModeFromName(const char* name);

/* Reading files. Two formats are written one reading at a time: CSV (a
 * "# key: value" header, the column row, a row per reading) and JSON Lines
 * (one header object, an object per reading). Readers that skip comment
 * lines (pandas comment='#', numpy) load the CSV as a plain table. */
typedef enum duFileFormat { DU_FILE_CSV = 1, DU_FILE_JSONL = 2 } duFileFormat;

typedef enum duFileKind { DU_KIND_READINGS = 0, DU_KIND_DARK = 1, DU_KIND_REFERENCE = 2 } duFileKind;

/* A sensor of a file: its settings, and the identity (time taken, frames
 * averaged) of the dark and reference its readings were measured against;
 * a time of 0 means none. */
typedef struct duSensorMetadata {
    char sensor_id[32];
    duReadingSettings settings;
    int64_t dark_taken_ns;
    int32_t dark_averages;
    int64_t reference_taken_ns;
    int32_t reference_averages;
} duSensorMetadata;

#define DU_FILE_MAX_SENSORS 16

typedef struct duFileHeader {
    int32_t kind; /* a duFileKind */
    int32_t mode; /* a duMeasureMode */
    int32_t sensor_count;
    duSensorMetadata sensors[DU_FILE_MAX_SENSORS];
} duFileHeader;

/* One reading: the host time of its last frame, stream sequence numbers of
 * its first and last frame (-1 for a single request), its saturated filters
 * and the seconds the sensor was away before it (0 when none). */
typedef struct duReadingRow {
    const char* sensor_id;
    int64_t realtime_ns;
    int64_t first_sequence, last_sequence;
    int32_t shutter_speed;
    int32_t master_clock;
    int32_t averages;
    int32_t saturated_filters;
    double gap_s;
    const double* values; /* DU_FILTER_COUNT */
} duReadingRow;

/* Write the header or one row into buf (at most size bytes, NUL-terminated),
 * newline included. They return the length the whole text needs (without
 * the NUL), as snprintf does, or -24 for a bad format or argument. */
ORU_EXPORT int duFormatFileHeader(int format, const duFileHeader* header, char* buf, int size);
ORU_EXPORT int duFormatReadingRow(int format, const duReadingRow* row, char* buf, int size);

/* Loads the first reading of sensor_id (NULL: of the first sensor) from a
 * file in either format into *out, with the settings its header gives for
 * that sensor, and its ID into sensor_id_out (32 bytes, may be NULL).
 * 1; -27 when the file cannot be opened; -24 when it is not a reading file
 * or holds no reading of that sensor, with one line why in error. */
ORU_EXPORT int duLoadStoredReading(const char* path, const char* sensor_id, duStoredReading* out,
                                   char* sensor_id_out, char* error, int error_size);

#ifdef __cplusplus
}
#endif

#endif /* ORU_MEASUREMENT_H */
