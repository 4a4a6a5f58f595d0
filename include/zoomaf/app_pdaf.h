/* The focus service: its shared state, its locks and the control API of the camera
   application. One focus service per process; all state is process-global. */
#ifndef ZOOMAF_APP_PDAF_H
#define ZOOMAF_APP_PDAF_H

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

/* ---- Shared state; guarded by the service lock unless atomic ---------------------------- */

ZOOMAF_API extern int32_t current_focus_mode;
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
ZOOMAF_API extern int32_t laser_focus_compensation; /* -5: none learned */
ZOOMAF_API extern int32_t pdafcnt_over_multiple_change;
ZOOMAF_API extern int32_t defauult_probe_dir;
ZOOMAF_API extern int32_t multiple_index;
ZOOMAF_API extern int32_t current_multiple_index;
ZOOMAF_API extern ZOOMAF_ATOMIC(int32_t) zoom_running_flag;
ZOOMAF_API extern ZOOMAF_ATOMIC(int32_t) onoff;
ZOOMAF_API extern ZOOMAF_ATOMIC(int32_t) init_motor_status;

/* ---- Locks -------------------------------------------------------------------------------- */

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
