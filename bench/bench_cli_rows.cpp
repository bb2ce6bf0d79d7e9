// The command line's writer: one CSV row (or JSON Lines object) of 1024
// values per reading, formatted by the library's row formatter and written
// to a file with a flush each, as `oru-sensor read` does.
#include <benchmark/benchmark.h>

#include "output_file.h"
#include "reading_writer.h"

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

MeasurementApi linked_api() {
    MeasurementApi api;
    api.duFormatFileHeader = duFormatFileHeader;
    api.duFormatReadingRow = duFormatReadingRow;
    api.duMeasureModeUnit = duMeasureModeUnit;
    return api;
}

void write_rows(benchmark::State& state, OutputFormat format) {
    const Measurement m = sample_reading();
    const MeasurementApi api = linked_api();
    duFileHeader header{};
    header.sensor_count = 1;
    std::snprintf(header.sensors[0].sensor_id, sizeof header.sensors[0].sensor_id, "%s", m.sensor_id.c_str());
    header.sensors[0].settings = {120, 1, 1, 132};
    const ReadingWriter writer(api, format, header, SpectrumHeader());
    const std::string path = "/tmp/oru_bench_rows." + std::to_string(static_cast<int>(format));
    OutputFile out(path, stdout);
    std::string text;
    std::size_t bytes = 0;
    for (auto _ : state) {
        text.clear();
        writer.append(m, 0, text);
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
