// Bulk streaming on endpoint 0x81: async transfers with an event thread,
// cancellation, synchronous reads, frame content and pacing.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

// Collects frames from one resubmitting bulk transfer, like the library does.
struct Collector {
    std::mutex m;
    std::condition_variable cv;
    std::vector<std::vector<int>> frames;
    std::vector<int> statuses;
    size_t wanted = 0;
    bool resubmit = true;
    unsigned char buf[2048] = {};
    libusb_transfer* t = nullptr;

    static void LIBUSB_CALL callback(libusb_transfer* t) {
        auto* self = static_cast<Collector*>(t->user_data);
        std::lock_guard<std::mutex> lk(self->m);
        self->statuses.push_back(t->status);
        if (t->status != LIBUSB_TRANSFER_COMPLETED) {
            self->cv.notify_all();
            return;
        }
        EXPECT_EQ(t->actual_length, 2048);
        if (self->frames.size() < self->wanted) self->frames.push_back(decode_frame(t->buffer));
        self->cv.notify_all();
        if (self->resubmit && self->frames.size() < self->wanted) {
            EXPECT_EQ(libusb_submit_transfer(t), 0);
        }
    }
    void submit(libusb_device_handle* h) {
        t = libusb_alloc_transfer(0);
        libusb_fill_bulk_transfer(t, h, 0x81, buf, sizeof buf, &Collector::callback, this, 0);
        ASSERT_EQ(libusb_submit_transfer(t), 0);
    }
    bool wait_frames(size_t n) {
        std::unique_lock<std::mutex> lk(m);
        return cv.wait_for(lk, std::chrono::seconds(20), [&] { return frames.size() >= n; });
    }
    bool wait_status() {
        std::unique_lock<std::mutex> lk(m);
        return cv.wait_for(lk, std::chrono::seconds(20), [&] { return !statuses.empty(); });
    }
};

class Streaming : public ::testing::Test {
protected:
    void SetUp() override {
        vsensor::reset();
        ASSERT_EQ(libusb_init(nullptr), 0);
        vsensor::add_sensor();
        h = open_nth(0);
        ASSERT_NE(h, nullptr);
        ASSERT_EQ(libusb_claim_interface(h, 0), 0);
    }
    void TearDown() override {
        libusb_close(h);
        libusb_exit(nullptr);
    }
    libusb_device_handle* h = nullptr;
};

TEST_F(Streaming, FrameCounterFramesArriveInOrderFromZeroAfterStart) {
    vsensor::use_frame_counter(0);
    Collector c;
    c.wanted = 50;
    EventThread events;
    c.submit(h);
    out(h, 70, 0, 1);
    ASSERT_TRUE(c.wait_frames(50));
    out(h, 71, 0, 1);
    for (int i = 0; i < 50; ++i) ASSERT_EQ(c.frames[i], std::vector<int>(1024, i)) << "frame " << i;
    EXPECT_EQ(vsensor::frames_sent(0), 50u);
    libusb_free_transfer(c.t);
}

TEST_F(Streaming, StartStreamingResetsTheFrameNumber) {
    vsensor::use_frame_counter(0);
    unsigned char buf[2048];
    int got = 0;
    out(h, 70, 0, 1);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(libusb_bulk_transfer(h, 0x81, buf, 2048, &got, 1000), 0);
    EXPECT_EQ(decode_frame(buf)[0], 2);
    out(h, 71, 0, 1);
    out(h, 70, 0, 1);
    ASSERT_EQ(libusb_bulk_transfer(h, 0x81, buf, 2048, &got, 1000), 0);
    EXPECT_EQ(got, 2048);
    EXPECT_EQ(decode_frame(buf)[512], 0);
}

TEST_F(Streaming, ATransferSubmittedWhileIdleWaitsForStreamingToStart) {
    vsensor::set_constant_frame(0, 1234);
    Collector c;
    c.wanted = 1;
    c.submit(h);
    timeval tv{0, 20000};
    ASSERT_EQ(libusb_handle_events_timeout(nullptr, &tv), 0);
    EXPECT_TRUE(c.statuses.empty());
    EXPECT_EQ(vsensor::frames_sent(0), 0u);
    out(h, 70, 0, 1);
    ASSERT_EQ(libusb_handle_events_timeout(nullptr, &tv), 0);
    ASSERT_EQ(c.frames.size(), 1u);
    EXPECT_EQ(c.frames[0], std::vector<int>(1024, 1234));
    libusb_free_transfer(c.t);
}

TEST_F(Streaming, CancelledTransferCompletesAsCancelledAtTheNextEventHandling) {
    Collector c;
    c.submit(h);
    ASSERT_EQ(libusb_cancel_transfer(c.t), 0);
    EXPECT_EQ(libusb_cancel_transfer(c.t), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_TRUE(c.statuses.empty());  // not before event handling
    timeval tv{1, 0};
    ASSERT_EQ(libusb_handle_events_timeout(nullptr, &tv), 0);
    ASSERT_EQ(c.statuses, std::vector<int>{LIBUSB_TRANSFER_CANCELLED});
    EXPECT_EQ(libusb_cancel_transfer(c.t), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_submit_transfer(c.t), 0);  // reusable after completion
    EXPECT_EQ(libusb_submit_transfer(c.t), LIBUSB_ERROR_BUSY);
    libusb_cancel_transfer(c.t);
    libusb_handle_events_timeout(nullptr, &tv);
    libusb_free_transfer(c.t);
}

TEST_F(Streaming, HandleEventsReturnsAfterItsTimeoutWhenNothingHappens) {
    Collector c;
    c.submit(h);
    timeval tv{0, 1000};
    EXPECT_EQ(libusb_handle_events_timeout_completed(nullptr, &tv, nullptr), 0);
    int completed = 1;
    EXPECT_EQ(libusb_handle_events_completed(nullptr, &completed), 0);  // returns at once when already done
    EXPECT_TRUE(c.statuses.empty());
    libusb_cancel_transfer(c.t);
    libusb_handle_events_timeout(nullptr, &tv);
    libusb_free_transfer(c.t);
}

TEST_F(Streaming, InterruptWakesABlockedEventHandler) {
    // Whether the handler already waits or is about to: it returns instead of
    // blocking for its 60 s.
    std::atomic<bool> returned{false};
    std::thread handler([&] {
        EXPECT_EQ(libusb_handle_events(nullptr), 0);
        returned = true;
    });
    libusb_interrupt_event_handler(nullptr);
    handler.join();
    EXPECT_TRUE(returned);
}

TEST_F(Streaming, TransferTimeoutCompletesAsTimedOut) {
    Collector c;
    c.t = libusb_alloc_transfer(0);
    libusb_fill_bulk_transfer(c.t, h, 0x81, c.buf, 2048, &Collector::callback, &c, 10);
    ASSERT_EQ(libusb_submit_transfer(c.t), 0);
    timeval tv{5, 0};
    while (c.statuses.empty()) ASSERT_EQ(libusb_handle_events_timeout(nullptr, &tv), 0);
    EXPECT_EQ(c.statuses, std::vector<int>{LIBUSB_TRANSFER_TIMED_OUT});
    libusb_free_transfer(c.t);
    unsigned char buf[2048];
    int got = -1;
    EXPECT_EQ(libusb_bulk_transfer(h, 0x81, buf, 2048, &got, 10), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(got, 0);
}

TEST_F(Streaming, WrongEndpointOrTypeIsRefused) {
    unsigned char buf[64];
    libusb_transfer* t = libusb_alloc_transfer(0);
    libusb_fill_bulk_transfer(t, h, 0x02, buf, 64, nullptr, nullptr, 0);
    EXPECT_EQ(libusb_submit_transfer(t), LIBUSB_ERROR_NOT_FOUND);
    libusb_fill_interrupt_transfer(t, h, 0x81, buf, 64, nullptr, nullptr, 0);
    EXPECT_EQ(libusb_submit_transfer(t), LIBUSB_ERROR_NOT_SUPPORTED);
    libusb_free_transfer(t);
    int got;
    EXPECT_EQ(libusb_bulk_transfer(h, 0x01, buf, 64, &got, 10), LIBUSB_ERROR_NOT_FOUND);
}

TEST_F(Streaming, AsyncControlTransferCompletesThroughEventHandling) {
    unsigned char buf[LIBUSB_CONTROL_SETUP_SIZE + 1] = {};
    libusb_fill_control_setup(buf, 0xA1, 37, 2, 0, 1);
    int status = -1, length = -1;
    struct Result {
        int* status;
        int* length;
    } result{&status, &length};
    libusb_transfer* t = libusb_alloc_transfer(0);
    libusb_fill_control_transfer(
        t, h, buf,
        [](libusb_transfer* tr) {
            auto* r = static_cast<Result*>(tr->user_data);
            *r->status = tr->status;
            *r->length = tr->actual_length;
        },
        &result, 1000);
    ASSERT_EQ(libusb_submit_transfer(t), 0);
    EXPECT_EQ(vsensor::register_value(0, 37), 2);  // the firmware acted at once
    EXPECT_EQ(status, -1);
    timeval tv{1, 0};
    ASSERT_EQ(libusb_handle_events_timeout(nullptr, &tv), 0);
    EXPECT_EQ(status, LIBUSB_TRANSFER_COMPLETED);
    EXPECT_EQ(length, 1);
    EXPECT_EQ(libusb_control_transfer_get_data(t)[0], 2);
    libusb_free_transfer(t);
}

TEST_F(Streaming, LongRunsAreMergedInTheLog) {
    vsensor::use_frame_counter(0);
    Collector c;
    c.wanted = 100;
    EventThread events;
    c.submit(h);
    out(h, 70, 0, 1);
    ASSERT_TRUE(c.wait_frames(100));
    out(h, 71, 0, 1);
    uint64_t total = 0;
    int bulk_events = 0;
    for (const auto& e : vsensor::events())
        if (e.kind == vsensor::EventKind::Bulk) {
            ++bulk_events;
            total += e.count;
            EXPECT_EQ(e.dev, 0);
            EXPECT_EQ(e.status, 0);
        }
    EXPECT_EQ(bulk_events, vsensor::kBulkEventsPerRun + 1);
    EXPECT_EQ(total, 100u);
    // A new run logs its first completions one by one again.
    out(h, 70, 0, 1);
    unsigned char buf[2048];
    int got;
    ASSERT_EQ(libusb_bulk_transfer(h, 0x81, buf, 2048, &got, 1000), 0);
    EXPECT_EQ(vsensor::events().back().kind, vsensor::EventKind::Bulk);
    EXPECT_EQ(vsensor::events().back().count, 1u);
    libusb_free_transfer(c.t);
}

TEST_F(Streaming, ClosingTheHandleDropsItsTransfersWithoutCompletion) {
    Collector c;
    c.submit(h);
    libusb_close(h);
    timeval tv{0, 10000};
    EXPECT_EQ(libusb_handle_events_timeout(nullptr, &tv), 0);
    EXPECT_TRUE(c.statuses.empty());
    libusb_free_transfer(c.t);
    h = open_nth(0);
    ASSERT_NE(h, nullptr);
}

TEST_F(Streaming, RealtimePacingStillDeliversEveryFrameInOrder) {
    vsensor::set_realtime(true);
    vsensor::use_frame_counter(0);
    cmd(h, 5, 1);  // shortest period: 1 ms
    Collector c;
    c.wanted = 5;
    EventThread events;
    c.submit(h);
    out(h, 70, 0, 1);
    ASSERT_TRUE(c.wait_frames(5));
    out(h, 71, 0, 1);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(c.frames[i][0], i);
    libusb_free_transfer(c.t);
}

TEST_F(Streaming, AFrameSourceCallbackSeesTheFrameNumber) {
    vsensor::set_frame_source(0, [](uint64_t n, uint16_t* out) {
        for (int i = 0; i < 1024; ++i) out[i] = static_cast<uint16_t>(i + n);
    });
    out(h, 70, 0, 1);
    unsigned char buf[2048];
    int got;
    ASSERT_EQ(libusb_bulk_transfer(h, 0x81, buf, 2048, &got, 1000), 0);
    ASSERT_EQ(libusb_bulk_transfer(h, 0x81, buf, 2048, &got, 1000), 0);
    const std::vector<int> v = decode_frame(buf);
    EXPECT_EQ(v[0], 1);
    EXPECT_EQ(v[1000], 1001);
    EXPECT_EQ(v[1023], 1024);
}

TEST_F(Streaming, PatternAndEncodingOfEverySampleValue) {
    std::vector<uint16_t> pattern(1024);
    for (int i = 0; i < 1024; ++i) pattern[i] = static_cast<uint16_t>(i * 4 + 3);
    vsensor::set_pattern(0, pattern);
    out(h, 70, 0, 1);
    unsigned char buf[2048];
    int got;
    ASSERT_EQ(libusb_bulk_transfer(h, 0x81, buf, 2048, &got, 1000), 0);
    EXPECT_EQ(std::vector<unsigned char>(buf, buf + 2048), vsensor::encode_frame(pattern.data()));
    for (int i = 0; i < 1024; ++i) {
        ASSERT_EQ(buf[2 * i], pattern[i] >> 4);
        ASSERT_EQ(buf[2 * i + 1], (pattern[i] & 0xF) << 4);
    }
}

}  // namespace
