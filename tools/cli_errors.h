// Words for the library's negative results, for one-line error messages. The
// words are the library's own (duGetErrorText), known once it is loaded.
#ifndef ORU_TOOLS_CLI_ERRORS_H
#define ORU_TOOLS_CLI_ERRORS_H

#include <string>

// Called by the loader with the library's duGetErrorText.
void use_error_texts(const char* (*text_of)(int));

std::string describe_result(int code);

#endif
