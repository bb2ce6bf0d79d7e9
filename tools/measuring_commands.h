// The command line of measuring: the exposure options `read`, `dark` and
// `reference` share, `read`'s --mode, --dark, --reference and --spectrum
// options, and the `dark` and `reference` subcommands.
#ifndef ORU_TOOLS_MEASURING_COMMANDS_H
#define ORU_TOOLS_MEASURING_COMMANDS_H

#include <CLI/CLI.hpp>

#include <string>

#include "cli_options.h"

// -n, --shutter, --auto-exposure and --target.
void add_exposure_options(CLI::App* command, Options& o);
void describe_measuring(CLI::App& app, CLI::App* read, Options& o);
// One reading per sensor, kept as a dark or reference file (csv unless -o
// ends in .jsonl or --format says jsonl).
void stored_reading_defaults(const std::string& command, Options& o);

#endif
