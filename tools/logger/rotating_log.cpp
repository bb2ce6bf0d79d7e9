#include "rotating_log.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <regex>

namespace {

const std::regex kLogName(R"(^(.+)_(\d{8}T\d{6}Z)(_\d+)?\.(csv|jsonl|h5)$)");

bool same_settings(const duReadingSettings& a, const duReadingSettings& b) {
    return a.shutter_speed == b.shutter_speed && a.master_clock == b.master_clock && a.adc_gain == b.adc_gain &&
           a.adc_range == b.adc_range;
}

bool exists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

}  // namespace

bool is_log_file_name(const std::string& name, std::string* sensor_id) {
    std::smatch match;
    if (!std::regex_match(name, match, kLogName)) return false;
    if (sensor_id) *sensor_id = match[1];
    return true;
}

std::vector<std::string> prune_log_dir(const std::string& dir, const LogLimit& keep,
                                       const std::vector<std::string>& open) {
    struct Entry {
        std::string path;
        uint64_t bytes;
        timespec modified;
    };
    std::vector<Entry> files;
    std::vector<std::string> deleted;
    if (keep.none()) return deleted;
    DIR* d = ::opendir(dir.c_str());
    if (!d) return deleted;
    uint64_t total = 0;
    while (const dirent* e = ::readdir(d)) {
        struct stat st {};
        const std::string path = dir + "/" + e->d_name;
        if (!is_log_file_name(e->d_name) || ::lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
        total += static_cast<uint64_t>(st.st_size);
        if (std::find(open.begin(), open.end(), path) == open.end())
            files.push_back({path, static_cast<uint64_t>(st.st_size), st.st_mtim});
    }
    ::closedir(d);
    std::sort(files.begin(), files.end(), [](const Entry& a, const Entry& b) {
        return a.modified.tv_sec != b.modified.tv_sec ? a.modified.tv_sec < b.modified.tv_sec
                                                      : a.modified.tv_nsec < b.modified.tv_nsec;
    });
    const std::time_t now = std::time(nullptr);
    for (const Entry& f : files) {
        const bool too_old = keep.seconds > 0 && static_cast<double>(now - f.modified.tv_sec) > keep.seconds;
        const bool too_much = keep.bytes > 0 && total > keep.bytes;
        if (!too_old && !too_much) break;
        if (::unlink(f.path.c_str()) != 0) continue;
        total -= f.bytes;
        deleted.push_back(f.path);
    }
    return deleted;
}

RotatingLog::RotatingLog(RotatingLogConfig config, const MeasurementApi& api)
    : m_config(std::move(config)), m_api(api) {}

RotatingLog::~RotatingLog() { close(); }

std::vector<std::string> RotatingLog::open_paths() const {
    std::vector<std::string> paths;
    for (const auto& [id, c] : m_current)
        if (c.file) paths.push_back(c.path);
    return paths;
}

// A file ends at the end of its period or size, and when the settings
// change: its header describes every reading in it.
bool RotatingLog::due(const Current& c, const duSensorMetadata& sensor, const Measurement& m) const {
    const LogLimit& r = m_config.rotate;
    if (r.seconds > 0 && static_cast<double>(m.realtime_ns - c.info.start_ns) >= r.seconds * 1e9) return true;
    if (r.bytes > 0 && c.file->bytes() >= r.bytes) return true;
    return !same_settings(c.info.sensor.settings, sensor.settings) || c.info.shutter_speed != m.shutter_speed ||
           c.info.averages != m.averages;
}

bool RotatingLog::open(Current& c, const duSensorMetadata& sensor, const Measurement& m) {
    c.info.sensor = sensor;
    c.info.averages = m.averages;
    c.info.shutter_speed = m.shutter_speed;
    c.info.start_ns = m.realtime_ns;
    const std::string stem = m_config.dir + "/" + sensor.sensor_id + "_" + utc_text(m.realtime_ns, "%Y%m%dT%H%M%SZ");
    const std::string ext = std::string(".") + log_format_extension(m_config.format);
    // Never over an existing file: the next free suffix. The file is created
    // exclusively, so a race with another writer fails instead of overwriting.
    c.path = stem + ext;
    for (int n = 2; exists(c.path); ++n) c.path = stem + "_" + std::to_string(n) + ext;
    std::string error;
    c.file = create_log_file(m_config.format, c.path, c.info, m_api, error);
    if (!c.file) return fail(error);
    c.last_flush = std::chrono::steady_clock::now();
    return true;
}

bool RotatingLog::finish(Current& c) {
    if (!c.file) return true;
    const bool ok = c.file->close();
    const std::string error = c.file->error();
    c.file.reset();
    ++m_files_closed;
    if (!ok) return fail(c.path + ": " + error);
    prune_log_dir(m_config.dir, m_config.keep, open_paths());
    return true;
}

bool RotatingLog::write(const duSensorMetadata& sensor, const Measurement& m) {
    Current& c = m_current[sensor.sensor_id];
    if (c.file && due(c, sensor, m) && !finish(c)) return false;
    if (!c.file && !open(c, sensor, m)) return false;
    if (!c.file->append(m)) return fail(c.path + ": " + c.file->error());
    const auto now = std::chrono::steady_clock::now();
    if (now - c.last_flush >= std::chrono::duration<double>(m_config.flush_seconds)) {
        c.last_flush = now;
        if (!c.file->flush()) return fail(c.path + ": " + c.file->error());
    }
    return true;
}

bool RotatingLog::close() {
    bool ok = true;
    for (auto& [id, c] : m_current) ok = finish(c) && ok;
    return ok;
}

bool RotatingLog::fail(const std::string& what) {
    if (m_error.empty()) m_error = what;
    return false;
}
