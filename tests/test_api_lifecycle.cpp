// Connecting and disconnecting over and over, and the exported functions'
// handling of failures: stalled or unclaimable sensors, allocation failures,
// and calls that find no sensor.
#include "api_test_support.h"

#include "oru_device_api.h"
#include "oru_device_api_state.h"
#include "oru_device_interface.h"
#include "oru_device_interface_base.h"

#include <malloc.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <new>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Allocation failures on demand, for this test program's calling thread only:
// the (skip+1)-th allocation of exactly `size` bytes throws std::bad_alloc.
namespace {
thread_local std::size_t t_fail_size = 0;
thread_local int t_fail_skip = 0;

void fail_allocation_of(std::size_t size, int skip) {
    t_fail_skip = skip;
    t_fail_size = size;
}

// Heap bytes held through new, on every thread, and their peak.
std::atomic<long long> g_live_bytes{0};
std::atomic<long long> g_peak_bytes{0};

void count_allocation(void* p) {
    const long long live = g_live_bytes += static_cast<long long>(malloc_usable_size(p));
    long long peak = g_peak_bytes;
    while (live > peak && !g_peak_bytes.compare_exchange_weak(peak, live)) {}
}

void count_release(void* p) {
    if (p != nullptr) g_live_bytes -= static_cast<long long>(malloc_usable_size(p));
    std::free(p);
}
}  // namespace

// The replacements pair malloc with free themselves; GCC cannot see that
// once they are inlined into callers of new and delete.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
    if (t_fail_size != 0 && size == t_fail_size) {
        if (t_fail_skip == 0) {
            t_fail_size = 0;
            throw std::bad_alloc();
        }
        --t_fail_skip;
    }
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        count_allocation(p);
        return p;
    }
    throw std::bad_alloc();
}
// The library allocates with new (std::nothrow): route it here too, so every
// allocation and release meet (AddressSanitizer checks that they do).
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* p) noexcept { count_release(p); }
void operator delete(void* p, std::size_t) noexcept { count_release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { count_release(p); }
#pragma GCC diagnostic pop

namespace {

class ApiLifecycle : public VirtualBusTest {
protected:
    // Connects, reads filter data from every sensor and disconnects; returns
    // the control requests and pauses of the connect.
    std::string connect_read_disconnect(int sensors) {
        vsensor::clear_events();
        {
            StdoutCapture out;
            EXPECT_EQ(duConnect(), sensors);
        }
        const std::string bring_up = vsensor::transcript();
        for (int dev = 0; dev < sensors; ++dev) {
            vsensor::set_constant_frame(dev, static_cast<uint16_t>(1000 + 100 * dev));
            EXPECT_EQ(duActivateSensorWithIndex(dev), 1);
            std::vector<double> output(1024, -1.0);
            EXPECT_EQ(duGetFilterData(output.data(), 2), 1) << "sensor " << dev;
            EXPECT_DOUBLE_EQ(output[10], 1000.0 + 100 * dev) << "sensor " << dev;
        }
        StdoutCapture out;
        EXPECT_EQ(duDisconnect(), 1);
        EXPECT_EQ(out.text(), "Sensor is disconnected.\n");
        return bring_up;
    }
};

TEST_F(ApiLifecycle, OneAndTwoSensorsThreeTimesOver) {
    for (int n : {1, 2}) {
        vsensor::reset();
        add_sensors(n);
        const std::string first = connect_read_disconnect(n);
        EXPECT_NE(first.find("cmd 3 value 3"), std::string::npos) << first;  // start command
        EXPECT_EQ(connect_read_disconnect(n), first);
        EXPECT_EQ(connect_read_disconnect(n), first);
    }
}

// After a disconnect (as before any connect) every call that needs a sensor
// reports the missing device object and writes nothing.
TEST_F(ApiLifecycle, WithoutSensorEveryCallReportsAMissingDevice) {
    connect(1);
    {
        StdoutCapture out;
        ASSERT_EQ(duDisconnect(), 1);
    }
    int value = 0;
    double ms = 0.0;
    int list[] = {1};
    char id[26] = "unchanged";
    std::vector<double> output(1024, -1.0);
    StdoutCapture out;
    const int results[] = {duGetFilterData(output.data(), 1),
                           duGetShutterSpeed(),
                           duSetShutterSpeed(10),
                           duShutterSpeedToExposureTime(1, 10, &ms),
                           duExposureTimeToShutterSpeed(1, 10.0, &value),
                           duGetOptimalShutterSpeed(list, 1),
                           duGetOptimalShutterSpeed2(list, 1, 3000),
                           duSetSensorParameters(1, 132),
                           duGetSensorParameters(&value, &value),
                           duGetSensorID(id)};
    std::string expected;
    for (int result : results) {
        EXPECT_EQ(result, -lu_ec_device_object_is_null);
        EXPECT_STREQ(duGetErrorText(result), "no sensor is connected");
        expected += api_exception_line(lu_ec_device_object_is_null);
    }
    EXPECT_EQ(out.text(), expected);
    EXPECT_EQ(output[0], -1.0);
    EXPECT_STREQ(id, "unchanged");
}

// The front ends' messages: every code has words of its own, -1 is a failure
// (not the success that negating it gives) and any other number gets words too.
TEST(ErrorText, EveryResultHasItsOwnWords) {
    std::set<std::string> seen;
    for (int result = 0; result > -lu_ec_end_code; --result) {
        ASSERT_NE(duGetErrorText(result), nullptr) << result;
        EXPECT_TRUE(seen.insert(duGetErrorText(result)).second) << result << ": " << duGetErrorText(result);
    }
    const std::pair<int, const char*> cases[] = {
        {-1, "the operation failed"}, {0, "undefined failure"}, {-9, "the sensor did not answer in time"},
        {-31, "the color object is missing"}, {1, "success"}, {1024, "success"}, {-32, "unknown error"},
        {INT_MIN, "unknown error"}};
    for (const auto& c : cases) EXPECT_STREQ(duGetErrorText(c.first), c.second) << c.first;
}

TEST_F(ApiLifecycle, AveragingManyFramesHoldsNoFramesOnTheHeap) {
    connect(1);
    vsensor::set_constant_frame(0, 1234);
    std::vector<double> output(1024, -1.0);
    const long long before = g_live_bytes;
    g_peak_bytes = before;
    EXPECT_EQ(duGetFilterData(output.data(), 20000), 1);
    EXPECT_LT(g_peak_bytes - before, 1 << 20) << "20000 whole frames would hold 80 MB";
    EXPECT_EQ(output[512], 1234.0);
}

TEST_F(ApiLifecycle, AllocationFailureInTheSearchGivesMinusOne) {
    connect(1);
    vsensor::set_constant_frame(0, 3000);
    StdoutCapture out;
    fail_allocation_of(1024 * sizeof(double), 0);  // the zero background
    EXPECT_EQ(duGetOptimalShutterSpeed(nullptr, 0), -1);
    EXPECT_EQ(out.text(), api_unknown_exception_line());
    // The sensor is still usable.
    EXPECT_EQ(duGetOptimalShutterSpeed(nullptr, 0), 5);
}

// Memory running out while the second sensor's device object is made: the
// opened sensors are released, the emptied slot is reported, not
// dereferenced, and the next connect works.
TEST_F(ApiLifecycle, AllocationFailureDuringConnectReleasesTheOpenedSensors) {
    add_sensors(2);
    fail_allocation_of(sizeof(oru_device_interface_base), 1);
    {
        StdoutCapture out;
        EXPECT_EQ(duConnect(), -1);
        EXPECT_EQ(out.text(), "[Info] Reading first configuration descriptor:\n[Info] nb interfaces: 1\n" +
                                  api_unknown_exception_line());
    }
    EXPECT_EQ(g_pDeviceInterface[0], nullptr);
    EXPECT_EQ(g_total_num_of_sensors, 1);  // kept, as is the active index
    {
        StdoutCapture out;
        EXPECT_EQ(duGetShutterSpeed(), -7);
        EXPECT_EQ(out.text(), api_exception_line(lu_ec_device_object_is_null));
    }
    {
        StdoutCapture out;
        EXPECT_EQ(duConnect(), 2);
    }
    vsensor::set_constant_frame(1, 42);
    duActivateSensorWithIndex(1);
    std::vector<double> output(1024, -1.0);
    EXPECT_EQ(duGetFilterData(output.data(), 1), 1);
    EXPECT_DOUBLE_EQ(output[0], 42.0);
}

}  // namespace
