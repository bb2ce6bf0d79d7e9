// oru-vsensor-calibration: writes the true spectral response of a virtual
// sensor as a calibration file, so the whole chain runs without hardware.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "oru_calibration.h"
#include "vsensor/vsensor.h"

namespace {

// The library starts a sensor at ADC gain 1 and range 132; gain 1 doubles
// what the virtual sensor's filters give.
constexpr int kStartGain = 1;
constexpr int kStartRange = 132;

int usage(const char* why) {
    std::fprintf(stderr,
                 "oru-vsensor-calibration: %s\n"
                 "usage: oru-vsensor-calibration [--index N | --sensor-id ID] [--gain 0|1] -o FILE\n"
                 "  --index N       the N-th default virtual sensor (A4486-3-<12+N>-40-2; default 0)\n"
                 "  --sensor-id ID  a virtual sensor by its ID, as given in ORU_VSENSOR_IDS\n"
                 "  --gain G        ADC gain the response is for (default 1, as after connecting)\n",
                 why);
    return 2;
}

bool whole_number(const char* text, int lo, int hi, int* out) {
    char* end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (!*text || *end || v < lo || v > hi) return false;
    *out = static_cast<int>(v);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::string id, output;
    int index = -1, gain = kStartGain;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "-h" || a == "--help") return usage("the true response of a virtual sensor as a calibration file"), 0;
        if (i + 1 >= argc) return usage(("missing value after " + a).c_str());
        const char* v = argv[++i];
        if (a == "--index") {
            if (!whole_number(v, 0, 1000, &index)) return usage("--index needs a number 0..1000");
        } else if (a == "--sensor-id") {
            id = v;
        } else if (a == "--gain") {
            if (!whole_number(v, 0, 1, &gain)) return usage("--gain needs 0 or 1");
        } else if (a == "-o" || a == "--output") {
            output = v;
        } else {
            return usage(("unknown option " + a).c_str());
        }
    }
    if (output.empty()) return usage("-o FILE is needed");
    if (!id.empty() && index >= 0) return usage("give --index or --sensor-id, not both");
    if (id.empty()) {
        vsensor::Identity identity;
        identity.x_coord = 12 + std::max(index, 0);
        id = vsensor::sensor_id_text(identity);
    }
    if (id.size() >= sizeof(duCalibration::sensor_id)) return usage("sensor ID too long");

    duCalibration* cal = duCalibrationCreate(vsensor::kSpectrumPoints);
    if (!cal) return std::fprintf(stderr, "oru-vsensor-calibration: out of memory\n"), 1;
    const std::vector<double> truth = vsensor::true_response(id);
    const double scale = gain ? 2.0 : 1.0;
    for (int w = 0; w < vsensor::kSpectrumPoints; ++w) cal->wavelength_nm[w] = vsensor::kSpectrumStartNm + w;
    for (size_t i = 0; i < truth.size(); ++i) cal->response[i] = truth[i] * scale;
    duCalibrationAddDark(cal);
    duCalibrationAddValidFilters(cal);
    for (int f = 0; f < vsensor::kFilters; ++f) cal->dark[f] = vsensor::SensorOptions{}.dark_level;
    for (int f : {1011, 1012, 1013}) cal->valid_filters[f] = 0;
    std::snprintf(cal->sensor_id, sizeof cal->sensor_id, "%s", id.c_str());
    cal->adc_gain = gain;
    cal->adc_range = kStartRange;
    std::snprintf(cal->source, sizeof cal->source, "virtual");
    std::snprintf(cal->description, sizeof cal->description,
                  "True response of the virtual sensor %s (generated from its ID)", id.c_str());
    char error[256] = "";
    const int rc = duCalibrationWrite(cal, output.c_str(), error, sizeof error);
    duCalibrationFree(cal);
    if (rc < 0) return std::fprintf(stderr, "oru-vsensor-calibration: %s\n", error), 1;
    return 0;
}
