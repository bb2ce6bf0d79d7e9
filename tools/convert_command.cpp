// convert: shutter speed <-> exposure time. Pure arithmetic, the library's
// sensor-free conversions, so no sensor need be attached.
#include <cstdio>

#include "commands.h"

namespace {
constexpr int kMinShutter = 1;
constexpr int kMaxShutter = 3000;
}  // namespace

int cmd_convert(const OruApi& api, const Options& o, OutputFile& out) {
    char text[200];
    if (o.shutter > 0) {
        double ms = 0;
        const int r = api.duConvertShutterSpeedToExposureTime(o.clock, o.shutter, &ms);
        if (r < 0) return fail("conversion failed", r);
        std::snprintf(text, sizeof text, "shutter speed %d = %.3f ms exposure at %d MHz\n", o.shutter, ms, o.clock);
    } else {
        int ss = 0;
        const int r = api.duConvertExposureTimeToShutterSpeed(o.clock, o.ms, &ss);
        if (r < 0) return fail("conversion failed", r);
        // The reverse formula truncates, so short times give 0 or less.
        if (ss < kMinShutter || ss > kMaxShutter) {
            std::snprintf(text, sizeof text, "--ms %g gives shutter speed %d at %d MHz, outside %d..%d", o.ms, ss,
                          o.clock, kMinShutter, kMaxShutter);
            return usage_error(text);
        }
        std::snprintf(text, sizeof text, "%.3f ms exposure = shutter speed %d at %d MHz\n", o.ms, ss, o.clock);
    }
    return out.write(text) ? 0 : fail_output(out);
}
