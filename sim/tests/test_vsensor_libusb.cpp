// The rest of libusb's face: topology, answers of a full-speed device, the
// event lock, the poll descriptors and control transfers from many threads.
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <vector>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

class Libusb : public TwoSensors {};

// Hub vendor and the sensors' ports are also checked through pyusb
// (test_vsensor_clients.py).
TEST_F(Libusb, DevicesHangOffOneRootHubAtTheirPort) {
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(nullptr, &list), 2);
    libusb_device* hub = libusb_get_parent(list[0]);
    ASSERT_NE(hub, nullptr);
    EXPECT_EQ(libusb_get_parent(list[1]), hub);
    EXPECT_EQ(libusb_get_parent(hub), nullptr);
    libusb_device_descriptor d{};
    ASSERT_EQ(libusb_get_device_descriptor(hub, &d), 0);
    EXPECT_EQ(d.bDeviceClass, LIBUSB_CLASS_HUB);
    EXPECT_EQ(libusb_get_device_address(hub), 1);
    EXPECT_EQ(libusb_get_bus_number(list[1]), libusb_get_bus_number(hub));
    uint8_t path[7] = {};
    EXPECT_EQ(libusb_get_port_numbers(hub, path, 7), 0);
    EXPECT_EQ(libusb_get_port_numbers(list[1], path, 7), 1);
    EXPECT_EQ(path[0], 2);
    EXPECT_EQ(libusb_get_port_numbers(list[0], path, 0), LIBUSB_ERROR_INVALID_PARAM);
    libusb_device_handle* h = nullptr;
    EXPECT_EQ(libusb_open(hub, &h), LIBUSB_ERROR_ACCESS);
    libusb_free_device_list(list, 1);
}

struct Answer {
    const char* name;
    std::function<int(libusb_device_handle*)> call;
    int plugged, unplugged;
};

void PrintTo(const Answer& a, std::ostream* os) { *os << a.name; }

class Answers : public Libusb, public ::testing::WithParamInterface<Answer> {};

TEST_P(Answers, BeforeAndAfterUnplug) {
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(GetParam().call(h), GetParam().plugged);
    vsensor::unplug(0);
    EXPECT_EQ(GetParam().call(h), GetParam().unplugged);
    libusb_close(h);
}

int companion(libusb_device_handle* h) {
    libusb_config_descriptor* c = nullptr;
    if (libusb_get_active_config_descriptor(libusb_get_device(h), &c) != 0) return 1;
    libusb_ss_endpoint_companion_descriptor* ep = nullptr;
    const int r = libusb_get_ss_endpoint_companion_descriptor(nullptr, c->interface[0].altsetting[0].endpoint, &ep);
    libusb_free_ss_endpoint_companion_descriptor(ep);
    libusb_free_config_descriptor(c);
    return r;
}

int sync_read(libusb_device_handle* h) {
    unsigned char frame[2048];
    int got = 0;
    return libusb_bulk_transfer(h, 0x81, frame, sizeof frame, &got, 20);
}

unsigned char ep81 = 0x81;
const auto kAnswers = ::testing::Values(
    Answer{"control", [](libusb_device_handle* h) { return cmd(h, 5, 1); }, 1, LIBUSB_ERROR_NO_DEVICE},
    Answer{"claim", [](libusb_device_handle* h) { return libusb_claim_interface(h, 0); }, 0, LIBUSB_ERROR_NO_DEVICE},
    Answer{"bulk_sync", sync_read, LIBUSB_ERROR_TIMEOUT, LIBUSB_ERROR_NO_DEVICE},
    Answer{"bos_stalls",  // nothing is allocated when it fails
           [](libusb_device_handle* h) {
               libusb_bos_descriptor* b = nullptr;
               return libusb_get_bos_descriptor(h, &b);
           },
           LIBUSB_ERROR_PIPE, LIBUSB_ERROR_NO_DEVICE},
    Answer{"ss_companion", companion, LIBUSB_ERROR_NOT_FOUND, LIBUSB_ERROR_NOT_FOUND},
    Answer{"iso_size_bulk",
           [](libusb_device_handle* h) { return libusb_get_max_iso_packet_size(libusb_get_device(h), 0x81); }, 64, 64},
    Answer{"iso_size_none",
           [](libusb_device_handle* h) { return libusb_get_max_iso_packet_size(libusb_get_device(h), 0x02); },
           LIBUSB_ERROR_NOT_FOUND, LIBUSB_ERROR_NOT_FOUND},
    Answer{"alloc_streams", [](libusb_device_handle* h) { return libusb_alloc_streams(h, 2, &ep81, 1); },
           LIBUSB_ERROR_NOT_SUPPORTED, LIBUSB_ERROR_NO_DEVICE});
INSTANTIATE_TEST_SUITE_P(Libusb, Answers, kAnswers, [](const auto& info) { return std::string(info.param.name); });

// Capabilities as a BOS would carry them, through libusb's parsers.
TEST(Capabilities, ParsedAsLibusbDoes) {
    alignas(8) uint8_t ext[] = {7, 0x10, LIBUSB_BT_USB_2_0_EXTENSION, 0x1E, 0x04, 0, 0};
    alignas(8) uint8_t ss[] = {10, 0x10, LIBUSB_BT_SS_USB_DEVICE_CAPABILITY, 2, 0x0E, 0, 1, 0x0A, 0xFF, 0x07};
    alignas(8) uint8_t cid[20] = {20, 0x10, LIBUSB_BT_CONTAINER_ID, 0};
    for (int i = 0; i < 16; ++i) cid[4 + i] = static_cast<uint8_t>(i + 1);
    auto cap = [](uint8_t* raw) { return reinterpret_cast<libusb_bos_dev_capability_descriptor*>(raw); };
    libusb_usb_2_0_extension_descriptor* e = nullptr;
    libusb_ss_usb_device_capability_descriptor* s = nullptr;
    libusb_container_id_descriptor* c = nullptr;
    ASSERT_EQ(libusb_get_usb_2_0_extension_descriptor(nullptr, cap(ext), &e), 0);
    ASSERT_EQ(libusb_get_ss_usb_device_capability_descriptor(nullptr, cap(ss), &s), 0);
    ASSERT_EQ(libusb_get_container_id_descriptor(nullptr, cap(cid), &c), 0);
    EXPECT_EQ(std::vector<unsigned>({e->bmAttributes, s->wSpeedSupported, s->bU1DevExitLat, s->bU2DevExitLat,
                                     c->ContainerID[0], c->ContainerID[15]}),
              std::vector<unsigned>({0x041E, 0x0E, 0x0A, 0x07FF, 1, 16}));
    libusb_free_usb_2_0_extension_descriptor(e);
    libusb_free_ss_usb_device_capability_descriptor(s);
    libusb_free_container_id_descriptor(c);
    EXPECT_EQ(libusb_get_container_id_descriptor(nullptr, cap(ext), &c), LIBUSB_ERROR_INVALID_PARAM);
    ext[0] = 6;
    EXPECT_EQ(libusb_get_usb_2_0_extension_descriptor(nullptr, cap(ext), &e), LIBUSB_ERROR_IO);
}

TEST_F(Libusb, EventLockKeepsOtherHandlersWaitingAndWaitersWakeAtACompletionOrTimeOut) {
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(libusb_event_handling_ok(nullptr), 1);
    EXPECT_EQ(libusb_event_handler_active(nullptr), 0);
    ASSERT_EQ(libusb_try_lock_events(nullptr), 0);
    EXPECT_EQ(libusb_event_handler_active(nullptr), 1);
    libusb_transfer* t = submit(h);
    ASSERT_EQ(start_streaming(h), 0);
    // Another thread neither gets the lock nor runs the callback; it waits
    // as an event waiter until its time-out.
    auto other = std::async(std::launch::async, [] {
        const int got = libusb_try_lock_events(nullptr);
        timeval tv{0, 50000};
        const auto t0 = std::chrono::steady_clock::now();
        libusb_handle_events_timeout(nullptr, &tv);
        return std::make_pair(got, std::chrono::steady_clock::now() - t0);
    });
    const auto [got, waited] = other.get();
    EXPECT_EQ(got, 1);
    EXPECT_GE(waited, std::chrono::milliseconds(45));
    EXPECT_EQ(status, -1);
    timeval tv{1, 0};
    ASSERT_EQ(libusb_handle_events_locked(nullptr, &tv), 0);
    EXPECT_EQ(status, LIBUSB_TRANSFER_COMPLETED);
    libusb_unlock_events(nullptr);
    EXPECT_EQ(libusb_event_handler_active(nullptr), 0);
    // A waiter with nothing pending times out; one woken by a completion on
    // an event thread does not.
    libusb_lock_event_waiters(nullptr);
    timeval short_wait{0, 20000}, long_wait{10, 0};
    EXPECT_EQ(libusb_wait_for_event(nullptr, &short_wait), 1);
    libusb_unlock_event_waiters(nullptr);
    status = -1;
    submit(h, 0, t);
    std::atomic<bool> stop{false};
    std::thread events([&stop] {
        while (!stop) {
            timeval tick{0, 100000};
            libusb_handle_events_timeout(nullptr, &tick);
        }
    });
    libusb_lock_event_waiters(nullptr);
    const auto t0 = std::chrono::steady_clock::now();
    while (status == -1 && std::chrono::steady_clock::now() - t0 < std::chrono::seconds(10))
        EXPECT_EQ(libusb_wait_for_event(nullptr, &long_wait), 0);
    libusb_unlock_event_waiters(nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));
    stop = true;
    libusb_interrupt_event_handler(nullptr);
    events.join();
    EXPECT_EQ(status, LIBUSB_TRANSFER_COMPLETED);
    libusb_free_transfer(t);
    libusb_close(h);
}

bool readable(int fd, int timeout_ms) {
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, timeout_ms) == 1 && (p.revents & POLLIN);
}

TEST_F(Libusb, PollFdIsReadableExactlyWhileEventsArePending) {
    const libusb_pollfd** fds = libusb_get_pollfds(nullptr);
    ASSERT_TRUE(fds && fds[0]);
    EXPECT_EQ(fds[1], nullptr);
    EXPECT_EQ(fds[0]->events, POLLIN);
    const int fd = fds[0]->fd;
    libusb_free_pollfds(fds);
    EXPECT_EQ(libusb_pollfds_handle_timeouts(nullptr), 1);
    int removed = -1;
    libusb_set_pollfd_notifiers(
        nullptr, nullptr, [](int f, void* user) { *static_cast<int*>(user) = f; }, &removed);
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    EXPECT_FALSE(readable(fd, 0));
    libusb_transfer* t = submit(h);
    EXPECT_FALSE(readable(fd, 20));  // idle sensor: the transfer stays pending
    ASSERT_EQ(start_streaming(h), 0);
    EXPECT_TRUE(readable(fd, 1000));
    handle(0);
    EXPECT_EQ(status, LIBUSB_TRANSFER_COMPLETED);
    EXPECT_FALSE(readable(fd, 0));
    // A time-out is an event too: the fd turns readable when it is due.
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    submit(h, 30, t);
    EXPECT_FALSE(readable(fd, 10));
    EXPECT_TRUE(readable(fd, 1000));
    handle(0);
    EXPECT_EQ(status, LIBUSB_TRANSFER_TIMED_OUT);
    // So is a hotplug event.
    libusb_hotplug_callback_handle cb = 0;
    ASSERT_EQ(libusb_hotplug_register_callback(
                  nullptr, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT, 0, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY,
                  LIBUSB_HOTPLUG_MATCH_ANY,
                  [](libusb_context*, libusb_device*, libusb_hotplug_event, void*) { return 1; }, nullptr, &cb),
              0);
    EXPECT_FALSE(readable(fd, 0));
    vsensor::unplug(1);
    EXPECT_TRUE(readable(fd, 0));
    handle(0);
    EXPECT_FALSE(readable(fd, 0));
    libusb_free_transfer(t);
    libusb_close(h);
    libusb_exit(nullptr);
    EXPECT_EQ(removed, fd);
    ASSERT_EQ(libusb_init(nullptr), 0);  // for TearDown
}

// Library calls are serialised under its own lock; the sim's control path
// takes these from four threads at once.
TEST_F(Libusb, ControlTransfersFromManyThreadsAtOnceAllLand) {
    vsensor::add_sensor();
    vsensor::add_sensor();
    std::vector<std::thread> threads;
    for (int d = 0; d < 4; ++d)
        threads.emplace_back([d] {
            libusb_device_handle* h = open_nth(d);
            for (int i = 0; i < 200; ++i) EXPECT_EQ(cmd(h, 54, static_cast<uint16_t>(i)), i);
            libusb_close(h);
        });
    for (auto& th : threads) th.join();
    const auto log = vsensor::events();
    EXPECT_EQ(std::count_if(log.begin(), log.end(), [](auto& e) { return e.kind == vsensor::EventKind::Control; }),
              800);
    for (int d = 0; d < 4; ++d) EXPECT_EQ(vsensor::register_value(d, 54), 199);
}

}  // namespace
