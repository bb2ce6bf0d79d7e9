// The frame moving average: a ring of the last (at most 100) frames, filled
// by one request and then advanced by one frame per request.
#ifndef ORU_DEVICE_INTERFACE_STM_FMA_H
#define ORU_DEVICE_INTERFACE_STM_FMA_H

#define ORU_FMA_SLOTS 100

// Caller thread only; written only by the functions below.
extern bool g_enable_FMA;
extern double g_FMA_Buffer[ORU_FMA_SLOTS * 1024];
extern int g_FMA_FrameCount;
extern bool g_FMA_Buffered;

// Switches the frame moving average; switching it on restarts the ring.
void set_frame_moving_average(bool bEnable);
// Whether requests advance a filled ring by one frame.
bool frame_ring_buffered();
// Fills slots 0 .. iSlots-1 from the request's
// first frames (not yet buffered), or puts its one frame in place of the
// oldest; then writes the sum over slots 0 .. iSlots-1 into sum[].
void advance_frame_ring(int iSlots, double* sum);
// Per filter (1024 flags), whether any of slots 0 .. iSlots-1 saturated it.
void frame_ring_saturation(int iSlots, unsigned char* mask);
// The frames stopped coming: the next request fills the ring again.
void restart_frame_ring();
// Zeroes every slot (a new device object does).
void clear_frame_ring();

// Puts the ring back to its start values (tests).
void reset_frame_ring();

#endif
