#include "cli_format.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <ctime>
#include <numeric>

namespace {

constexpr int kDecimals = 4;

}  // namespace

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

namespace {

// Appends a value with four decimals, as printf("%.4f") would, but without
// the locale and format parsing: the CSV rows are mostly this.
void append_fixed(std::string& out, double value) {
    char buf[64];
    const auto result = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed, kDecimals);
    out.append(buf, result.ptr);
}

template <typename Int>
void append_int(std::string& out, Int value) {
    char buf[24];
    const auto result = std::to_chars(buf, buf + sizeof buf, value);
    out.append(buf, result.ptr);
}

// Seconds with milliseconds; a plain 0 when nothing was missed.
void append_gap(std::string& out, double seconds) {
    if (seconds <= 0.0) {
        out += '0';
        return;
    }
    char buf[64];
    const auto result = std::to_chars(buf, buf + sizeof buf, seconds, std::chars_format::fixed, 3);
    out.append(buf, result.ptr);
}

// Values rounded to four decimals, as the CSV has them.
nlohmann::json rounded_values(const std::vector<double>& values) {
    nlohmann::json array = nlohmann::json::array();
    for (double v : values) array.push_back(std::round(v * 1e4) / 1e4);
    return array;
}

nlohmann::json sequence_or_null(int64_t sequence) {
    return sequence < 0 ? nlohmann::json(nullptr) : nlohmann::json(sequence);
}

}  // namespace

const std::vector<std::string>& format_names() {
    static const std::vector<std::string> names = {"table", "csv", "jsonl", "json", "csv-columns"};
    return names;
}

OutputFormat format_from_name(const std::string& name) {
    const auto& names = format_names();
    return static_cast<OutputFormat>(std::find(names.begin(), names.end(), name) - names.begin());
}

bool format_streams(OutputFormat format) {
    return format == OutputFormat::Table || format == OutputFormat::Csv || format == OutputFormat::JsonLines;
}

std::string iso8601_local(int64_t realtime_ns) {
    const time_t seconds = static_cast<time_t>(realtime_ns / 1000000000);
    const int millis = static_cast<int>((realtime_ns % 1000000000) / 1000000);
    std::tm local{};
    localtime_r(&seconds, &local);
    char date[32], offset[8];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
    std::strftime(offset, sizeof offset, "%z", &local);  // +hhmm
    char text[48];
    std::snprintf(text, sizeof text, "%s.%03d%.3s:%.2s", date, millis, offset, offset + 3);
    return text;
}

std::string format_header(OutputFormat format) {
    switch (format) {
    case OutputFormat::Table: {
        char line[128];
        std::snprintf(line, sizeof line, "%-4s %-18s %8s %5s %9s %9s %9s %8s %5s\n", "#", "sensor", "shutter", "avg",
                      "min DN", "mean DN", "max DN", "peak at", "sat");
        return line;
    }
    case OutputFormat::Csv: {
        std::string header = "time,sensor_id,first_sequence,last_sequence,shutter_speed,averages,saturated,gap";
        for (int f = 0; f < 1024; ++f) {
            header += ",f";
            append_int(header, f);
        }
        return header + "\n";
    }
    default:
        return "";
    }
}

void format_reading(OutputFormat format, const Measurement& m, std::size_t index, std::string& out) {
    switch (format) {
    case OutputFormat::Table: {
        const Summary s = summarize(m.values);
        char line[160];
        std::snprintf(line, sizeof line, "%-4zu %-18s %8d %5d %9.1f %9.1f %9.1f %8zu %5d\n", index,
                      m.sensor_id.c_str(), m.shutter_speed, m.averages, s.min, s.mean, s.max, s.argmax, m.saturated);
        out += line;
        return;
    }
    case OutputFormat::Csv: {
        out += iso8601_local(m.realtime_ns);
        out += ',';
        out += m.sensor_id;  // letters, digits and dashes: nothing to quote
        out += ',';
        if (m.first_sequence >= 0) append_int(out, m.first_sequence);
        out += ',';
        if (m.last_sequence >= 0) append_int(out, m.last_sequence);
        out += ',';
        append_int(out, m.shutter_speed);
        out += ',';
        append_int(out, m.averages);
        out += ',';
        append_int(out, m.saturated);
        out += ',';
        append_gap(out, m.gap);
        for (double v : m.values) {
            out += ',';
            append_fixed(out, v);
        }
        out += '\n';
        return;
    }
    case OutputFormat::JsonLines: {
        const nlohmann::json row = {
            {"time", iso8601_local(m.realtime_ns)},
            {"sensor_id", m.sensor_id},
            {"first_sequence", sequence_or_null(m.first_sequence)},
            {"last_sequence", sequence_or_null(m.last_sequence)},
            {"shutter_speed", m.shutter_speed},
            {"averages", m.averages},
            {"saturated", m.saturated},
            {"gap", std::round(m.gap * 1e3) / 1e3},
            {"values", rounded_values(m.values)},
        };
        out += row.dump();
        out += '\n';
        return;
    }
    default:
        return;
    }
}

std::string format_csv_columns(const std::vector<Measurement>& series) {
    std::string out = "filter";
    for (size_t i = 0; i < series.size(); ++i) {
        out += ",m";
        append_int(out, i);
    }
    out += '\n';
    const size_t n = series.empty() ? 0 : series.front().values.size();
    for (size_t f = 0; f < n; ++f) {
        append_int(out, f);
        for (const auto& m : series) {
            out += ',';
            append_fixed(out, f < m.values.size() ? m.values[f] : 0.0);
        }
        out += '\n';
    }
    return out;
}

std::string format_json_document(const std::vector<Measurement>& series) {
    nlohmann::json measurements = nlohmann::json::array();
    for (const Measurement& m : series) {
        measurements.push_back({{"sensor_id", m.sensor_id},
                                {"shutter_speed", m.shutter_speed},
                                {"averages", m.averages},
                                {"time_s", std::round(m.timestamp * 1e3) / 1e3},
                                {"time", iso8601_local(m.realtime_ns)},
                                {"values", rounded_values(m.values)}});
    }
    return nlohmann::json{{"measurements", measurements}}.dump(1) + "\n";
}
