#include "config_file.h"

#include <CLI/CLI.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

// A key and the values it takes: whole numbers lo..hi, or (lo > hi) any
// text that is not empty.
struct KeyRule {
    const char* key;
    long lo, hi;
};
constexpr KeyRule kRules[] = {
    {"shutter", 1, 3000}, {"gain", 0, 1}, {"range", 0, 255}, {"averages", 1, INT_MAX},
    {"mode", 1, 0}, {"dark", 1, 0}, {"reference", 1, 0}, {"calibration", 1, 0},
};

std::string check_value(const std::string& key, const std::vector<std::string>& inputs) {
    const KeyRule* rule = nullptr;
    for (const KeyRule& r : kRules)
        if (key == r.key) rule = &r;
    if (rule == nullptr) return "unknown setting '" + key + "'";
    if (inputs.size() != 1 || inputs.front().empty()) return key + " needs one value";
    if (rule->lo > rule->hi) return "";
    const std::string& text = inputs.front();
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str() || *end != '\0' || errno == ERANGE || value < rule->lo || value > rule->hi)
        return key + " needs a whole number " + std::to_string(rule->lo) + ".." + std::to_string(rule->hi) +
               ", got " + text;
    return "";
}

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// The section a "[...]" line opens ("[[x]]" as TOML writes it too).
bool section_of(const std::string& line, std::string& section) {
    if (line.size() < 2 || line.front() != '[' || line.back() != ']') return false;
    section = line.substr(1, line.size() - 2);
    if (section.size() > 1 && section.front() == '[' && section.back() == ']')
        section = section.substr(1, section.size() - 2);
    if (section == "default") section.clear();
    return true;
}

// The key a "key = value" (or bare "key") line names.
std::string key_of(const std::string& line) { return trimmed(line.substr(0, line.find('='))); }

// The number of the line that says `key` in `section` (the reader keeps no
// line numbers), or of the first line that mentions it; 0 when none does.
int line_of(const std::vector<std::string>& lines, const std::string& section, const std::string& key) {
    std::string current;
    int mention = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string line = trimmed(lines[i]);
        if (section_of(line, current)) continue;
        if (line.empty() || line.front() == '#' || line.front() == ';') continue;
        const std::string name = key_of(line);
        if (current == section && (name == key || name == "'" + key + "'" || name == "\"" + key + "\""))
            return static_cast<int>(i) + 1;
        if (mention == 0 && name.find(key) != std::string::npos) mention = static_cast<int>(i) + 1;
    }
    return mention;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// "/a/b/c" made with its parents.
bool make_dirs(const std::string& dir) {
    for (std::size_t at = 1; at <= dir.size(); ++at) {
        if (at != dir.size() && dir[at] != '/') continue;
        const std::string part = dir.substr(0, at);
        if (::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
    }
    return true;
}

}  // namespace

const std::vector<std::string>& setting_keys() {
    static const std::vector<std::string> keys = [] {
        std::vector<std::string> k;
        for (const KeyRule& r : kRules) k.push_back(r.key);
        return k;
    }();
    return keys;
}

std::string system_config_path() {
    const char* path = std::getenv("ORU_SENSOR_SYSTEM_CONFIG");
    return path != nullptr && *path != '\0' ? path : "/etc/oru-sensor/oru-sensor.conf";
}

std::string user_config_path() {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    // An XDG path that is not absolute is to be ignored.
    if (xdg != nullptr && xdg[0] == '/') return std::string(xdg) + "/oru-sensor/oru-sensor.conf";
    const char* home = std::getenv("HOME");
    if (home != nullptr && *home != '\0') return std::string(home) + "/.config/oru-sensor/oru-sensor.conf";
    return "";
}

bool ConfigFiles::load(const std::string& explicit_path, std::string& error) {
    if (!read_file(system_config_path(), false, error)) return false;
    const std::string user = user_config_path();
    if (!user.empty() && !read_file(user, false, error)) return false;
    return explicit_path.empty() || read_file(explicit_path, true, error);
}

bool ConfigFiles::read_file(const std::string& path, bool must_exist, std::string& error) {
    std::ifstream in(path);
    if (!in) {
        // A file that is not there is no fault, except one asked for by name.
        if (!must_exist && (errno == ENOENT || errno == ENOTDIR)) {
            m_files.push_back(path + " (absent)");
            return true;
        }
        error = path + ": " + std::strerror(errno);
        return false;
    }
    std::ostringstream whole;
    whole << in.rdbuf();
    const std::vector<std::string> lines = lines_of(whole.str());
    std::istringstream text(whole.str());
    std::vector<CLI::ConfigItem> items;
    try {
        items = CLI::ConfigTOML().from_config(text);
    } catch (const CLI::Error& e) {
        error = path + ": " + e.what();
        return false;
    }
    for (const CLI::ConfigItem& item : items) {
        if (item.name == "++" || item.name == "--") continue;  // the reader's section markers
        const std::string section = item.parents.empty() ? "" : item.parents.front();
        std::string reason = item.parents.size() > 1 ? "sections are sensor IDs, not " + item.fullname()
                                                     : check_value(item.name, item.inputs);
        const int line = line_of(lines, section, item.name);
        const std::string where = path + (line > 0 ? ":" + std::to_string(line) : "");
        if (!reason.empty()) {
            error = where + ": " + reason;
            return false;
        }
        m_entries.push_back({path, section, item.name, {item.inputs.front(), where}});
    }
    m_files.push_back(path);
    return true;
}

SensorSettings ConfigFiles::for_sensor(const std::string& sensor_id) const {
    SensorSettings settings;
    // File by file, the top's keys first, so a section overrides its own
    // file's top but not a later file.
    std::string file;
    std::vector<const Entry*> of_section;
    const auto flush = [&] {
        for (const Entry* e : of_section) settings[e->key] = e->setting;
        of_section.clear();
    };
    for (const Entry& e : m_entries) {
        if (e.file != file) flush();
        file = e.file;
        if (e.section.empty())
            settings[e.key] = e.setting;
        else if (e.section == sensor_id)
            of_section.push_back(&e);
    }
    flush();
    return settings;
}

std::vector<std::string> ConfigFiles::sections() const {
    std::vector<std::string> ids;
    for (const Entry& e : m_entries)
        if (!e.section.empty() && std::find(ids.begin(), ids.end(), e.section) == ids.end()) ids.push_back(e.section);
    return ids;
}

bool save_sensor_settings(const std::string& path, const std::string& sensor_id,
                          const std::map<std::string, std::string>& values, std::string& error) {
    std::vector<std::string> lines;
    {
        std::ifstream in(path);
        if (!in && errno != ENOENT) {
            error = path + ": " + std::strerror(errno);
            return false;
        }
        std::ostringstream whole;
        if (in) whole << in.rdbuf();
        lines = lines_of(whole.str());
    }
    // Keys already in the sensor's section are replaced where they stand; the
    // others go at the end of the section, or of a new one.
    std::map<std::string, std::string> left = values;
    std::string current;
    bool in_section = false, found = false;
    std::size_t end_of_section = lines.size();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string line = trimmed(lines[i]);
        if (section_of(line, current)) {
            if (in_section) end_of_section = i;
            in_section = current == sensor_id;
            found = found || in_section;
            continue;
        }
        if (!in_section) continue;
        const auto it = left.find(key_of(line));
        if (it == left.end()) continue;
        lines[i] = it->first + " = " + it->second;
        left.erase(it);
    }
    std::vector<std::string> added;
    if (!found) added = {"", "[" + sensor_id + "]"};
    for (const auto& kv : left) added.push_back(kv.first + " = " + kv.second);
    if (!found) end_of_section = lines.size();
    // Behind the section's last setting, not behind the blank lines before the next.
    while (found && end_of_section > 0 && trimmed(lines[end_of_section - 1]).empty()) --end_of_section;
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(end_of_section), added.begin(), added.end());
    if (!lines.empty() && lines.front().empty()) lines.erase(lines.begin());

    const std::size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0 && !make_dirs(path.substr(0, slash))) {
        error = "cannot make " + path.substr(0, slash) + ": " + std::strerror(errno);
        return false;
    }
    // A new file moved over the old: a crash leaves one or the other whole.
    const std::string temporary = path + ".new";
    std::FILE* f = std::fopen(temporary.c_str(), "w");
    bool ok = f != nullptr;
    for (const std::string& line : lines)
        if (ok) ok = std::fprintf(f, "%s\n", line.c_str()) >= 0;
    if (f != nullptr && std::fclose(f) != 0) ok = false;
    if (ok && std::rename(temporary.c_str(), path.c_str()) != 0) ok = false;
    if (!ok) {
        error = "cannot write " + path + ": " + std::strerror(errno);
        std::remove(temporary.c_str());
    }
    return ok;
}
