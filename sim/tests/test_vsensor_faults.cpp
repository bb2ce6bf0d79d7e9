// Unplug, replug and the timed fault schedule as a libusb client sees them.
// What the library makes of each fault (stall, bulk error, unplug, unplug at
// start of streaming, replug and reconnect) is proven end to end by
// tests/test_faults.cpp on this bus; here are the sim-side details it does not
// see.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

constexpr int kBoth = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT;
constexpr int kAny = LIBUSB_HOTPLUG_MATCH_ANY;

// The device is only valid during the callback: what the tests need of it is
// taken there.
struct Seen {
    libusb_device* device;
    int address;
    std::thread::id thread;
};

struct Recorder {
    std::string text;  // "L1 A1": event and bus position of each event seen
    std::vector<Seen> seen;
    int answer = 0;  // what the callback returns
    bool deregister_inside = false;
    libusb_hotplug_callback_handle handle = 0;

    static int LIBUSB_CALL callback(libusb_context* ctx, libusb_device* d, libusb_hotplug_event e, void* user) {
        auto* r = static_cast<Recorder*>(user);
        r->text += std::string(r->text.empty() ? "" : " ") + (e == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT ? "L" : "A") +
                   std::to_string(libusb_get_port_number(d) - 1);
        r->seen.push_back({d, libusb_get_device_address(d), std::this_thread::get_id()});
        if (r->deregister_inside) libusb_hotplug_deregister_callback(ctx, r->handle);
        return r->answer;
    }
    int subscribe(int flags = 0, int vid = kAny, int pid = kAny, int cls = kAny, int events = kBoth) {
        return libusb_hotplug_register_callback(nullptr, events, flags, vid, pid, cls, &Recorder::callback, this,
                                                &handle);
    }
};

struct HotplugCase {
    const char* name;
    int flags, vid, pid, cls, events, answer;
    bool deregister_inside;
    const char* at_register;  // seen before register returns
    const char* after;  // seen after unplug(1) twice and replug(1)
};

void PrintTo(const HotplugCase& c, std::ostream* os) { *os << c.name; }

class Hotplug : public TwoSensors, public ::testing::WithParamInterface<HotplugCase> {};

TEST_P(Hotplug, EventsArriveInsideEventHandlingWithTheirDevice) {
    const HotplugCase& c = GetParam();
    ASSERT_EQ(libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG), 1);
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(nullptr, &list), 2);
    libusb_device* old = list[1];
    Recorder r{"", {}, c.answer, c.deregister_inside};
    ASSERT_EQ(r.subscribe(c.flags, c.vid, c.pid, c.cls, c.events), 0);
    EXPECT_EQ(libusb_hotplug_get_user_data(nullptr, r.handle), c.answer && c.flags ? nullptr : &r);
    EXPECT_EQ(r.text, c.at_register);
    const size_t enumerated = r.seen.size();
    vsensor::unplug(1);
    vsensor::unplug(1);  // a second unplug announces nothing
    vsensor::replug(1);
    EXPECT_EQ(r.seen.size(), enumerated);  // never on the unplugging thread
    handle(1000);
    EXPECT_EQ(r.text, c.after);
    for (size_t i = enumerated; i < r.seen.size(); ++i) {
        const bool left = r.text[3 * i] == 'L';
        EXPECT_EQ(r.seen[i].thread, std::this_thread::get_id());
        EXPECT_EQ(r.seen[i].device == old, left);
        EXPECT_EQ(r.seen[i].address == libusb_get_device_address(old), left);
    }
    libusb_free_device_list(list, 1);
    handle(1000);
    EXPECT_EQ(r.text, c.after);  // nothing twice
    libusb_hotplug_deregister_callback(nullptr, r.handle);
    EXPECT_EQ(libusb_hotplug_get_user_data(nullptr, r.handle), nullptr);
}

constexpr int kLeft = LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT, kArrived = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED;
constexpr int kEnum = LIBUSB_HOTPLUG_ENUMERATE;
INSTANTIATE_TEST_SUITE_P(
    Hotplug, Hotplug,
    ::testing::Values(HotplugCase{"any", 0, kAny, kAny, kAny, kBoth, 0, false, "", "L1 A1"},
                      HotplugCase{"ids", 0, 0x0483, 0x5740, 0, kBoth, 0, false, "", "L1 A1"},
                      HotplugCase{"left", 0, 0x0483, kAny, kAny, kLeft, 0, false, "", "L1"},
                      HotplugCase{"arrived", 0, kAny, 0x5740, kAny, kArrived, 0, false, "", "A1"},
                      HotplugCase{"vendor", 0, 0x0484, kAny, kAny, kBoth, 0, false, "", ""},
                      HotplugCase{"product", 0, kAny, 0x5741, kAny, kBoth, 0, false, "", ""},
                      HotplugCase{"class", 0, kAny, kAny, 0xFF, kBoth, 0, false, "", ""},
                      HotplugCase{"enumerate", kEnum, kAny, kAny, kAny, kBoth, 0, false, "A0 A1", "A0 A1 L1 A1"},
                      HotplugCase{"answer_one", 0, kAny, kAny, kAny, kBoth, 1, false, "", "L1"},
                      HotplugCase{"answer_one_enumerating", kEnum, kAny, kAny, kAny, kBoth, 1, false, "A0", "A0"},
                      HotplugCase{"deregister_inside", 0, kAny, kAny, kAny, kBoth, 0, true, "", "L1"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(TwoSensors, HotplugRegistrationChecksItsArguments) {
    // events, vendor, class, callback
    const int bad[][4] = {
        {0, kAny, kAny, 1}, {kBoth, 0x10000, kAny, 1}, {kBoth, kAny, 0x100, 1}, {kBoth, kAny, kAny, 0}};
    for (const auto& b : bad)
        EXPECT_EQ(libusb_hotplug_register_callback(nullptr, b[0], 0, b[1], kAny, b[2],
                                                   b[3] ? &Recorder::callback : nullptr, nullptr, nullptr),
                  LIBUSB_ERROR_INVALID_PARAM);
}

TEST_F(TwoSensors, ReplugIsAFreshPowerUpOfTheSameSensor) {
    vsensor::set_faults(1, vsensor::kFaultClaim);
    libusb_device_handle* old = open_nth(1);
    ASSERT_NE(old, nullptr);
    EXPECT_EQ(cmd(old, 54, 7), 7);
    vsensor::replug(1);  // goes and comes back at once
    EXPECT_EQ(cmd(old, 54, 7), LIBUSB_ERROR_NO_DEVICE);
    libusb_device_handle* h = open_nth(1);
    ASSERT_NE(h, nullptr);
    EXPECT_NE(libusb_get_device(h), libusb_get_device(old));
    EXPECT_EQ(libusb_claim_interface(h, 0), 0);  // faults cleared
    EXPECT_EQ(vsensor::register_value(1, 54), 0);  // registers as after power-up
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
    while (std::chrono::steady_clock::now() - t0 < std::chrono::milliseconds(c.wait_ms) ||
           r.text.size() < std::strlen(c.expected)) {
        ASSERT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5)) << r.text;
        timeval tv{0, 10000};
        libusb_handle_events_timeout(nullptr, &tv);
    }
    EXPECT_EQ(r.text, c.expected);
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
