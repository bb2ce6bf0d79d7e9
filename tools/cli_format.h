// Writers for filter data. Readings are written one at a time as they come:
// an aligned table line, a CSV row or a JSON Lines object each. The older
// whole-series layouts (one CSV column per reading, one JSON document) need
// the series first.
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
    std::vector<double> values;  // 1024 filter outputs, DN
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

// "2026-11-23T05:40:12.345+01:00": local time with milliseconds and offset.
std::string iso8601_local(int64_t realtime_ns);

// One-by-one writers: the text before the first reading, and each reading.
std::string format_header(OutputFormat format);
// Appends the reading to `out` (whole lines only). `index` counts readings.
void format_reading(OutputFormat format, const Measurement& m, std::size_t index, std::string& out);

// Whole-series writers.
std::string format_csv_columns(const std::vector<Measurement>& series);
std::string format_json_document(const std::vector<Measurement>& series);

#endif
