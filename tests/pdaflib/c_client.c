/* A C program's view of the defocus library: the public header compiles as C, the records
   have the agreed layout (LP64, natural alignment), and a call made from C works. */
#include <stddef.h>
#include <stdint.h>

#include "zoomaf/pdaflib.h"

#define FIELD_IS(type, record, field) _Generic(((record*)0)->field, type : 1, default : 0)
#define CHECK_FIELD(record, field, type, offset)                               \
    _Static_assert(FIELD_IS(type, record, field), #record "." #field " type"); \
    _Static_assert(offsetof(record, field) == (offset), #record "." #field " offset")

_Static_assert(sizeof(void*) == 8, "the record layout below is the LP64 one");

/* The sizes, and the fields whose place depends on padding or on a type's width. */
_Static_assert(sizeof(PdLibVersion) == 16, "PdLibVersion size");
_Static_assert(sizeof(PdLibOKNGThrLine) == 24, "PdLibOKNGThrLine size");
CHECK_FIELD(PdLibOKNGThrLine, p_Y, const uint64_t*, 16);
CHECK_FIELD(PdLibInputData, ConfidenceLevel, uint64_t, 8);
CHECK_FIELD(PdLibInputData, WindowYEnd, uint16_t, 26);
CHECK_FIELD(PdLibInputData, p_DefocusDcc, const int64_t*, 32);
CHECK_FIELD(PdLibInputData, p_DefocusYKnot, const uint16_t*, 56);
CHECK_FIELD(PdLibInputData, DccScale, int64_t, 64);
CHECK_FIELD(PdLibInputData, ThrYKnotNum, uint16_t, 82);
CHECK_FIELD(PdLibInputData, p_DefocusOKNGThrLine, const PdLibOKNGThrLine*, 88);
CHECK_FIELD(PdLibInputData, ConfidenceNormaliser, uint64_t, 112);
_Static_assert(sizeof(PdLibInputData) == 120, "PdLibInputData size");
CHECK_FIELD(PdLibOutputData, DefocusConfidence, int8_t, 8);
CHECK_FIELD(PdLibOutputData, DefocusConfidenceLevel, uint64_t, 16);
_Static_assert(sizeof(PdLibOutputData) == 32, "PdLibOutputData size");

int64_t pdaflib_c_client_run(PdLibOutputData* output);

/* A 2 x 2 grid with coefficients 1, 2, 3, 4 and a flat threshold of 150, a window right of
   and below the grid (knot 3), PD 10 and CL 300: defocus 4 x 10 = 40, level
   300 x 1024 / 150 = 2048, OK. */
int64_t pdaflib_c_client_run(PdLibOutputData* output) {
    static const uint16_t knots[2] = {100, 200};
    static const int64_t dcc[4] = {1, 2, 3, 4}, offsets[4] = {0, 0, 0, 0};
    static const uint64_t gains[2] = {0, 960}, thresholds[2] = {150, 150};
    const PdLibOKNGThrLine line = {2, gains, thresholds};
    const PdLibOKNGThrLine lines[4] = {line, line, line, line};
    const PdLibInputData input = {.PhaseDifference = 10,
                                  .ConfidenceLevel = 300,
                                  .ImageXSize = 400,
                                  .ImageYSize = 300,
                                  .WindowXStart = 300,
                                  .WindowYStart = 250,
                                  .WindowXEnd = 320,
                                  .WindowYEnd = 270,
                                  .DefocusXKnotNum = 2,
                                  .DefocusYKnotNum = 2,
                                  .p_DefocusDcc = dcc,
                                  .p_DefocusOffset = offsets,
                                  .p_DefocusXKnot = knots,
                                  .p_DefocusYKnot = knots,
                                  .DccScale = 2304,
                                  .SensorGain = 16,
                                  .ThrXKnotNum = 2,
                                  .ThrYKnotNum = 2,
                                  .p_DefocusOKNGThrLine = lines,
                                  .p_ThrXKnot = knots,
                                  .p_ThrYKnot = knots,
                                  .ConfidenceNormaliser = 2304};
    return PdLibGetDefocus(&input, output);
}
