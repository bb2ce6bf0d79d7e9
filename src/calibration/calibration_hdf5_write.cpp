// Writing a calibration: datasets wavelength_nm, response and the optional
// dark and valid_filters, and the attributes, into a temporary file that is
// renamed over the target only when complete.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "calibration/calibration_internal.h"

#ifdef ORU_HAVE_HDF5
#include <hdf5.h>
#endif

using oru_calibration::fail;

#ifdef ORU_HAVE_HDF5
namespace {

bool write_dataset(hid_t file, const char* name, hid_t mem_type, hid_t file_type, int rank, const hsize_t* dims,
                   const void* data) {
    const hid_t space = H5Screate_simple(rank, dims, nullptr);
    const hid_t plist = H5Pcreate(H5P_DATASET_CREATE);
    // Compressed in chunks of whole rows; HDFView, h5py and MATLAB read it.
    if (rank == 2) {
        const hsize_t chunk[2] = {std::min<hsize_t>(dims[0], 64), dims[1]};
        H5Pset_chunk(plist, 2, chunk);
        H5Pset_deflate(plist, 4);
    }
    const hid_t set = H5Dcreate2(file, name, file_type, space, H5P_DEFAULT, plist, H5P_DEFAULT);
    const bool ok = set >= 0 && H5Dwrite(set, mem_type, H5S_ALL, H5S_ALL, H5P_DEFAULT, data) >= 0;
    if (set >= 0) H5Dclose(set);
    H5Pclose(plist);
    H5Sclose(space);
    return ok;
}

bool write_text(hid_t file, const char* name, const char* text) {
    const hid_t type = H5Tcopy(H5T_C_S1);
    H5Tset_size(type, H5T_VARIABLE);
    H5Tset_cset(type, H5T_CSET_UTF8);
    const hid_t space = H5Screate(H5S_SCALAR);
    const hid_t attr = H5Acreate2(file, name, type, space, H5P_DEFAULT, H5P_DEFAULT);
    const bool ok = attr >= 0 && H5Awrite(attr, type, &text) >= 0;
    if (attr >= 0) H5Aclose(attr);
    H5Sclose(space);
    H5Tclose(type);
    return ok;
}

bool write_int(hid_t file, const char* name, int value) {
    const hid_t space = H5Screate(H5S_SCALAR);
    const hid_t attr = H5Acreate2(file, name, H5T_STD_I32LE, space, H5P_DEFAULT, H5P_DEFAULT);
    const bool ok = attr >= 0 && H5Awrite(attr, H5T_NATIVE_INT, &value) >= 0;
    if (attr >= 0) H5Aclose(attr);
    H5Sclose(space);
    return ok;
}

bool write_all(hid_t file, const duCalibration* cal) {
    using namespace oru_calibration;
    const hsize_t w = static_cast<hsize_t>(cal->wavelength_count);
    const hsize_t filters = DU_CALIBRATION_FILTERS;
    const hsize_t dims[2] = {filters, w};
    bool ok = write_dataset(file, "wavelength_nm", H5T_NATIVE_DOUBLE, H5T_IEEE_F64LE, 1, &w, cal->wavelength_nm) &&
              write_dataset(file, "response", H5T_NATIVE_DOUBLE, H5T_IEEE_F64LE, 2, dims, cal->response);
    if (ok && cal->dark) ok = write_dataset(file, "dark", H5T_NATIVE_DOUBLE, H5T_IEEE_F64LE, 1, &filters, cal->dark);
    if (ok && cal->valid_filters)
        ok = write_dataset(file, "valid_filters", H5T_NATIVE_UCHAR, H5T_STD_U8LE, 1, &filters, cal->valid_filters);
    return ok && write_text(file, kAttrSensorId, cal->sensor_id) && write_int(file, kAttrMasterClock, cal->master_clock) &&
           write_int(file, kAttrAdcGain, cal->adc_gain) && write_int(file, kAttrAdcRange, cal->adc_range) &&
           write_text(file, kAttrCreated, cal->created) && write_text(file, kAttrSource, cal->source) &&
           write_text(file, kAttrDescription, cal->description);
}

// What a reader would refuse, checked before anything is written.
std::string invalid(const duCalibration* cal) {
    if (cal->wavelength_count < 2 || !cal->wavelength_nm || !cal->response) return "no wavelengths or no response";
    for (int i = 0; i < cal->wavelength_count; ++i)
        if (!std::isfinite(cal->wavelength_nm[i]) || (i && cal->wavelength_nm[i] <= cal->wavelength_nm[i - 1]))
            return "wavelengths are not strictly ascending";
    for (size_t i = 0; i < static_cast<size_t>(cal->wavelength_count) * DU_CALIBRATION_FILTERS; ++i)
        if (!std::isfinite(cal->response[i])) return "the response holds a value that is not a number";
    if (!oru_calibration::known_source(cal->source)) return "source must be virtual, sweep or imported";
    return "";
}

}  // namespace
#endif

extern "C" int duCalibrationWrite(const duCalibration* cal, const char* path, char* error, int error_size) {
    if (!cal || !path || !*path) return fail(error, error_size, "no calibration or no file name");
#ifndef ORU_HAVE_HDF5
    return fail(error, error_size, "this build of liboru_device has no HDF5 support");
#else
    try {
        const std::string why = invalid(cal);
        if (!why.empty()) return fail(error, error_size, "cannot write " + std::string(path) + ": " + why);
        const std::string tmp = std::string(path) + ".tmp" + std::to_string(getpid());
        bool ok = false;
        {
            oru_calibration::Hdf5Guard guard;
            const hid_t file = H5Fcreate(tmp.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
            if (file >= 0) {
                ok = write_all(file, cal);
                ok = H5Fclose(file) >= 0 && ok;
            }
        }
        if (!ok) {
            std::remove(tmp.c_str());
            return fail(error, error_size, "cannot write " + std::string(path) + ": HDF5 refused to create it");
        }
        if (std::rename(tmp.c_str(), path) != 0) {
            const std::string reason = std::strerror(errno);
            std::remove(tmp.c_str());
            return fail(error, error_size, "cannot write " + std::string(path) + ": " + reason);
        }
        return 1;
    } catch (...) {
        return fail(error, error_size, "out of memory writing " + std::string(path));
    }
#endif
}
