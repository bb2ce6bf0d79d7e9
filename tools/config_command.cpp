#include "config_command.h"

#include <cstdio>
#include <cstdlib>
#include <map>

namespace {

// What an unset key means, for `config show`.
const char* default_of(const std::string& key) {
    if (key == "shutter" || key == "gain" || key == "range") return "the sensor's start-up setting";
    if (key == "averages") return "10";
    return "none";
}

bool is_number_key(const std::string& key) {
    return key == "shutter" || key == "gain" || key == "range" || key == "averages";
}

std::string settings_text(const SensorSettings& settings) {
    std::string text;
    for (const std::string& key : setting_keys()) {
        const auto it = settings.find(key);
        if (it == settings.end()) {
            text += "# " + key + " not set: " + default_of(key) + "\n";
            continue;
        }
        const std::string value = is_number_key(key) ? it->second.value : "\"" + it->second.value + "\"";
        char line[512];
        std::snprintf(line, sizeof line, "%-32s # %s\n", (key + " = " + value).c_str(), it->second.origin.c_str());
        text += line;
    }
    return text;
}

int config_failure(const std::string& what) {
    std::fprintf(stderr, "oru-sensor: %s\n", what.c_str());
    return 1;
}


// A measuring option not given on the command line comes from the files:
// every chosen sensor's dark, reference and calibration join the lists
// (each sensor takes the first file that holds it), and the mode when the
// sensors agree on one.
void configure_measuring(const Session& s, const std::vector<int>& chosen, const CLI::App& command,
                         MeasureOptions& m) {
    const auto unset = [&command](const char* option) {
        return command.get_option_no_throw(option) != nullptr && command.count(option) == 0;
    };
    std::map<std::string, int> modes;
    for (const auto& entry : s.configured) {
        const SensorSettings& settings = entry.second;
        const auto add = [&settings](const char* key, std::vector<std::string>& files) {
            const auto it = settings.find(key);
            if (it == settings.end()) return;
            for (const std::string& f : files)
                if (f == it->second.value) return;
            files.push_back(it->second.value);
        };
        if (unset("--dark")) add("dark", m.dark);
        if (unset("--reference")) add("reference", m.reference);
        if (unset("--spectrum")) add("calibration", m.spectrum);
        const auto mode = settings.find("mode");
        ++modes[mode == settings.end() ? std::string() : mode->second.value];
    }
    if (unset("--mode") && modes.size() == 1 && !chosen.empty()) m.mode = modes.begin()->first;
}

}  // namespace

void describe_config(CLI::App& app, Options& o) {
    app.add_option("--config", o.config,
                   "read settings from FILE too, after /etc/oru-sensor/oru-sensor.conf (or "
                   "$ORU_SENSOR_SYSTEM_CONFIG) and ~/.config/oru-sensor/oru-sensor.conf")
        ->check(CLI::ExistingFile);
    CLI::App* config = app.add_subcommand("config", "the settings of the configuration files");
    config->require_subcommand(1);
    config->add_subcommand("show", "print the effective settings per sensor and the file and line of each");
    if (CLI::App* set = app.get_subcommand("set"))
        set->add_flag("--save", o.save, "also keep the settings in the user's file, in the sensor's section");
}

int load_config(const Options& o, ConfigFiles& files) {
    std::string error;
    if (files.load(o.config, error)) return 0;
    std::fprintf(stderr, "oru-sensor: %s\n", error.c_str());
    return 2;
}

int apply_config(Session& s, const ConfigFiles& files, const std::vector<int>& chosen, const CLI::App& command,
                 Options& o) {
    std::map<int, int> averages;  // configured averages -> sensors asking for them
    for (int index : chosen) {
        s.api.duActivateSensorWithIndex(index);
        const std::string id = id_of_active(s.api);
        const SensorSettings settings = files.for_sensor(id);
        s.configured[id] = settings;
        const auto number = [&settings](const char* key) {
            const auto it = settings.find(key);
            return it == settings.end() ? -1 : std::atoi(it->second.value.c_str());
        };
        const std::string name = "sensor " + std::to_string(index) + " (" + id + "): ";
        if (const int shutter = number("shutter"); shutter > 0) {
            if (const int r = s.api.duSetShutterSpeed(shutter); r < 0)
                return fail(name + "setting the configured shutter speed failed", r);
        }
        if (number("gain") >= 0 || number("range") >= 0) {
            int gain = 0, range = 0;
            if (const int r = s.api.duGetSensorParameters(&gain, &range); r < 0)
                return fail(name + "reading the ADC settings failed", r);
            if (number("gain") >= 0) gain = number("gain");
            if (number("range") >= 0) range = number("range");
            if (const int r = s.api.duSetSensorParameters(gain, range); r < 0)
                return fail(name + "setting the configured ADC settings failed", r);
        }
        ++averages[number("averages")];
    }
    // One -n serves every chosen sensor: the files' averages when they agree.
    if (command.get_option_no_throw("--averages") != nullptr && command.count("--averages") == 0 &&
        averages.size() == 1 && averages.begin()->first > 0)
        o.averages = averages.begin()->first;
    configure_measuring(s, chosen, command, o.measure);
    if (!chosen.empty()) s.api.duActivateSensorWithIndex(chosen.front());
    return 0;
}

int cmd_config_show(const ConfigFiles& files, const Options& o, OutputFile& out) {
    std::string text = "# files read in turn, each overriding the one before:\n";
    for (const std::string& file : files.files()) text += "#   " + file + "\n";
    text += "\n# every sensor\n" + settings_text(files.for_sensor(""));
    std::vector<std::string> ids = files.sections();
    if (!o.sensor.empty() && o.sensor != "all") ids = {o.sensor};
    for (const std::string& id : ids) text += "\n[" + id + "]\n" + settings_text(files.for_sensor(id));
    return out.write(text) ? 0 : fail_output(out);
}

int save_set(Session& s, const Options& o) {
    const std::string path = user_config_path();
    if (path.empty()) return config_failure("set --save: neither XDG_CONFIG_HOME nor HOME is set");
    std::map<std::string, std::string> values;
    if (o.shutter > 0) values["shutter"] = std::to_string(o.shutter);
    if (o.gain >= 0) values["gain"] = std::to_string(o.gain);
    if (o.range >= 0) values["range"] = std::to_string(o.range);
    std::string error;
    if (!save_sensor_settings(path, id_of_active(s.api), values, error)) return config_failure(error);
    return 0;
}
