// The command line's writer: one CSV row (or JSON Lines object) of 1024
// values per reading, formatted and written to a file with a flush each, as
// `oru-sensor read` does.
#include <benchmark/benchmark.h>

#include "cli_format.h"
#include "output_file.h"

#include <cstdio>
#include <string>

namespace {

Measurement sample_reading() {
    Measurement m;
    m.sensor_id = "A4486-3-12-40-2";
    m.shutter_speed = 120;
    m.averages = 10;
    m.realtime_ns = 1795000000123456789LL;
    m.first_sequence = 123450;
    m.last_sequence = 123459;
    for (int i = 0; i < 1024; ++i) m.values.push_back(64.0 + (i * 2654435761u % 40000) / 10.0);
    return m;
}

void write_rows(benchmark::State& state, OutputFormat format) {
    const Measurement m = sample_reading();
    const std::string path = "/tmp/oru_bench_rows." + std::to_string(static_cast<int>(format));
    OutputFile out(path, stdout);
    std::string text;
    std::size_t bytes = 0;
    for (auto _ : state) {
        text.clear();
        format_reading(format, m, 0, text);
        if (!out.write(text)) state.SkipWithError(out.error().c_str());
        bytes += text.size();
    }
    out.close();
    std::remove(path.c_str());
    state.counters["rows/s"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["bytes/row"] = static_cast<double>(bytes) / static_cast<double>(state.iterations());
}

void BM_CsvRow(benchmark::State& state) { write_rows(state, OutputFormat::Csv); }
void BM_JsonLinesRow(benchmark::State& state) { write_rows(state, OutputFormat::JsonLines); }
BENCHMARK(BM_CsvRow)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_JsonLinesRow)->Unit(benchmark::kMicrosecond);

}  // namespace
