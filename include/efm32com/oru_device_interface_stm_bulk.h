// The per-sensor bulk transfers that bring a sensor's frames in, and their
// completion callback (run by the event thread).
#ifndef ORU_DEVICE_INTERFACE_STM_BULK_H
#define ORU_DEVICE_INTERFACE_STM_BULK_H

#include "efm32com/oru_device_interface_stm_frames.h"

#include <libusb.h>
#include <map>

#define ORU_BULK_ENDPOINT 0x81

extern libusb_transfer* gTransfer_in;
extern unsigned char framebuf2048[ORU_FRAME_BYTES];

int alloc_transfer_bulk_l(int num_iso_pack, int length, unsigned char* buffer, unsigned int iDeviceId);
int alloc_transfer_bulk(unsigned int iDeviceId);
// Cancels the sensor's bulk transfer, waits (bounded) for its completion and
// frees it and its buffer. Returns 1 if there was one.
int release_transfer_bulk(unsigned int iDeviceId);
// Sensor index -> a bulk transfer was made for it (see the bulk file).
extern std::map<int, bool> allocTransferBulkMap;
// Enters indices 0 .. nSensors-1 as having no transfer yet.
void open_bulk_transfer_table(int nSensors);
bool bulk_transfer_made(unsigned int iDeviceId);
// Empties that table (tests).
void reset_bulk_transfers();
void LIBUSB_CALL cb_bulkdata(struct libusb_transfer* transfer);

#endif
