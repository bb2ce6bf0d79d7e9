#include "cli_errors.h"

namespace {
// Set once, on the main thread, when the library is loaded; read after that.
const char* (*g_text_of)(int) = nullptr;
}  // namespace

void use_error_texts(const char* (*text_of)(int)) { g_text_of = text_of; }

std::string describe_result(int code) { return g_text_of != nullptr ? g_text_of(code) : "error"; }
