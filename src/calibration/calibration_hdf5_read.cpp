// Reading a calibration file: every dataset and attribute is checked before
// the record is handed out, so a caller gets all of it or one error line.
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "calibration/calibration_internal.h"

#ifdef ORU_HAVE_HDF5
#include <hdf5.h>
#endif

using oru_calibration::fail;

#ifdef ORU_HAVE_HDF5
namespace {

struct Bad {
    std::string why;
};

// Closes an HDF5 identifier when the scope ends.
struct Id {
    hid_t id;
    herr_t (*close)(hid_t);
    Id(hid_t i, herr_t (*c)(hid_t)) : id(i), close(c) {}
    Id(const Id&) = delete;
    Id& operator=(const Id&) = delete;
    ~Id() {
        if (id >= 0) close(id);
    }
};

// The shape of a dataset of numbers, or Bad.
std::vector<hsize_t> shape(hid_t set, const char* name) {
    Id type{H5Dget_type(set), H5Tclose};
    const H5T_class_t c = H5Tget_class(type.id);
    if (c != H5T_FLOAT && c != H5T_INTEGER) throw Bad{std::string(name) + " does not hold numbers"};
    Id space{H5Dget_space(set), H5Sclose};
    const int rank = H5Sget_simple_extent_ndims(space.id);
    if (rank < 1 || rank > 2) throw Bad{std::string(name) + " has " + std::to_string(rank) + " dimensions"};
    std::vector<hsize_t> dims(static_cast<size_t>(rank));
    H5Sget_simple_extent_dims(space.id, dims.data(), nullptr);
    return dims;
}

std::string dims_text(const std::vector<hsize_t>& d) {
    std::string t;
    for (hsize_t v : d) t += (t.empty() ? "" : "x") + std::to_string(v);
    return t;
}

// Reads dataset `name` into `out` when it exists with exactly `want` as its
// shape; false when it is absent and not `required`.
template <typename T>
bool read_dataset(hid_t file, const char* name, const std::vector<hsize_t>& want, hid_t mem_type, T* out,
                  bool required) {
    if (H5Lexists(file, name, H5P_DEFAULT) <= 0) {
        if (required) throw Bad{std::string("it has no dataset ") + name};
        return false;
    }
    Id set{H5Dopen2(file, name, H5P_DEFAULT), H5Dclose};
    if (set.id < 0) throw Bad{std::string(name) + " is not a dataset"};
    const std::vector<hsize_t> dims = shape(set.id, name);
    if (dims != want) throw Bad{std::string(name) + " is " + dims_text(dims) + ", expected " + dims_text(want)};
    if (H5Dread(set.id, mem_type, H5S_ALL, H5S_ALL, H5P_DEFAULT, out) < 0)
        throw Bad{std::string(name) + " cannot be read (damaged or truncated)"};
    return true;
}

hsize_t wavelength_count(hid_t file) {
    if (H5Lexists(file, "wavelength_nm", H5P_DEFAULT) <= 0) throw Bad{"it has no dataset wavelength_nm"};
    Id set{H5Dopen2(file, "wavelength_nm", H5P_DEFAULT), H5Dclose};
    if (set.id < 0) throw Bad{"wavelength_nm is not a dataset"};
    const std::vector<hsize_t> dims = shape(set.id, "wavelength_nm");
    if (dims.size() != 1 || dims[0] < 2 || dims[0] > 1000000)
        throw Bad{"wavelength_nm is " + dims_text(dims) + ", expected a list of at least 2"};
    return dims[0];
}

hid_t open_attribute(hid_t file, const char* name) {
    if (H5Aexists(file, name) <= 0) throw Bad{std::string("it has no attribute ") + name};
    const hid_t attr = H5Aopen(file, name, H5P_DEFAULT);
    if (attr < 0) throw Bad{std::string("attribute ") + name + " cannot be opened"};
    return attr;
}

int int_attribute(hid_t file, const char* name) {
    Id attr{open_attribute(file, name), H5Aclose};
    Id type{H5Aget_type(attr.id), H5Tclose};
    int v = 0;
    if ((H5Tget_class(type.id) != H5T_INTEGER) || H5Aread(attr.id, H5T_NATIVE_INT, &v) < 0)
        throw Bad{std::string("attribute ") + name + " is not a whole number"};
    return v;
}

// A text attribute, variable or fixed length, into `out` (size n).
void text_attribute(hid_t file, const char* name, char* out, size_t n, bool required) {
    if (!required && H5Aexists(file, name) <= 0) return;
    Id attr{open_attribute(file, name), H5Aclose};
    Id type{H5Aget_type(attr.id), H5Tclose};
    if (H5Tget_class(type.id) != H5T_STRING) throw Bad{std::string("attribute ") + name + " is not text"};
    std::string text;
    if (H5Tis_variable_str(type.id) > 0) {
        Id mem{H5Tcopy(H5T_C_S1), H5Tclose};
        H5Tset_size(mem.id, H5T_VARIABLE);
        H5Tset_cset(mem.id, H5Tget_cset(type.id));
        char* s = nullptr;
        if (H5Aread(attr.id, mem.id, &s) < 0) throw Bad{std::string("attribute ") + name + " cannot be read"};
        text = s ? s : "";
        H5free_memory(s);
    } else {
        const size_t size = H5Tget_size(type.id);
        std::vector<char> buf(size + 1, '\0');
        if (H5Aread(attr.id, type.id, buf.data()) < 0) throw Bad{std::string("attribute ") + name + " cannot be read"};
        text = buf.data();
    }
    if (text.size() >= n) throw Bad{std::string("attribute ") + name + " is longer than " + std::to_string(n - 1)};
    std::strcpy(out, text.c_str());
}

void check_values(const duCalibration* cal) {
    for (int i = 0; i < cal->wavelength_count; ++i)
        if (!std::isfinite(cal->wavelength_nm[i]) || (i && cal->wavelength_nm[i] <= cal->wavelength_nm[i - 1]))
            throw Bad{"wavelength_nm is not strictly ascending"};
    for (size_t i = 0; i < static_cast<size_t>(cal->wavelength_count) * DU_CALIBRATION_FILTERS; ++i)
        if (!std::isfinite(cal->response[i])) throw Bad{"response holds a value that is not a number"};
    if (!oru_calibration::known_source(cal->source))
        throw Bad{std::string("source '") + cal->source + "' is not virtual, sweep or imported"};
    if (cal->master_clock < 1) throw Bad{"master_clock must be at least 1"};
}

void read_all(hid_t file, std::unique_ptr<duCalibration, void (*)(duCalibration*)>& out) {
    using namespace oru_calibration;
    const hsize_t w = wavelength_count(file);
    out.reset(duCalibrationCreate(static_cast<int>(w)));
    if (!out) throw Bad{"out of memory"};
    duCalibration* cal = out.get();
    const hsize_t filters = DU_CALIBRATION_FILTERS;
    read_dataset(file, "wavelength_nm", {w}, H5T_NATIVE_DOUBLE, cal->wavelength_nm, true);
    read_dataset(file, "response", {filters, w}, H5T_NATIVE_DOUBLE, cal->response, true);
    std::vector<double> dark(filters);
    if (read_dataset(file, "dark", {filters}, H5T_NATIVE_DOUBLE, dark.data(), false)) {
        if (duCalibrationAddDark(cal) < 0) throw Bad{"out of memory"};
        std::memcpy(cal->dark, dark.data(), filters * sizeof(double));
    }
    std::vector<unsigned char> valid(filters);
    if (read_dataset(file, "valid_filters", {filters}, H5T_NATIVE_UCHAR, valid.data(), false)) {
        if (duCalibrationAddValidFilters(cal) < 0) throw Bad{"out of memory"};
        std::memcpy(cal->valid_filters, valid.data(), filters);
    }
    text_attribute(file, kAttrSensorId, cal->sensor_id, sizeof cal->sensor_id, true);
    cal->master_clock = int_attribute(file, kAttrMasterClock);
    cal->adc_gain = int_attribute(file, kAttrAdcGain);
    cal->adc_range = int_attribute(file, kAttrAdcRange);
    text_attribute(file, kAttrCreated, cal->created, sizeof cal->created, true);
    text_attribute(file, kAttrSource, cal->source, sizeof cal->source, true);
    text_attribute(file, kAttrDescription, cal->description, sizeof cal->description, false);
    check_values(cal);
}

}  // namespace
#endif

extern "C" duCalibration* duCalibrationRead(const char* path, char* error, int error_size) {
    if (!path || !*path) return fail(error, error_size, "no file name"), nullptr;
#ifndef ORU_HAVE_HDF5
    fail(error, error_size, "this build of liboru_device has no HDF5 support");
    return nullptr;
#else
    std::unique_ptr<duCalibration, void (*)(duCalibration*)> cal(nullptr, duCalibrationFree);
    try {
        oru_calibration::Hdf5Guard guard;
        if (H5Fis_hdf5(path) <= 0) throw Bad{"not a readable HDF5 file (missing, damaged or truncated)"};
        Id file{H5Fopen(path, H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose};
        if (file.id < 0) throw Bad{"not a readable HDF5 file (missing, damaged or truncated)"};
        read_all(file.id, cal);
    } catch (const Bad& bad) {
        fail(error, error_size, std::string(path) + ": " + bad.why);
        return nullptr;
    } catch (...) {
        fail(error, error_size, std::string(path) + ": out of memory");
        return nullptr;
    }
    return cal.release();
#endif
}
