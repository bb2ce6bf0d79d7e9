// Device object: processing on the sensor's microcontroller. These
// operations report a caught oru_base_exception by its code.
#include "oru_device_interface_base.h"

#include "efm32com/oru_device_interface_onboard_processings.h"

int oru_device_interface_base::set_onboard_frame_average(unsigned char average_count, unsigned int device_id) {
    require_initialized();
    try {
        set_frame_average_count_for_on_board_processing(average_count, device_id);
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
    return 1;
}

int oru_device_interface_base::get_onboard_frame_average(unsigned int device_id) {
    require_initialized();
    try {
        return get_frame_average_count_for_on_board_processing(device_id);
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
}

// The mode is always passed on for device 0; the command is a no-op either way.
int oru_device_interface_base::set_onboard_dark_correction(bool bEnable, unsigned int) {
    require_initialized();
    try {
        m_bEnableOBDC = bEnable;
        set_dark_correction_mode_for_on_board_processing(m_bEnableOBDC, 0);
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
    return 1;
}

int oru_device_interface_base::get_onboard_dark_correction(unsigned int) { return m_bEnableOBDC; }

int oru_device_interface_base::get_onboard_dark_frame(unsigned int device_id) {
    require_initialized();
    try {
        get_dark_frame_for_on_board_processing(device_id);
    } catch (const oru_base_exception& e) {
        return e.error_code;
    }
    return 1;
}
