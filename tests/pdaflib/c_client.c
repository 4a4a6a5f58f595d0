/* A C program's view of the defocus library: the public header compiles as C and the records
   have the agreed layout (LP64, natural alignment). */
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
