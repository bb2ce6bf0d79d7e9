// HDF5 log files: extendible, chunked and compressed datasets a row a
// reading, the settings as attributes of the file. Written in SWMR mode, so
// h5py can follow the file while it grows (File(path, "r", swmr=True)) and a
// killed logger leaves every row up to its last flush readable.
#include <fcntl.h>
#include <hdf5.h>
#include <stdio.h>
#include <unistd.h>

#include <cmath>
#include <vector>

#include "log_file.h"

namespace {

// 16 readings of 1024 doubles: 128 KiB chunks, the size HDF5 caches best.
constexpr hsize_t kChunkRows = 16;
constexpr unsigned kDeflateLevel = 4;

// One extendible dataset: `columns` values of `type` a row.
struct Column {
    hid_t id = -1;
    hid_t type;
    hsize_t columns;
};

class Hdf5LogFile : public LogFile {
public:
    Hdf5LogFile(hid_t file, const LogFileInfo& info) : m_file(file), m_info(info) {}
    ~Hdf5LogFile() override { close(); }

    bool start(const MeasurementApi& api) {
        m_time = {create("time", H5T_NATIVE_INT64, 1, "ns since 1970-01-01 UTC, host clock at the last frame")};
        m_sequence = {create("sequence", H5T_NATIVE_INT64, 2, "stream numbers of the first and last frame")};
        m_values = {create("values", H5T_NATIVE_DOUBLE, DU_FILTER_COUNT, "DN, mean over the frames")};
        m_saturated = {create("saturated", H5T_NATIVE_INT32, 1, "filters at full scale in any frame")};
        m_gap = {create("gap", H5T_NATIVE_DOUBLE, 1, "s the sensor was away before the reading")};
        double exposure_us = std::nan("");
        api.duExactExposureTimeUs(m_info.sensor.settings.master_clock, m_info.shutter_speed, &exposure_us);
        const duReadingSettings& s = m_info.sensor.settings;
        bool ok = m_gap.id >= 0 && text_attribute("sensor_id", m_info.sensor.sensor_id) &&
                  text_attribute("library_version", api.duGetLibraryVersion()) && text_attribute("mode", "raw") &&
                  text_attribute("unit", "DN") && text_attribute("start_utc", utc_text(m_info.start_ns, "%Y-%m-%dT%H:%M:%SZ")) &&
                  int_attribute("shutter_speed", m_info.shutter_speed) &&
                  int_attribute("master_clock", s.master_clock) && int_attribute("adc_gain", s.adc_gain) &&
                  int_attribute("adc_range", s.adc_range) && int_attribute("averages", m_info.averages) &&
                  double_attribute("exposure_us", exposure_us);
        // Attributes cannot be added once readers may follow the file.
        ok = ok && H5Fstart_swmr_write(m_file) >= 0;
        if (!ok) m_error = "cannot set up the datasets";
        return ok;
    }

    bool append(const Measurement& m) override {
        m_rows_time.push_back(m.realtime_ns);
        m_rows_sequence.push_back(m.first_sequence);
        m_rows_sequence.push_back(m.last_sequence);
        m_rows_values.insert(m_rows_values.end(), m.values.begin(), m.values.end());
        m_rows_values.resize(m_rows_time.size() * DU_FILTER_COUNT, std::nan(""));
        m_rows_saturated.push_back(m.saturated);
        m_rows_gap.push_back(m.gap);
        return true;
    }

    bool flush() override {
        const hsize_t rows = m_rows_time.size();
        if (rows == 0 || m_file < 0) return m_error.empty();
        const bool ok = extend(m_time, rows, m_rows_time.data()) && extend(m_sequence, rows, m_rows_sequence.data()) &&
                        extend(m_values, rows, m_rows_values.data()) &&
                        extend(m_saturated, rows, m_rows_saturated.data()) && extend(m_gap, rows, m_rows_gap.data());
        m_count += rows;
        m_rows_time.clear();
        m_rows_sequence.clear();
        m_rows_values.clear();
        m_rows_saturated.clear();
        m_rows_gap.clear();
        // In SWMR mode a flush writes the metadata in the order readers need.
        if (!ok || H5Fflush(m_file, H5F_SCOPE_LOCAL) < 0) {
            m_error = "cannot write the readings";
            return false;
        }
        hsize_t size = 0;
        if (H5Fget_filesize(m_file, &size) >= 0) m_bytes = size;
        return true;
    }

    bool close() override {
        if (m_file < 0) return m_error.empty();
        const bool flushed = flush();
        for (Column* c : {&m_time, &m_sequence, &m_values, &m_saturated, &m_gap})
            if (c->id >= 0) H5Dclose(c->id);
        const bool closed = H5Fclose(m_file) >= 0;
        if (flushed && !closed) m_error = "cannot close the file";
        m_file = -1;
        return flushed && closed;
    }

    uint64_t bytes() const override { return m_bytes; }

private:
    Column create(const char* name, hid_t type, hsize_t columns, const char* units) {
        const int rank = columns == 1 ? 1 : 2;
        const hsize_t dims[2] = {0, columns}, max[2] = {H5S_UNLIMITED, columns}, chunk[2] = {kChunkRows, columns};
        Column c{-1, type, columns};
        const hid_t space = H5Screate_simple(rank, dims, max);
        const hid_t props = H5Pcreate(H5P_DATASET_CREATE);
        H5Pset_chunk(props, rank, chunk);
        H5Pset_shuffle(props);
        H5Pset_deflate(props, kDeflateLevel);
        c.id = H5Dcreate2(m_file, name, type, space, H5P_DEFAULT, props, H5P_DEFAULT);
        H5Pclose(props);
        H5Sclose(space);
        if (c.id >= 0) text_attribute_on(c.id, "units", units);
        return c;
    }

    bool extend(Column& c, hsize_t rows, const void* data) {
        const int rank = c.columns == 1 ? 1 : 2;
        const hsize_t size[2] = {m_count + rows, c.columns}, start[2] = {m_count, 0}, count[2] = {rows, c.columns};
        if (H5Dset_extent(c.id, size) < 0) return false;
        const hid_t file_space = H5Dget_space(c.id);
        const hid_t memory = H5Screate_simple(rank, count, nullptr);
        bool ok = H5Sselect_hyperslab(file_space, H5S_SELECT_SET, start, nullptr, count, nullptr) >= 0 &&
                  H5Dwrite(c.id, c.type, memory, file_space, H5P_DEFAULT, data) >= 0;
        H5Sclose(memory);
        H5Sclose(file_space);
        return ok;
    }

    static bool text_attribute_on(hid_t object, const char* name, const std::string& value) {
        const hid_t type = H5Tcopy(H5T_C_S1);
        H5Tset_size(type, H5T_VARIABLE);
        H5Tset_cset(type, H5T_CSET_UTF8);
        const hid_t space = H5Screate(H5S_SCALAR);
        const hid_t attribute = H5Acreate2(object, name, type, space, H5P_DEFAULT, H5P_DEFAULT);
        const char* text = value.c_str();
        const bool ok = attribute >= 0 && H5Awrite(attribute, type, &text) >= 0;
        if (attribute >= 0) H5Aclose(attribute);
        H5Sclose(space);
        H5Tclose(type);
        return ok;
    }

    bool text_attribute(const char* name, const std::string& value) { return text_attribute_on(m_file, name, value); }

    bool number_attribute(const char* name, hid_t type, const void* value) {
        const hid_t space = H5Screate(H5S_SCALAR);
        const hid_t attribute = H5Acreate2(m_file, name, type, space, H5P_DEFAULT, H5P_DEFAULT);
        const bool ok = attribute >= 0 && H5Awrite(attribute, type, value) >= 0;
        if (attribute >= 0) H5Aclose(attribute);
        H5Sclose(space);
        return ok;
    }
    bool int_attribute(const char* name, int32_t value) { return number_attribute(name, H5T_NATIVE_INT32, &value); }
    bool double_attribute(const char* name, double value) { return number_attribute(name, H5T_NATIVE_DOUBLE, &value); }

    hid_t m_file;
    LogFileInfo m_info;
    Column m_time, m_sequence, m_values, m_saturated, m_gap;
    hsize_t m_count = 0;  // rows on the disk
    // Rows appended since the last flush.
    std::vector<int64_t> m_rows_time, m_rows_sequence;
    std::vector<double> m_rows_values, m_rows_gap;
    std::vector<int32_t> m_rows_saturated;
    uint64_t m_bytes = 0;
};

}  // namespace

std::unique_ptr<LogFile> create_hdf5_log_file(const std::string& path, const LogFileInfo& info,
                                              const MeasurementApi& api, std::string& error) {
    // Our own messages say what failed; HDF5's stack dump would only repeat it.
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    // Made under a name no reader looks for, and given its own name only once
    // its structure is on the disk: a kill in between leaves no broken file.
    const std::size_t slash = path.rfind('/') + 1;
    const std::string part = path.substr(0, slash) + "." + path.substr(slash) + ".part";
    const hid_t access = H5Pcreate(H5P_FILE_ACCESS);
    // SWMR needs the newest file format.
    H5Pset_libver_bounds(access, H5F_LIBVER_LATEST, H5F_LIBVER_LATEST);
    const hid_t file = H5Fcreate(part.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access);
    H5Pclose(access);
    if (file < 0) {
        error = "cannot create " + path;
        return nullptr;
    }
    auto log = std::make_unique<Hdf5LogFile>(file, info);
    const bool started = log->start(api);
    // Never over an existing file, even one made since the name was chosen.
    if (!started || ::renameat2(AT_FDCWD, part.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) != 0) {
        error = started ? "cannot create " + path + ": it exists" : path + ": " + log->error();
        log.reset();
        ::unlink(part.c_str());
        return nullptr;
    }
    return log;
}
