// The subcommands, one file each (list, info and set share one): each
// returns the exit status.
#ifndef ORU_TOOLS_COMMANDS_H
#define ORU_TOOLS_COMMANDS_H

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

#endif
