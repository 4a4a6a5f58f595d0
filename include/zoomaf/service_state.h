/* The focus service's shared state and locks: the process-global variables and lock calls
   that the motor, sensor, assist-channel and service code all reach. One focus service per
   process. This is the bottom layer of the library: it depends on nothing but the platform. */
#ifndef ZOOMAF_SERVICE_STATE_H
#define ZOOMAF_SERVICE_STATE_H

#include <pthread.h>
#include <stdint.h>

#include "zoomaf/export.h"

/* Flags read across threads without the service lock are atomics (relaxed order): the
   same int32/int8 in memory, without a data race. */
#ifdef __cplusplus
#include <atomic>
#define ZOOMAF_ATOMIC(T) std::atomic<T>
#else
#define ZOOMAF_ATOMIC(T) _Atomic T
#endif

ZOOMAF_EXTERN_C_BEGIN

/* Focus modes (current_focus_mode). */
#define PDAF_CENTER_MODE 0
#define PDAF_FREE_MODE 1
#define MANUAL_FOCUS_MODE 2

/* ---- Shared state (state/state.cpp); guarded by the service lock unless atomic ----------- */

/* Read without the lock by the setters' mode tests, so atomic. */
ZOOMAF_API extern ZOOMAF_ATOMIC(int32_t) current_focus_mode;
ZOOMAF_API extern int32_t cur_day_night_mode; /* 0 day, non-zero night */
ZOOMAF_API extern float current_multiple;
ZOOMAF_API extern int32_t motor_position; /* focus motor step, -1 before the first move */
ZOOMAF_API extern int32_t current_shockperiod;
ZOOMAF_API extern int32_t is_coordinates_update;
ZOOMAF_API extern int32_t free_focus_pointx;
ZOOMAF_API extern int32_t free_focus_pointy;
ZOOMAF_API extern int32_t free_focus_width;
ZOOMAF_API extern int32_t free_focus_height;
ZOOMAF_API extern int32_t is_manual_positon_update;
ZOOMAF_API extern float manual_positon_percentage;
ZOOMAF_API extern int32_t is_center_af_winratio_update;
ZOOMAF_API extern ZOOMAF_ATOMIC(int32_t) is_free_focus_opr_over;
ZOOMAF_API extern int32_t current_select_pdaf_window; /* PDAF window chosen; 0 on mode change */
ZOOMAF_API extern int32_t laser_focus_compensation;   /* -5: none learned */
ZOOMAF_API extern int32_t pdafcnt_over_multiple_change;
ZOOMAF_API extern int32_t defauult_probe_dir;
/* Row of mator_step_section for the current zoom; read without the lock by
   AppGetFocusPercentagePosition, so atomic. */
ZOOMAF_API extern ZOOMAF_ATOMIC(int32_t) multiple_index;
ZOOMAF_API extern int32_t current_multiple_index;
ZOOMAF_API extern ZOOMAF_ATOMIC(int32_t) zoom_running_flag;
ZOOMAF_API extern ZOOMAF_ATOMIC(int32_t) onoff;
ZOOMAF_API extern ZOOMAF_ATOMIC(int32_t) init_motor_status;
/* The PDAF window last written to the sensor: x start, y start, x end, y end, each as
   bits 12..8 then 7..0. */
ZOOMAF_API extern uint8_t focus_area[8];
/* The unit's PD offset (loaded at start-up from the PD calibration file), added to every PD
   the sensor readouts decode. */
ZOOMAF_API extern int32_t pd_calibration_value;

/* ---- Locks (state/locks.cpp) ---------------------------------------------------------------- */

ZOOMAF_API extern pthread_mutex_t motro_safe_lock; /* the service lock */
ZOOMAF_API extern pthread_mutex_t laser_safe_lock;
/* One-byte spin counters: test and increment are two steps by design. */
ZOOMAF_API extern ZOOMAF_ATOMIC(int8_t) ptz_lock;
ZOOMAF_API extern ZOOMAF_ATOMIC(int8_t) selfstudy_info_write_lock;
/* Present and never used by any operation. */
ZOOMAF_API extern int8_t motor_lock;
ZOOMAF_API extern int8_t laser_lock;

ZOOMAF_API int try_lock(void);
ZOOMAF_API int unlock(void);
ZOOMAF_API int laser_try_lock(void);
ZOOMAF_API int laser_unlock(void);
ZOOMAF_API int ptz_try_lock(void);
ZOOMAF_API int ptz_unlock(void);
ZOOMAF_API int selfstudy_write_try_lock(void);
ZOOMAF_API int selfstudy_write_unlock(void);

ZOOMAF_EXTERN_C_END

#endif
