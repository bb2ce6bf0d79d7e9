#include "frame_model.h"

#include "optics/optical_frame.h"

#include <algorithm>
#include <cmath>

namespace vsensor {
namespace detail {

std::vector<double> scene_response(Scene scene) {
    std::vector<double> r(kFilters, 0.0);
    for (int i = 0; i < kFilters; ++i) {
        switch (scene) {
        case Scene::Dark:
            // Faint stray light: a dark scene is never quite black, but it
            // stays far below the exposure window even at the longest shutter.
            r[i] = 0.002;
            break;
        case Scene::FlatWhite:
            r[i] = 1.0;
            break;
        case Scene::LedLine: {
            // A narrow line on a weak pedestal: without the pedestal the
            // frame mean is all dark level and the exposure search oscillates.
            const double u = (i - 512) / 4.0;
            r[i] = 0.02 + 0.98 * std::exp(-0.5 * u * u);
            break;
        }
        case Scene::BroadLamp: {
            const double u = (i - 600) / 250.0;
            r[i] = std::exp(-0.5 * u * u);
            break;
        }
        }
    }
    return r;
}

int shutter_of(const Device& d) { return (d.regs[37] << 8) | d.regs[5]; }

// The slower of the exposure and the bus: a full-speed bulk endpoint carries
// at most 19 packets of 64 bytes a millisecond, so a 2048-byte frame (32
// packets) takes 32/19 ms at the least, about 594 frames/s.
SteadyClock::duration frame_period(const Device& d) {
    constexpr long long kBusFrameNs = (kFrameBytes / 64 * 1000000LL + 18) / 19;
    const long long exposure_ns = (static_cast<long long>(shutter_of(d)) * 912 + 160) * 1000;
    return std::chrono::nanoseconds(std::max(kBusFrameNs, exposure_ns));
}

namespace {

void render_optical(Device& d, uint64_t frame_no, uint16_t* out) {
    const double gain = (d.regs[20] & 0x02) ? 2.0 : 1.0;
    const double scale = d.opts.brightness * shutter_of(d) * kDnPerShutterUnit * gain;
    std::normal_distribution<double> noise(0.0, d.opts.noise_sigma > 0 ? d.opts.noise_sigma : 1.0);
    // Noise depends only on the seed, the run (start-streaming request) and
    // the frame number within it, so a request sees the same frames however
    // the threads interleave, and successive requests still differ.
    if (d.opts.noise_sigma > 0) {
        std::seed_seq seq{d.opts.noise_seed, d.run_no, static_cast<uint32_t>(frame_no),
                          static_cast<uint32_t>(frame_no >> 32)};
        d.rng.seed(seq);
    }
    for (int i = 0; i < kFilters; ++i) {
        double v = d.opts.dark_level + d.response[i] * scale;
        if (d.opts.noise_sigma > 0) v += noise(d.rng);
        out[i] = static_cast<uint16_t>(std::lround(std::clamp(v, 0.0, 4095.0)));
    }
}

}  // namespace

void render_frame(Device& d, uint16_t* out) {
    const uint64_t n = d.frame_no++;
    switch (d.source) {
    case Source::Model:
        render_optical(d, n, out);
        return;
    case Source::Spectral:
        render_spectral(d, n, out);
        return;
    case Source::Constant:
        std::fill(out, out + kFilters, static_cast<uint16_t>(std::min<int>(d.constant, 4095)));
        return;
    case Source::Pattern:
        for (int i = 0; i < kFilters; ++i) out[i] = std::min<uint16_t>(d.pattern[i], 4095);
        return;
    case Source::Counter:
        std::fill(out, out + kFilters, static_cast<uint16_t>(n % 4096));
        return;
    case Source::Callback:
        std::fill(out, out + kFilters, 0);
        if (d.callback) d.callback(n, out);
        for (int i = 0; i < kFilters; ++i) out[i] = std::min<uint16_t>(out[i], 4095);
        return;
    }
}

void encode_frame_into(const uint16_t* values, uint8_t* out) {
    for (int i = 0; i < kFilters; ++i) {
        const unsigned v = values[i] & 0x0FFF;
        out[2 * i] = static_cast<uint8_t>(v >> 4);
        out[2 * i + 1] = static_cast<uint8_t>((v & 0x0F) << 4);
    }
}

}  // namespace detail

std::vector<uint8_t> encode_frame(const uint16_t* values1024) {
    std::vector<uint8_t> out(kFrameBytes);
    detail::encode_frame_into(values1024, out.data());
    return out;
}

}  // namespace vsensor
