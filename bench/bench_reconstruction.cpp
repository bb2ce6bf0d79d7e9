// Spectral reconstruction on the virtual sensor's spectral model with its
// true response as the calibration: spectra per second on one core, and in
// the same run each algorithm's accuracy on the published light sources,
// black bodies, daylight, a perturbed calibration and two close LEDs.
// Readings are 10-frame averages with the model's shot and read noise.
#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lit_reading.h"

using namespace spectral_test;

namespace {

constexpr int kFrames = 10;
const char* const kAlgorithms[] = {"tikhonov-gcv", "TNNLS-GCV", "TNNLS-LCurve", "NNLS-L1"};

// One reconstructor per algorithm and calibration, prepared outside the
// timed loops (a calibration is factorised once, not per reading).
duReconstructor* reconstructor(const std::string& algorithm, double perturb) {
    static std::map<std::pair<std::string, double>, duReconstructor*> made;
    duReconstructor*& r = made[{algorithm, perturb}];
    if (!r) {
        duCalibration* cal = truth_calibration(perturb);
        duReconstructionOptions o{};
        o.algorithm = algorithm.c_str();
        r = duReconstructorCreate(cal, &o, nullptr, 0);
        duCalibrationFree(cal);
    }
    return r;
}

struct Result {
    std::vector<double> grid, spectrum;
    duReconstructionResult info{};
};

Result run(duReconstructor* r, const Reading& reading) {
    Result out;
    const int n = duReconstructorGrid(r, nullptr, 0);
    out.grid.resize(size_t(n));
    out.spectrum.resize(size_t(n));
    duReconstructorGrid(r, out.grid.data(), n);
    const duReadingInfo info = reading_info();
    duReconstruct(r, reading.values.data(), nullptr, &info, out.spectrum.data(), &out.info, nullptr, 0);
    return out;
}

// Args: algorithm, scene; the timed loop reconstructs one reading again and
// again, and the counters give that reading's accuracy.
void reconstruct(benchmark::State& state, const char* algorithm, const std::string& scene, double true_peak,
                 double perturb) {
    duReconstructor* r = reconstructor(algorithm, perturb);
    const Reading reading = spectral_reading(scene, kFrames, 3);
    Result res = run(r, reading);
    for (auto _ : state) {
        const duReadingInfo info = reading_info();
        duReconstruct(r, reading.values.data(), nullptr, &info, res.spectrum.data(), &res.info, nullptr, 0);
        benchmark::DoNotOptimize(res.spectrum.data());
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["weight"] = res.info.weight;
    state.counters["residual_dn"] = res.info.residual_dn;
    if (true_peak > 0) {
        state.counters["peak_err_nm"] = main_peak(res.grid, res.spectrum) - true_peak;
        state.counters["peaks_half"] = double(peaks(res.grid, res.spectrum, 0.5).size());
    } else {
        state.counters["rel_rms_420_720"] = relative_rms(res.grid, res.spectrum, reading.spectrum, 420, 720);
    }
}

void register_all() {
    struct Scene {
        std::string text;
        double peak;
        double perturb;
    };
    std::vector<Scene> scenes;
    // The published light sources that are single LEDs, by the wavelength
    // their names state.
    for (int nm : {430, 468, 529, 572, 574, 610, 640, 740, 850, 940})
        scenes.push_back({"led:" + std::to_string(nm), double(nm), 0.0});
    for (double perturb : {0.0, 0.01}) {
        scenes.push_back({"blackbody:2856", 0, perturb});
        scenes.push_back({"daylight:6500", 0, perturb});
    }
    // Two LEDs 30 nm apart: peaks_half counts the peaks above half the top.
    scenes.push_back({"led:520+led:550", 520, 0.0});
    for (const char* a : kAlgorithms)
        for (const Scene& s : scenes) {
            const std::string name =
                std::string(a) + "/" + s.text + (s.perturb > 0 ? "/cal_noise_1pct" : "");
            benchmark::RegisterBenchmark(name.c_str(), reconstruct, a, s.text, s.peak, s.perturb)
                ->Unit(benchmark::kMillisecond)
                ->MinTime(0.2);
        }
}

const int registered = (register_all(), 0);

}  // namespace

BENCHMARK_MAIN();
