#include "cli_args.h"

#include <cerrno>
#include <cstdlib>

namespace {

const OptionInfo* find_long(const std::vector<OptionInfo>& options_known, const std::string& name) {
    for (const auto& s : options_known)
        if (name == s.long_name) return &s;
    return nullptr;
}

const OptionInfo* find_short(const std::vector<OptionInfo>& options_known, char c) {
    for (const auto& s : options_known)
        if (s.short_name == c) return &s;
    return nullptr;
}

}  // namespace

bool parse_args(int argc, char** argv, const std::vector<OptionInfo>& options_known, ParsedArgs& out, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        const OptionInfo* option = nullptr;
        std::string value;
        bool has_inline = false;
        if (a.rfind("--", 0) == 0 && a.size() > 2) {
            std::string name = a.substr(2);
            size_t eq = name.find('=');
            if (eq != std::string::npos) {
                value = name.substr(eq + 1);
                name = name.substr(0, eq);
                has_inline = true;
            }
            option = find_long(options_known, name);
            if (!option) {
                error = "unknown option --" + name;
                return false;
            }
        } else if (a.size() == 2 && a[0] == '-' && a[1] != '-') {
            option = find_short(options_known, a[1]);
            if (!option) {
                error = "unknown option " + a;
                return false;
            }
        } else if (out.command.empty()) {
            out.command = a;
            continue;
        } else {
            out.positional.push_back(a);
            continue;
        }
        if (option->takes_value && !has_inline && !option->value_optional) {
            if (i + 1 >= argc) {
                error = std::string("option --") + option->long_name + " needs a value";
                return false;
            }
            value = argv[++i];
        } else if (!option->takes_value && has_inline) {
            error = std::string("option --") + option->long_name + " takes no value";
            return false;
        }
        out.options[option->long_name] = value;
    }
    return true;
}

bool parse_int(const std::string& text, int& out) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    long v = std::strtol(text.c_str(), &end, 10);
    if (*end != '\0' || errno != 0 || v < -2147483647L || v > 2147483647L) return false;
    out = static_cast<int>(v);
    return true;
}

bool parse_double(const std::string& text, double& out) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    out = std::strtod(text.c_str(), &end);
    return *end == '\0' && errno == 0;
}
