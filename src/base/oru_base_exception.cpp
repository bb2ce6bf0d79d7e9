// Stand-in for the maker's base library: the library-wide exception type.
#include "oru_base_exception.h"

namespace {

const char* message_for(ORU_ERROR_CODE code) {
    switch (static_cast<int>(code)) {
    case lu_ec_fail:
        return "operation failed";
    case lu_ec_undefined_fail:
        return "undefined failure";
    case lu_ec_success:
        return "success";
    case lu_ec_memory_is_null:
        return "memory is null or could not be allocated";
    case lu_ec_no_device_in_system:
        return "no sensor found in the system";
    case lu_ec_fail_to_connect_device:
        return "failed to connect to the sensor";
    case lu_ec_fail_to_create_device_obj:
        return "failed to create the device object";
    case lu_ec_fail_to_initialize_device:
        return "failed to initialize the sensor";
    case lu_ec_device_object_is_null:
        return "device object is null";
    case lu_ec_sensor_id_is_empty:
        return "sensor ID is empty";
    case lu_ec_fw_recv_timeout:
        return "timed out waiting for data from the sensor firmware";
    case lu_ec_fail_to_create_core_spectrum_obj:
        return "failed to create the spectrum core object";
    case lu_ec_fail_to_initialize_core_spectrum_obj:
        return "failed to initialize the spectrum core object";
    case lu_ec_fail_to_load_sensor_cal_data:
        return "failed to load the sensor calibration data";
    case lu_ec_fail_to_add_sensor_to_active_sensor_list:
        return "failed to add the sensor to the active sensor list";
    case lu_ec_sensor_cal_data_is_null:
        return "sensor calibration data is null";
    case lu_ec_sensor_cal_for_input_sensor_id_is_not_valid:
        return "calibration data does not match the sensor ID";
    case lu_ec_spectrum_core_object_is_null:
        return "spectrum core object is null";
    case lu_ec_memory_for_spectrum_data_buffer_is_null:
        return "spectrum data buffer is null";
    case lu_ec_memory_for_wavelength_data_buffer_is_null:
        return "wavelength data buffer is null";
    case lu_ec_filter_buffer_is_null:
        return "filter data buffer is null";
    case lu_ec_filter_data_is_nan:
        return "filter data is not a number";
    case lu_ec_background_buffer_is_null:
        return "background buffer is null";
    case lu_ec_fail_to_calculate_spectrum:
        return "failed to calculate the spectrum";
    case lu_ec_wrong_reply:
        return "wrong reply from the sensor";
    case lu_ec_ill_defined_input:
        return "ill-defined input";
    case lu_ec_ill_defined_output:
        return "ill-defined output";
    case lu_ec_initialization_required:
        return "the sensor must be initialized first";
    case lu_ec_file_open_failed:
        return "failed to open a file";
    case lu_ec_weights_matrix_allocation_fail:
        return "failed to allocate the weights matrix";
    case lu_ec_fail_to_create_color_object:
        return "failed to create the color object";
    case lu_ec_fail_to_initialize_color_object:
        return "failed to initialize the color object";
    case lu_ec_color_object_is_null:
        return "color object is null";
    case lu_ec_end_code:
        return "end of error codes";
    default:
        return "unknown error code";
    }
}

}  // namespace

oru_base_exception::oru_base_exception(ORU_ERROR_CODE code) : error_code(code) {}

oru_base_exception::~oru_base_exception() = default;

const char* oru_base_exception::what() const noexcept { return message_for(error_code); }
