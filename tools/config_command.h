// The configuration files on the command line: --config FILE, `config show`,
// `set --save`, and the saved settings applied to each sensor right after
// connecting (bring-up has just written the start-up settings).
#ifndef ORU_TOOLS_CONFIG_COMMAND_H
#define ORU_TOOLS_CONFIG_COMMAND_H

#include <CLI/CLI.hpp>

#include <vector>

#include "cli_options.h"
#include "cli_session.h"
#include "config_file.h"
#include "output_file.h"

// Adds --config FILE, `config show` and `set --save`.
void describe_config(CLI::App& app, Options& o);

// Reads the files; 0, or 2 after one line "oru-sensor: FILE:LINE: REASON".
int load_config(const Options& o, ConfigFiles& files);

// Writes each chosen sensor's shutter speed and ADC settings, keeps its
// other settings in s.configured, and takes the averages from the files when
// `command` was given no -n (and the chosen sensors agree on them). Leaves
// the first chosen sensor active. 0, or the exit status after a message.
int apply_config(Session& s, const ConfigFiles& files, const std::vector<int>& chosen, const CLI::App& command,
                 Options& o);

// `config show`: the effective settings of every sensor the files name (or of
// --sensor ID) and where each came from.
int cmd_config_show(const ConfigFiles& files, const Options& o, OutputFile& out);

// `set --save`: the values given to set, into the active sensor's section of
// the user's file. 0, or 1 after a message.
int save_set(Session& s, const Options& o);

#endif
