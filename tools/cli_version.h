// What `oru-sensor --version` says: the program's version and that of the
// liboru_device it loads (they can differ after a partial upgrade).
#ifndef ORU_TOOLS_CLI_VERSION_H
#define ORU_TOOLS_CLI_VERSION_H

#include <string>

std::string version_text();

#endif
