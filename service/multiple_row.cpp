// The row of a zoom multiple in the lens table, the step-section table and the self-study
// store.
#include "zoomaf/app_pdaf.h"

extern "C" {

// The quotient is taken in single precision and widened before 0.1 is added, so that a
// quotient such as 0.99999 still truncates to the row it means. Multiples outside
// x1.0 .. x17.9 (and NaN) take the nearest end row, so the result is always a valid index.
int32_t AppSetMultipleSectionRelation(float multiple) {
    const double row = static_cast<double>((multiple - 1.0f) / 0.1f) + 0.1;
    if (!(row > 0.0)) return 0;
    if (row >= LENS_TABLE_ROWS) return LENS_TABLE_ROWS - 1;
    return static_cast<int32_t>(row);
}

}  // extern "C"
