// The faults put on sensor 1 of 3 while all three stream, and the check that
// a sensor streams on without a gap. Header-only: the virtual-libusb tier and
// the real-libusb (umockdev) tier both run this table.
#ifndef ORU_TESTS_ISOLATION_CASES_H
#define ORU_TESTS_ISOLATION_CASES_H

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "oru_device_api.h"
#include "vsensor/vsensor.h"

struct IsolationCase {
    const char* what;
    unsigned faults;
    bool unplug;
    bool replug;  // plugged in again before the reconnect
    int state;  // of sensor 1 once its reads failed
    int timeout_ms;  // of those reads
};
inline void PrintTo(const IsolationCase& c, std::ostream* os) { *os << c.what; }

inline auto isolation_cases() {
    return testing::Values(IsolationCase{"stall", vsensor::kFaultStreamStall, false, false, 1, 100},
                           IsolationCase{"bulk_error", vsensor::kFaultBulkError, false, false, 2, 60000},
                           IsolationCase{"unplug", vsensor::kFaultNone, true, false, 3, 60000},
                           IsolationCase{"unplug_and_replug", vsensor::kFaultNone, true, true, 3, 60000});
}
inline std::string isolation_case_name(const testing::TestParamInfo<IsolationCase>& info) { return info.param.what; }

// Reads `readings` readings of 5 frames from sensor `index`'s stream:
// consecutive, none dropped, each frame's value its own number.
inline testing::AssertionResult streams_without_gap(int index, uint64_t* next, int readings) {
    std::vector<double> output(1024);
    for (int i = 0; i < readings; ++i) {
        duFrameStreamInfo info{};
        const int result = duReadFrameStreamOf(index, output.data(), 5, 5000, &info);
        if (result != 1) return testing::AssertionFailure() << "sensor " << index << " read gave " << result;
        if (info.first_sequence != *next || info.dropped_frames != 0)
            return testing::AssertionFailure() << "sensor " << index << " gap: expected " << *next << ", got "
                                               << info.first_sequence << ", dropped " << info.dropped_frames;
        if (output[0] != (info.first_sequence + info.last_sequence) / 2.0)
            return testing::AssertionFailure() << "sensor " << index << " frames out of order";
        *next = info.last_sequence + 1;
    }
    return testing::AssertionSuccess();
}

#endif
