// Scene spectra from their text: LEDs, white LEDs, black bodies, daylight,
// a spectrum file, and sums of them. Each source has peak 1 on the grid
// before its factor.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "vsensor/optics.h"

namespace vsensor {

namespace {

using Spectrum = std::vector<double>;

double nm_at(int w) { return kSpectrumStartNm + w; }

// A whole number or decimal, and nothing after it.
bool number(const std::string& text, double* v) {
    char* end = nullptr;
    *v = std::strtod(text.c_str(), &end);
    return !text.empty() && end && *end == '\0' && std::isfinite(*v);
}

void to_peak_one(Spectrum& s) {
    const double peak = *std::max_element(s.begin(), s.end());
    if (peak > 0)
        for (double& v : s) v /= peak;
}

Spectrum gaussian_line(double centre, double fwhm) {
    Spectrum s(kSpectrumPoints);
    const double sigma = fwhm / 2.3548;
    for (int w = 0; w < kSpectrumPoints; ++w) {
        const double u = (nm_at(w) - centre) / sigma;
        s[static_cast<size_t>(w)] = std::exp(-0.5 * u * u);
    }
    return s;
}

Spectrum planck(double kelvin) {
    Spectrum s(kSpectrumPoints);
    for (int w = 0; w < kSpectrumPoints; ++w) {
        const double m = nm_at(w) * 1e-9;
        s[static_cast<size_t>(w)] = 1.0 / (std::pow(m, 5) * std::expm1(1.4388e-2 / (m * kelvin)));
    }
    to_peak_one(s);
    return s;
}

// Sunlight through air: a black body with the oxygen and water bands.
Spectrum daylight(double kelvin) {
    Spectrum s = planck(kelvin);
    const double bands[][3] = {{687, 4, 0.3}, {760, 5, 0.6}, {820, 12, 0.2}, {940, 25, 0.6}};
    for (int w = 0; w < kSpectrumPoints; ++w)
        for (const auto& b : bands) {
            const double u = (nm_at(w) - b[0]) / b[1];
            s[static_cast<size_t>(w)] *= 1.0 - b[2] * std::exp(-0.5 * u * u);
        }
    to_peak_one(s);
    return s;
}

// A phosphor white LED: the blue pump and the broad phosphor band, more
// blue the higher the colour temperature.
Spectrum white_led(double kelvin) {
    Spectrum blue = gaussian_line(450, 22), phosphor = gaussian_line(565, 130);
    const double b = std::clamp(0.25 + (kelvin - 3000.0) / 8000.0, 0.1, 2.0);
    Spectrum s(kSpectrumPoints);
    for (size_t w = 0; w < s.size(); ++w) s[w] = b * blue[w] + phosphor[w];
    to_peak_one(s);
    return s;
}

// Two columns, wavelength in nm and relative radiance; lines that do not
// start with a number (a header) are skipped. Zero outside the file's range.
bool spectrum_file(const std::string& path, Spectrum* s, std::string* error) {
    std::ifstream in(path);
    if (!in) return *error = "cannot read spectrum file " + path, false;
    std::vector<std::pair<double, double>> pts;
    std::string line;
    while (std::getline(in, line)) {
        std::replace(line.begin(), line.end(), ',', ' ');
        std::istringstream row(line);
        double nm = 0, v = 0;
        if (row >> nm >> v && std::isfinite(nm) && std::isfinite(v)) pts.emplace_back(nm, std::max(0.0, v));
    }
    std::sort(pts.begin(), pts.end());
    if (pts.size() < 2) return *error = "spectrum file " + path + " has fewer than two rows", false;
    s->assign(kSpectrumPoints, 0.0);
    for (int w = 0; w < kSpectrumPoints; ++w) {
        const double nm = nm_at(w);
        auto hi = std::lower_bound(pts.begin(), pts.end(), std::make_pair(nm, -1.0));
        if (hi == pts.end() || (hi == pts.begin() && hi->first > nm)) continue;
        if (hi->first == nm || hi == pts.begin()) {
            (*s)[static_cast<size_t>(w)] = hi->second;
            continue;
        }
        const auto lo = hi - 1;
        const double t = (nm - lo->first) / (hi->first - lo->first);
        (*s)[static_cast<size_t>(w)] = lo->second + t * (hi->second - lo->second);
    }
    return true;
}

bool kelvin_arg(const std::string& text, double* k) {
    std::string t = text;
    if (!t.empty() && (t.back() == 'K' || t.back() == 'k')) t.pop_back();
    return number(t, k) && *k >= 500 && *k <= 100000;
}

// One source without its factor.
bool source(const std::string& text, Spectrum* s, std::string* error) {
    const size_t colon = text.find(':');
    const std::string kind = text.substr(0, colon);
    const std::string arg = colon == std::string::npos ? "" : text.substr(colon + 1);
    double v = 0;
    if (text == "dark") {
        s->assign(kSpectrumPoints, 0.0);
    } else if (text == "halogen") {
        *s = planck(2856);  // a tungsten lamp: CIE illuminant A
    } else if (kind == "led") {
        const size_t comma = arg.find(',');
        double fwhm = 0;
        if (!number(arg.substr(0, comma), &v) || v < 200 || v > 1200) return *error = "bad LED wavelength in '" + text + "'", false;
        fwhm = v / 25.0;  // an LED's line widens with its wavelength
        if (comma != std::string::npos) {
            const std::string opt = arg.substr(comma + 1);
            if (opt.rfind("fwhm=", 0) != 0 || !number(opt.substr(5), &fwhm) || fwhm <= 0 || fwhm > 500)
                return *error = "bad LED option in '" + text + "' (fwhm=<nm>)", false;
        }
        *s = gaussian_line(v, fwhm);
    } else if (kind == "white" && kelvin_arg(arg, &v)) {
        *s = white_led(v);
    } else if (kind == "blackbody" && kelvin_arg(arg, &v)) {
        *s = planck(v);
    } else if (kind == "daylight" && kelvin_arg(arg, &v)) {
        *s = daylight(v);
    } else if (kind == "file" && !arg.empty()) {
        return spectrum_file(arg, s, error);
    } else {
        return *error = "unknown light source '" + text + "'", false;
    }
    return true;
}

}  // namespace

bool parse_spectrum(const std::string& text, std::vector<double>* spectrum, std::string* error) {
    std::string ignored;
    if (!error) error = &ignored;
    Spectrum sum(kSpectrumPoints, 0.0);
    for (size_t start = 0, plus = 0; plus != std::string::npos; start = plus + 1) {
        plus = text.find('+', start);
        std::string term = text.substr(start, plus == std::string::npos ? plus : plus - start);
        double factor = 1.0;
        const size_t star = term.rfind('*');
        if (star != std::string::npos) {
            if (!number(term.substr(star + 1), &factor) || factor < 0) return *error = "bad factor in '" + term + "'", false;
            term.resize(star);
        }
        Spectrum s;
        if (!source(term, &s, error)) return false;
        for (size_t w = 0; w < sum.size(); ++w) sum[w] += factor * s[w];
    }
    *spectrum = std::move(sum);
    return true;
}

}  // namespace vsensor
