// Words for the library's negative results, for one-line error messages.
#ifndef ORU_TOOLS_CLI_ERRORS_H
#define ORU_TOOLS_CLI_ERRORS_H

#include <string>

std::string describe_result(int code);

#endif
