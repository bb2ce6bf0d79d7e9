// The frame moving-average ring of averaged acquisition.
#include "efm32com/oru_device_interface_stm_fma.h"

#include "efm32com/oru_device_interface_stm_frames.h"
#include "efm32com/oru_device_interface_stm_request.h"

#include <algorithm>
#include <cstdint>

static_assert(ORU_KEPT_FRAMES >= ORU_FMA_SLOTS, "a request keeps enough frames to fill the ring");

// Written only here, on the caller thread (requests, the device object's
// switch and constructor); requests run one at a time (g_requestLock), no lock
// of its own.
bool g_enable_FMA = false;
double g_FMA_Buffer[ORU_FMA_SLOTS * 1024];
int g_FMA_FrameCount = 0;
bool g_FMA_Buffered = false;

namespace {

// Per filter, the integer sum of slots 0 .. g_nRingSumSlots-1, kept up to
// date as one slot is replaced, so a full ring costs one frame per request.
// Every slot holds whole numbers, so the sum is exact and its double equals
// adding the slots one by one. 0 slots: to be summed afresh.
int64_t g_llRingSum[ORU_NUM_FILTERS];
int g_nRingSumSlots = 0;

double* slot(int iSlot) { return g_FMA_Buffer + static_cast<size_t>(iSlot) * ORU_NUM_FILTERS; }

void sum_ring_afresh(int iSlots) {
    std::fill(std::begin(g_llRingSum), std::end(g_llRingSum), 0);
    for (int s = 0; s < iSlots; ++s) {
        const double* values = slot(s);
        for (int j = 0; j < ORU_NUM_FILTERS; ++j) g_llRingSum[j] += static_cast<int>(values[j]);
    }
    g_nRingSumSlots = iSlots;
}

// Puts the request's one new frame into slot iSlot, keeping the sum.
void replace_slot(int iSlot, int iSlots) {
    double fresh[ORU_NUM_FILTERS];
    copy_queued_frame(0, fresh);
    double* values = slot(iSlot);
    const bool bInSum = g_nRingSumSlots == iSlots && iSlot < iSlots;
    for (int j = 0; j < ORU_NUM_FILTERS; ++j) {
        if (bInSum) g_llRingSum[j] += static_cast<int>(fresh[j]) - static_cast<int>(values[j]);
        values[j] = fresh[j];
    }
    // A request for another ring size than the last sums the ring once.
    if (!bInSum) g_nRingSumSlots = 0;
}

}  // namespace

void set_frame_moving_average(bool bEnable) {
    g_enable_FMA = bEnable;
    if (bEnable) restart_frame_ring();
}

bool frame_ring_buffered() { return g_enable_FMA && g_FMA_Buffered; }

void advance_frame_ring(int iSlots, double* sum) {
    if (!g_FMA_Buffered) {
        for (int i = 0; i < iSlots; ++i) copy_queued_frame(static_cast<size_t>(i), slot(i));
        g_FMA_Buffered = true;
        g_nRingSumSlots = 0;
    } else {
        replace_slot(g_FMA_FrameCount, iSlots);
        ++g_FMA_FrameCount;
    }
    if (g_FMA_FrameCount >= iSlots) g_FMA_FrameCount = 0;
    if (g_nRingSumSlots != iSlots) sum_ring_afresh(iSlots);
    for (int j = 0; j < ORU_NUM_FILTERS; ++j) sum[j] = static_cast<double>(g_llRingSum[j]);
}

void frame_ring_saturation(int iSlots, unsigned char* mask) {
    std::fill(mask, mask + ORU_NUM_FILTERS, 0);
    for (int s = 0; s < iSlots; ++s) {
        const double* values = slot(s);
        for (int j = 0; j < ORU_NUM_FILTERS; ++j) mask[j] |= values[j] >= ORU_SATURATED_DN ? 1 : 0;
    }
}

void restart_frame_ring() {
    g_FMA_Buffered = false;
    g_FMA_FrameCount = 0;
}

void clear_frame_ring() {
    std::fill(std::begin(g_FMA_Buffer), std::end(g_FMA_Buffer), 0.0);
    g_nRingSumSlots = 0;
}

void reset_frame_ring() {
    g_enable_FMA = false;
    restart_frame_ring();
    clear_frame_ring();
}
