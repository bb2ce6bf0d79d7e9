// Command-line parsing: a subcommand with long/short options anywhere.
#ifndef ORU_TOOLS_CLI_ARGS_H
#define ORU_TOOLS_CLI_ARGS_H

#include <map>
#include <string>
#include <vector>

struct OptionInfo {
    const char* long_name;
    char short_name;      // 0 if none
    bool takes_value;
    bool value_optional;  // --virtual or --virtual=N
};

struct ParsedArgs {
    std::string command;
    std::map<std::string, std::string> options;  // long name -> value ("" for flags)
    std::vector<std::string> positional;
    bool has(const std::string& name) const { return options.count(name) != 0; }
    std::string get(const std::string& name, const std::string& fallback = "") const {
        auto it = options.find(name);
        return it == options.end() ? fallback : it->second;
    }
};

// Returns false and sets `error` for an unknown option or a missing value.
bool parse_args(int argc, char** argv, const std::vector<OptionInfo>& options_known, ParsedArgs& out, std::string& error);

bool parse_int(const std::string& text, int& out);
bool parse_double(const std::string& text, double& out);

#endif
