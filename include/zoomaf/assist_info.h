/* Readers of the assist channels: the laser distance (channel 12) with its range clamps and
   jump filter, the focus values of the video encoder (channel 30), and the host's
   compensation entry. The area-focus channel (19) is read by zoomaf::ipc for the service's
   area-focus thread; that thread, the laser channel's start-up and the PTZ entry belong to
   the service (zoomaf/app_pdaf.h). */
#ifndef ZOOMAF_ASSIST_INFO_H
#define ZOOMAF_ASSIST_INFO_H

#include <stdint.h>

#include "zoomaf/export.h"
#include "zoomaf/vrel_sharememory.h"

ZOOMAF_EXTERN_C_BEGIN

/* Distance that means the laser saw no echo, in 0.1 m. */
#define LASER_NO_ECHO 65535
/* Manual_laser_setup value that means no override. */
#define MANUAL_LASER_NONE 9999

/* ---- Laser distance (ipc/laser_distance.cpp) ----------------------------------------------- */

ZOOMAF_API extern VrelShareMan LaserMenManHandle; /* the laser channel, opened at start-up */
ZOOMAF_API extern uint16_t global_laser_distance; /* the distance the service uses, 0.1 m */
ZOOMAF_API extern int32_t last_laser;             /* last accepted measurement (100 at start) */
ZOOMAF_API extern int32_t last_laster_cnt;        /* consecutive readings refused as jumps */
ZOOMAF_API extern int32_t Manual_laser_setup;     /* fixed distance in metres; 9999: none */

/* The filtered laser distance in 0.1 m (see the clamps and the jump filter). */
ZOOMAF_API uint16_t GetCurrentLaserDistance(void);

/* ---- Focus values (ipc/focus_values.cpp) --------------------------------------------------- */

/* Takes the focus values of the latest encoded frame from channel 30 into fv_record (a
   VrelFocusValues): 0 when a new frame's values were there, non-zero otherwise (the record
   is then left as it was). */
ZOOMAF_API int32_t fv_publish_consume_encodered_data(void* fv_record);

/* ---- Compensation and PTZ channel records (ipc/compensation.cpp) ---------------------------- */

ZOOMAF_API extern VrelShareMan PtzMenManHandle; /* reserved for a PTZ channel; never opened */
ZOOMAF_API extern int32_t CompensationMaxStep;
ZOOMAF_API extern int32_t CompensationSteps;

ZOOMAF_API void SwitchCompensation(int32_t max_step, int32_t times);

ZOOMAF_EXTERN_C_END

#endif
