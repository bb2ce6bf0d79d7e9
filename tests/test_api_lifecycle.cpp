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
#include <cstdlib>
#include <atomic>
#include <new>
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

TEST_F(ApiLifecycle, OneSensorThreeTimesOver) {
    add_sensors(1);
    const std::string first = connect_read_disconnect(1);
    EXPECT_NE(first.find("cmd 3 value 3"), std::string::npos) << first;  // start command
    EXPECT_EQ(connect_read_disconnect(1), first);
    EXPECT_EQ(connect_read_disconnect(1), first);
}

TEST_F(ApiLifecycle, TwoSensorsThreeTimesOver) {
    add_sensors(2);
    const std::string first = connect_read_disconnect(2);
    EXPECT_EQ(connect_read_disconnect(2), first);
    EXPECT_EQ(connect_read_disconnect(2), first);
}

TEST_F(ApiLifecycle, ConnectWhileConnectedThenRead) {
    add_sensors(2);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 2);
        ASSERT_EQ(duConnect(), 2);
    }
    vsensor::set_constant_frame(1, 777);
    duActivateSensorWithIndex(1);
    std::vector<double> output(1024, -1.0);
    EXPECT_EQ(duGetFilterData(output.data(), 3), 1);
    EXPECT_DOUBLE_EQ(output[0], 777.0);
}

TEST_F(ApiLifecycle, DisconnectStopsTheSensors) {
    add_sensors(2);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 2);
    }
    vsensor::clear_events();
    {
        StdoutCapture out;
        ASSERT_EQ(duDisconnect(), 1);
    }
    EXPECT_NE(find_item(transcript_items(0), "cmd 3 value 1"), -1) << vsensor::transcript(0);
    EXPECT_NE(find_item(transcript_items(1), "cmd 3 value 1"), -1) << vsensor::transcript(1);
}

TEST_F(ApiLifecycle, FailedClaimLeavesASensorWhoseReadFails) {
    vsensor::SensorOptions options;
    options.faults = vsensor::kFaultClaim;
    add_sensors(1, options);
    {
        StdoutCapture out;
        EXPECT_EQ(duConnect(), 1);
    }
    std::vector<double> output(1024, -1.0);
    StdoutCapture out;
    EXPECT_EQ(duGetFilterData(output.data(), 2), -9);
    EXPECT_EQ(out.text(), api_exception_line(lu_ec_fw_recv_timeout));
}

TEST_F(ApiLifecycle, NoSensorLeftAfterDisconnect) {
    add_sensors(1);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 1);
        ASSERT_EQ(duDisconnect(), 1);
    }
    std::vector<double> output(1024, -1.0);
    char id[26];
    StdoutCapture out;
    EXPECT_EQ(duGetFilterData(output.data(), 1), -7);
    EXPECT_EQ(duGetShutterSpeed(), -7);
    EXPECT_EQ(duGetSensorID(id), -7);
    EXPECT_EQ(out.text(), api_exception_line(lu_ec_device_object_is_null) +
                              api_exception_line(lu_ec_device_object_is_null) +
                              api_exception_line(lu_ec_device_object_is_null));
}

TEST_F(ApiLifecycle, AveragingManyFramesHoldsNoFramesOnTheHeap) {
    add_sensors(1);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 1);
    }
    vsensor::set_constant_frame(0, 1234);
    std::vector<double> output(1024, -1.0);
    const long long before = g_live_bytes;
    g_peak_bytes = before;
    EXPECT_EQ(duGetFilterData(output.data(), 20000), 1);
    EXPECT_LT(g_peak_bytes - before, 1 << 20) << "20000 whole frames would hold 80 MB";
    EXPECT_EQ(output[512], 1234.0);
}

TEST_F(ApiLifecycle, AllocationFailureInTheSearchGivesMinusOne) {
    add_sensors(1);
    {
        StdoutCapture out;
        ASSERT_EQ(duConnect(), 1);
    }
    vsensor::set_constant_frame(0, 3000);
    StdoutCapture out;
    fail_allocation_of(1024 * sizeof(double), 0);  // the zero background
    EXPECT_EQ(duGetOptimalShutterSpeed(nullptr, 0), -1);
    EXPECT_EQ(out.text(), api_unknown_exception_line());
    // The sensor is still usable.
    EXPECT_EQ(duGetOptimalShutterSpeed(nullptr, 0), 5);
}

// Memory running out on the event thread fails the one request; nothing
// escapes the callback and the process goes on.
TEST_F(ApiLifecycle, AllocationFailureDuringConnectReleasesTheOpenedSensors) {
    add_sensors(2);
    // The second sensor's device object cannot be made.
    fail_allocation_of(sizeof(oru_device_interface_base), 1);
    StdoutCapture out;
    EXPECT_EQ(duConnect(), -1);
    EXPECT_EQ(out.text(), "[Info] Reading first configuration descriptor:\n[Info] nb interfaces: 1\n" +
                              api_unknown_exception_line());
    EXPECT_EQ(g_pDeviceInterface[0], nullptr);
    EXPECT_EQ(g_total_num_of_sensors, 1);  // kept, as is the active index
    // The emptied slot is reported, not dereferenced.
    StdoutCapture more;
    EXPECT_EQ(duGetShutterSpeed(), -7);
    EXPECT_EQ(more.text(), api_exception_line(lu_ec_device_object_is_null));
}

TEST_F(ApiLifecycle, TableStaysUsableAfterAFailedConnect) {
    add_sensors(1);
    fail_allocation_of(sizeof(oru_device_interface_base), 0);
    {
        StdoutCapture out;
        EXPECT_EQ(duConnect(), -1);
        EXPECT_EQ(out.text(), api_unknown_exception_line());
    }
    {
        StdoutCapture out;
        EXPECT_EQ(duConnect(), 1);
    }
    vsensor::set_constant_frame(0, 42);
    std::vector<double> output(1024, -1.0);
    EXPECT_EQ(duGetFilterData(output.data(), 1), 1);
    EXPECT_DOUBLE_EQ(output[0], 42.0);
}

}  // namespace
