// Loads a stored dark or reference back from a reading file of either format.
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "oru_measurement.h"
#include "reading_file_text.h"

namespace {

using namespace oru_reading_file;

struct Refused {
    std::string why;
};

// What the header says of one sensor.
struct SensorHeader {
    int master_clock = 0, adc_gain = 0, adc_range = 0;
};

struct Row {
    std::string sensor_id, time;
    int shutter_speed = 0, averages = 0, saturated = 0;
    std::vector<double> values;
};

int to_int(const std::string& text, const char* what) {
    size_t used = 0;
    int value = 0;
    try {
        value = std::stoi(text, &used);
    } catch (...) {
        used = 0;
    }
    if (used == 0 || used != text.size()) throw Refused{std::string("bad ") + what + " \"" + text + "\""};
    return value;
}

double to_double(const std::string& text) {
    size_t used = 0;
    double value = NAN;
    try {
        value = std::stod(text, &used);
    } catch (...) {
        used = 0;
    }
    if (used == 0 || used != text.size() || !std::isfinite(value))
        throw Refused{"a filter value is not a number: \"" + text + "\""};
    return value;
}

std::vector<std::string> split(const std::string& line, char sep) {
    std::vector<std::string> parts;
    std::stringstream in(line);
    for (std::string part; std::getline(in, part, sep);) parts.push_back(part);
    if (!line.empty() && line.back() == sep) parts.emplace_back();
    return parts;
}

void check_raw(const std::string& kind, const std::string& mode) {
    bool known = false;
    for (const char* k : kKinds) known |= kind == k;
    if (!known) throw Refused{"unknown kind \"" + kind + "\""};
    if (mode != "raw") throw Refused{"a dark or reference must be a raw reading, this file is in mode " + mode};
}

// "# sensor: ID master_clock=1 adc_gain=1 adc_range=132 dark=... reference=..."
void read_sensor_line(const std::string& value, std::map<std::string, SensorHeader>& sensors) {
    const std::vector<std::string> words = split(value, ' ');
    if (words.empty() || words[0].empty()) throw Refused{"a sensor line without an ID"};
    SensorHeader& s = sensors[words[0]];
    for (size_t i = 1; i < words.size(); ++i) {
        const size_t eq = words[i].find('=');
        const std::string key = words[i].substr(0, eq), v = eq == std::string::npos ? "" : words[i].substr(eq + 1);
        if (key == "master_clock") s.master_clock = to_int(v, "master_clock");
        if (key == "adc_gain") s.adc_gain = to_int(v, "adc_gain");
        if (key == "adc_range") s.adc_range = to_int(v, "adc_range");
    }
}

bool read_csv(std::istream& in, const char* wanted, std::map<std::string, SensorHeader>& sensors, Row& row) {
    std::string line, kind, mode;
    std::vector<std::string> columns;
    bool magic = false;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        if (line[0] == '#') {
            magic |= line == std::string("# ") + kMagic;
            const size_t colon = line.find(": ");
            if (colon == std::string::npos) continue;
            const std::string key = line.substr(2, colon - 2), value = line.substr(colon + 2);
            if (key == "kind") kind = value;
            if (key == "mode") mode = value;
            if (key == "sensor") read_sensor_line(value, sensors);
            continue;
        }
        if (!magic) throw Refused{"not a reading file of oru-sensor (no \"# oru-sensor readings\" line)"};
        if (columns.empty()) {
            check_raw(kind, mode);
            columns = split(line, ',');
            continue;
        }
        const std::vector<std::string> cells = split(line, ',');
        if (cells.size() != columns.size()) throw Refused{"a row has " + std::to_string(cells.size()) +
                                                          " cells where the column row has " +
                                                          std::to_string(columns.size())};
        std::map<std::string, std::string> cell;
        for (size_t i = 0; i < columns.size(); ++i) cell[columns[i]] = cells[i];
        if (wanted != nullptr && cell["sensor_id"] != wanted) continue;
        row.sensor_id = cell["sensor_id"];
        row.time = cell["time"];
        row.shutter_speed = to_int(cell["shutter_speed"], "shutter_speed");
        row.averages = to_int(cell["averages"], "averages");
        row.saturated = to_int(cell["saturated"], "saturated");
        for (int f = 0; f < DU_FILTER_COUNT; ++f) {
            auto it = cell.find("f" + std::to_string(f));
            if (it == cell.end()) throw Refused{"no column f" + std::to_string(f)};
            row.values.push_back(to_double(it->second));
        }
        return true;
    }
    if (!magic) throw Refused{"not a reading file of oru-sensor (no \"# oru-sensor readings\" line)"};
    return false;
}

bool read_jsonl(std::istream& in, const char* wanted, std::map<std::string, SensorHeader>& sensors, Row& row) {
    std::string line;
    bool header = false;
    try {
        while (std::getline(in, line)) {
            if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
            const nlohmann::json j = nlohmann::json::parse(line);
            if (!header) {
                if (!j.is_object() || j.value("format", "") != kMagic)
                    throw Refused{"not a reading file of oru-sensor (no header object)"};
                check_raw(j.value("kind", ""), j.value("mode", ""));
                for (const auto& s : j.at("sensors"))
                    sensors[s.at("sensor_id").get<std::string>()] = {
                        s.at("master_clock").get<int>(), s.at("adc_gain").get<int>(), s.at("adc_range").get<int>()};
                header = true;
                continue;
            }
            if (wanted != nullptr && j.at("sensor_id").get<std::string>() != wanted) continue;
            row.sensor_id = j.at("sensor_id").get<std::string>();
            row.time = j.at("time").get<std::string>();
            row.shutter_speed = j.at("shutter_speed").get<int>();
            row.averages = j.at("averages").get<int>();
            row.saturated = j.at("saturated").get<int>();
            const auto& values = j.at("values");
            if (values.size() != DU_FILTER_COUNT)
                throw Refused{"a reading has " + std::to_string(values.size()) + " values, not 1024"};
            for (const auto& v : values) {
                if (!v.is_number()) throw Refused{"a filter value is not a number"};
                row.values.push_back(v.get<double>());
            }
            return true;
        }
    } catch (const nlohmann::json::exception& e) {
        throw Refused{std::string("malformed JSON Lines: ") + e.what()};
    }
    if (!header) throw Refused{"not a reading file of oru-sensor (empty)"};
    return false;
}

void put_error(char* error, int size, const std::string& text) {
    if (error != nullptr && size > 0) std::snprintf(error, static_cast<size_t>(size), "%s", text.c_str());
}

}  // namespace

extern "C" ORU_EXPORT int duLoadStoredReading(const char* path, const char* sensor_id, duStoredReading* out,
                                              char* sensor_id_out, char* error, int error_size) {
    if (path == nullptr || out == nullptr) {
        put_error(error, error_size, "no file or no place to load it to");
        return -24;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        put_error(error, error_size, std::string(path) + ": " + std::strerror(errno));
        return -27;
    }
    try {
        std::map<std::string, SensorHeader> sensors;
        Row row;
        const int first = in.peek();
        const bool found = first == '{' ? read_jsonl(in, sensor_id, sensors, row) : read_csv(in, sensor_id, sensors, row);
        if (!found)
            throw Refused{sensor_id != nullptr ? std::string("no reading of sensor ") + sensor_id : "no reading"};
        auto s = sensors.find(row.sensor_id);
        if (s == sensors.end()) throw Refused{"no header line for sensor " + row.sensor_id};
        int64_t taken_ns = 0;
        if (!parse_time(row.time, taken_ns)) throw Refused{"bad time \"" + row.time + "\""};
        if (row.sensor_id.size() >= 32) throw Refused{"sensor ID too long"};

        duStoredReading loaded{};
        std::copy(row.values.begin(), row.values.end(), loaded.values);
        loaded.settings = {row.shutter_speed, s->second.master_clock, s->second.adc_gain, s->second.adc_range};
        loaded.averages = row.averages;
        loaded.saturated_filters = row.saturated;
        loaded.taken_realtime_ns = taken_ns;
        *out = loaded;
        if (sensor_id_out != nullptr) std::snprintf(sensor_id_out, 32, "%s", row.sensor_id.c_str());
        return 1;
    } catch (const Refused& r) {
        put_error(error, error_size, std::string(path) + ": " + r.why);
    } catch (const std::exception& e) {
        put_error(error, error_size, std::string(path) + ": " + e.what());
    }
    return -24;
}
