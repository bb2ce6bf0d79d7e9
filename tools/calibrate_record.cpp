// `oru-sensor calibrate --record`: the sweep taken on the spot with the
// sensor's current settings. Each line on standard input is a step: a
// wavelength (and the source's power there, default 1), or "dark" for the
// reading with the light off; with --wavelengths the wavelengths come from
// the list and each line (its optional power) says the monochromator is set.
#include <cstdlib>
#include <sstream>

#include "calibrate_command.h"
#include "reading_file.h"

namespace {

int fail(const std::string& text) {
    std::fprintf(stderr, "oru-sensor: %s\n", text.c_str());
    return 1;
}

bool next_line(FILE* in, std::string& line) {
    line.clear();
    int ch;
    while ((ch = std::fgetc(in)) != EOF && ch != '\n') line += static_cast<char>(ch);
    return ch != EOF || !line.empty();
}

int take_reading(const OruApi& api, int averages, std::vector<double>& into) {
    std::vector<double> values(DU_CALIBRATION_FILTERS);
    const int r = api.duGetFilterData(values.data(), averages);
    if (r < 0) return fail("reading filter data failed (code " + std::to_string(r) + ")");
    into.insert(into.end(), values.begin(), values.end());
    return 0;
}

// "550", "550 0.8", "dark"; false when the line is none of them.
bool parse_step(const std::string& line, bool* dark, double* nm, double* power) {
    std::istringstream words(line);
    std::string first;
    if (!(words >> first)) return false;
    *dark = first == "dark";
    if (*dark) return true;
    char* end = nullptr;
    *nm = std::strtod(first.c_str(), &end);
    if (*end != '\0') return false;
    *power = 1.0;
    std::string p;
    if (words >> p) *power = std::strtod(p.c_str(), &end);
    return *end == '\0' && *power > 0;
}

}  // namespace

int record_sweep(const OruApi& api, const CalibrationApi& cal_api, const CalibrateOptions& c, FILE* in,
                 RecordedSweep& s) {
    const int shutter = api.duGetShutterSpeed();
    if (shutter < 0) return fail("reading the shutter speed failed");
    if (api.duGetSensorParameters(&s.gain, &s.range) < 0) return fail("reading the ADC settings failed");
    char id[32] = "";
    api.duGetSensorID(id);
    s.sensor_id = id;
    if (!c.dark.empty()) {
        ReadingFile dark;
        std::string error;
        if (!load_reading_file(c.dark, dark, error)) return fail(error);
        s.dark = dark.values;
    }
    const double exposure = exposure_ms(cal_api, c.clock, shutter);
    std::vector<double> planned;
    GridSpec list{};
    if (!c.wavelengths.empty()) {
        if (!parse_grid(c.wavelengths, list)) return fail("--wavelengths needs START:END:STEP in nm");
        for (double nm = list.start; nm <= list.end + 1e-9; nm += list.step) planned.push_back(nm);
        std::fprintf(stderr, "Recording %zu wavelengths at shutter %d. Set each one, then press Enter "
                             "(or type the source's power there).\n", planned.size(), shutter);
    } else {
        std::fprintf(stderr, "Recording at shutter %d. Type a wavelength in nm (and the source's power there), "
                             "'dark' with the light off; end with an empty line or end of input.\n", shutter);
    }
    std::string line;
    for (size_t k = 0; planned.empty() || k < planned.size(); ++k) {
        if (!planned.empty()) std::fprintf(stderr, "set %.1f nm: ", planned[k]);
        if (!next_line(in, line) || (planned.empty() && line.find_first_not_of(" \t\r") == std::string::npos)) break;
        bool dark = false;
        double nm = planned.empty() ? 0 : planned[k], power = 1.0;
        if (!planned.empty() && line.find_first_not_of(" \t\r") != std::string::npos) {
            char* end = nullptr;
            power = std::strtod(line.c_str(), &end);
            if (!(power > 0)) return fail("not a power: " + line);
        } else if (planned.empty() && !parse_step(line, &dark, &nm, &power)) {
            return fail("not a step: '" + line + "' (a wavelength in nm, an optional power, or 'dark')");
        }
        if (dark) {
            s.dark.clear();
            if (take_reading(api, c.averages, s.dark)) return 1;
            --k;
            continue;
        }
        if (take_reading(api, c.averages, s.readings)) return 1;
        s.wavelength_nm.push_back(nm);
        s.power.push_back(power);
        s.exposure_ms.push_back(exposure);
    }
    if (!planned.empty() && s.wavelength_nm.size() < planned.size()) return fail("the input ended before the sweep did");
    return 0;
}
