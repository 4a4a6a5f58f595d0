// libFuzzer target of the channel readers: the first byte chooses the laser distance
// (GetCurrentLaserDistance), the area-focus point (one pass of the area-focus thread) or
// the focus values (fv_publish_consume_encodered_data); the next bytes the semaphore (free,
// held by another process, failing), the day or night mode, the update flag and the
// reader's state before; the rest is the payload. Besides the sanitizers' checks: a reader
// that did not get the semaphore changes nothing, a consumed update is cleared, a distance
// is the one the service keeps, and no point outside the picture reaches the service.
#include <cstdint>
#include <cstring>

#include "channels/channel_layout.hpp"
#include "ipc/ipc_internal.hpp"
#include "service/area_focus_updates.hpp"
#include "tests/fuzz/fuzz_platform.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"

namespace {

using namespace zoomaf::fuzz;

// Opens channel memmode on the fuzz platform and puts the flag and the payload in it.
void fill_channel(VrelShareMan& channel, int memmode, uint32_t flag, std::string_view payload) {
    channel = VrelShareMan{};
    require(VrelShareManInit(&channel, memmode) == 0);
    zoomaf::channels::set_update_flag(channel.shm_addr, flag);
    std::memcpy(channel.data_addr, payload.data(),
                std::min(payload.size(), static_cast<size_t>(channel.structlen)));
}

void laser(FuzzPlatform::Semaphore semaphore, uint32_t flag, Input& in) {
    last_laser = static_cast<int32_t>(in.u32());
    last_laster_cnt = in.byte() % 5;
    Manual_laser_setup = in.byte() < 0x80 ? MANUAL_LASER_NONE : static_cast<int32_t>(in.u32());
    global_laser_distance = static_cast<uint16_t>(in.u32());
    fill_channel(LaserMenManHandle, VREL_LASER_CHANNEL, flag, in.rest());
    const int32_t last = last_laser, count = last_laster_cnt;
    const uint16_t distance = GetCurrentLaserDistance();
    require(distance == global_laser_distance);
    if (semaphore != FuzzPlatform::Semaphore::free) {
        require(last_laser == last && last_laster_cnt == count);
    }
    if (semaphore == FuzzPlatform::Semaphore::free) {
        require(zoomaf::channels::update_flag(LaserMenManHandle.shm_addr) ==
                (flag == 1 ? 0 : flag));
    }
}

void area_focus(uint32_t flag, Input& in) {
    is_coordinates_update = 0;
    free_focus_pointx = free_focus_pointy = -1;
    current_focus_mode = in.byte() % 3;
    VrelShareMan channel;
    fill_channel(channel, VREL_AREA_FOCUS_CHANNEL, flag, in.rest());
    if (!zoomaf::area_focus_pass(channel)) unlock();  // the thread would end holding it
    if (is_coordinates_update != 0) {
        require(free_focus_pointx >= 0 && free_focus_pointx <= 3999);
        require(free_focus_pointy >= 0 && free_focus_pointy <= 2999);
        require(current_focus_mode == PDAF_FREE_MODE);
    } else {
        require(free_focus_pointx == -1 && free_focus_pointy == -1);
    }
}

void focus_values(FuzzPlatform::Semaphore semaphore, uint32_t flag, Input& in) {
    VrelShareMan& channel = zoomaf::ipc::fv_channel();
    const std::string_view payload = in.rest();
    fill_channel(channel, VREL_FV_CHANNEL, flag, payload);
    VrelFocusValues record{};
    record.fv1 = record.fv2 = -9999;
    const int32_t result = fv_publish_consume_encodered_data(&record);
    require(result == (semaphore == FuzzPlatform::Semaphore::failing             ? -1
                       : semaphore == FuzzPlatform::Semaphore::held || flag != 1 ? 1
                                                                                 : 0));
    if (result != 0) require(record.fv1 == -9999 && record.fv2 == -9999);
    if (result == 0) {
        int64_t sent[2] = {0, 0};
        std::memcpy(sent, payload.data(), std::min(payload.size(), sizeof sent));
        require(record.fv1 == sent[0] && record.fv2 == sent[1]);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzPlatform& board = fuzz_platform();
    Input in(data, size);
    const uint8_t reader = in.byte() % 3;
    const auto semaphore = static_cast<FuzzPlatform::Semaphore>(
        in.byte() % static_cast<uint8_t>(FuzzPlatform::Semaphore::count));
    cur_day_night_mode = in.byte() % 2;
    // Mostly a new update; sometimes whatever the writer left in the flag.
    const uint8_t flag_choice = in.byte();
    const uint32_t flag = flag_choice < 0xC0 ? 1 : flag_choice < 0xE0 ? 0 : in.u32();

    board.set_semaphore(semaphore);
    switch (reader) {
        case 0:
            laser(semaphore, flag, in);
            break;
        case 1:
            area_focus(flag, in);
            break;
        default:
            focus_values(semaphore, flag, in);
            break;
    }
    std::fflush(stdout);
    return 0;
}
