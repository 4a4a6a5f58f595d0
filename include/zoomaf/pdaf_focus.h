/* Day phase-detection focus: the defocus library's input, the PD/CL readouts of the sensor
   with the choice of the window to focus on, the focus operations of each mode with their
   bench loop, the assisted centre focus that the auto-focus loop runs by day, and the focus
   steps taken from the lens table for a laser distance.

   Everything here runs on the focus thread with the service lock held (try_lock / unlock),
   except where a comment says otherwise; the state is process-global. PD and CL are held
   as signed 64-bit values; window numbers in messages are the grid index plus 1. */
#ifndef ZOOMAF_PDAF_FOCUS_H
#define ZOOMAF_PDAF_FOCUS_H

#include <stdint.h>

#include "zoomaf/app_pdaf.h"
#include "zoomaf/export.h"
#include "zoomaf/imx586.h" /* the sensor side of the PD/CL readout */
#include "zoomaf/pdaflib.h"

ZOOMAF_EXTERN_C_BEGIN

#define PDAF_GRID_WINDOWS 48       /* the 8 x 6 grid, index = 8 x row + column */
#define PDAF_EIGHT_WINDOWS 8       /* the eight-window layouts */
#define PDAF_NO_WINDOW 49          /* zy_current_select_win when no window qualified */
#define PDAF_EMPTY_POINT (-3000)   /* an empty field of the centre focus's m0 / m1 points */
#define PDAF_OFFSET_FAILED (-3000) /* lens offset of a window the library refused */
#define PDAF_VALID_CL 150          /* the confidence from which a PD is acted on */
#define LASER_PAUSE_STEP (-3600)   /* GetTargetPositionByLaser: pause, do not move */

/* ---- Defocus library input (service/pdaf_input.cpp) ------------------------------------- */

ZOOMAF_API extern PdLibInputData pdaf_indata;     /* the one record of the focus loop */
ZOOMAF_API extern const uint16_t XAddressKnot[8]; /* 264 + 496 i */
ZOOMAF_API extern const uint16_t YAddressKnot[6]; /* 260 + 496 j */
ZOOMAF_API extern const uint64_t temp1[2];        /* gains 0, 960 of every threshold line */
ZOOMAF_API extern const uint64_t temp2[2];        /* a flat threshold CL of 150 */
ZOOMAF_API extern PdLibOKNGThrLine p_DefocusOKNGThrLine[PDAF_GRID_WINDOWS];
ZOOMAF_API extern int64_t offsetData[PDAF_GRID_WINDOWS]; /* per-knot defocus offsets: all 0 */

/* Start of the day focus: loads the DCC values from IMX586_DCC_FILE, prints them and the
   library version, and turns the PD output on over the DCC region's grid, in one group
   hold. Returns the result of the last sensor call (0). */
ZOOMAF_API int32_t InitPDSetting(void);
/* Fills a record for the window held in focus_area; PhaseDifference, ConfidenceLevel and
   SensorGain are left as they are. The variants first put their own window in focus_area;
   an index outside their layout leaves focus_area as it was. 0, or -1 without a record. */
ZOOMAF_API int32_t InitPdLibInputData(PdLibInputData* record);
ZOOMAF_API int32_t InitPdLibInputData_7windows(PdLibInputData* record, int32_t index);
ZOOMAF_API int32_t InitPdLibInputData_areafocus_windows(PdLibInputData* record, int32_t index);
ZOOMAF_API int32_t InitPdLibInputData_48windows(PdLibInputData* record, int32_t column,
                                                int32_t row);

/* ---- Window choice (service/window_choice.cpp) ------------------------------------------ */

/* Sorts both arrays ascending by PD, printing before and after; returns n. */
ZOOMAF_API int32_t pd_select_sort(int32_t* pd, int32_t* cl, int32_t n);
/* Sorts the n entries by PD and chooses the one closest to their average PD (on a tie the
   smaller |PD|); cl_out and pd_out take its values. Returns its window index, or -1 when n
   is below 1 or an array is missing (nothing is changed then). */
ZOOMAF_API int32_t pd_select_sort_wit_win(int64_t* pd, int64_t* cl, int32_t* win, int32_t n,
                                          int64_t* cl_out, int64_t* pd_out);
/* The same choice with the texts of the centre pass. */
ZOOMAF_API int32_t pd_select_2X2_sort_wit_win(int64_t* pd, int64_t* cl, int32_t* win, int32_t n,
                                              int64_t* cl_out, int64_t* pd_out);
/* One entry: that one; two: the smaller signed PD (a tie takes the second). -1 for another
   count. */
ZOOMAF_API int32_t pd_select_sort_one_or_two_win(int32_t* pd, int32_t* cl, int32_t* win, int32_t n,
                                                 int64_t* cl_out, int64_t* pd_out);

/* ---- Readouts of the eight-window layout (service/pd_readout_eight.cpp) ------------------ */

/* The last eight-window readout: CL, PD with the calibration added, lens offset (-3000 when
   the library refused the window). */
ZOOMAF_API extern int64_t go_cl_info[PDAF_EIGHT_WINDOWS];
ZOOMAF_API extern int64_t go_pd_info[PDAF_EIGHT_WINDOWS];
ZOOMAF_API extern int64_t go_offset_distance[PDAF_EIGHT_WINDOWS];
/* 0 forces every CL of the eight-window readout to 0 (1 at start). */
ZOOMAF_API extern int32_t Manual_cl_pd;

/* Copies the three arrays above into eight-entry arrays. 0. */
ZOOMAF_API int32_t go_get_pd_cl_info(int64_t* cl, int64_t* pd, int64_t* offset);
/* The eight centre windows: chooses among those above CL 1000. 0. */
ZOOMAF_API int32_t get_pd_and_lc_7windwos_test(PdLibInputData* input, int64_t* cl_out,
                                               int64_t* pd_out);
/* Windows 0..3 of the eight-window layout as the four area-focus windows around the free
   focus point: chooses among those above CL 1000 with |PD| <= 200. 0. */
ZOOMAF_API int32_t get_pd_and_lc_area_windows_test(PdLibInputData* input, int64_t* cl_out,
                                                   int64_t* pd_out);

/* ---- Readouts of the 8 x 6 grid (service/pd_readout_grid.cpp) ---------------------------- */

ZOOMAF_API extern int64_t zycl[PDAF_GRID_WINDOWS]; /* CL of each grid window, latest frame */
ZOOMAF_API extern int64_t zypd[PDAF_GRID_WINDOWS]; /* PD with the calibration added */
/* The grid window chosen by the latest readout, PDAF_NO_WINDOW when none (also at start). */
ZOOMAF_API extern int32_t zy_current_select_win;
/* Windows read in the current row of the centre and the free readout. */
ZOOMAF_API extern int32_t ignorecnt;
ZOOMAF_API extern int32_t freeignorecnt;

/* The readouts the auto-focus loop runs by day, in centre and in free mode. Both leave the
   chosen window's geometry, PD and CL in input (what the centre focus acts on) and in the
   outputs, and set zy_current_select_win; input2 is not used. 0, or -1 without a record
   or an output. */
ZOOMAF_API int32_t get_pd_and_lc_48windwos_test(PdLibInputData* input, int64_t* cl_out,
                                                int64_t* pd_out, PdLibInputData* input2);
ZOOMAF_API int32_t get_pd_and_lc_freewindows_test(PdLibInputData* input, int64_t* cl_out,
                                                  int64_t* pd_out, PdLibInputData* input2);
/* Reads and prints the grid and the window that would be chosen; changes no state. 0. */
ZOOMAF_API int32_t only_get_48_windows_info(PdLibInputData* input);

/* ---- Focus operations of each mode (service/pdaf_operations.cpp) ------------------------ */

ZOOMAF_API extern int32_t try_direction; /* probe direction, +1 or -1 */
ZOOMAF_API extern int32_t try_counter;   /* probe steps in the current direction */
ZOOMAF_API extern int32_t probe_number;  /* probe steps before turning; tripled at a turn */
ZOOMAF_API extern int32_t fail_counter_level_50;
ZOOMAF_API extern int32_t fail_counter_level_150;
ZOOMAF_API extern uint8_t shock_manager[16];
ZOOMAF_API extern int32_t free_focus_probe_counter; /* next scan position of the free mode */
ZOOMAF_API extern int64_t temp_max_fd_cl_value;     /* best CL of the free-mode scan */
ZOOMAF_API extern int32_t temp_max_fd_cl_motor_step;

/* Moves the focus motor by offset steps, clamped to the current zoom's focus range. 0. */
ZOOMAF_API int32_t AppSetMotorMoveByOffset(int64_t offset);
/* One probe step of the centre mode (manager is not used). 0. */
ZOOMAF_API int32_t AppSetMotorMoveByStep(void* manager);
/* One reading of the centre mode (reset 1: forget the probing). 0, or -1 while a poor
   reading is tolerated. */
ZOOMAF_API int32_t APPSetCenterFocusOpr(int32_t reset, PdLibInputData* record);
/* One-shot PD focus after a zoom. 0. */
ZOOMAF_API int32_t APPSinglePDAFOpr(PdLibInputData* record);
/* One reading of the free mode: done_count counts the PD moves, scan_over is the caller's
   is_free_focus_opr_over. 0. */
ZOOMAF_API int32_t APPSetFreeFocusOpr(int32_t reset, int32_t* done_count,
                                      ZOOMAF_ATOMIC(int32_t) * scan_over, PdLibInputData* record);
/* Moves the focus motor to a fraction of the current zoom's focus range. 0. */
ZOOMAF_API int32_t APPSetManualFocusOpr(float ratio);
/* PD of window 0, printed with its CL. */
ZOOMAF_API int32_t GetPD(void);

/* ---- Bench focus loop (service/pdaf_bench_loop.cpp) ------------------------------------- */

/* Focuses pass by pass until UnAutoFocusByPDAF (from another thread); then 0. */
ZOOMAF_API int32_t AutoFocusByPDAF(void);
/* Asks the loop to stop and waits for it: 1 when a stop was already asked, else 0. */
ZOOMAF_API int32_t UnAutoFocusByPDAF(void);
/* The same loop without a stop: never returns. */
ZOOMAF_API int32_t TestAutoFocusByPDAF(void);

/* ---- Assisted centre focus (service/centre_focus.cpp) ------------------------------------ */

/* The reference point m0 and the point m1 reached by the last move; -3000 is empty. */
ZOOMAF_API extern int32_t m0_motor;
ZOOMAF_API extern int64_t m0_pd;
ZOOMAF_API extern int64_t m0_cl;
ZOOMAF_API extern int32_t m0_windeos;
ZOOMAF_API extern int32_t m1_motor;
ZOOMAF_API extern int64_t m1_pd;
ZOOMAF_API extern int64_t m1_cl;
ZOOMAF_API extern int32_t m1_windeos;
ZOOMAF_API extern int32_t lock_value;     /* |PD| below which focus may lock (10) */
ZOOMAF_API extern int32_t true_cnt;       /* calls in a row that met the lock test */
ZOOMAF_API extern int32_t need_laser_cnt; /* counter of the low-confidence strategy */
ZOOMAF_API extern int32_t zy_shock_cnt;
ZOOMAF_API extern int32_t zy_judge_shock_cnt;             /* non-converging calls in a row */
ZOOMAF_API extern int32_t current_lowlevel_limit_counter; /* laser after this count (5) */
ZOOMAF_API extern int32_t low_ten_pd_motor;   /* last step with |PD| below 20; -3000 none */
ZOOMAF_API extern int32_t zy_focus_lock_step; /* focus step of the last lock */

/* One day focus step on the chosen window in record (reset 1: forget every point and
   counter; record may then be NULL). 0, or -1 while the low-confidence strategy counts or
   pauses. */
ZOOMAF_API int32_t APPSetCenterFocusOprByAssitInfo(uint32_t reset, PdLibInputData* record);
/* The steps to run for a window's defocus: reduced for an outer window by its |PD|. */
ZOOMAF_API int64_t get_target_step(int64_t abs_pd, int64_t steps);
/* Hook on the steps to run; does nothing. 0. */
ZOOMAF_API int32_t judge_right_windwos_deal(int64_t* steps);
/* Moves focus to the lens table's step for the laser distance: 0, or -2 to pause. */
ZOOMAF_API int32_t SetMotorByUserLaserinfoAndPtzinfo(void);

/* ---- Laser target positions (service/laser_targets.cpp) --------------------------------- */

ZOOMAF_API extern int32_t laser_1600m_cnt; /* no-echo readings in a row */
ZOOMAF_API extern int32_t laser_4m_cnt;    /* reset with it; read by nothing */

/* The lens table step (with calibration_offset_step) for a laser distance in 0.1 m at a
   multiple; 0 for "do not move", LASER_PAUSE_STEP for "pause". */
ZOOMAF_API int32_t GetTargetPositionByLaser(uint16_t distance, float multiple);
/* The step at to_multiple that keeps the subject distance of the current focus step; the
   first also follows the laser distance. */
ZOOMAF_API int32_t GetCurrentAdjacentPosition(float from_multiple, float to_multiple);
ZOOMAF_API int32_t GetCurrentAdjacentPositionForLaser(float from_multiple, float to_multiple);
ZOOMAF_API int32_t GetTargetPositionWhenFailGetDistance(float multiple);
ZOOMAF_API int32_t GetNoPDNolaserValue(float multiple);

ZOOMAF_EXTERN_C_END

#endif
