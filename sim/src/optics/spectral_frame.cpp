#include "spectral_frame.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "../frame_model.h"
#include "oru_sensor_constants.h"
#include "vsensor/optics.h"

namespace vsensor::detail {

namespace {

// The LED driver's LEDs are the published light sources in table order; its
// state word has LED bits 0..7 and the intensity in bits 15..8, so sources 8
// to 11 share their bits with the intensity and cannot be lit.
constexpr int kDriverLeds = 8;

const std::vector<std::vector<double>>& driver_sources() {
    static const std::vector<std::vector<double>> sources = [] {
        std::vector<std::vector<double>> out;
        for (int i = 0; i < kDriverLeds; ++i) {
            const std::string name = wavelength_type[i];
            const std::string text = name.back() == 'K' ? "white:" + name : "led:" + name.substr(0, name.find(' '));
            std::vector<double> s;
            parse_spectrum(text, &s, nullptr);
            out.push_back(s);
        }
        return out;
    }();
    return sources;
}

// The state word of the first LED driver on the bus; -1 when none is lit.
int driver_word() {
    for (const auto& dev : bus().devices)
        if (dev->led_driver && !dev->unplugged) return dev->led_state;
    return -1;
}

void refresh_lit(Device& d) {
    const int word = driver_word();
    if (!d.lit.empty() && d.lit_gen == d.scene_gen && d.lit_driver_word == word) return;
    std::vector<double> light = d.scene_spectrum;
    if (word > 0) {
        const double intensity = ((word >> 8) & 0xFF) / 255.0;
        for (int i = 0; i < kDriverLeds; ++i)
            if ((word >> i) & 1)
                for (size_t w = 0; w < light.size(); ++w) light[w] += intensity * driver_sources()[i][w];
    }
    d.lit.assign(kFilters, 0.0);
    for (int f = 0; f < kFilters; ++f) {
        const double* row = &(*d.truth)[static_cast<size_t>(f) * kSpectrumPoints];
        double sum = 0.0;
        for (int w = 0; w < kSpectrumPoints; ++w) sum += row[w] * light[static_cast<size_t>(w)];
        d.lit[static_cast<size_t>(f)] = sum;
    }
    d.lit_gen = d.scene_gen;
    d.lit_driver_word = word;
}

}  // namespace

bool switch_to_spectral(Device& d, const std::string& text, std::string* error) {
    std::vector<double> s;
    if (!parse_spectrum(text, &s, error)) return false;
    if (!d.truth)
        d.truth = std::make_shared<const std::vector<double>>(true_response(sensor_id_text(d.opts.identity)));
    d.scene_spectrum = std::move(s);
    d.opts.spectral_scene = text;
    ++d.scene_gen;
    d.source = Source::Spectral;
    return true;
}

void render_spectral(Device& d, uint64_t frame_no, uint16_t* out) {
    refresh_lit(d);
    const double gain = (d.regs[20] & 0x02) ? 2.0 : 1.0;
    const double scale = exposure_ms(shutter_of(d)) * gain * d.opts.brightness;
    // Seeded per run and frame, like the pattern model's noise.
    std::seed_seq seq{d.opts.noise_seed, d.run_no, static_cast<uint32_t>(frame_no),
                      static_cast<uint32_t>(frame_no >> 32), 0x5bd1e995u};
    d.rng.seed(seq);
    std::normal_distribution<double> unit(0.0, 1.0);
    const double dn_per_e = d.opts.dn_per_electron * gain;
    for (int f = 0; f < kFilters; ++f) {
        const double signal = d.lit[static_cast<size_t>(f)] * scale;
        const double sigma = std::sqrt(std::max(0.0, signal) * dn_per_e + d.opts.noise_sigma * d.opts.noise_sigma);
        const double v = d.opts.dark_level + signal + sigma * unit(d.rng);
        out[f] = static_cast<uint16_t>(std::lround(std::clamp(v, 0.0, 4095.0)));
    }
}

}  // namespace vsensor::detail
