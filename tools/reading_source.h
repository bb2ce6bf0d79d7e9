// Where `read` takes its readings from: the frame streams of the chosen
// sensors (every frame once, in order, stamped on arrival), or one request
// per reading when readings are spaced out in time.
#ifndef ORU_TOOLS_READING_SOURCE_H
#define ORU_TOOLS_READING_SOURCE_H

#include <string>
#include <vector>

#include "cli_format.h"
#include "oru_api_loader.h"

struct SourceSensor {
    int index;
    std::string id;
    int shutter_speed;
};

class ReadingSource {
public:
    ReadingSource(const OruApi& api, std::vector<SourceSensor> sensors, int averages, bool streamed);
    ~ReadingSource();
    // Starts the streams; 0, or the library's negative result.
    int start();
    // One reading of sensors()[which]; 0, or the library's negative result.
    int read(std::size_t which, Measurement& m);
    // Stops the streams that run.
    void stop();
    const std::vector<SourceSensor>& sensors() const { return m_sensors; }

private:
    int stream_timeout_ms(const SourceSensor& sensor) const;
    const OruApi& m_api;
    std::vector<SourceSensor> m_sensors;
    int m_averages;
    bool m_streamed;
    std::vector<bool> m_running;
};

#endif
