#include "cli_session.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli_errors.h"

int usage_error(const std::string& msg) {
    std::fprintf(stderr, "oru-sensor: %s (see oru-sensor --help)\n", msg.c_str());
    return 2;
}

int fail(const std::string& what, int code) {
    std::fprintf(stderr, "oru-sensor: %s: %s (code %d)\n", what.c_str(), describe_result(code).c_str(), code);
    return 1;
}

int fail_output(const OutputFile& out) {
    std::fprintf(stderr, "oru-sensor: %s\n", out.error().c_str());
    return 1;
}

namespace {

// Set before the first library call, read by the handler (the caller's
// thread or the library's event thread); never written after.
bool g_verbose = false;
// Written by the handler, read after duConnect returned on the same thread.
bool g_permission_denied = false;

// A permission failure is remembered, to name it and its fix.
void on_library_line(int, const char* line, void*) {
    if (std::strstr(line, "permission denied") != nullptr) g_permission_denied = true;
    if (g_verbose) std::fprintf(stderr, "%s\n", line);
}

}  // namespace

void route_library_lines(const OruApi& api, bool verbose) {
    g_verbose = verbose;
    api.duSetLogHandler(on_library_line, nullptr);
}

std::string id_of_active(const OruApi& api) {
    char id[32] = {0};
    if (api.duGetSensorID(id) < 0) return "?";
    return id;
}

namespace {

// Index of the sensor with the given ID, or -1.
int index_of_id(const OruApi& api, const std::string& id, int n) {
    int found = -1;
    char** ids = api.duGetSensorList();
    for (int i = 0; ids != nullptr && i < n; ++i) {
        if (found < 0 && id == ids[i]) found = i;
        std::free(ids[i]);
    }
    std::free(ids);
    return found;
}

}  // namespace

int connect_and_select(Session& s, const Options& o, bool all_allowed, std::vector<int>& chosen) {
    if (o.sensor == "all" && !all_allowed) return usage_error("--sensor all works with read and log only");
    const int n = s.api.duConnect();
    if (n < 0) {
        if (g_permission_denied) {
            std::fprintf(stderr,
                         "oru-sensor: permission denied opening the sensor's USB device; "
                         "run `oru-sensor doctor` for the fix\n");
            return 1;
        }
        if (n == -1) {
            std::fprintf(stderr, "oru-sensor: no sensor found (code -1); try `oru-sensor doctor`, or --virtual\n");
            return 1;
        }
        return fail("connecting failed", n);
    }
    s.connected = true;
    if (o.sensor == "all") {
        for (int i = 0; i < n; ++i) chosen.push_back(i);
        return 0;
    }
    if (o.sensor.empty()) {
        chosen.push_back(0);
        return 0;
    }
    const char* text = o.sensor.c_str();
    char* end = nullptr;
    errno = 0;
    const long index = std::strtol(text, &end, 10);
    if (end != text && *end == '\0') {
        // Out of long's range is out of range too; the text is reported as given.
        if (errno == ERANGE || index < 0 || index >= n) {
            std::fprintf(stderr, "oru-sensor: no sensor with index %s (%d connected)\n", text, n);
            return 1;
        }
        chosen.push_back(static_cast<int>(index));
    } else {
        const int index_of = index_of_id(s.api, o.sensor, n);
        if (index_of < 0) {
            std::fprintf(stderr, "oru-sensor: no sensor with ID %s\n", text);
            return 1;
        }
        chosen.push_back(index_of);
    }
    s.api.duActivateSensorWithIndex(chosen.front());
    return 0;
}
