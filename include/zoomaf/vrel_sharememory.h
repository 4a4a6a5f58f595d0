/* Assist channels: numbered System V shared-memory segments, each guarded by a one-semaphore
   set, through which the other processes of the camera (laser range finder, video encoder,
   user interface) talk to the focus service. Both keys derive from the channel number, so
   every process that knows the number finds the same segment and semaphore.

   This header is the one definition of the channel numbers, keys, segment layout and
   channel lengths: the service, the zoomaf-shm tool, the digital twin and any C writer
   process use it. */
#ifndef ZOOMAF_VREL_SHAREMEMORY_H
#define ZOOMAF_VREL_SHAREMEMORY_H

#include <stdint.h>

#include "zoomaf/export.h"

ZOOMAF_EXTERN_C_BEGIN

/* ---- Channel table, keys and layout (C++ code reads them from channels/channel_layout.hpp) */

/* Channel numbers (memmode) run from 0 to 33. */
#define VREL_MEMMODE_MIN 0
#define VREL_MEMMODE_MAX 33
#define VREL_CHANNEL_COUNT 34

/* The channels the focus service reads. */
#define VREL_LASER_CHANNEL 12      /* laser distance, uint16 in 0.1 m */
#define VREL_AREA_FOCUS_CHANNEL 19 /* area-focus point, int32 x and y */
#define VREL_FV_CHANNEL 30         /* focus values of the latest encoded frame */

/* Keys: shared memory 0x1A20 + memmode, semaphore set 0x1234ABCD + memmode (32-bit). */
#define VREL_SHM_KEY_BASE 0x1A20u
#define VREL_SEM_KEY_BASE 0x1234ABCDu

/* Segment layout (little-endian, every channel): update flag, a reserved word, the payload
   and a reserved tail. The writer sets the flag to 1 after a new payload; the reader
   consumes it by writing 0. */
#define VREL_UPDATE_FLAG_OFFSET 0
#define VREL_RESERVED_OFFSET 4
#define VREL_PAYLOAD_OFFSET 8
#define VREL_SEGMENT_EXTRA 12 /* a segment is structlen + 12 bytes long */

/* Payload length in bytes of each channel, indexed by memmode. Shared by every process of
   the camera; only 12, 19 and 30 are read by the focus service. */
#define VREL_CHANNEL_LENGTHS                                                                  \
    {                                                                                         \
        18000000, 18000000, 491520, 24, 52, 20, 800016, 800016, 800016, 1555200, /* 0..9 */   \
            1555200, 800016, 2, 4, 800016, 800016, 800016, 4612, 8, 8,           /* 10..19 */ \
            1555200, 1555200, 312, 2892, 1796, 4, 28, 24, 2892, 8,               /* 20..29 */ \
            4096, 800016, 8, 28                                                  /* 30..33 */ \
    }

/* Channel manager record. The caller owns it; it is usable once VrelShareManInit returned 0.
   Zero-initialised it holds sem_id 0, not -1. */
typedef struct VrelShareMan {
    uint32_t shm_key;   /* VREL_SHM_KEY_BASE + memmode */
    int32_t structlen;  /* payload length, from the channel table */
    int32_t sem_id;     /* semaphore set id; -1 means no semaphore */
    uint8_t* shm_addr;  /* where the segment is attached */
    uint8_t* data_addr; /* the payload: shm_addr + VREL_PAYLOAD_OFFSET */
} VrelShareMan;

/* Payload of channel 19: the requested area-focus point, taken as it comes. */
typedef struct VrelAreaFocusPoint {
    int32_t point_x;
    int32_t point_y;
} VrelAreaFocusPoint;

/* Payload of channel 30 (4096 bytes): the two sharpness values of the latest encoded
   frame, the rest reserved. Also the record that fv_publish_consume_encodered_data fills. */
typedef struct VrelFocusValues {
    int64_t fv1;
    int64_t fv2;
    uint8_t reserved[4096 - 16];
} VrelFocusValues;

/* ---- Channel calls (ipc/vrel_sharememory.cpp) ---------------------------------------------- */

/* 0; -1 if the segment or the semaphore failed; -2 if memmode is out of 0..33. */
ZOOMAF_API int32_t VrelShareManInit(VrelShareMan* shareman, int32_t memmode);
ZOOMAF_API int32_t VrelShareMemoryInit(VrelShareMan* shareman, int32_t memmode);
ZOOMAF_API int32_t VrelCreateSemaphore(VrelShareMan* shareman, int32_t memmode);
ZOOMAF_API int32_t VrelSetSemValue(int32_t sem_id);
ZOOMAF_API int32_t VrelDelSemValue(int32_t sem_id);
/* Take (blocking while another process holds it) and give back the channel's semaphore.
   Both end the process when the record has no semaphore (sem_id -1). */
ZOOMAF_API int32_t VrelSemaphoreP(VrelShareMan* shareman);
ZOOMAF_API int32_t VrelSemaphoreV(VrelShareMan* shareman);

ZOOMAF_EXTERN_C_END

#endif
