#include "bench_support.h"

#include "oru_device_api.h"
#include "vsensor/vsensor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

QuietStdout::QuietStdout() : m_saved(-1) {
    std::fflush(stdout);
    const int null = open("/dev/null", O_WRONLY);
    if (null < 0) return;
    m_saved = dup(STDOUT_FILENO);
    dup2(null, STDOUT_FILENO);
    close(null);
}

QuietStdout::~QuietStdout() {
    if (m_saved < 0) return;
    std::fflush(stdout);
    dup2(m_saved, STDOUT_FILENO);
    close(m_saved);
}

bool connect_virtual_sensors(benchmark::State& state, int count) {
    vsensor::reset();
    vsensor::set_realtime(false);
    for (int i = 0; i < count; ++i) vsensor::add_sensor();
    int connected = 0;
    {
        QuietStdout quiet;
        connected = duConnect();
        if (connected == count) duSetShutterSpeed(1);
    }
    if (connected == count) return true;
    state.SkipWithError(("duConnect gave " + std::to_string(connected)).c_str());
    return false;
}

void disconnect_sensors() {
    QuietStdout quiet;
    duDisconnect();
}
