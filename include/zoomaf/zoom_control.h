/* Zoom control: the camera application's zoom requests, which move zoom and focus together
   and keep the service's view of the lens (current_multiple, motor_position,
   multiple_index) in step with the driver; the focus step chosen for the new multiple; and
   the IS value sequences that go with a zoom.

   A zoom request whose driver call finds the motors running retries it 100 ms later, 21
   attempts in all; then it gives up with "!Error !Error !Error,set multiple fail!->return".
   zoom_running_flag is 1 while a request runs (the Run variant of the auto-focus loop
   skips its passes meanwhile) and goes back to what it was when the request ends. */
#ifndef ZOOMAF_ZOOM_CONTROL_H
#define ZOOMAF_ZOOM_CONTROL_H

#include <stdint.h>

#include "zoomaf/app_pdaf.h"
#include "zoomaf/export.h"

ZOOMAF_EXTERN_C_BEGIN

/* ---- Start-up zoom (service/motor_start.cpp) ---------------------------------------------- */

/* Initialises the motors with homing and puts focus at the start step of multiple 1.0 (the
   driver clamps the zoom to x3.5, the service keeps 1.0). Returns the Initmotor bits. */
ZOOMAF_API int32_t AppSetMotordevInit(void);
/* Initialises the motors with homing (init_motor_status), centre focus mode, and zooms to
   multiple with the lens table's 10 m step (column 10). Returns init_motor_status. */
ZOOMAF_API int32_t VerificationSetMotordevInit(float multiple);

/* ---- Zoom requests (service/zoom_requests.cpp, zoom_by_pd_trend.cpp, zoom_with_pdaf.cpp) -- */

/* 1 while the 20-step check of AppSetMultipleByPdTrend is still to run (set_zoom_running(1)
   asks for it; 0 at start), 2 and more once it ran. */
ZOOMAF_API extern int32_t frist_zoom;
/* The last focus lock disagreed with the laser by 20 steps or more (1), or agreed (0). */
ZOOMAF_API extern int32_t is_out_20_step;
/* The lens table column that the 20-step check found for the last lock (2 at start). */
ZOOMAF_API extern int32_t meter_index_min;

/* zoom_running_flag = flag; a flag of 1 also sets frist_zoom to 1. 0. */
ZOOMAF_API int32_t set_zoom_running(int32_t flag);
/* Zoom with the focus target of GetTargetMultipleFocusstep; takes the service lock. The
   driver's result bits (0 or more: 4 focus clamped, 8 multiple clamped) on success, -1 on
   the same multiple or when the driver stayed running. */
ZOOMAF_API int32_t AppSetMultiple(float multiple);
/* Zoom with a focus target that follows the last lock and the laser (the 20-step check,
   then GetTargetMultipleFocusstepByZyMethods); takes the service lock. As AppSetMultiple. */
ZOOMAF_API int32_t AppSetMultipleByPdTrend(float multiple);
/* Zoom with focus sent to focus_step; the caller holds the service lock. The driver's
   result bits (0 or more) on success, -1 on the same multiple or when the driver stayed
   running. */
ZOOMAF_API int32_t AppSetMultipleWithFocus(int16_t focus_step, float multiple);
/* Zoom without a focus move (the driver parks focus at its range's lower end); the caller
   holds the service lock. multiple_index follows multiple even on a refusal. As
   AppSetMultiple. */
ZOOMAF_API int32_t AppSetMultipleWithoutLock(float multiple);
/* Zoom in steps of x0.5 with phase-detection focus before each step (centre and free mode);
   takes the service lock. 0, or -1 on the same multiple or when the driver stayed
   running. */
ZOOMAF_API int32_t AppSetMultipleWithPDAF(float multiple);

/* ---- Focus target after a zoom (service/zoom_focus_target.cpp) ----------------------------
   Steps of the lens table in the target multiple's row, calibration_offset_step added,
   clamped to that row's focus range. A laser distance is valid unless it is 0, 40 or 65535;
   its column is that of GetTargetPositionByLaser. The nearest-column rule keeps the subject
   distance that the current focus step implies: the column of from_multiple's row whose
   step is nearest to step, read in the target row. */

/* flag 0: the laser's column when the laser distance is valid, else the nearest-column
   rule; flag non-zero: the PTZ target (GetTargetPositionByPTZ). */
ZOOMAF_API int32_t GetTargetMultipleFocusstep(int32_t step, int32_t flag, float from_multiple,
                                              float to_multiple);
/* flag 0: out_20_step 0 with a valid laser distance: the laser's column; out_20_step 1:
   column meter_index_min (kept within 1..106); otherwise the nearest-column rule. flag
   non-zero: the PTZ target. */
ZOOMAF_API int32_t GetTargetMultipleFocusstepByZyMethods(int32_t step, int32_t flag,
                                                         int32_t out_20_step,
                                                         int32_t meter_index_min,
                                                         float from_multiple, float to_multiple);
/* The focus step for the PTZ's angle at multiple. No PTZ angle is published in this
   system, so it is the focus motor's current step as the driver reports it: no move. */
ZOOMAF_API int32_t GetTargetPositionByPTZ(float multiple);

/* ---- IS value sequences (service/is_restore.cpp) ------------------------------------------- */

/* The IS value last left by ISRestoreService (520 at start, the value it always ends on). */
ZOOMAF_API extern int32_t OldISValue;

/* Hooks: the getter returns its argument, the setter does nothing. */
ZOOMAF_API int32_t AppGetIsValue(int32_t value);
ZOOMAF_API void AppSetIsValue(int32_t value);
/* Above x12, raises the IS value from OldISValue by 20 every 80 ms, five times at most and
   not beyond 620. 0. */
ZOOMAF_API int32_t ZoomRunningISRestore(float multiple);
/* Above x4, steps the IS value down by 10 every 120 ms from a start set by the multiple to
   520, and keeps 520 in OldISValue. 0. */
ZOOMAF_API int32_t ISRestoreService(float multiple);

/* ---- Day clock (service/day_clock.cpp) ------------------------------------------------------ */

/* Seconds of the day clock modulo 65536 plus the microseconds, as a float. */
ZOOMAF_API float Get_Time(void);

ZOOMAF_EXTERN_C_END

#endif
