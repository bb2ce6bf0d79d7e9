// The 5-byte identity record, laid out so that the library's decoder gives
// back the fields; and the sensor-ID text form.
#include <cstdio>

#include "identity_text.h"
#include "vsensor/vsensor.h"

namespace vsensor {

namespace {
bool special_lot(int lot_id) { return lot_id == 4486 || lot_id == 6529; }
}  // namespace

std::vector<uint8_t> encode_identity(const Identity& id) {
    const unsigned lot = static_cast<unsigned>(id.lot_id) & 0xFFFF;
    const unsigned upper = lot >> 8, lower = lot & 0xFF;
    // Upper byte of the lot: bits 5..3 from b0, bit 2 from b1 bit 7, bit 0
    // from b1 bit 5 (the decoder never sees b1 bit 6).
    const unsigned b0 = ((static_cast<unsigned>(id.lot_char - 'A') & 0x1F) << 3) | ((upper >> 3) & 7);
    const unsigned b1 = (((upper >> 2) & 1) << 7) | ((upper & 1) << 5) | ((lower >> 3) & 0x1F);
    const unsigned b2 = ((lower & 7) << 5) | (static_cast<unsigned>(id.wafer_id) & 0x1F);
    const unsigned x = static_cast<unsigned>(id.x_coord), y = static_cast<unsigned>(id.y_coord);
    const unsigned type = static_cast<unsigned>(id.sensor_type);
    unsigned b3, b4;
    if (special_lot(id.lot_id)) {
        b3 = ((x & 0x3F) << 2) | ((y >> 4) & 3);
        b4 = ((y & 0x0F) << 4) | ((type & 7) << 1);
    } else {
        b3 = ((x & 0x7F) << 1) | ((y >> 6) & 1);
        b4 = ((y & 0x3F) << 2) | (type & 3);
    }
    return {static_cast<uint8_t>(b0), static_cast<uint8_t>(b1), static_cast<uint8_t>(b2), static_cast<uint8_t>(b3),
            static_cast<uint8_t>(b4)};
}

namespace detail {

bool parse_identity_text(const std::string& text, Identity* out) {
    Identity id;
    char c = 0;
    int n = 0;
    if (std::sscanf(text.c_str(), " %c%d-%d-%d-%d-%d%n", &c, &id.lot_id, &id.wafer_id, &id.x_coord, &id.y_coord,
                    &id.sensor_type, &n) != 6)
        return false;
    if (text.find_first_not_of(" \t", static_cast<size_t>(n)) != std::string::npos) return false;
    id.lot_char = c;
    *out = id;
    return true;
}

}  // namespace detail
}  // namespace vsensor
