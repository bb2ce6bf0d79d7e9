// Shared set-up of the benchmarks: virtual sensors connected through the
// exported functions, with the library's own lines kept off the report.
#ifndef ORU_BENCH_SUPPORT_H
#define ORU_BENCH_SUPPORT_H

#include <benchmark/benchmark.h>

// Standard output goes to /dev/null while one of these is alive.
class QuietStdout {
public:
    QuietStdout();
    ~QuietStdout();
    QuietStdout(const QuietStdout&) = delete;
    QuietStdout& operator=(const QuietStdout&) = delete;

private:
    int m_saved;
};

// Empties the virtual bus, adds `count` sensors and connects them (shutter
// speed 1, frames as fast as they are read). False, with the benchmark
// skipped, when duConnect does not open them all.
bool connect_virtual_sensors(benchmark::State& state, int count);
void disconnect_sensors();

#endif
