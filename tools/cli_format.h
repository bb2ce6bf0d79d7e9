// A reading as the command line carries it, and the aligned table that sums
// each up in a line. The files (CSV, JSON Lines, JSON, CSV columns) are
// written by reading_writer.h through the library's own formatter.
#ifndef ORU_TOOLS_CLI_FORMAT_H
#define ORU_TOOLS_CLI_FORMAT_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

struct Measurement {
    std::string sensor_id;
    int shutter_speed = 0;
    int averages = 0;
    double timestamp = 0.0;  // seconds since the first reading
    int64_t realtime_ns = 0;  // wall clock of the reading (its last frame)
    // Stream sequence numbers of its first and last frame; -1 for a single
    // request, which is not part of a stream.
    int64_t first_sequence = -1, last_sequence = -1;
    int saturated = 0;  // filters saturated in any frame of the reading (the library's flags)
    // Seconds the sensor was lost (removed or failed) before this reading,
    // until it came back; 0 when nothing was missed.
    double gap = 0.0;
    std::vector<double> values;  // 1024 filter outputs: DN as read, then in the unit of --mode
    // With --spectrum: the spectrum on the reconstruction's grid, the
    // regularisation weight chosen, the RMS residual in DN and the filters used.
    std::vector<double> spectrum;
    double weight = 0.0, residual_dn = 0.0;
    int filters_used = 0;
};

// Lowest, highest and mean output of a reading, and the first filter at the
// highest: the table's columns and the summary the logger publishes.
struct Summary {
    double min, max, mean;
    std::size_t argmax;
};
Summary summarize(const std::vector<double>& values);

enum class OutputFormat { Table, Csv, JsonLines, Json, CsvColumns };
// The names the command line accepts, in order of OutputFormat.
const std::vector<std::string>& format_names();
OutputFormat format_from_name(const std::string& name);
// Whether readings can be written one by one as they come.
bool format_streams(OutputFormat format);

// The table: its column row, with the values' unit ("DN", "%", ...) or, for
// spectra, the peak's wavelength; and a line per reading, `index` counting them.
std::string format_table_header(const std::string& unit, bool spectra);
void format_table_row(const Measurement& m, std::size_t index, const std::vector<double>& wavelengths_nm,
                      std::string& out);

#endif
