#include "optical_frame.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>

#include "../frame_model.h"
#include "oru_sensor_constants.h"
#include "vsensor/optics.h"

namespace vsensor::detail {

namespace {

// Responses by sensor ID, made once per process: tests add sensors of the
// same ID again and again. Guarded by its own lock, taken under Bus::m only
// (never the other way round); entries are never removed.
std::shared_ptr<const std::vector<double>> shared_true_response(const std::string& id) {
    static std::mutex lock;
    static std::map<std::string, std::shared_ptr<const std::vector<double>>> made;
    std::lock_guard<std::mutex> lk(lock);
    auto& entry = made[id];
    if (!entry) entry = std::make_shared<const std::vector<double>>(true_response(id));
    return entry;
}

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

// Normal deviates for the frames: one table drawn once (splitmix64 and the
// Box-Muller transform), read from a per-frame starting point and stride
// that hash the seed, the run and the frame number. Frames come as fast as
// the bus is read, tens of thousands in a test, so drawing fresh deviates
// for each frame would dominate the run time (more so under qemu).
constexpr size_t kNoiseTable = size_t{1} << 18;

uint64_t splitmix(uint64_t& state) {
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

const std::vector<double>& noise_table() {
    static const std::vector<double> table = [] {
        std::vector<double> t(kNoiseTable);
        uint64_t state = 0x6A09E667F3BCC909ull;
        for (size_t i = 0; i < t.size(); i += 2) {
            const double u1 = (static_cast<double>(splitmix(state) >> 11) + 1.0) * 0x1.0p-53;  // (0, 1]
            const double u2 = static_cast<double>(splitmix(state) >> 11) * 0x1.0p-53;
            const double r = std::sqrt(-2.0 * std::log(u1));
            t[i] = r * std::cos(2 * M_PI * u2);
            t[i + 1] = r * std::sin(2 * M_PI * u2);
        }
        return t;
    }();
    return table;
}

class FrameNoise {
public:
    FrameNoise(uint64_t seed, uint64_t run, uint64_t frame) {
        uint64_t state = seed * 0x9E3779B97F4A7C15ull ^ (run << 40) ^ frame;
        m_at = splitmix(state) & (kNoiseTable - 1);
        m_stride = (splitmix(state) & (kNoiseTable - 1)) | 1;  // odd: every entry once per lap
    }
    double next() {
        const double v = noise_table()[m_at];
        m_at = (m_at + m_stride) & (kNoiseTable - 1);
        return v;
    }

private:
    size_t m_at, m_stride;
};

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
    if (!d.truth) d.truth = shared_true_response(sensor_id_text(d.opts.identity));
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
    FrameNoise noise(d.opts.noise_seed, d.run_no, frame_no);
    const double dn_per_e = d.opts.dn_per_electron * gain;
    for (int f = 0; f < kFilters; ++f) {
        const double signal = d.lit[static_cast<size_t>(f)] * scale;
        const double sigma = std::sqrt(std::max(0.0, signal) * dn_per_e + d.opts.noise_sigma * d.opts.noise_sigma);
        const double v = d.opts.dark_level + signal + sigma * noise.next();
        out[f] = static_cast<uint16_t>(std::lround(std::clamp(v, 0.0, 4095.0)));
    }
}

}  // namespace vsensor::detail
