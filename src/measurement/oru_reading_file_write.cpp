// The writers of the two one-reading-at-a-time file formats, CSV and JSON
// Lines: a header that says how the readings were taken, then a row each.
#include <nlohmann/json.hpp>

#include <charconv>
#include <cmath>
#include <cstring>
#include <string>

#include "oru_measurement.h"
#include "reading_file_text.h"

namespace {

using namespace oru_reading_file;

template <typename Number>
void append_number(std::string& out, Number value) {
    char buf[64];
    out.append(buf, std::to_chars(buf, buf + sizeof buf, value).ptr);
}

void append_fixed(std::string& out, double value, int decimals) {
    char buf[64];
    out.append(buf, std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed, decimals).ptr);
}

double exposure_us(int master_clock, int shutter_speed) {
    double us = std::nan("");
    duExactExposureTimeUs(master_clock, shutter_speed, &us);
    return us;
}

// NaN (a ratio against a dead reference filter) has no JSON number: null.
nlohmann::json json_number(double value, double scale) {
    return std::isfinite(value) ? nlohmann::json(std::round(value * scale) / scale) : nlohmann::json(nullptr);
}

nlohmann::json identity_json(int64_t taken_ns, int averages) {
    if (taken_ns == 0) return nullptr;
    return {{"taken", utc_time(taken_ns)}, {"averages", averages}};
}

std::string identity_text(int64_t taken_ns, int averages) {
    if (taken_ns == 0) return "none";
    return utc_time(taken_ns) + "/" + std::to_string(averages);
}

bool valid(const duFileHeader& h) {
    return h.kind >= 0 && h.kind < kKindCount && duMeasureModeName(h.mode) != nullptr && h.sensor_count >= 0 &&
           h.sensor_count <= DU_FILE_MAX_SENSORS;
}

std::string csv_header(const duFileHeader& h) {
    std::string out = std::string("# ") + kMagic + "\n# library_version: " + duGetLibraryVersion() +
                      "\n# kind: " + kKinds[h.kind] + "\n# mode: " + duMeasureModeName(h.mode) +
                      "\n# unit: " + duMeasureModeUnit(h.mode) + "\n";
    for (int i = 0; i < h.sensor_count; ++i) {
        const duSensorMetadata& s = h.sensors[i];
        out += "# sensor: ";
        out += s.sensor_id;
        out += " master_clock=" + std::to_string(s.settings.master_clock) +
               " adc_gain=" + std::to_string(s.settings.adc_gain) +
               " adc_range=" + std::to_string(s.settings.adc_range) +
               " dark=" + identity_text(s.dark_taken_ns, s.dark_averages) +
               " reference=" + identity_text(s.reference_taken_ns, s.reference_averages) + "\n";
    }
    out += "time,sensor_id,first_sequence,last_sequence,shutter_speed,exposure_us,averages,saturated,gap";
    for (int f = 0; f < DU_FILTER_COUNT; ++f) {
        out += ",f";
        append_number(out, f);
    }
    return out + "\n";
}

std::string jsonl_header(const duFileHeader& h) {
    nlohmann::json sensors = nlohmann::json::array();
    for (int i = 0; i < h.sensor_count; ++i) {
        const duSensorMetadata& s = h.sensors[i];
        sensors.push_back({{"sensor_id", s.sensor_id},
                           {"master_clock", s.settings.master_clock},
                           {"adc_gain", s.settings.adc_gain},
                           {"adc_range", s.settings.adc_range},
                           {"dark", identity_json(s.dark_taken_ns, s.dark_averages)},
                           {"reference", identity_json(s.reference_taken_ns, s.reference_averages)}});
    }
    const nlohmann::json header = {{"format", kMagic},          {"library_version", duGetLibraryVersion()},
                                   {"kind", kKinds[h.kind]},    {"mode", duMeasureModeName(h.mode)},
                                   {"unit", duMeasureModeUnit(h.mode)}, {"sensors", sensors}};
    return header.dump() + "\n";
}

std::string csv_row(const duReadingRow& r) {
    std::string out = local_time(r.realtime_ns);
    out += ',';
    out += r.sensor_id;  // letters, digits and dashes: nothing to quote
    out += ',';
    if (r.first_sequence >= 0) append_number(out, r.first_sequence);
    out += ',';
    if (r.last_sequence >= 0) append_number(out, r.last_sequence);
    out += ',';
    append_number(out, r.shutter_speed);
    out += ',';
    append_fixed(out, exposure_us(r.master_clock, r.shutter_speed), 3);
    out += ',';
    append_number(out, r.averages);
    out += ',';
    append_number(out, r.saturated_filters);
    out += ',';
    if (r.gap_s > 0.0)
        append_fixed(out, r.gap_s, 3);
    else
        out += '0';
    for (int f = 0; f < DU_FILTER_COUNT; ++f) {
        out += ',';
        append_fixed(out, r.values[f], 4);
    }
    return out + "\n";
}

std::string jsonl_row(const duReadingRow& r) {
    nlohmann::json values = nlohmann::json::array();
    for (int f = 0; f < DU_FILTER_COUNT; ++f) values.push_back(json_number(r.values[f], 1e4));
    auto sequence = [](int64_t s) { return s < 0 ? nlohmann::json(nullptr) : nlohmann::json(s); };
    const nlohmann::json row = {{"time", local_time(r.realtime_ns)},
                                {"sensor_id", r.sensor_id},
                                {"first_sequence", sequence(r.first_sequence)},
                                {"last_sequence", sequence(r.last_sequence)},
                                {"shutter_speed", r.shutter_speed},
                                {"exposure_us", json_number(exposure_us(r.master_clock, r.shutter_speed), 1e3)},
                                {"averages", r.averages},
                                {"saturated", r.saturated_filters},
                                {"gap", std::round(r.gap_s * 1e3) / 1e3},
                                {"values", values}};
    return row.dump() + "\n";
}

int copy_out(const std::string& text, char* buf, int size) {
    if (buf != nullptr && size > 0) {
        const size_t n = std::min(text.size(), static_cast<size_t>(size - 1));
        std::memcpy(buf, text.data(), n);
        buf[n] = '\0';
    }
    return static_cast<int>(text.size());
}

}  // namespace

extern "C" ORU_EXPORT int duFormatFileHeader(int format, const duFileHeader* header, char* buf, int size) {
    if (header == nullptr || !valid(*header) || size < 0) return -24;
    try {
        if (format == DU_FILE_CSV) return copy_out(csv_header(*header), buf, size);
        if (format == DU_FILE_JSONL) return copy_out(jsonl_header(*header), buf, size);
    } catch (...) {  // out of memory, or an ID that is not UTF-8
    }
    return -24;
}

extern "C" ORU_EXPORT int duFormatReadingRow(int format, const duReadingRow* row, char* buf, int size) {
    if (row == nullptr || row->sensor_id == nullptr || row->values == nullptr || size < 0) return -24;
    try {
        if (format == DU_FILE_CSV) return copy_out(csv_row(*row), buf, size);
        if (format == DU_FILE_JSONL) return copy_out(jsonl_row(*row), buf, size);
    } catch (...) {
    }
    return -24;
}
