// A caller thread doing control transfers while an event thread handles
// completions, as the library runs.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "vsensor_test_util.h"

using namespace vsensor_test;

namespace {

struct Queue {
    std::mutex m;
    std::condition_variable cv;
    std::vector<int> first_values;  // value of filter 0 of each queued frame
    size_t wanted = 0;
    bool accepting = false;
    unsigned char buf[2][2048];

    static void LIBUSB_CALL callback(libusb_transfer* t) {
        auto* q = static_cast<Queue*>(t->user_data);
        if (t->status != LIBUSB_TRANSFER_COMPLETED) return;
        // A slow consumer widens the window in which a frame taken before a
        // stop request could still be queued into the next request.
        std::this_thread::sleep_for(std::chrono::microseconds(300));
        {
            std::lock_guard<std::mutex> lk(q->m);
            if (q->accepting && q->first_values.size() < q->wanted) {
                q->first_values.push_back(decode_frame(t->buffer)[0]);
                if (q->first_values.size() == q->wanted) q->cv.notify_all();
            }
        }
        libusb_submit_transfer(t);
    }
};

TEST(Threads, RequestsOnTwoSensorsWhileTheEventThreadStreams) {
    vsensor::reset();
    ASSERT_EQ(libusb_init(nullptr), 0);
    vsensor::add_sensor();
    vsensor::add_sensor();
    libusb_device_handle* h[2] = {open_nth(0), open_nth(1)};
    ASSERT_TRUE(h[0] && h[1]);
    Queue q[2];
    libusb_transfer* t[2];
    for (int d = 0; d < 2; ++d) {
        vsensor::use_frame_counter(d);
        t[d] = libusb_alloc_transfer(0);
        libusb_fill_bulk_transfer(t[d], h[d], 0x81, q[d].buf[0], 2048, &Queue::callback, &q[d], 0);
        ASSERT_EQ(libusb_submit_transfer(t[d]), 0);
    }
    {
        EventThread events;
        for (int d = 0; d < 2; ++d) {
            for (int round = 0; round < 20; ++round) {
                // The library's request: reset, stop, start, wait for n frames, stop.
                {
                    std::lock_guard<std::mutex> lk(q[d].m);
                    q[d].first_values.clear();
                    q[d].wanted = 5;
                    q[d].accepting = true;
                }
                ASSERT_EQ(out(h[d], 71, 0, 1), 0);
                ASSERT_EQ(out(h[d], 70, 0, 1), 0);
                std::unique_lock<std::mutex> lk(q[d].m);
                ASSERT_TRUE(
                    q[d].cv.wait_for(lk, std::chrono::seconds(20), [&] { return q[d].first_values.size() == 5; }));
                q[d].accepting = false;
                lk.unlock();
                ASSERT_EQ(out(h[d], 71, 0, 1), 0);
                // Stop waits for a frame already taken, so every queued frame
                // belongs to this run: 0, 1, 2, 3, 4 (a stale one would not).
                EXPECT_EQ(q[d].first_values, (std::vector<int>{0, 1, 2, 3, 4})) << "round " << round;
                EXPECT_EQ(cmd(h[d], 5, static_cast<uint16_t>(round)), round);
            }
        }
        for (int d = 0; d < 2; ++d) libusb_cancel_transfer(t[d]);
    }
    for (int d = 0; d < 2; ++d) {
        libusb_free_transfer(t[d]);
        libusb_close(h[d]);
    }
    libusb_exit(nullptr);
}

TEST(Threads, ConcurrentControlTransfersFromManyThreadsAllLand) {
    vsensor::reset();
    ASSERT_EQ(libusb_init(nullptr), 0);
    for (int d = 0; d < 4; ++d) vsensor::add_sensor();
    std::vector<std::thread> threads;
    for (int d = 0; d < 4; ++d)
        threads.emplace_back([d] {
            libusb_device_handle* h = open_nth(d);
            for (int i = 0; i < 200; ++i) EXPECT_EQ(cmd(h, 54, static_cast<uint16_t>(i)), i);
            libusb_close(h);
        });
    for (auto& th : threads) th.join();
    int control = 0;
    for (const auto& e : vsensor::events()) control += e.kind == vsensor::EventKind::Control;
    EXPECT_EQ(control, 800);
    for (int d = 0; d < 4; ++d) EXPECT_EQ(vsensor::register_value(d, 54), 199);
    libusb_exit(nullptr);
}

}  // namespace
