// The subcommands, one file each (list, info and set share one): each
// returns the exit status.
#ifndef ORU_TOOLS_COMMANDS_H
#define ORU_TOOLS_COMMANDS_H

#include <string>
#include <vector>

#include "cli_options.h"
#include "cli_session.h"
#include "output_file.h"

int cmd_list(Session& s, OutputFile& out);
int cmd_info(Session& s, const Options& o, OutputFile& out);
int cmd_set(Session& s, const Options& o, OutputFile& out);
// Needs the library only, no sensor.
int cmd_convert(const OruApi& api, const Options& o, OutputFile& out);
int cmd_read(Session& s, const Options& o, const std::vector<int>& chosen, OutputFile& out);

class Progress;
// Applies --shutter or --auto-exposure to the active sensor; 0 or the
// library's negative result, with `what` saying which step failed.
int prepare_exposure(Session& s, const Options& o, Progress& progress, std::string& what);

#endif
