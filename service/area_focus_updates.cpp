// The area-focus thread: polls the area-focus channel for a focus point chosen by the user
// and switches the service to free-area focus on it.
#include "service/area_focus_updates.hpp"

#include <cstdio>
#include <optional>

#include "ipc/area_focus.hpp"
#include "platform/platform.hpp"
#include "service/service_internal.hpp"
#include "zoomaf/app_pdaf.h"

namespace zoomaf {

namespace {
constexpr uint64_t kPollPeriodNs = 100000ull * 1000ull;  // 100000 us
}

// Lock order: the service lock, then the channel semaphore. On a semaphore failure the
// pass ends with the service lock still held: a service that lost its area channel stops
// every user of the service lock rather than run on half blind. A semaphore that another
// process holds too long only means no point this time.
bool area_focus_pass(VrelShareMan& channel) {
    try_lock();
    std::optional<VrelAreaFocusPoint> point;
    const ipc::AreaFocusLook look = ipc::take_area_focus_point(channel, point);
    // The point is in the coordinate space of AppSetFocusCoordinates, which refuses what lies
    // outside it; so is a point from the channel, changing nothing.
    if (point && !focus_point_in_range(point->point_x, point->point_y)) {
        std::printf(
            "Error: GetAreaFocusUpdateStatus point_x:%d and point_y:%d is out of "
            "range(0-3999/0-2999), the point is not taken!\r\n",
            point->point_x, point->point_y);
    } else if (point) {
        is_coordinates_update = 1;
        free_focus_pointx = point->point_x;
        free_focus_pointy = point->point_y;
        current_focus_mode = PDAF_FREE_MODE;
    }
    if (look == ipc::AreaFocusLook::failed) return false;
    unlock();
    return true;
}

}  // namespace zoomaf

extern "C" {

void* GetAreaFocusUpdateStatus(void* /*unused*/) {
    VrelShareMan channel{};
    VrelShareManInit(&channel, VREL_AREA_FOCUS_CHANNEL);
    while (zoomaf::area_focus_pass(channel)) zoomaf::platform().sleep_ns(zoomaf::kPollPeriodNs);
    return nullptr;
}

}  // extern "C"
