// The configuration files of oru-sensor: the system's file, the user's file
// and --config FILE, read in that order with CLI11's TOML/INI reader, each
// overriding the one before. Keys at the top of a file apply to every sensor;
// a section named after a sensor ID applies to that sensor and overrides the
// top of its own file.
#ifndef ORU_TOOLS_CONFIG_FILE_H
#define ORU_TOOLS_CONFIG_FILE_H

#include <map>
#include <string>
#include <vector>

// One setting's value and where it came from ("FILE:LINE").
struct Setting {
    std::string value;
    std::string origin;
};
using SensorSettings = std::map<std::string, Setting>;

// The keys a file may hold, in the order `config show` prints them.
const std::vector<std::string>& setting_keys();

// ORU_SENSOR_SYSTEM_CONFIG, else /etc/oru-sensor/oru-sensor.conf.
std::string system_config_path();
// $XDG_CONFIG_HOME/oru-sensor/oru-sensor.conf, else ~/.config/...; empty
// when neither XDG_CONFIG_HOME nor HOME is set.
std::string user_config_path();

class ConfigFiles {
public:
    // Reads the system's and the user's file where they exist, then
    // `explicit_path` (which must exist) unless empty. false with "FILE:LINE:
    // REASON" (or "FILE: REASON") in `error` for the first fault found.
    bool load(const std::string& explicit_path, std::string& error);
    // The settings for the sensor with this ID, each from the last place that
    // set it.
    SensorSettings for_sensor(const std::string& sensor_id) const;
    // The sensor IDs that have sections, in the order first seen.
    std::vector<std::string> sections() const;
    // The files read, and those looked for but absent ("(absent)" after them).
    const std::vector<std::string>& files() const { return m_files; }

private:
    bool read_file(const std::string& path, bool must_exist, std::string& error);
    struct Entry {
        std::string file;
        std::string section;  // empty: every sensor
        std::string key;
        Setting setting;
    };
    std::vector<Entry> m_entries;  // in the order read, files in turn
    std::vector<std::string> m_files;
};

// Writes `values` (key -> value) into the section of `sensor_id` in `path`,
// keeping every other line; makes the file and its directory when missing.
bool save_sensor_settings(const std::string& path, const std::string& sensor_id,
                          const std::map<std::string, std::string>& values, std::string& error);

#endif
