// The rest of libusb's face: topology, descriptors a full-speed device lacks,
// the event lock and the poll descriptors.
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

class Libusb : public TwoSensors {};

TEST_F(Libusb, DevicesHangOffOneRootHubAtTheirPort) {
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(nullptr, &list), 2);
    libusb_device* hub = libusb_get_parent(list[0]);
    ASSERT_NE(hub, nullptr);
    EXPECT_EQ(libusb_get_parent(list[1]), hub);
    EXPECT_EQ(libusb_get_parent(hub), nullptr);
    libusb_device_descriptor d{};
    ASSERT_EQ(libusb_get_device_descriptor(hub, &d), 0);
    EXPECT_EQ(d.idVendor, 0x1d6b);
    EXPECT_EQ(d.bDeviceClass, LIBUSB_CLASS_HUB);
    EXPECT_EQ(libusb_get_device_address(hub), 1);
    uint8_t path[7] = {};
    EXPECT_EQ(libusb_get_port_numbers(hub, path, 7), 0);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(libusb_get_port_numbers(list[i], path, 7), 1);
        EXPECT_EQ(path[0], i + 1);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // still exported, so still checked
        EXPECT_EQ(libusb_get_port_path(nullptr, list[i], path, 7), 1);
#pragma GCC diagnostic pop
        EXPECT_EQ(path[0], libusb_get_port_number(list[i]));
        EXPECT_EQ(libusb_get_bus_number(list[i]), libusb_get_bus_number(hub));
    }
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

TEST_P(Answers, AsLibusbForAFullSpeedDevice) {
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(GetParam().call(h), GetParam().plugged);
    vsensor::unplug(0);
    EXPECT_EQ(GetParam().call(h), GetParam().unplugged);
    libusb_close(h);
}

int bos(libusb_device_handle* h) {
    libusb_bos_descriptor* b = nullptr;
    const int r = libusb_get_bos_descriptor(h, &b);
    libusb_free_bos_descriptor(b);
    return r;
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

int stream_id(libusb_device_handle*) {
    libusb_transfer* t = libusb_alloc_transfer(0);
    libusb_transfer_set_stream_id(t, 77);
    const int r = static_cast<int>(libusb_transfer_get_stream_id(t));
    libusb_free_transfer(t);
    return r;
}

unsigned char ep81 = 0x81;
const auto kAnswers = ::testing::Values(
    Answer{"bos_stalls", bos, LIBUSB_ERROR_PIPE, LIBUSB_ERROR_NO_DEVICE},
    Answer{"qualifier_stalls",
           [](libusb_device_handle* h) {
               unsigned char q[10];
               return libusb_control_transfer(h, 0x80, 6, 0x0600, 0, q, sizeof q, 1000);
           },
           LIBUSB_ERROR_PIPE, LIBUSB_ERROR_NO_DEVICE},
    Answer{"ss_companion", companion, LIBUSB_ERROR_NOT_FOUND, LIBUSB_ERROR_NOT_FOUND},
    Answer{"iso_size_bulk",
           [](libusb_device_handle* h) { return libusb_get_max_iso_packet_size(libusb_get_device(h), 0x81); }, 64, 64},
    Answer{"iso_size_none",
           [](libusb_device_handle* h) { return libusb_get_max_iso_packet_size(libusb_get_device(h), 0x02); },
           LIBUSB_ERROR_NOT_FOUND, LIBUSB_ERROR_NOT_FOUND},
    Answer{"alloc_streams", [](libusb_device_handle* h) { return libusb_alloc_streams(h, 2, &ep81, 1); },
           LIBUSB_ERROR_NOT_SUPPORTED, LIBUSB_ERROR_NO_DEVICE},
    Answer{"free_streams", [](libusb_device_handle* h) { return libusb_free_streams(h, &ep81, 1); },
           LIBUSB_ERROR_NOT_SUPPORTED, LIBUSB_ERROR_NO_DEVICE},
    Answer{"dev_mem_alloc", [](libusb_device_handle* h) { return libusb_dev_mem_alloc(h, 4096) == nullptr; }, 1, 1},
    Answer{"dev_mem_free", [](libusb_device_handle* h) { return libusb_dev_mem_free(h, &ep81, 1); },
           LIBUSB_ERROR_NOT_SUPPORTED, LIBUSB_ERROR_NOT_SUPPORTED},
    Answer{"wrap_sys_device",
           [](libusb_device_handle*) {
               libusb_device_handle* w = nullptr;
               return libusb_wrap_sys_device(nullptr, 3, &w);
           },
           LIBUSB_ERROR_NOT_SUPPORTED, LIBUSB_ERROR_NOT_SUPPORTED},
    Answer{"stream_id", stream_id, 77, 77});
INSTANTIATE_TEST_SUITE_P(Libusb, Answers, kAnswers, [](const auto& info) { return std::string(info.param.name); });

// Capabilities as a BOS would carry them, through libusb's parsers.
TEST(Capabilities, ParsedAsLibusbDoes) {
    alignas(8) uint8_t ext[] = {7, 0x10, LIBUSB_BT_USB_2_0_EXTENSION, 0x1E, 0x04, 0, 0};
    alignas(8) uint8_t ss[] = {10, 0x10, LIBUSB_BT_SS_USB_DEVICE_CAPABILITY, 2, 0x0E, 0, 1, 0x0A, 0xFF, 0x07};
    alignas(8) uint8_t cid[20] = {20, 0x10, LIBUSB_BT_CONTAINER_ID, 0};
    for (int i = 0; i < 16; ++i) cid[4 + i] = static_cast<uint8_t>(i + 1);
    auto cap = [](uint8_t* raw) { return reinterpret_cast<libusb_bos_dev_capability_descriptor*>(raw); };

    libusb_usb_2_0_extension_descriptor* e = nullptr;
    ASSERT_EQ(libusb_get_usb_2_0_extension_descriptor(nullptr, cap(ext), &e), 0);
    EXPECT_EQ(e->bmAttributes, 0x041Eu);
    libusb_free_usb_2_0_extension_descriptor(e);
    libusb_ss_usb_device_capability_descriptor* s = nullptr;
    ASSERT_EQ(libusb_get_ss_usb_device_capability_descriptor(nullptr, cap(ss), &s), 0);
    EXPECT_EQ(s->wSpeedSupported, 0x0E);
    EXPECT_EQ(s->bU1DevExitLat, 0x0A);
    EXPECT_EQ(s->bU2DevExitLat, 0x07FF);
    libusb_free_ss_usb_device_capability_descriptor(s);
    libusb_container_id_descriptor* c = nullptr;
    ASSERT_EQ(libusb_get_container_id_descriptor(nullptr, cap(cid), &c), 0);
    EXPECT_EQ(c->ContainerID[0], 1);
    EXPECT_EQ(c->ContainerID[15], 16);
    libusb_free_container_id_descriptor(c);

    EXPECT_EQ(libusb_get_container_id_descriptor(nullptr, cap(ext), &c), LIBUSB_ERROR_INVALID_PARAM);
    ext[0] = 6;
    EXPECT_EQ(libusb_get_usb_2_0_extension_descriptor(nullptr, cap(ext), &e), LIBUSB_ERROR_IO);
}

TEST_F(Libusb, EventLockKeepsOtherHandlersWaitingUntilItIsLetGo) {
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(libusb_event_handling_ok(nullptr), 1);
    EXPECT_EQ(libusb_event_handler_active(nullptr), 0);
    ASSERT_EQ(libusb_try_lock_events(nullptr), 0);
    EXPECT_EQ(libusb_event_handler_active(nullptr), 1);
    libusb_transfer* t = submit(h);
    ASSERT_EQ(out(h, 70, 0, 1), 0);
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
    libusb_free_transfer(t);
    libusb_close(h);
}

TEST_F(Libusb, WaitForEventWakesAtACompletionOrTimesOut) {
    libusb_device_handle* h = open_nth(0);
    ASSERT_NE(h, nullptr);
    libusb_lock_event_waiters(nullptr);
    timeval short_wait{0, 20000};
    EXPECT_EQ(libusb_wait_for_event(nullptr, &short_wait), 1);
    libusb_unlock_event_waiters(nullptr);
    // Set on the event thread, read here: atomic.
    std::atomic<int> done{-1};
    libusb_transfer* t = libusb_alloc_transfer(0);
    libusb_fill_bulk_transfer(
        t, h, 0x81, buf, sizeof buf,
        [](libusb_transfer* tr) { static_cast<std::atomic<int>*>(tr->user_data)->store(tr->status); }, &done, 0);
    ASSERT_EQ(libusb_submit_transfer(t), 0);
    ASSERT_EQ(out(h, 70, 0, 1), 0);
    {
        EventThread events;
        libusb_lock_event_waiters(nullptr);
        timeval long_wait{10, 0};
        const auto t0 = std::chrono::steady_clock::now();
        while (done == -1 && std::chrono::steady_clock::now() - t0 < std::chrono::seconds(10))
            EXPECT_EQ(libusb_wait_for_event(nullptr, &long_wait), 0);
        libusb_unlock_event_waiters(nullptr);
        EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));
    }
    EXPECT_EQ(done, LIBUSB_TRANSFER_COMPLETED);
    libusb_free_transfer(t);
    libusb_close(h);
}

bool readable(int fd, int timeout_ms) {
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, timeout_ms) == 1 && (p.revents & POLLIN);
}

TEST_F(Libusb, PollFdIsReadableExactlyWhileEventsArePending) {
    const libusb_pollfd** fds = libusb_get_pollfds(nullptr);
    ASSERT_NE(fds, nullptr);
    ASSERT_NE(fds[0], nullptr);
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
    ASSERT_EQ(out(h, 70, 0, 1), 0);
    EXPECT_TRUE(readable(fd, 1000));
    handle(0);
    EXPECT_EQ(status, LIBUSB_TRANSFER_COMPLETED);
    EXPECT_FALSE(readable(fd, 0));
    // A time-out is an event too: the fd turns readable when it is due.
    libusb_fill_bulk_transfer(
        t, h, 0x81, buf, sizeof buf, [](libusb_transfer* tr) { *static_cast<int*>(tr->user_data) = tr->status; },
        &status, 30);
    vsensor::set_faults(0, vsensor::kFaultStreamStall);
    ASSERT_EQ(libusb_submit_transfer(t), 0);
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

}  // namespace
