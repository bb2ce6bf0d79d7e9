#include "sweep_file.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

std::vector<std::string> cells(const std::string& line) {
    std::vector<std::string> out;
    std::stringstream in(line);
    std::string c;
    while (std::getline(in, c, ',')) {
        const size_t a = c.find_first_not_of(" \t\r"), b = c.find_last_not_of(" \t\r");
        out.push_back(a == std::string::npos ? "" : c.substr(a, b - a + 1));
    }
    return out;
}

bool number(const std::string& text, double* v) {
    char* end = nullptr;
    *v = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0';
}

}  // namespace

bool load_sweep_file(const std::string& path, std::vector<SweepStep>& steps, std::string& error) {
    std::ifstream in(path);
    if (!in) return error = "cannot read " + path, false;
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    std::string line;
    std::getline(in, line);
    const std::vector<std::string> names = cells(line);
    size_t nm_col = names.size(), power_col = names.size(), reading_col = names.size();
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] == "wavelength_nm") nm_col = i;
        if (names[i] == "power") power_col = i;
        if (names[i] == "reading") reading_col = i;
    }
    if (nm_col == names.size() || power_col == names.size() || reading_col == names.size())
        return error = path + ": needs the columns wavelength_nm, power and reading", false;
    for (int row = 2; std::getline(in, line); ++row) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        const std::vector<std::string> c = cells(line);
        SweepStep step;
        const std::string where = path + " line " + std::to_string(row);
        if (c.size() != names.size() || !number(c[nm_col], &step.wavelength_nm) || !number(c[power_col], &step.power))
            return error = where + ": needs a wavelength, a power and a reading file", false;
        const std::string& file = c[reading_col];
        if (file.empty()) return error = where + ": no reading file", false;
        if (!load_reading_file(file[0] == '/' ? file : folder + file, step.reading, error)) return false;
        steps.push_back(std::move(step));
    }
    if (steps.size() < 2) return error = path + ": a sweep needs at least two steps", false;
    return true;
}
