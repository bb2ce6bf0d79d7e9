#include "cli_args.h"

#include <cerrno>
#include <cstdlib>

namespace {

const OptionSpec* find_long(const std::vector<OptionSpec>& specs, const std::string& name) {
    for (const auto& s : specs)
        if (name == s.long_name) return &s;
    return nullptr;
}

const OptionSpec* find_short(const std::vector<OptionSpec>& specs, char c) {
    for (const auto& s : specs)
        if (s.short_name == c) return &s;
    return nullptr;
}

}  // namespace

bool parse_args(int argc, char** argv, const std::vector<OptionSpec>& specs, ParsedArgs& out, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        const OptionSpec* spec = nullptr;
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
            spec = find_long(specs, name);
            if (!spec) {
                error = "unknown option --" + name;
                return false;
            }
        } else if (a.size() == 2 && a[0] == '-' && a[1] != '-') {
            spec = find_short(specs, a[1]);
            if (!spec) {
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
        if (spec->takes_value && !has_inline && !spec->value_optional) {
            if (i + 1 >= argc) {
                error = std::string("option --") + spec->long_name + " needs a value";
                return false;
            }
            value = argv[++i];
        } else if (!spec->takes_value && has_inline) {
            error = std::string("option --") + spec->long_name + " takes no value";
            return false;
        }
        out.options[spec->long_name] = value;
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
