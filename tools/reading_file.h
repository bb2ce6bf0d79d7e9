// Reading files as `oru-sensor read -o` writes them (csv, jsonl or json),
// read back for a calibration: the mean of their readings.
#ifndef ORU_TOOLS_READING_FILE_H
#define ORU_TOOLS_READING_FILE_H

#include <string>
#include <vector>

struct ReadingFile {
    std::string sensor_id;  // of its last reading
    int shutter_speed = 0;
    std::vector<double> values;  // 1024 DN, the mean of the file's readings
};

// false with a message naming the file and the line when it cannot be used
// (no readings, fewer than 1024 values, readings at different shutter speeds).
bool load_reading_file(const std::string& path, ReadingFile& out, std::string& error);

#endif
