/* Night contrast focus: the search record, the search ranges taken from the laser and the
   three contrast searches (coarse, big-step exact, small-step exact). The auto-focus loop
   calls them with the service lock held, one step per pass. Focus steps fall as the
   subject distance grows, so "near" is always the larger step and "far" the smaller. */
#ifndef ZOOMAF_NIGHT_FOCUS_H
#define ZOOMAF_NIGHT_FOCUS_H

#include <stdint.h>

#include "zoomaf/export.h"

ZOOMAF_EXTERN_C_BEGIN

/* ---- The night search record (service/night_search_record.cpp) --------------------------- */

/* States of night_focus_man.state. */
#define NIGHT_STATE_UNINITIALISED 0
#define NIGHT_STATE_COARSE 1
#define NIGHT_STATE_BIGSTEP 2
#define NIGHT_STATE_SMALLSTEP 3
#define NIGHT_STATE_DONE 4

#define NIGHT_FV_NOT_MEASURED (-9999) /* fv of a point not yet measured; unknown interval end */
#define NIGHT_EXACT_POINTS 17         /* exact-search points the record holds */
#define NIGHT_COARSE_POINTS 5

typedef struct NightExactPoint {
    int32_t step; /* focus motor step */
    int64_t fv;   /* focus value measured there */
    int64_t spare;
} NightExactPoint; /* 24 bytes */

typedef struct NightCoarsePoint {
    int32_t near_side; /* 1 for the two nearest points */
    int32_t step;
    int64_t fv;
} NightCoarsePoint; /* 16 bytes */

typedef struct NightFocusRecord {
    int32_t state;
    int32_t laser_distance; /* low 16 bits of the laser distance the search began with */
    int32_t interval_near;
    int32_t interval_far;
    int32_t range_near; /* upper bound of any search point: lens table column 6 */
    int32_t range_far;  /* lower bound: lens table column 105, minus 50 */
    int32_t exact_first;
    int32_t exact_last;
    int32_t exact_index; /* the exact point the motor stands at */
    int32_t exact_best;
    NightExactPoint exact_points[NIGHT_EXACT_POINTS];
    int32_t coarse_first;
    int32_t coarse_last;
    int32_t coarse_index; /* the coarse point the motor stands at */
    int32_t coarse_dir;   /* +1 toward near focus (lower index), -1 toward far */
    int32_t coarse_near_done;
    int32_t coarse_far_done;
    NightCoarsePoint coarse_points[NIGHT_COARSE_POINTS];
} NightFocusRecord; /* 552 bytes */

ZOOMAF_API extern NightFocusRecord night_focus_man;

/* ---- Search ranges from the laser (service/night_search_range.cpp) ------------------------
   Both lay out the first list of a search and move the focus motor to its first point;
   both need range_near and range_far of the current zoom row. They return 0, or -1 with a
   message and nothing changed when current_multiple_index is not a row of the lens table. */

/* From a laser distance in 0.1 m: a short interval around the lens table's step for it,
   searched in big steps (state 2) or step by step (state 3). */
ZOOMAF_API int32_t get_exact_search_range_by_laser(uint32_t distance);
/* Without a laser distance: the five coarse points over the whole range (state stays 1). */
ZOOMAF_API int32_t get_rough_search_range_by_laser(void);
/* 1 when the focus value fell from previous to current by more than the zoom's threshold,
   else 0. */
ZOOMAF_API int32_t judge_is_need_stop_currentdir_search(int64_t previous, int64_t current);

/* ---- Contrast searches (service/night_contrast_search.cpp) --------------------------------
   One step each: record fv2 at the point the motor stands at, move on or end the stage.
   fv1 is accepted and ignored. They return 0, or -1 with a message and nothing changed
   when an index of the record lies outside its point list. */

ZOOMAF_API int32_t do_coarch_search(int64_t fv1, int64_t fv2);
ZOOMAF_API int32_t do_bigstep_exact_search(int64_t fv1, int64_t fv2);
ZOOMAF_API int32_t do_smallstep_exact_search(int64_t fv1, int64_t fv2);

ZOOMAF_EXTERN_C_END

#endif
