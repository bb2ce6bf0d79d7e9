#include "cli_format.h"

#include <algorithm>
#include <cmath>

Summary summarize(const std::vector<double>& v) {
    Summary s{0, 0, 0, 0};
    // NaN (a ratio against a dead reference filter) takes no part.
    double sum = 0.0;
    std::size_t counted = 0;
    for (std::size_t i = 0; i < v.size(); ++i) {
        if (std::isnan(v[i])) continue;
        if (counted == 0 || v[i] < s.min) s.min = v[i];
        if (counted == 0 || v[i] > s.max) {  // the first filter holding the peak
            s.max = v[i];
            s.argmax = i;
        }
        sum += v[i];
        ++counted;
    }
    s.mean = counted > 0 ? sum / static_cast<double>(counted) : 0.0;
    return s;
}

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

std::string format_table_header(const std::string& unit, bool spectra) {
    const std::string suffix = spectra || unit.empty() ? "" : " " + unit;
    char line[160];
    std::snprintf(line, sizeof line, "%-4s %-18s %8s %5s %9s %9s %9s %8s %5s\n", "#", "sensor", "shutter", "avg",
                  ("min" + suffix).c_str(), ("mean" + suffix).c_str(), ("max" + suffix).c_str(),
                  spectra ? "peak nm" : "peak at", "sat");
    return line;
}

void format_table_row(const Measurement& m, std::size_t index, const std::vector<double>& wavelengths_nm,
                      std::string& out) {
    const bool spectra = !m.spectrum.empty() && m.spectrum.size() == wavelengths_nm.size();
    const Summary s = summarize(spectra ? m.spectrum : m.values);
    char peak[32];
    if (spectra)
        std::snprintf(peak, sizeof peak, "%.1f", wavelengths_nm[s.argmax]);
    else
        std::snprintf(peak, sizeof peak, "%zu", s.argmax);
    char line[192];
    std::snprintf(line, sizeof line, spectra ? "%-4zu %-18s %8d %5d %9.4g %9.4g %9.4g %8s %5d\n"
                                             : "%-4zu %-18s %8d %5d %9.1f %9.1f %9.1f %8s %5d\n",
                  index, m.sensor_id.c_str(), m.shutter_speed, m.averages, s.min, s.mean, s.max, peak, m.saturated);
    out += line;
}
