// The laser distance: channel 12 read under its semaphore, then range clamps and a jump
// filter, because every laser-assisted decision of the service takes its distance from here.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "channels/channel_layout.hpp"
#include "ipc/ipc_internal.hpp"
#include "zoomaf/assist_info.h"
#include "zoomaf/service_state.h"

VrelShareMan LaserMenManHandle{};
uint16_t global_laser_distance = 0;
int32_t last_laser = 100;
int32_t last_laster_cnt = 0;
int32_t Manual_laser_setup = MANUAL_LASER_NONE;

namespace {

#define LASER_COLOUR "\033[31;42m"
#define COLOUR_END "\033[0m"

// Distances in 0.1 m.
constexpr uint16_t kFarthest = 16000;
constexpr uint16_t kFarthestKept = 15990;
constexpr uint16_t kNearest = 40;
constexpr uint16_t kZeroByDay = 2000;
// A drop of more than this fraction below the last accepted distance is a jump.
constexpr double kJumpFraction = 0.2;
// Jumps refused in a row before the next one is taken.
constexpr int32_t kJumpsRefused = 3;

// The range clamps: no echo is kept, beyond 1600 m becomes 1599 m, a reading up to 4 m
// becomes 4 m, and a 0 by day is taken as 200 m (the message says 350: the messages are
// the system's own, letter for letter).
uint16_t clamp_range(uint16_t d) {
    if (d == LASER_NO_ECHO) {
        std::puts("warning:laser 65535!\r");
    } else if (d > kFarthest) {
        d = kFarthestKept;
        std::printf("warning:modify laser %d to 15990!\r\n", d);
    }
    if (d <= kNearest) {
        if (d != 0) {
            std::printf("modify distance from %d to 40\r\n", d);
            d = kNearest;
        } else if (cur_day_night_mode == 0) {
            std::printf("modify distance from %d to 350\r\n", d);
            d = kZeroByDay;
        }
    }
    return d;
}

// Only a drop of more than 20 % counts as a jump; a rise, however large, is taken at once.
// Three jumps in a row are refused and the fourth is taken.
void filter_jump(uint16_t d) {
    const int64_t a = std::llabs(static_cast<int64_t>(last_laser));
    const bool too_far = static_cast<double>(a - d) > static_cast<double>(a) * kJumpFraction;
    if (too_far && last_laster_cnt != kJumpsRefused) {
        ++last_laster_cnt;
        global_laser_distance = static_cast<uint16_t>(last_laser);
        std::printf("原雷达距离:%d超出获取距离:%d太多,所以这次保持，原有的计数更新:%d" COLOUR_END
                    "\r\n",
                    last_laser, d, last_laster_cnt);
    } else if (too_far) {
        last_laster_cnt = 0;
        global_laser_distance = d;
        last_laser = d;
        std::printf(
            "原雷达距离:%d超出获取距离:%d太多,但已经连续三次了，所以更新雷达为位置::%d" COLOUR_END
            "\r\n",
            last_laser, d, d);
    } else {
        last_laster_cnt = 0;
        last_laser = d;
        global_laser_distance = d;
        std::printf("获取的雷达变动在范围内，更新值:%d" COLOUR_END "\r\n", last_laser);
    }
}

uint16_t apply_override() {
    if (Manual_laser_setup != MANUAL_LASER_NONE) {
        // Kept to 16 bits: 7000 m gives 70000, that is 4464.
        global_laser_distance = static_cast<uint16_t>(int64_t{Manual_laser_setup} * 10);
    }
    return global_laser_distance;
}

}  // namespace

extern "C" {

uint16_t GetCurrentLaserDistance(void) {
    VrelShareMan& channel = LaserMenManHandle;
    // Before LaserShareMemeoryInit the record is all zero: semaphore set 0 may be another
    // process's, so it is left alone and the take counts as failed.
    const zoomaf::ipc::Take take =
        channel.shm_addr == nullptr
            ? zoomaf::ipc::Take::failed
            : zoomaf::ipc::semaphore_take_within(channel, zoomaf::ipc::kReaderWaitNs);
    if (take == zoomaf::ipc::Take::timed_out) {
        // Held by another process: the last distance, as on the failure path.
        zoomaf::ipc::say_semaphore_held("GetCurrentLaserDistance", channel,
                                        zoomaf::ipc::kReaderWaitNs);
        return global_laser_distance;
    }
    if (take == zoomaf::ipc::Take::failed) {
        std::printf("\r\nError:GetCurrentLaserDistance SemaphoreP failed!");
        return global_laser_distance;
    }
    if (zoomaf::channels::update_flag(channel.shm_addr) != 1) {
        if (VrelSemaphoreV(&channel) != 0) {
            std::puts("Error:GetCurrentLaserDistance VrelSemaphoreV  failed!\r");
            return global_laser_distance;
        }
        std::printf(LASER_COLOUR);
        std::printf("共享内存雷达没更新，返回上次的值:%d!" COLOUR_END "\r\n",
                    global_laser_distance);
        return apply_override();
    }
    uint16_t d = 0;
    std::memcpy(&d, channel.data_addr, sizeof d);
    zoomaf::channels::set_update_flag(channel.shm_addr, 0);
    if (VrelSemaphoreV(&channel) != 0) {
        std::puts("Error:GetCurrentLaserDistance VrelSemaphoreV  failed!\r");
        return global_laser_distance;
    }
    std::printf(LASER_COLOUR);
    std::printf("get laser distance：%d\r\n", d);
    d = clamp_range(d);
    filter_jump(d);
    return apply_override();
}

}  // extern "C"
