// Sensor identity: both field layouts decode any 5 bytes, the text form
// parses back with the utility parser to the same numbers.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "efm32com/oru_device_interface_device_info.h"
#include "utils/oru_utils_interface.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 5) return 0;
    char raw[5];
    for (int i = 0; i < 5; ++i) raw[i] = static_cast<char>(data[i]);
    SSensorIdFields f = decode_sensor_id_fields(reinterpret_cast<const unsigned char*>(raw));
    std::string text = decode_sensor_id_from_string(raw, 0);
    if (text != format_sensor_id(f)) std::abort();
    char lot = 0;
    short lot_id = -1, wafer = -1, x = -1, y = -1;
    oru_utils_interface::decode_sensor_ID(text, &lot, &lot_id, &wafer, &x, &y);
    // Lot numbers are at most 0x3DFF, so the text never holds a minus sign
    // that would split differently.
    if (lot != f.lot_char || lot_id != f.lot_id || wafer != f.wafer_id || x != f.x_coord || y != f.y_coord)
        std::abort();
    return 0;
}
