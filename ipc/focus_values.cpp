// The focus values of the latest encoded frame, published by the video encoder side on
// channel 30 with the same update-flag protocol as the laser channel.
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "channels/channel_layout.hpp"
#include "ipc/ipc_internal.hpp"
#include "zoomaf/assist_info.h"

namespace zoomaf::ipc {

VrelShareMan& fv_channel() {
    static VrelShareMan channel{};
    return channel;
}

}  // namespace zoomaf::ipc

extern "C" {

// Called by the focus loop under the service lock: 0 new values, 1 none (also when another
// process holds the channel too long), -1 the channel failed. The channel is opened on first use;
// when that fails the call reports "no values" and the next call tries again, rather than
// taking a semaphore that does not exist.
int32_t fv_publish_consume_encodered_data(void* fv_record) {
    if (fv_record == nullptr) return -1;
    VrelShareMan& channel = zoomaf::ipc::fv_channel();
    if (channel.shm_addr == nullptr && VrelShareManInit(&channel, VREL_FV_CHANNEL) != 0) {
        channel = VrelShareMan{};
        return -1;
    }
    switch (zoomaf::ipc::semaphore_take_within(channel, zoomaf::ipc::kReaderWaitNs)) {
        case zoomaf::ipc::Take::taken:
            break;
        case zoomaf::ipc::Take::timed_out:
            zoomaf::ipc::say_semaphore_held("fv_publish_consume_encodered_data", channel,
                                            zoomaf::ipc::kReaderWaitNs);
            return 1;
        case zoomaf::ipc::Take::failed:
            std::puts("\r\nError:fv_publish_consume_encodered_data SemaphoreP failed!\r");
            return -1;
    }
    const bool fresh = zoomaf::channels::update_flag(channel.shm_addr) == 1;
    if (fresh) {
        // fv1 and fv2 only: the reserved rest carries nothing, and callers may keep just the two.
        std::memcpy(fv_record, channel.data_addr, offsetof(VrelFocusValues, reserved));
        zoomaf::channels::set_update_flag(channel.shm_addr, 0);
    }
    if (VrelSemaphoreV(&channel) != 0) {
        std::puts("Error:fv_publish_consume_encodered_data VrelSemaphoreV failed!\r");
        return -1;
    }
    return fresh ? 0 : 1;
}

}  // extern "C"
