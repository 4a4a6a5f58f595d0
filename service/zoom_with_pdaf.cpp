// The zoom in steps of x0.5 with phase-detection focus before each step, so that focus
// never has far to go while the multiple changes.
#include <cmath>
#include <cstdio>

#include "platform/platform.hpp"
#include "service/zoom_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/pdaf_focus.h"
#include "zoomaf/zoom_control.h"

namespace {

constexpr double kGrid = 0.5;
// Multiples this close count as equal, so that a stored x5.0001 does not make a step of
// x0.0001 to the grid's x5.0.
constexpr double kSameMultiple = 0.001;
constexpr uint64_t kFramePauseNs = 50'000'000;

// The first multiple of the 0.5 grid strictly beyond `from` in the zoom's direction.
double first_grid_multiple(double from, bool zoom_in) {
    if (zoom_in) return (std::floor((from + kSameMultiple) / kGrid) + 1) * kGrid;
    return (std::ceil((from - kSameMultiple) / kGrid) - 1) * kGrid;
}

// More passes at longer focal lengths, where the depth of field is shallower.
int focus_passes_before(double multiple) {
    if (multiple < 4.0) return 1;
    if (multiple < 8.0) return 2;
    return 3;
}

// Reads window 0 and moves focus by its defocus when the confidence allows, passes times,
// one frame apart.
void focus_by_pd(PdLibInputData& record, int passes, bool zoom_in) {
    for (int pass = 0; pass < passes; ++pass) {
        zoomaf::platform().sleep_ns(kFramePauseNs);
        int64_t cl = 0;
        int64_t pd = 0;
        get_pd_and_lc(&cl, &pd);
        // Every PD read gets the unit's PD calibration, as in the focus loops.
        pd += pd_calibration_value;
        std::printf(zoom_in ? "AAA cl: %ld, pd: %ld, XSizeOfImage:%d, YSizeOfImage:%d\n\r\n"
                            : "BBB cl: %ld, pd: %ld, XSizeOfImage:%d, YSizeOfImage:%d\n\r\n",
                    cl, pd, record.ImageXSize, record.ImageYSize);
        record.ConfidenceLevel = static_cast<uint64_t>(cl);
        record.PhaseDifference = pd;
        APPSinglePDAFOpr(&record);
    }
}

}  // namespace

// Returns 0 once the lens is at the multiple; -1 when it already was, or when the driver
// stayed running at a step (the zoom stops at the last multiple reached). The last step
// is a zoom without a focus move, so the focus loop takes over from the lower end of the
// focus range.
extern "C" int32_t AppSetMultipleWithPDAF(float multiple) {
    if (multiple == current_multiple) {
        std::puts("Error:AppSetMultipleWithPDAF current multiplle is equal to target multiple!\r");
        return -1;
    }
    zoomaf::ZoomRunning running;
    PdLibInputData record{};
    InitPdLibInputData(&record);
    try_lock();
    const bool zoom_in = multiple > current_multiple;
    const double direction = zoom_in ? kGrid : -kGrid;
    const double first = first_grid_multiple(current_multiple, zoom_in);
    int32_t result = 0;
    for (int k = 0; result == 0; ++k) {
        const double x = first + k * direction;
        if (zoom_in ? x >= multiple - kSameMultiple : x <= multiple + kSameMultiple) break;
        std::printf(zoom_in ? "\r\nsetA AppSetMultipleWithoutLock,from:%f->%f\r\n"
                            : "\r\nsetB AppSetMultipleWithoutLock,from:%f->%f\r\n",
                    static_cast<double>(current_multiple), x);
        const int32_t mode = current_focus_mode.load(std::memory_order_relaxed);
        if (mode == PDAF_CENTER_MODE || mode == PDAF_FREE_MODE)
            focus_by_pd(record, focus_passes_before(x), zoom_in);
        if (AppSetMultipleWithoutLock(static_cast<float>(x)) < 0) result = -1;
    }
    if (result == 0 && AppSetMultipleWithoutLock(multiple) < 0) result = -1;
    unlock();
    return result;
}
