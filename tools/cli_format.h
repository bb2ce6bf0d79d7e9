// Writers for filter data: an aligned table, CSV and JSON.
#ifndef ORU_TOOLS_CLI_FORMAT_H
#define ORU_TOOLS_CLI_FORMAT_H

#include <cstdio>
#include <string>
#include <vector>

struct Measurement {
    std::string sensor_id;
    int shutter_speed = 0;
    int averages = 0;
    double timestamp = 0.0;  // seconds since the first measurement
    std::vector<double> values;  // 1024 filter outputs, DN
};

enum class OutputFormat { Table, Csv, Json };
bool parse_format(const std::string& text, OutputFormat& out);

void write_table(FILE* out, const std::vector<Measurement>& series);
void write_csv(FILE* out, const std::vector<Measurement>& series);
void write_json(FILE* out, const std::vector<Measurement>& series);

#endif
