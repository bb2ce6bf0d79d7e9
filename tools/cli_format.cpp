#include "cli_format.h"

#include <algorithm>
#include <numeric>

bool parse_format(const std::string& text, OutputFormat& out) {
    if (text == "table") out = OutputFormat::Table;
    else if (text == "csv") out = OutputFormat::Csv;
    else if (text == "json") out = OutputFormat::Json;
    else return false;
    return true;
}

namespace {

struct Summary {
    double min, max, mean;
    size_t argmax;
};

Summary summarize(const std::vector<double>& v) {
    Summary s{0, 0, 0, 0};
    if (v.empty()) return s;
    auto hi = std::max_element(v.begin(), v.end());  // the first filter holding the peak
    s.min = *std::min_element(v.begin(), v.end());
    s.max = *hi;
    s.argmax = static_cast<size_t>(hi - v.begin());
    s.mean = std::accumulate(v.begin(), v.end(), 0.0) / static_cast<double>(v.size());
    return s;
}

std::string json_escape(const std::string& in) {
    std::string out;
    for (char c : in) {
        if (c == '"' || c == '\\') out += '\\';
        if (static_cast<unsigned char>(c) < 0x20) continue;
        out += c;
    }
    return out;
}

}  // namespace

// The table is a summary per measurement; the full data goes to csv/json.
void write_table(FILE* out, const std::vector<Measurement>& series) {
    std::fprintf(out, "%-4s %-18s %8s %5s %9s %9s %9s %8s\n", "#", "sensor", "shutter", "avg", "min DN",
                 "mean DN", "max DN", "peak at");
    for (size_t i = 0; i < series.size(); ++i) {
        const Measurement& m = series[i];
        Summary s = summarize(m.values);
        std::fprintf(out, "%-4zu %-18s %8d %5d %9.1f %9.1f %9.1f %8zu\n", i, m.sensor_id.c_str(), m.shutter_speed,
                     m.averages, s.min, s.mean, s.max, s.argmax);
    }
}

void write_csv(FILE* out, const std::vector<Measurement>& series) {
    std::fprintf(out, "filter");
    for (size_t i = 0; i < series.size(); ++i) std::fprintf(out, ",m%zu", i);
    std::fprintf(out, "\n");
    size_t n = series.empty() ? 0 : series.front().values.size();
    for (size_t f = 0; f < n; ++f) {
        std::fprintf(out, "%zu", f);
        for (const auto& m : series) std::fprintf(out, ",%.4f", f < m.values.size() ? m.values[f] : 0.0);
        std::fprintf(out, "\n");
    }
}

void write_json(FILE* out, const std::vector<Measurement>& series) {
    std::fprintf(out, "{\"measurements\": [");
    for (size_t i = 0; i < series.size(); ++i) {
        const Measurement& m = series[i];
        std::fprintf(out, "%s\n  {\"sensor_id\": \"%s\", \"shutter_speed\": %d, \"averages\": %d, \"time_s\": %.3f,\n   \"values\": [",
                     i ? "," : "", json_escape(m.sensor_id).c_str(), m.shutter_speed, m.averages, m.timestamp);
        for (size_t f = 0; f < m.values.size(); ++f) std::fprintf(out, "%s%.4f", f ? ", " : "", m.values[f]);
        std::fprintf(out, "]}");
    }
    std::fprintf(out, "\n]}\n");
}
