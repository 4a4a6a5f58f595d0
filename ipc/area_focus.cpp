// The area-focus reader: a thread that polls channel 19 for a focus point chosen by the
// user and switches the service to free-area focus on it.
#include <cstdio>
#include <cstring>

#include "ipc/channel_layout.hpp"
#include "platform/platform.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"

namespace {
constexpr uint64_t kPollPeriodNs = 100000ull * 1000ull;  // 100000 us
}

extern "C" {

// Lock order: the service lock, then the channel semaphore. On either failure the thread
// ends with the service lock still held, as it always has: a service that lost its area
// channel stops every user of the service lock rather than run on half blind.
void* GetAreaFocusUpdateStatus(void* /*unused*/) {
    VrelShareMan channel{};
    VrelAreaFocusPoint point{};
    VrelShareManInit(&channel, VREL_AREA_FOCUS_CHANNEL);
    for (;;) {
        try_lock();
        if (VrelSemaphoreP(&channel) != 0) {
            std::printf("\r\nError:GetAreaFocusUpdateStatus SemaphoreP failed!");
            return nullptr;
        }
        if (zoomaf::ipc::update_flag(channel.shm_addr) == 1) {
            std::memcpy(&point, channel.data_addr, sizeof point);
            // The flag and the reserved word are cleared together.
            std::memset(channel.shm_addr, 0, VREL_PAYLOAD_OFFSET);
            std::printf("\r\n\r\nnget airstatus update,point_x:%d,point_y:%d!\r\n\r\n",
                        point.point_x, point.point_y);
            // The point is stored as it comes, in the coordinate space of
            // AppSetFocusCoordinates. It is not range-checked here: the free-area window
            // layout and the readouts must not let it index outside the 8 x 6 grid.
            is_coordinates_update = 1;
            free_focus_pointx = point.point_x;
            free_focus_pointy = point.point_y;
            current_focus_mode = PDAF_FREE_MODE;
        }
        if (VrelSemaphoreV(&channel) != 0) {
            std::puts("Error:VrelSemaphoreV  failed!\r");
            return nullptr;
        }
        unlock();
        zoomaf::platform().sleep_ns(kPollPeriodNs);
    }
}

}  // extern "C"
