// list, info and set: one short exchange with the chosen sensor each.
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "commands.h"

int cmd_list(Session& s, OutputFile& out) {
    char** ids = s.api.duGetSensorList();
    const int n = s.api.duGetTotalSensors();
    if (!ids) return fail("listing sensors failed", -2);
    char line[64];
    std::snprintf(line, sizeof line, "%-6s %s\n", "index", "sensor ID");
    std::string text = line;
    for (int i = 0; i < n; ++i) {
        std::snprintf(line, sizeof line, "%-6d %s\n", i, ids[i]);
        text += line;
        std::free(ids[i]);
    }
    std::free(ids);
    return out.write(text) ? 0 : fail_output(out);
}

int cmd_info(Session& s, const Options& o, OutputFile& out) {
    const std::string id = id_of_active(s.api);
    char lot = '?';
    int lot_id = 0, wafer = 0, x = 0, y = 0, type = 0;
    std::sscanf(id.c_str(), "%c%d-%d-%d-%d-%d", &lot, &lot_id, &wafer, &x, &y, &type);
    const int ss = s.api.duGetShutterSpeed();
    if (ss < 0) return fail("reading the shutter speed failed", ss);
    double ms = 0, exact_us = 0;
    int r = s.api.duShutterSpeedToExposureTime(o.clock, ss, &ms);
    if (r < 0) return fail("converting the shutter speed failed", r);
    r = s.api.duExactExposureTimeUs(o.clock, ss, &exact_us);
    if (r < 0) return fail("converting the shutter speed failed", r);
    // The published conversion divides in whole ms; say so where it differs.
    char published[160] = "";
    if (std::abs(exact_us / 1000.0 - ms) >= 0.0005)
        std::snprintf(published, sizeof published,
                      "  published:    %.3f ms (duShutterSpeedToExposureTime divides in whole ms)\n", ms);
    int gain = 0, range = 0;
    r = s.api.duGetSensorParameters(&gain, &range);
    if (r < 0) return fail("reading the ADC settings failed", r);
    int lo = 0, hi = 0;
    s.api.duGetShutterSpeedLimits(&lo, &hi);
    char text[512];
    std::snprintf(text, sizeof text,
                  "sensor ID:      %s\n  lot:          %c%d\n  wafer:        %d\n  position:     x %d, y %d\n"
                  "  sensor type:  %d\nshutter speed:  %d (limits %d..%d)\nexposure time:  %.3f ms at %d MHz\n%s"
                  "ADC range:      %d\nADC gain:       %d\n",
                  id.c_str(), lot, lot_id, wafer, x, y, type, ss, lo, hi, exact_us / 1000.0, o.clock, published, range,
                  gain);
    return out.write(text) ? 0 : fail_output(out);
}

int cmd_set(Session& s, const Options& o, OutputFile& out) {
    if (o.shutter > 0) {
        const int r = s.api.duSetShutterSpeed(o.shutter);
        if (r < 0) return fail("setting the shutter speed failed", r);
    }
    if (o.gain >= 0 || o.range >= 0) {
        int gain = 0, range = 0;
        int r = s.api.duGetSensorParameters(&gain, &range);
        if (r < 0) return fail("reading the ADC settings failed", r);
        if (o.gain >= 0) gain = o.gain;
        if (o.range >= 0) range = o.range;
        r = s.api.duSetSensorParameters(gain, range);
        if (r < 0) return fail("setting the ADC failed", r);
    }
    int gain = 0, range = 0;
    const int r = s.api.duGetSensorParameters(&gain, &range);
    if (r < 0) return fail("reading the ADC settings failed", r);
    char text[160];
    std::snprintf(text, sizeof text, "shutter speed: %d\nADC gain:      %d\nADC range:     %d\n",
                  s.api.duGetShutterSpeed(), gain, range);
    return out.write(text) ? 0 : fail_output(out);
}
