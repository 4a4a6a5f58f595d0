/* The steps of PdLibGetDefocus, each a function of its own with C linkage. They are not part
   of the library's interface (hidden in libzoomaf.so); the unit tests call them directly. */
#ifndef ZOOMAF_PDAFLIB_PDAF_INTERNAL_H
#define ZOOMAF_PDAFLIB_PDAF_INTERNAL_H

#include <stdint.h>

#include "zoomaf/pdaflib.h"

ZOOMAF_EXTERN_C_BEGIN

/* Defocus 0, flag -1 (not computed), level 0, PD 0. */
void job_init_output_data(PdLibOutputData* output);

/* The input checks in their fixed order; returns 0 or the code of the first failing one. */
int64_t job_check_input(const PdLibInputData* input);

/* Defocus: the per-knot defocus interpolated at the window centre. */
void job_calc_defocus(const PdLibInputData* input, PdLibOutputData* output);

/* DefocusConfidenceLevel: 0 without a threshold grid or for PD -1024, else the CL against the
   threshold interpolated at the window centre. */
void job_calc_defocus_confidence_level(const PdLibInputData* input, PdLibOutputData* output);

/* DefocusConfidence from the grid, the PD and the level already in output. */
void job_calc_defocus_confidence(const PdLibInputData* input, PdLibOutputData* output);

/* PhaseDifference copied from the input. */
void job_calc_phase_difference(const PdLibInputData* input, PdLibOutputData* output);

/* Defocus of conversion knot `knot`, clamped by limit_defocus_formula. */
int64_t calc_defocus_formula(const PdLibInputData* input, uint16_t knot);

/* Clamps to -2147483647 .. 2147483646 (one short of the 32-bit extremes), else truncates. */
int64_t limit_defocus_formula(double defocus);

/* Threshold of threshold knot `knot`: its line at SensorGain, 0 if the line refuses. */
int64_t calc_defocus_ok_ng_thr(const PdLibInputData* input, uint16_t knot);

/* Clamps to 0 .. 4294967294, else truncates. */
uint64_t limit_defocus_confidence_level(double level);

ZOOMAF_EXTERN_C_END

#endif
