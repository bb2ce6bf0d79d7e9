// Where the logger puts each reading: rotating files, an MQTT broker. A sink
// takes one reading with the metadata of its sensor, on the reading loop's
// thread, and must not block it for long.
#ifndef ORU_TOOLS_LOGGER_READING_SINK_H
#define ORU_TOOLS_LOGGER_READING_SINK_H

#include <string>

#include "cli_format.h"
#include "oru_measurement.h"

class ReadingSink {
public:
    virtual ~ReadingSink() = default;
    // False when the sink cannot go on (a disk that is full, a directory
    // gone); error() says why. A broker that is away is not such a failure.
    virtual bool write(const duSensorMetadata& sensor, const Measurement& m) = 0;
    // Everything written so far is complete on close.
    virtual bool close() = 0;
    virtual const std::string& error() const = 0;
};

#endif
