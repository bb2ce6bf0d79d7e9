#include "reading_file.h"

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

constexpr size_t kFilters = 1024;

std::vector<std::string> cells(const std::string& line) {
    std::vector<std::string> out;
    std::stringstream in(line);
    std::string c;
    while (std::getline(in, c, ',')) out.push_back(c);
    return out;
}

// Adds one reading to the running sum; false when its shutter differs.
bool add(ReadingFile& sum, int& count, const std::string& id, int shutter, const std::vector<double>& values,
         std::string& why) {
    if (values.size() != kFilters) return why = "a reading with " + std::to_string(values.size()) + " values", false;
    if (count > 0 && shutter != sum.shutter_speed) return why = "readings at different shutter speeds", false;
    if (count == 0) sum.values.assign(kFilters, 0.0);
    sum.shutter_speed = shutter;
    sum.sensor_id = id;
    for (size_t i = 0; i < kFilters; ++i) sum.values[i] += values[i];
    ++count;
    return true;
}

bool number(const std::string& text, double* v) {
    char* end = nullptr;
    *v = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0';
}

// `header` is the column row, line `header_line` of the file.
bool load_csv(std::istream& in, const std::string& header, int header_line, ReadingFile& sum, int& count,
              std::string& why) {
    const std::vector<std::string> names = cells(header);
    size_t shutter_col = names.size(), first = names.size(), id_col = names.size();
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] == "shutter_speed") shutter_col = i;
        if (names[i] == "sensor_id") id_col = i;
        if (names[i] == "f0") first = i;
    }
    if (shutter_col == names.size() || first + kFilters > names.size())
        return why = "no shutter_speed and f0..f1023 columns (write it with oru-sensor read -o)", false;
    std::string line;
    for (int row = header_line + 1; std::getline(in, line); ++row) {
        if (line.empty()) continue;
        const std::vector<std::string> c = cells(line);
        std::vector<double> values(kFilters);
        double shutter = 0;
        bool ok = c.size() >= first + kFilters && number(c[shutter_col], &shutter);
        for (size_t f = 0; ok && f < kFilters; ++f) ok = number(c[first + f], &values[f]);
        if (!ok) return why = "line " + std::to_string(row) + " is not a reading", false;
        const std::string id = id_col < c.size() ? c[id_col] : "";
        if (!add(sum, count, id, static_cast<int>(shutter), values, why)) return false;
    }
    return true;
}

bool load_json(const nlohmann::json& j, ReadingFile& sum, int& count, std::string& why) {
    if (j.contains("format") && !j.contains("measurements")) return true;  // the JSON Lines header object
    if (j.contains("measurements")) {
        for (const auto& m : j.at("measurements"))
            if (!load_json(m, sum, count, why)) return false;
        return true;
    }
    return add(sum, count, j.value("sensor_id", ""), j.at("shutter_speed").get<int>(),
               j.at("values").get<std::vector<double>>(), why);
}

}  // namespace

bool load_reading_file(const std::string& path, ReadingFile& out, std::string& error) {
    std::ifstream in(path);
    if (!in) return error = "cannot read " + path, false;
    ReadingFile sum;
    int count = 0;
    std::string why, first;
    // The '#' lines before the column row say how the readings were taken.
    int first_line = 1;
    for (; std::getline(in, first) && !first.empty() && first[0] == '#'; ++first_line) {
    }
    try {
        if (!first.empty() && (first[0] == '{')) {
            std::stringstream rest;
            rest << first << '\n' << in.rdbuf();
            std::string line;
            // One object per line, or one document over many lines.
            const std::string text = rest.str();
            if (text.find("\"measurements\"") != std::string::npos) {
                if (!load_json(nlohmann::json::parse(text), sum, count, why)) return error = path + ": " + why, false;
            } else {
                std::stringstream lines(text);
                while (std::getline(lines, line))
                    if (!line.empty() && !load_json(nlohmann::json::parse(line), sum, count, why))
                        return error = path + ": " + why, false;
            }
        } else if (!load_csv(in, first, first_line, sum, count, why)) {
            return error = path + ": " + why, false;
        }
    } catch (const std::exception&) {
        return error = path + ": not a reading file of oru-sensor read", false;
    }
    if (count == 0) return error = path + ": no readings", false;
    for (double& v : sum.values) v /= count;
    out = sum;
    return true;
}
