// The files of `read`, `dark` and `reference`, all through the library's one
// writer of reading files (duFormatFileHeader, duFormatReadingRow): CSV and
// JSON Lines as it writes them; the whole-series layouts (one JSON document,
// one CSV column per reading) rebuilt from its objects and cells, so every
// format carries the same metadata. With --spectrum the filter values give
// way to the spectrum (CSV columns nm_400 ..., a wavelength list in the JSON
// Lines header), with the algorithm in the header and each reading's weight,
// residual and filters used beside its time.
#ifndef ORU_TOOLS_READING_WRITER_H
#define ORU_TOOLS_READING_WRITER_H

#include <string>
#include <vector>

#include "cli_format.h"
#include "measurement_api.h"

struct SpectrumHeader {
    std::string calibration;  // the file, as given
    std::string algorithm;
    std::vector<double> wavelengths_nm;  // empty: filter values, no spectra
};

class ReadingWriter {
public:
    ReadingWriter(const MeasurementApi& api, OutputFormat format, const duFileHeader& header, SpectrumHeader spectrum);
    // The text before the first reading (empty for the whole-series formats).
    std::string header() const;
    // Appends a reading of a streaming format to `out`, whole lines only.
    void append(const Measurement& m, std::size_t index, std::string& out) const;
    // The json or csv-columns document of a whole series.
    std::string whole_series(const std::vector<Measurement>& series) const;

private:
    std::string library_header(int format) const;
    std::string library_row(int format, const Measurement& m) const;
    // The reading's cells before its filter values: time, sensor ID, ...
    std::vector<std::string> leading_cells(const Measurement& m) const;
    std::string csv_header() const;
    std::string csv_row(const Measurement& m) const;
    std::string jsonl_header() const;
    std::string jsonl_row(const Measurement& m) const;
    std::string csv_columns(const std::vector<Measurement>& series) const;
    std::string json_document(const std::vector<Measurement>& series) const;
    bool spectra() const { return !m_spectrum.wavelengths_nm.empty(); }

    const MeasurementApi& m_api;
    OutputFormat m_format;
    duFileHeader m_header;
    SpectrumHeader m_spectrum;
    std::vector<std::string> m_leading_columns;  // of the library's CSV column row, before f0
};

#endif
