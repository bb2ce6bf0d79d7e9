#ifndef ORU_BASE_EXCEPTION_H
#define ORU_BASE_EXCEPTION_H

#include <exception>

// Result and failure codes shared by every layer. The order and the two
// enumerators sharing 0 are part of the contract: callers compare against
// either name.
enum ORU_ERROR_CODE : int {
    lu_ec_start_code = 0,
    lu_ec_fail = -1,
    lu_ec_undefined_fail = 0,
    lu_ec_success = 1,
    lu_ec_memory_is_null = 2,
    lu_ec_no_device_in_system = 3,
    lu_ec_fail_to_connect_device = 4,
    lu_ec_fail_to_create_device_obj = 5,
    lu_ec_fail_to_initialize_device = 6,
    lu_ec_device_object_is_null = 7,
    lu_ec_sensor_id_is_empty = 8,
    lu_ec_fw_recv_timeout = 9,
    lu_ec_fail_to_create_core_spectrum_obj = 10,
    lu_ec_fail_to_initialize_core_spectrum_obj = 11,
    lu_ec_fail_to_load_sensor_cal_data = 12,
    lu_ec_fail_to_add_sensor_to_active_sensor_list = 13,
    lu_ec_sensor_cal_data_is_null = 14,
    lu_ec_sensor_cal_for_input_sensor_id_is_not_valid = 15,
    lu_ec_spectrum_core_object_is_null = 16,
    lu_ec_memory_for_spectrum_data_buffer_is_null = 17,
    lu_ec_memory_for_wavelength_data_buffer_is_null = 18,
    lu_ec_filter_buffer_is_null = 19,
    lu_ec_filter_data_is_nan = 20,
    lu_ec_background_buffer_is_null = 21,
    lu_ec_fail_to_calculate_spectrum = 22,
    lu_ec_wrong_reply = 23,
    lu_ec_ill_defined_input = 24,
    lu_ec_ill_defined_output = 25,
    lu_ec_initialization_required = 26,
    lu_ec_file_open_failed = 27,
    lu_ec_weights_matrix_allocation_fail = 28,
    lu_ec_fail_to_create_color_object = 29,
    lu_ec_fail_to_initialize_color_object = 30,
    lu_ec_color_object_is_null = 31,
    lu_ec_end_code = 32
};

// The one exception type of the library. It normally ships with the maker's
// base library; this declaration matches it.
class __attribute__((visibility("default"))) oru_base_exception : public std::exception {
public:
    explicit oru_base_exception(ORU_ERROR_CODE code);
    virtual ~oru_base_exception();
    const char* what() const noexcept override;

    ORU_ERROR_CODE error_code;
};

#endif  // ORU_BASE_EXCEPTION_H
