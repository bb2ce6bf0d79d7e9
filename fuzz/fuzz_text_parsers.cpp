// The text helpers: tokenizer, sensor-ID text parser, number lists, file
// names. Arbitrary text must never read out of bounds.
#include <cstdint>
#include <string>
#include <vector>

#include "utils/oru_utils_interface.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    std::string delims(1, static_cast<char>(data[0]));
    std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::vector<std::string> fields;
    oru_utils_interface::parse_sentense(text, delims, fields);
    for (const auto& f : fields)
        if (f.empty()) __builtin_trap();
    char lot = 'z';
    short a, b, c, d;
    oru_utils_interface::decode_sensor_ID(text, &lot, &a, &b, &c, &d);
    oru_utils_interface::string_to_integer_vector(text);
    oru_utils_interface::get_file_name(text);
    oru_utils_interface::get_file_path(text);
    oru_utils_interface::get_file_name_only(text);
    oru_utils_interface::get_file_extension(text);
    oru_utils_interface::trim_string(text);
    return 0;
}
