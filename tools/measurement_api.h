// The measurement functions of liboru_device the command line and the logger
// call: the one writer of reading-file headers and rows, the measurement
// modes with their dark and reference, stored readings, exact exposure and
// the version. oru-sensor loads the library at run time, so they are bound
// by name from it; tests fill them from the linked library.
#ifndef ORU_TOOLS_MEASUREMENT_API_H
#define ORU_TOOLS_MEASUREMENT_API_H

#include <string>

#include "cli_format.h"
#include "oru_measurement.h"

struct MeasurementApi {
    int (*duFormatFileHeader)(int, const duFileHeader*, char*, int) = nullptr;
    int (*duFormatReadingRow)(int, const duReadingRow*, char*, int) = nullptr;
    int (*duExactExposureTimeUs)(int, int, double*) = nullptr;
    const char* (*duGetLibraryVersion)() = nullptr;
    int (*duMeasure)(int, const double*, const duReadingSettings*, const unsigned char*, const duStoredReading*,
                     const duStoredReading*, double*, duMeasureResult*) = nullptr;
    const char* (*duMeasureRefusalText)(int) = nullptr;
    const char* (*duMeasureModeName)(int) = nullptr;
    const char* (*duMeasureModeUnit)(int) = nullptr;
    int (*duMeasureModeFromName)(const char*) = nullptr;
    int (*duLoadStoredReading)(const char*, const char*, duStoredReading*, char*, char*, int) = nullptr;
};

// From liboru_device loaded into the process already (load_oru_api).
bool bind_measurement_api(MeasurementApi& api, std::string& error);

// A reading as the library's row formatter takes it; it points into `m`.
duReadingRow reading_row(const Measurement& m, int master_clock);

// A header or row through one of the two formatters, grown to fit.
template <typename Item>
std::string format_text(int (*formatter)(int, const Item*, char*, int), int format, const Item& item) {
    std::string text(16384, '\0');
    int n = formatter(format, &item, text.data(), static_cast<int>(text.size()));
    if (n >= static_cast<int>(text.size())) {
        text.resize(static_cast<std::size_t>(n) + 1);
        n = formatter(format, &item, text.data(), static_cast<int>(text.size()));
    }
    text.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
    return text;
}

#endif
