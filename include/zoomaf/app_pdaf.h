/* The focus service: the control API of the camera application, the start-up files and lens
   table, the self-study store, and the service's policy on the assist channels. Its shared
   state and locks are in zoomaf/service_state.h, included here. One focus service per
   process; all state is process-global. */
#ifndef ZOOMAF_APP_PDAF_H
#define ZOOMAF_APP_PDAF_H

#include <stdint.h>

#include "zoomaf/export.h"
#include "zoomaf/service_state.h"

ZOOMAF_EXTERN_C_BEGIN

/* ---- Control API (service/control_api.cpp) -------------------------------------------------
   Results: 0 success, -1 wrong mode or state, -2 argument out of range; on an error the
   call prints why and changes nothing. The mode tests are made before the lock is taken. */

ZOOMAF_API int32_t AppSetMode(int32_t mode);
ZOOMAF_API int32_t AppSetFocusCoordinates(int32_t x, int32_t y);
ZOOMAF_API int32_t AppSetShockPeriod(int32_t ms);
ZOOMAF_API int32_t AppGetFocusMode(void);
ZOOMAF_API int32_t set_day_or_night_focus_mode(int32_t mode);
ZOOMAF_API int32_t GetFocusStart(void);
ZOOMAF_API int32_t GetLaserCompensationValue(void);
ZOOMAF_API int32_t return_motor_init_status(void);
ZOOMAF_API int32_t InitCheckMotor(void);
/* Accepted and doing nothing: both return 0. */
ZOOMAF_API int32_t definition_focus_init(void);
ZOOMAF_API int32_t set_focus_distance_mode(int32_t mode);

/* ---- Manual focus position (service/manual_position.cpp) ------------------------------------- */

/* Whole percent 0..100 of the current zoom's focus range (the setter takes a fraction). */
ZOOMAF_API int32_t AppGetFocusPercentagePosition(void);
ZOOMAF_API int32_t AppSetFocusPercentagePosition(float fraction);

/* ---- Centre-mode window (service/centre_window.cpp) ------------------------------------------ */

ZOOMAF_API int32_t AppSetCenterFocusWindownsRatio(int32_t ratio);
ZOOMAF_API int32_t AppSetCenterFocusWindownsFreearea(int32_t x, int32_t y, int32_t width,
                                                     int32_t height);
ZOOMAF_API int32_t set_pdaf_centermode_freearea_attr(uint32_t x, uint32_t y, uint32_t width,
                                                     uint32_t height);

/* ---- Host entries (service/host_entries.cpp) ------------------------------------------------- */

/* The PTZ or the mounting platform moved: back to centre focus from scratch; 0. */
ZOOMAF_API int32_t SetPZTstart(void);
/* Takes the service lock and holds it for one second. 0, or -1 for an index not 0/5/6/7. */
ZOOMAF_API int change_select_pdaf_window(int32_t index);

/* ---- Area-focus updates (service/area_focus_updates.cpp) ------------------------------------- */

/* Thread routine (pthread start routine; its argument is not used): polls the area-focus
   channel every 100 ms for the life of the process and switches to free-area focus on each
   new point. Returns NULL only on a semaphore failure, and then still holds the service
   lock. */
ZOOMAF_API void* GetAreaFocusUpdateStatus(void* unused);

/* ---- Laser channel start-up (service/laser_channel_init.cpp) --------------------------------- */

/* Opens the laser channel and prints the versions; 0. */
ZOOMAF_API int32_t LaserShareMemeoryInit(void);

/* ---- Lens table (service/lens_table.cpp, service/multiple_row.cpp) --------------------------- */

#define LENS_TABLE_ROWS 170                        /* x1.0 .. x17.9 by 0.1 */
#define LENS_TABLE_COLUMNS 108                     /* column 107 is not in the file and stays 0 */
#define LENS_TABLE_FILE_COLUMNS 107                /* numbers per line of the lens table file */
#define LENS_TABLE_FILE "zy_240408_tvk_update.csv" /* in the working directory */
#define CALIBRATION_DIR "/usr/hx7/calibration/"
#define MOTOR_CALIBRATION_FILE CALIBRATION_DIR "motor_calibration.cfg"
#define PD_CALIBRATION_FILE CALIBRATION_DIR "pd_calibration.cfg"
#define LASER_CALIBRATION_FILE CALIBRATION_DIR "lasertable_calibration.cfg"

/* Results of ReadAFTXT. The bench program exits with status 1 on a negative one: the
   service cannot focus without its lens table. */
#define READ_AFTXT_OK 0
#define READ_AFTXT_MISSING (-1) /* the file cannot be opened */
#define READ_AFTXT_NOT_NUMBER                                     \
    (-2) /* a cell is not a number or a line does not hold 107 of \
            them; the table is left as it was */
#define READ_AFTXT_UNREADABLE                                       \
    (-3) /* not a regular file, too large, unreadable or empty; the \
            table is left as it was */

/* Focus steps by row of multiple and distance column (see ReadAFTXT). */
ZOOMAF_API extern int32_t TxtToDat[LENS_TABLE_ROWS][LENS_TABLE_COLUMNS];
/* Per row: smallest focus step, largest focus step, smallest again. The template keeps
   the values as the table gave them; the working copy is shifted by the motor
   calibration. */
ZOOMAF_API extern int32_t mator_step_section[LENS_TABLE_ROWS][3];
ZOOMAF_API extern int32_t template_mator_step_section[LENS_TABLE_ROWS][3];

/* Row of a zoom multiple: 1.0 is 0, 1.1 is 1, 17.9 is 169 (clamped to 0..169). */
ZOOMAF_API int32_t AppSetMultipleSectionRelation(float multiple);
ZOOMAF_API int32_t ReadAFTXT(void);

/* ---- Calibration files (service/calibration.cpp) --------------------------------------------
   The PD offset they load, pd_calibration_value, is shared state (zoomaf/service_state.h). */

/* Per row: the unit's calibrated step at the reference distance (column 5); 0 = none. */
ZOOMAF_API extern int32_t laser_motor_calibration[LENS_TABLE_ROWS];
ZOOMAF_API extern int32_t calibration_offset_step; /* added to every step of TxtToDat */

/* 0 when the file was read, -1 when it could not be opened or held something that is not
   a number (the table then stays as it was). */
ZOOMAF_API int32_t ReadLaserCalibration(void);
ZOOMAF_API int32_t motor_init_calibration(void); /* always 0 */
ZOOMAF_API int32_t pd_init_calibration(void);    /* always 0 */
/* *out = 0; the file is not read in this version. Returns 0. */
ZOOMAF_API int32_t get_motor_calibration_step(const char* path, int32_t* out);
/* *out = the decimal integer at the start of the file (first 16 bytes); untouched when the
   file cannot be opened. Returns 0. */
ZOOMAF_API int32_t get_pd_calibration_step(const char* path, int32_t* out);

/* ---- Versions (service/versions.cpp) --------------------------------------------------------- */

/* A version record: for the motor driver the PCB (hardware) version, then main and sub;
   for the focus software the DCC version, then main and sub. */
typedef struct VersionTriple {
    int32_t hardware;
    int32_t main;
    int32_t sub;
} VersionTriple;

ZOOMAF_API VersionTriple ReadMotorVersion(void);
ZOOMAF_API VersionTriple ReadAppPdafVersion(void);

/* ---- Self-study store (service/selfstudy_store.cpp, selfstudy_file.cpp, selfstudy_start.cpp)
   For every zoom row and laser distance index, the focus step at which a phase-detection
   focus once succeeded with the best confidence; kept in "./laserclearinfo" as a raw,
   little-endian image of the memory. */

#define SELFSTUDY_BLOCKS 180 /* one per zoom row; rows 170..179 are never learned */
#define SELFSTUDY_LASER_ENTRIES 1600
#define SELFSTUDY_PRINTED_BLOCKS 175 /* blocks shown when the store is loaded */
#define SELFSTUDY_NOT_LEARNED (-3000)
#define SELFSTUDY_FILE "./laserclearinfo"

typedef struct SelfStudyBlock {
    int32_t valid[SELFSTUDY_LASER_ENTRIES]; /* 1 when learned */
    int32_t motor[SELFSTUDY_LASER_ENTRIES]; /* focus step */
    int64_t cl[SELFSTUDY_LASER_ENTRIES];    /* confidence it was learned at */
    int64_t pd[SELFSTUDY_LASER_ENTRIES];    /* phase difference it was learned at */
} SelfStudyBlock;                           /* 38400 bytes */

#define SELFSTUDY_STORE_BYTES (SELFSTUDY_BLOCKS * 38400) /* 6912000 */

ZOOMAF_API extern SelfStudyBlock* selfstudy_point; /* SELFSTUDY_BLOCKS blocks, or NULL */
/* The memory differs from the file (0 at start). */
ZOOMAF_API extern ZOOMAF_ATOMIC(int32_t) is_selfstudy_point_update;
/* Learning is on (1 at start); off once the store has been saved at exit. */
ZOOMAF_API extern ZOOMAF_ATOMIC(int32_t) is_deal_selfstudy;

/* 0 when considered, -1 when refused. The row is that of current_multiple; multiple is
   only printed. */
ZOOMAF_API int32_t update_selfstudy_info_memofy(int32_t pd, int32_t cl, uint32_t motor,
                                                int32_t laser, float multiple);
/* The learned step, or SELFSTUDY_NOT_LEARNED. */
ZOOMAF_API int32_t get_selfstudy_motor(int32_t row, int32_t laser);
/* 0 when motor lies between the lens table's steps for the distance, -1 when not. */
ZOOMAF_API int32_t judge_is_laserdistance_relateto_motorposition(int32_t motor, int32_t distance,
                                                                 float multiple);
/* The three writers replace the file whole (a temporary file beside it, flushed, renamed
   over it): a crash during a save leaves the old or the new store, never a torn one. */
ZOOMAF_API int32_t CreateFreshSelfstudyClearinfo(void);
ZOOMAF_API int32_t DealWriteSelfStudyInfo2File(void);
ZOOMAF_API int32_t ExitSaveSelfStudyInfo(void);
ZOOMAF_API int32_t StopSelfStudyDeal(void);
/* Installs SignalFuncFPE for SIGINT, SIGSEGV and SIGTERM, allocates the store and loads it
   from the file, or creates the file. Returns 0. */
ZOOMAF_API int32_t InitGlobalClearinfo(void);
/* Fatal-signal handler: saves a changed store and ends the process with status 0. */
ZOOMAF_API void SignalFuncFPE(int sig);

ZOOMAF_EXTERN_C_END

#endif
