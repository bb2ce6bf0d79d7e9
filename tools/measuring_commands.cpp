#include "measuring_commands.h"

#include <climits>

#include "oru_measurement.h"

void add_exposure_options(CLI::App* command, Options& o) {
    command->add_option("-n,--averages", o.averages, "frames averaged per reading (default 10)")
        ->check(CLI::Range(1, INT_MAX));
    CLI::Option* shutter =
        command->add_option("--shutter", o.shutter, "shutter speed to use")->check(CLI::Range(1, 3000));
    CLI::Option* ae = command->add_flag("--auto-exposure", o.auto_exposure, "search the optimal shutter speed first");
    shutter->excludes(ae);
    command->add_option("--target", o.target, "brightness target of the search in DN (default 3500)")
        ->check(CLI::Range(1, 4095))
        ->needs(ae);
}

namespace {

void describe_stored(CLI::App& app, const char* name, const char* description, Options& o) {
    CLI::App* command = app.add_subcommand(name, description);
    add_exposure_options(command, o);
    command->add_option("-o,--output", o.output, "the file to write (one reading per sensor, with its settings)")
        ->required();
    command->add_flag("--force", o.force, "replace the -o file if it exists");
    command->add_option("--format", o.format, "csv (the default) or jsonl")->check(CLI::IsMember({"csv", "jsonl"}));
}

}  // namespace

void describe_measuring(CLI::App& app, CLI::App* read, Options& o) {
    MeasureOptions& m = o.measure;
    read->add_option("--mode", m.mode,
                     "raw (DN), dark (DN minus dark), rate (DN/ms of exact exposure), transmittance or reflectance "
                     "(%, against --reference), absorbance; default transmittance with --reference, dark with "
                     "--dark, else raw");
    read->add_option("--dark", m.dark,
                     "a dark file of `oru-sensor dark` (default: each reading's background filters); may be given "
                     "again, each sensor takes the first holding its ID");
    read->add_option("--reference", m.reference, "a reference file of `oru-sensor reference`; may be given again");
    read->add_option("--spectrum", m.spectrum,
                     "reconstruct a spectrum with this calibration (HDF5) and write it instead of the filter "
                     "values; may be given again, each sensor takes its own");
    read->add_option("--algorithm", m.algorithm,
                     "with --spectrum: TNNLS-LCurve (default), TNNLS-GCV, NNLS-L1 or tikhonov-gcv");
    read->add_option("--range", m.wavelength_range, "with --spectrum: wavelengths START:END in nm, e.g. 400:700");
    read->add_option("--step", m.step_nm, "with --spectrum: grid step in nm (default: the calibration's)")
        ->check(CLI::PositiveNumber);
    describe_stored(app, "dark", "take one reading with the light blocked and save it as the dark", o);
    describe_stored(app, "reference", "take one reading of the reference (white) and save it", o);
}

void stored_reading_defaults(const std::string& command, Options& o) {
    o.kind = command == "dark" ? DU_KIND_DARK : DU_KIND_REFERENCE;
    o.repeat = 1;
    const std::string jsonl = ".jsonl";
    const bool named_jsonl = o.output.size() > jsonl.size() && o.output.rfind(jsonl) == o.output.size() - jsonl.size();
    if (o.format.empty()) o.format = named_jsonl ? "jsonl" : "csv";
}
