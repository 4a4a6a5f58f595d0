// The area-focus reader: channel 19 carries a focus point chosen by the user, consumed here
// under the channel's semaphore. What the point does to the service is the service's
// business (service/area_focus_updates.cpp).
#include "ipc/area_focus.hpp"

#include <cstdio>
#include <cstring>

#include "channels/channel_layout.hpp"
#include "ipc/ipc_internal.hpp"

namespace zoomaf::ipc {

AreaFocusLook take_area_focus_point(VrelShareMan& channel,
                                    std::optional<VrelAreaFocusPoint>& point) {
    switch (semaphore_take_within(channel, kReaderWaitNs)) {
        case Take::taken:
            break;
        case Take::timed_out:
            say_semaphore_held("GetAreaFocusUpdateStatus", channel, kReaderWaitNs);
            return AreaFocusLook::held;
        case Take::failed:
            std::printf("\r\nError:GetAreaFocusUpdateStatus SemaphoreP failed!");
            return AreaFocusLook::failed;
    }
    if (channels::update_flag(channel.shm_addr) == 1) {
        VrelAreaFocusPoint taken{};
        std::memcpy(&taken, channel.data_addr, sizeof taken);
        std::memset(channel.shm_addr, 0, VREL_PAYLOAD_OFFSET);
        std::printf("\r\n\r\nnget airstatus update,point_x:%d,point_y:%d!\r\n\r\n", taken.point_x,
                    taken.point_y);
        point = taken;
    }
    if (VrelSemaphoreV(&channel) != 0) {
        std::puts("Error:VrelSemaphoreV  failed!\r");
        return AreaFocusLook::failed;
    }
    return AreaFocusLook::done;
}

}  // namespace zoomaf::ipc
