#include <mutex>

#include "calibration/calibration_internal.h"

#ifdef ORU_HAVE_HDF5
#include <hdf5.h>
#endif

namespace oru_calibration {

namespace {
// Guards every HDF5 call of the library; taken by Hdf5Guard only.
std::mutex g_hdf5_lock;
}  // namespace

Hdf5Guard::Hdf5Guard() : m_saved_func(nullptr), m_saved_data(nullptr) {
    g_hdf5_lock.lock();
#ifdef ORU_HAVE_HDF5
    H5E_auto2_t func = nullptr;
    H5Eget_auto2(H5E_DEFAULT, &func, &m_saved_data);
    m_saved_func = reinterpret_cast<void*>(func);
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
#endif
}

Hdf5Guard::~Hdf5Guard() {
#ifdef ORU_HAVE_HDF5
    H5Eset_auto2(H5E_DEFAULT, reinterpret_cast<H5E_auto2_t>(m_saved_func), m_saved_data);
#endif
    g_hdf5_lock.unlock();
}

}  // namespace oru_calibration
