// One request for filter data: streaming on, wait for n frames, average them
// (plainly or through the 100-frame moving average), streaming off.
#ifndef ORU_DEVICE_INTERFACE_STM_ACQUISITION_H
#define ORU_DEVICE_INTERFACE_STM_ACQUISITION_H

#include "efm32com/oru_device_interface_stm_fma.h"
#include "oru_base_exception.h"

extern bool bulkModeStarted;

// Returns the dark average (always 0.0). When pErrorCode is given it receives
// lu_ec_success, lu_ec_fw_recv_timeout when the frames did not arrive within
// the bounded wait (or the sensor failed), or lu_ec_memory_is_null when a
// frame could not be kept. Memory does not grow with iNumOfAverages: beyond
// the first frames only a per-filter sum is kept.
double get_filter_data_from_sensor(double* fpFilterValueAveraged, int iNumOfAverages, int iDarkCorrectionMode,
                                   int useContAcq, unsigned int iDeviceId, ORU_ERROR_CODE* pErrorCode = nullptr);

// Real-time bound of one wait for frames, in milliseconds.
long frame_wait_bound_ms(int iShutterSpeed, int iNumOfFrames);
// Fixed part of that bound (default 2000 ms); tests shorten it.
void set_frame_wait_margin_ms(long lMarginMs);

// Streaming off and the wait margin at 2000 ms, as at start (tests).
void reset_acquisition();

#endif
