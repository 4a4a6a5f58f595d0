// The area-focus thread: polls the area-focus channel for a focus point chosen by the user
// and switches the service to free-area focus on it.
#include "service/area_focus_updates.hpp"

#include <optional>

#include "ipc/area_focus.hpp"
#include "platform/platform.hpp"
#include "zoomaf/app_pdaf.h"

namespace {
constexpr uint64_t kPollPeriodNs = 100000ull * 1000ull;  // 100000 us
}

namespace zoomaf {

bool take_area_focus_update(VrelShareMan& channel) {
    std::optional<VrelAreaFocusPoint> point;
    const bool channel_ok = ipc::take_area_focus_point(channel, point);
    if (point) {
        // The point is stored as it comes, in the coordinate space of
        // AppSetFocusCoordinates. It is not range-checked here: the free-area window layout
        // and the readouts must not let it index outside the 8 x 6 grid.
        is_coordinates_update = 1;
        free_focus_pointx = point->point_x;
        free_focus_pointy = point->point_y;
        current_focus_mode = PDAF_FREE_MODE;
    }
    return channel_ok;
}

}  // namespace zoomaf

extern "C" {

// Lock order: the service lock, then the channel semaphore. On a semaphore failure the
// thread ends with the service lock still held: a service that lost its area channel stops
// every user of the service lock rather than run on half blind.
void* GetAreaFocusUpdateStatus(void* /*unused*/) {
    VrelShareMan channel{};
    VrelShareManInit(&channel, VREL_AREA_FOCUS_CHANNEL);
    for (;;) {
        try_lock();
        if (!zoomaf::take_area_focus_update(channel)) return nullptr;
        unlock();
        zoomaf::platform().sleep_ns(kPollPeriodNs);
    }
}

}  // extern "C"
