#include "measurement_api.h"

#include "library_symbol.h"

bool bind_measurement_api(MeasurementApi& api, std::string& error) {
    return bind_library_symbol("duFormatFileHeader", api.duFormatFileHeader, error) &&
           bind_library_symbol("duFormatReadingRow", api.duFormatReadingRow, error) &&
           bind_library_symbol("duExactExposureTimeUs", api.duExactExposureTimeUs, error) &&
           bind_library_symbol("duGetLibraryVersion", api.duGetLibraryVersion, error) &&
           bind_library_symbol("duMeasure", api.duMeasure, error) &&
           bind_library_symbol("duMeasureRefusalText", api.duMeasureRefusalText, error) &&
           bind_library_symbol("duMeasureModeName", api.duMeasureModeName, error) &&
           bind_library_symbol("duMeasureModeUnit", api.duMeasureModeUnit, error) &&
           bind_library_symbol("duMeasureModeFromName", api.duMeasureModeFromName, error) &&
           bind_library_symbol("duLoadStoredReading", api.duLoadStoredReading, error);
}

duReadingRow reading_row(const Measurement& m, int master_clock) {
    duReadingRow row{};
    row.sensor_id = m.sensor_id.c_str();
    row.realtime_ns = m.realtime_ns;
    row.first_sequence = m.first_sequence;
    row.last_sequence = m.last_sequence;
    row.shutter_speed = m.shutter_speed;
    row.master_clock = master_clock;
    row.averages = m.averages;
    row.saturated_filters = m.saturated;
    row.gap_s = m.gap;
    row.values = m.values.data();
    return row;
}
