// Injected faults, one device at a time.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

class Faults : public TwoSensors {};

// Open, descriptor, claim, no-echo and control time-out faults are proven
// through the library (tests/test_faults.cpp), which sees each of them; the
// transfer faults below have sim-side details the library does not show.
TEST_F(Faults, StreamStallNeverCompletesButCanBeCancelled) {
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    libusb_transfer* t = submit(h);
    out(h, 70, 0, 1);
    handle();
    EXPECT_EQ(status, -1);
    EXPECT_EQ(vsensor::frames_sent(0), 0u);
    libusb_cancel_transfer(t);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_CANCELLED);
    // Clearing the fault lets the stream flow again.
    vsensor::set_faults(0, vsensor::kFaultNone);
    status = -1;
    ASSERT_EQ(libusb_submit_transfer(t), 0);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_COMPLETED);
    libusb_free_transfer(t);
    libusb_close(h);
}

TEST_F(Faults, BulkErrorFailsTheNextCompletionOnly) {
    vsensor::set_faults(0, vsensor::kFaultBulkError);
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    libusb_transfer* t = submit(h);
    handle(1000);
    EXPECT_EQ(status, -1);  // nothing before streaming starts
    out(h, 70, 0, 1);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_ERROR);
    EXPECT_EQ(t->actual_length, 0);
    ASSERT_EQ(libusb_submit_transfer(t), 0);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_COMPLETED);
    EXPECT_EQ(vsensor::frames_sent(0), 1u);
    libusb_free_transfer(t);
    libusb_close(h);
}

TEST_F(Faults, UnplugCompletesThePendingTransferAndFailsLaterOnes) {
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    libusb_transfer* t = submit(h);
    vsensor::unplug(0);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_NO_DEVICE);
    EXPECT_EQ(libusb_submit_transfer(t), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(cmd(h, 5, 1), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_claim_interface(h, 0), LIBUSB_ERROR_NO_DEVICE);
    int got = 0;
    EXPECT_EQ(libusb_bulk_transfer(h, 0x81, buf, 2048, &got, 0), LIBUSB_ERROR_NO_DEVICE);
    libusb_free_transfer(t);
    libusb_close(h);
}

TEST_F(Faults, UnplugOnStreamVanishesAtStartStreaming) {
    vsensor::set_faults(1, vsensor::kFaultUnplugOnStream);
    libusb_device_handle* h = open_nth(1);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(cmd(h, 5, 1), 1);
    libusb_transfer* t = submit(h);
    out(h, 70, 0, 1);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_NO_DEVICE);
    EXPECT_FALSE(vsensor::streaming(1));
    EXPECT_EQ(vsensor::transcript(1, true).find("dev1 unplug") != std::string::npos, true);
    libusb_free_transfer(t);
    libusb_close(h);
}

// ---- hotplug, replug and the timed schedule ----------------------------------

// The device is only valid during the callback: what the tests need of it is
// taken there.
struct Seen {
    libusb_device* device;
    libusb_hotplug_event event;
    std::thread::id thread;
    int port, address;
};

struct Recorder {
    std::vector<Seen> seen;
    int answer = 0;  // what the callback returns
    bool deregister_inside = false;
    libusb_hotplug_callback_handle handle = 0;

    static int LIBUSB_CALL callback(libusb_context* ctx, libusb_device* d, libusb_hotplug_event e, void* user) {
        auto* r = static_cast<Recorder*>(user);
        r->seen.push_back({d, e, std::this_thread::get_id(), libusb_get_port_number(d), libusb_get_device_address(d)});
        if (r->deregister_inside) libusb_hotplug_deregister_callback(ctx, r->handle);
        return r->answer;
    }
    int subscribe(int flags = 0, int vid = LIBUSB_HOTPLUG_MATCH_ANY, int pid = LIBUSB_HOTPLUG_MATCH_ANY,
                  int cls = LIBUSB_HOTPLUG_MATCH_ANY,
                  int events = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT) {
        return libusb_hotplug_register_callback(nullptr, events, flags, vid, pid, cls, &Recorder::callback, this,
                                                &handle);
    }
    // "L1 A1": event and bus position of each event seen.
    std::string text() const {
        std::string s;
        for (const Seen& e : seen)
            s += std::string(s.empty() ? "" : " ") + (e.event == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT ? "L" : "A") +
                 std::to_string(e.port - 1);
        return s;
    }
};

struct FilterCase {
    const char* name;
    int vid, pid, cls, events;
    const char* expected;  // after unplug(1) and replug(1)
};

void PrintTo(const FilterCase& c, std::ostream* os) { *os << c.name; }

class HotplugFilter : public Faults, public ::testing::WithParamInterface<FilterCase> {};

TEST_P(HotplugFilter, EventsArriveInsideEventHandlingWithTheirDevice) {
    const FilterCase& c = GetParam();
    ASSERT_EQ(libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG), 1);
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(nullptr, &list), 2);
    libusb_device* old = list[1];
    Recorder r;
    ASSERT_EQ(r.subscribe(0, c.vid, c.pid, c.cls, c.events), 0);
    vsensor::unplug(1);
    vsensor::unplug(1);  // a second unplug announces nothing
    vsensor::replug(1);
    EXPECT_TRUE(r.seen.empty());  // never on the unplugging thread
    handle(1000);
    EXPECT_EQ(r.text(), c.expected);
    for (const Seen& e : r.seen) {
        EXPECT_EQ(e.thread, std::this_thread::get_id());
        EXPECT_EQ(e.device == old, e.event == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
        EXPECT_EQ(e.address == libusb_get_device_address(old), e.event == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
    }
    libusb_free_device_list(list, 1);
    handle(1000);
    EXPECT_EQ(r.text(), c.expected);  // nothing twice
    libusb_hotplug_deregister_callback(nullptr, r.handle);
}

constexpr int kBoth = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT;
constexpr int kAny = LIBUSB_HOTPLUG_MATCH_ANY;
INSTANTIATE_TEST_SUITE_P(
    Hotplug, HotplugFilter,
    ::testing::Values(FilterCase{"any", kAny, kAny, kAny, kBoth, "L1 A1"},
                      FilterCase{"ids", 0x0483, 0x5740, 0, kBoth, "L1 A1"},
                      FilterCase{"left", 0x0483, kAny, kAny, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT, "L1"},
                      FilterCase{"arrived", kAny, 0x5740, kAny, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED, "A1"},
                      FilterCase{"vendor", 0x0484, kAny, kAny, kBoth, ""},
                      FilterCase{"product", kAny, 0x5741, kAny, kBoth, ""},
                      FilterCase{"class", kAny, kAny, 0xFF, kBoth, ""}),
    [](const auto& info) { return std::string(info.param.name); });

struct RegisterCase {
    const char* name;
    int flags, answer;
    bool deregister_inside;
    const char* at_register;  // seen before register returns
    const char* after;  // seen after unplug(0), replug(0), unplug(1)
};

void PrintTo(const RegisterCase& c, std::ostream* os) { *os << c.name; }

class HotplugRegister : public Faults, public ::testing::WithParamInterface<RegisterCase> {};

TEST_P(HotplugRegister, EnumerationAndDeregistration) {
    const RegisterCase& c = GetParam();
    Recorder r;
    r.answer = c.answer;
    r.deregister_inside = c.deregister_inside;
    ASSERT_EQ(r.subscribe(c.flags), 0);
    EXPECT_EQ(r.text(), c.at_register);
    vsensor::unplug(0);
    vsensor::replug(0);
    vsensor::unplug(1);
    handle(1000);
    EXPECT_EQ(r.text(), c.after);
    libusb_hotplug_deregister_callback(nullptr, r.handle);
}

INSTANTIATE_TEST_SUITE_P(
    Hotplug, HotplugRegister,
    ::testing::Values(RegisterCase{"plain", 0, 0, false, "", "L0 A0 L1"},
                      RegisterCase{"enumerate", LIBUSB_HOTPLUG_ENUMERATE, 0, false, "A0 A1", "A0 A1 L0 A0 L1"},
                      RegisterCase{"answer_one", 0, 1, false, "", "L0"},
                      RegisterCase{"answer_one_enumerating", LIBUSB_HOTPLUG_ENUMERATE, 1, false, "A0", "A0"},
                      RegisterCase{"deregister_inside", 0, 0, true, "", "L0"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(Faults, HotplugRegistrationChecksItsArguments) {
    const auto cb = &Recorder::callback;
    EXPECT_EQ(libusb_hotplug_register_callback(nullptr, 0, 0, kAny, kAny, kAny, cb, nullptr, nullptr),
              LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_hotplug_register_callback(nullptr, kBoth, 0, 0x10000, kAny, kAny, cb, nullptr, nullptr),
              LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_hotplug_register_callback(nullptr, kBoth, 0, kAny, kAny, 0x100, cb, nullptr, nullptr),
              LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_hotplug_register_callback(nullptr, kBoth, 0, kAny, kAny, kAny, nullptr, nullptr, nullptr),
              LIBUSB_ERROR_INVALID_PARAM);
    int tag = 0;
    libusb_hotplug_callback_handle h = 0;
    ASSERT_EQ(libusb_hotplug_register_callback(nullptr, kBoth, 0, kAny, kAny, kAny, cb, &tag, &h), 0);
    EXPECT_EQ(libusb_hotplug_get_user_data(nullptr, h), &tag);
    libusb_hotplug_deregister_callback(nullptr, h);
    EXPECT_EQ(libusb_hotplug_get_user_data(nullptr, h), nullptr);
}

TEST_F(Faults, ReplugGivesAFreshDeviceThatOpensAndStreams) {
    vsensor::set_faults(1, vsensor::kFaultClaim);
    libusb_device_handle* old = open_nth(1);
    ASSERT_NE(old, nullptr);
    unsigned char id_before[5] = {}, id_after[5] = {};
    ASSERT_EQ(libusb_control_transfer(old, 0xA1, 1, 0, 0, id_before, 5, 1000), 5);
    EXPECT_EQ(cmd(old, 54, 7), 7);
    const uint8_t old_address = libusb_get_device_address(libusb_get_device(old));
    vsensor::replug(1);
    EXPECT_EQ(cmd(old, 54, 7), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_FALSE(vsensor::is_open(1));  // the test API sees the new device
    libusb_device_handle* h = open_nth(1);
    ASSERT_NE(h, nullptr);
    libusb_device* dev = libusb_get_device(h);
    EXPECT_NE(dev, libusb_get_device(old));
    EXPECT_NE(libusb_get_device_address(dev), old_address);
    EXPECT_EQ(libusb_get_port_number(dev), 2);
    EXPECT_EQ(libusb_claim_interface(h, 0), 0);  // faults cleared
    EXPECT_EQ(vsensor::register_value(1, 54), 0);  // registers as after power-up
    ASSERT_EQ(libusb_control_transfer(h, 0xA1, 1, 0, 0, id_after, 5, 1000), 5);
    EXPECT_EQ(std::vector<unsigned char>(id_before, id_before + 5), std::vector<unsigned char>(id_after, id_after + 5));
    libusb_transfer* t = submit(h);
    ASSERT_EQ(out(h, 70, 0, 1), 0);
    handle();
    EXPECT_EQ(status, LIBUSB_TRANSFER_COMPLETED);
    EXPECT_EQ(t->actual_length, 2048);
    EXPECT_EQ(vsensor::frames_sent(1), 1u);
    libusb_free_transfer(t);
    libusb_close(h);
    libusb_close(old);
}

struct ScheduleCase {
    const char* faults;
    const char* expected;  // hotplug events, in order
    int wait_ms;  // at least this long after configuration
};

void PrintTo(const ScheduleCase& c, std::ostream* os) { *os << c.faults; }

class Schedule : public ::testing::TestWithParam<ScheduleCase> {};

TEST_P(Schedule, TimedEntriesFireOnTheTimerThread) {
    const ScheduleCase& c = GetParam();
    vsensor::reset();
    setenv("ORU_VSENSOR_COUNT", "2", 1);
    setenv("ORU_VSENSOR_FAULTS", c.faults, 1);
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(vsensor::configure_from_environment(), 2);
    unsetenv("ORU_VSENSOR_FAULTS");
    ASSERT_EQ(libusb_init(nullptr), 0);
    Recorder r;
    ASSERT_EQ(r.subscribe(), 0);
    const size_t wanted = (std::string(c.expected).size() + 1) / 3;
    while (std::chrono::steady_clock::now() - t0 < std::chrono::milliseconds(c.wait_ms) || r.seen.size() < wanted) {
        ASSERT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5)) << r.text();
        timeval tv{0, 10000};
        libusb_handle_events_timeout(nullptr, &tv);
    }
    EXPECT_EQ(r.text(), c.expected);
    for (const Seen& e : r.seen) EXPECT_EQ(e.thread, std::this_thread::get_id());
    libusb_hotplug_deregister_callback(nullptr, r.handle);
    libusb_exit(nullptr);
}

INSTANTIATE_TEST_SUITE_P(Hotplug, Schedule,
                         ::testing::Values(ScheduleCase{"1:unplug@20ms,1:replug@40ms", "L1 A1", 60},
                                           ScheduleCase{"1:unplug@30ms,0:replug@0.01s", "L0 A0 L1", 50},
                                           ScheduleCase{"0:stall,1:claim@10ms,0:unplug", "", 30},
                                           ScheduleCase{"1:unplug@20,5:unplug@1ms,1:replug,0:unplug@-1ms,0:x@1ms", "",
                                                        60}));

}  // namespace
