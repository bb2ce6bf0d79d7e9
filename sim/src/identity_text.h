// Sensor-ID text ("A4486-3-12-40-2") to identity fields.
#ifndef VSENSOR_IDENTITY_TEXT_H
#define VSENSOR_IDENTITY_TEXT_H

#include <string>

#include "vsensor/vsensor.h"

namespace vsensor::detail {

bool parse_identity_text(const std::string& text, Identity* out);

}  // namespace vsensor::detail

#endif
