// The error vocabulary and the exception that carries it.
#include "oru_base_exception.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <type_traits>

TEST(ErrorCodes, ValuesOfEveryEnumerator) {
    EXPECT_EQ(lu_ec_start_code, 0);
    EXPECT_EQ(lu_ec_fail, -1);
    EXPECT_EQ(lu_ec_undefined_fail, 0);
    EXPECT_EQ(lu_ec_success, 1);
    const ORU_ERROR_CODE in_order[] = {
        lu_ec_memory_is_null,
        lu_ec_no_device_in_system,
        lu_ec_fail_to_connect_device,
        lu_ec_fail_to_create_device_obj,
        lu_ec_fail_to_initialize_device,
        lu_ec_device_object_is_null,
        lu_ec_sensor_id_is_empty,
        lu_ec_fw_recv_timeout,
        lu_ec_fail_to_create_core_spectrum_obj,
        lu_ec_fail_to_initialize_core_spectrum_obj,
        lu_ec_fail_to_load_sensor_cal_data,
        lu_ec_fail_to_add_sensor_to_active_sensor_list,
        lu_ec_sensor_cal_data_is_null,
        lu_ec_sensor_cal_for_input_sensor_id_is_not_valid,
        lu_ec_spectrum_core_object_is_null,
        lu_ec_memory_for_spectrum_data_buffer_is_null,
        lu_ec_memory_for_wavelength_data_buffer_is_null,
        lu_ec_filter_buffer_is_null,
        lu_ec_filter_data_is_nan,
        lu_ec_background_buffer_is_null,
        lu_ec_fail_to_calculate_spectrum,
        lu_ec_wrong_reply,
        lu_ec_ill_defined_input,
        lu_ec_ill_defined_output,
        lu_ec_initialization_required,
        lu_ec_file_open_failed,
        lu_ec_weights_matrix_allocation_fail,
        lu_ec_fail_to_create_color_object,
        lu_ec_fail_to_initialize_color_object,
        lu_ec_color_object_is_null,
        lu_ec_end_code,
    };
    int expected = 2;
    for (ORU_ERROR_CODE code : in_order) EXPECT_EQ(code, expected++);
    EXPECT_EQ(expected, 33);
}

TEST(ErrorCodes, TwoNamesShareZeroAndCompareEqual) {
    EXPECT_EQ(lu_ec_start_code, lu_ec_undefined_fail);
    ORU_ERROR_CODE code = lu_ec_undefined_fail;
    EXPECT_TRUE(code == lu_ec_start_code);
}

TEST(ErrorCodes, SignedThirtyTwoBit) {
    EXPECT_EQ(sizeof(ORU_ERROR_CODE), 4u);
    EXPECT_TRUE(std::is_signed<std::underlying_type<ORU_ERROR_CODE>::type>::value);
}

TEST(BaseException, EveryCodeHasItsOwnText) {
    std::set<std::string> texts;
    for (int value = -1; value <= 32; ++value) {
        oru_base_exception e(static_cast<ORU_ERROR_CODE>(value));
        ASSERT_NE(e.what(), nullptr);
        EXPECT_GT(std::strlen(e.what()), 0u) << value;
        texts.insert(e.what());
    }
    EXPECT_EQ(texts.size(), 34u);  // -1 to 32, each value once
}

TEST(BaseException, ThrownByValueCaughtByConstReference) {
    try {
        throw oru_base_exception(lu_ec_fw_recv_timeout);
    } catch (const oru_base_exception& e) {
        EXPECT_EQ(e.error_code, lu_ec_fw_recv_timeout);
        EXPECT_EQ(-e.error_code, -9);
        EXPECT_STREQ(e.what(), oru_base_exception(lu_ec_fw_recv_timeout).what());
        return;
    }
    FAIL() << "not caught";
}

TEST(BaseException, IsAStandardExceptionWithTheSameText) {
    oru_base_exception original(lu_ec_wrong_reply);
    std::string text = original.what();
    try {
        throw original;
    } catch (const std::exception& e) {
        EXPECT_EQ(text, e.what());
        const oru_base_exception* derived = dynamic_cast<const oru_base_exception*>(&e);
        ASSERT_NE(derived, nullptr);
        EXPECT_EQ(derived->error_code, lu_ec_wrong_reply);
        return;
    }
    FAIL() << "not caught";
}

TEST(BaseException, TextLivesAsLongAsTheException) {
    const char* text = nullptr;
    std::string copy;
    {
        oru_base_exception e(lu_ec_sensor_id_is_empty);
        text = e.what();
        copy = text;
        oru_base_exception other(lu_ec_memory_is_null);
        (void)other.what();
        EXPECT_EQ(copy, e.what());
        EXPECT_STREQ(text, copy.c_str());
    }
}
