// The frame moving-average ring of averaged acquisition.
#include "efm32com/oru_device_interface_stm_fma.h"

#include "efm32com/oru_device_interface_stm_frames.h"

#include <algorithm>

// Written only here, on the caller thread (requests, the device object's
// switch and constructor); no lock of its own.
bool g_enable_FMA = false;
double g_FMA_Buffer[ORU_FMA_SLOTS * 1024];
int g_FMA_FrameCount = 0;
bool g_FMA_Buffered = false;

namespace {

double* slot(int iSlot) {
    return g_FMA_Buffer + static_cast<size_t>(iSlot) * ORU_NUM_FILTERS;
}

}  // namespace

void set_frame_moving_average(bool bEnable) {
    g_enable_FMA = bEnable;
    if (bEnable) restart_frame_ring();
}

bool frame_ring_buffered() {
    return g_enable_FMA && g_FMA_Buffered;
}

void advance_frame_ring(int iSlots, double* sum) {
    if (!g_FMA_Buffered) {
        for (int i = 0; i < iSlots; ++i) copy_queued_frame(static_cast<size_t>(i), slot(i));
        g_FMA_Buffered = true;
    } else {
        copy_queued_frame(0, slot(g_FMA_FrameCount));
        ++g_FMA_FrameCount;
    }
    if (g_FMA_FrameCount >= iSlots) g_FMA_FrameCount = 0;
    std::fill(sum, sum + ORU_NUM_FILTERS, 0.0);
    // Slot by slot: every filter still adds its slots in the order 0, 1, ...,
    // so the sums are the same, but memory is read in order.
    for (int s = 0; s < iSlots; ++s) {
        const double* values = slot(s);
        for (int j = 0; j < ORU_NUM_FILTERS; ++j) sum[j] += static_cast<int>(values[j]);
    }
}

void restart_frame_ring() {
    g_FMA_Buffered = false;
    g_FMA_FrameCount = 0;
}

void clear_frame_ring() {
    std::fill(std::begin(g_FMA_Buffer), std::end(g_FMA_Buffer), 0.0);
}

void reset_frame_ring() {
    g_enable_FMA = false;
    restart_frame_ring();
    clear_frame_ring();
}
