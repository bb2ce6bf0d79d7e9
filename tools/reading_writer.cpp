#include "reading_writer.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace {

std::vector<std::string> split(const std::string& line, char sep) {
    std::vector<std::string> parts;
    std::stringstream in(line);
    for (std::string part; std::getline(in, part, sep);) parts.push_back(part);
    return parts;
}

std::string join(const std::vector<std::string>& cells, std::size_t count) {
    std::string out;
    for (std::size_t i = 0; i < count && i < cells.size(); ++i) out += (i > 0 ? "," : "") + cells[i];
    return out;
}

// Spectra span decades of the calibration's radiance unit: six significant
// digits, "nan" where a filter ratio had none.
std::string significant(double value) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.6g", value);
    return buf;
}

nlohmann::json significant_json(double value) {
    return std::isfinite(value) ? nlohmann::json(std::stod(significant(value))) : nlohmann::json(nullptr);
}

std::string wavelength_text(double nm) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", nm);
    return buf;
}

// The text before the last line (the column row) of a CSV header.
std::string comment_lines(const std::string& csv_header) {
    const std::size_t last = csv_header.rfind('\n', csv_header.size() >= 2 ? csv_header.size() - 2 : 0);
    return last == std::string::npos ? std::string() : csv_header.substr(0, last + 1);
}

std::string last_line(const std::string& text) {
    std::string line = text.substr(comment_lines(text).size());
    if (!line.empty() && line.back() == '\n') line.pop_back();
    return line;
}

}  // namespace

ReadingWriter::ReadingWriter(const MeasurementApi& api, OutputFormat format, const duFileHeader& header,
                             SpectrumHeader spectrum)
    : m_api(api), m_format(format), m_header(header), m_spectrum(std::move(spectrum)) {
    for (const std::string& column : split(last_line(library_header(DU_FILE_CSV)), ',')) {
        if (column == "f0") break;
        m_leading_columns.push_back(column);
    }
}

std::string ReadingWriter::library_header(int format) const {
    return format_text(m_api.duFormatFileHeader, format, m_header);
}

std::string ReadingWriter::library_row(int format, const Measurement& m) const {
    int master_clock = 1;
    for (int i = 0; i < m_header.sensor_count; ++i)
        if (m.sensor_id == m_header.sensors[i].sensor_id) master_clock = m_header.sensors[i].settings.master_clock;
    return format_text(m_api.duFormatReadingRow, format, reading_row(m, master_clock));
}

std::vector<std::string> ReadingWriter::leading_cells(const Measurement& m) const {
    std::string row = library_row(DU_FILE_CSV, m);
    if (!row.empty()) row.pop_back();
    std::vector<std::string> cells = split(row, ',');
    // Empty trailing cells (no sequence number) are dropped by split.
    cells.resize(std::max(cells.size(), m_leading_columns.size()));
    return cells;
}

std::string ReadingWriter::header() const {
    switch (m_format) {
    case OutputFormat::Table:
        return format_table_header(m_api.duMeasureModeUnit(m_header.mode), spectra());
    case OutputFormat::Csv:
        return csv_header();
    case OutputFormat::JsonLines:
        return jsonl_header();
    default:
        return "";
    }
}

void ReadingWriter::append(const Measurement& m, std::size_t index, std::string& out) const {
    if (m_format == OutputFormat::Table) format_table_row(m, index, m_spectrum.wavelengths_nm, out);
    if (m_format == OutputFormat::Csv) out += csv_row(m);
    if (m_format == OutputFormat::JsonLines) out += jsonl_row(m);
}

std::string ReadingWriter::whole_series(const std::vector<Measurement>& series) const {
    if (m_format == OutputFormat::Json) return json_document(series);
    if (m_format == OutputFormat::CsvColumns) return csv_columns(series);
    return "";
}

std::string ReadingWriter::csv_header() const {
    const std::string library = library_header(DU_FILE_CSV);
    if (!spectra()) return library;
    std::string out = comment_lines(library) + "# algorithm: " + m_spectrum.algorithm +
                      "\n# calibration: " + m_spectrum.calibration + "\n";
    out += join(m_leading_columns, m_leading_columns.size()) + ",weight,residual_dn,filters_used";
    for (double nm : m_spectrum.wavelengths_nm) out += ",nm_" + wavelength_text(nm);
    return out + "\n";
}

std::string ReadingWriter::csv_row(const Measurement& m) const {
    if (!spectra()) return library_row(DU_FILE_CSV, m);
    std::string out = join(leading_cells(m), m_leading_columns.size());
    out += "," + significant(m.weight) + "," + significant(m.residual_dn) + "," + std::to_string(m.filters_used);
    for (double v : m.spectrum) out += "," + significant(v);
    return out + "\n";
}

std::string ReadingWriter::jsonl_header() const {
    const std::string library = library_header(DU_FILE_JSONL);
    if (!spectra()) return library;
    nlohmann::json header = nlohmann::json::parse(library);
    header["algorithm"] = m_spectrum.algorithm;
    header["calibration"] = m_spectrum.calibration;
    header["wavelengths_nm"] = m_spectrum.wavelengths_nm;
    return header.dump() + "\n";
}

std::string ReadingWriter::jsonl_row(const Measurement& m) const {
    const std::string library = library_row(DU_FILE_JSONL, m);
    if (!spectra()) return library;
    nlohmann::json row = nlohmann::json::parse(library);
    row.erase("values");
    row["weight"] = significant_json(m.weight);
    row["residual_dn"] = significant_json(m.residual_dn);
    row["filters_used"] = m.filters_used;
    nlohmann::json spectrum = nlohmann::json::array();
    for (double v : m.spectrum) spectrum.push_back(significant_json(v));
    row["spectrum"] = spectrum;
    return row.dump() + "\n";
}

// The JSON Lines header object with the readings' objects as "measurements",
// each with its seconds since the first reading.
std::string ReadingWriter::json_document(const std::vector<Measurement>& series) const {
    nlohmann::json document = nlohmann::json::parse(jsonl_header());
    nlohmann::json measurements = nlohmann::json::array();
    for (const Measurement& m : series) {
        nlohmann::json row = nlohmann::json::parse(jsonl_row(m));
        row["time_s"] = std::round(m.timestamp * 1e3) / 1e3;
        measurements.push_back(std::move(row));
    }
    document["measurements"] = std::move(measurements);
    return document.dump(1) + "\n";
}

// The CSV header's comment lines, a "# mK: ..." line of each reading's
// metadata, then a row per filter (or wavelength) and a column per reading.
std::string ReadingWriter::csv_columns(const std::vector<Measurement>& series) const {
    std::string out = comment_lines(csv_header());
    std::vector<std::vector<std::string>> cells;
    for (std::size_t k = 0; k < series.size(); ++k) {
        std::string row = csv_row(series[k]);
        row.pop_back();
        cells.push_back(split(row, ','));
        cells.back().resize(std::max(cells.back().size(), m_leading_columns.size()));
        out += "# m" + std::to_string(k) + ":";
        for (std::size_t c = 0; c < m_leading_columns.size(); ++c)
            out += " " + m_leading_columns[c] + "=" + cells[k][c];
        if (spectra())
            out += " weight=" + cells[k][m_leading_columns.size()] +
                   " residual_dn=" + cells[k][m_leading_columns.size() + 1] +
                   " filters_used=" + cells[k][m_leading_columns.size() + 2];
        out += "\n";
    }
    out += spectra() ? "wavelength_nm" : "filter";
    for (std::size_t k = 0; k < series.size(); ++k) out += ",m" + std::to_string(k);
    out += "\n";
    const std::size_t first = m_leading_columns.size() + (spectra() ? 3 : 0);
    const std::size_t rows = spectra() ? m_spectrum.wavelengths_nm.size() : DU_FILTER_COUNT;
    for (std::size_t r = 0; r < rows; ++r) {
        out += spectra() ? wavelength_text(m_spectrum.wavelengths_nm[r]) : std::to_string(r);
        for (const auto& reading : cells) out += "," + (first + r < reading.size() ? reading[first + r] : "");
        out += "\n";
    }
    return out;
}
