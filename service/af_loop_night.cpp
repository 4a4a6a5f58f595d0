// The night state machine of the auto-focus loop: the first night pass chooses the search
// range from the laser, every later pass reads the frame's focus values and runs one step
// of the search in hand, until the motor stands at the sharpest point (state 4).
#include <cstdio>

#include "platform/platform.hpp"
#include "service/af_loop.hpp"
#include "zoomaf/assist_info.h"
#include "zoomaf/night_focus.h"

namespace zoomaf {
namespace {

constexpr uint64_t kMillisecond = 1'000'000;
constexpr uint64_t kFocusValueRetryNs = 15 * kMillisecond;
constexpr uint64_t kSmallStepFailurePauseNs = 1000 * kMillisecond;
constexpr int kFocusValueAttempts = 4;
constexpr int kFailureReportAttempt = 2;  // reported after the third failure

// Laser values that mean no valid echo. 65536 cannot match a 16-bit value; the list keeps
// it, harmlessly.
bool valid_laser(int32_t laser) {
    return laser != 0 && laser != 40 && laser != 65536 && laser != 16000;
}

void start_search() {
    std::puts("夜视对焦处于未初始化状态!\r");
    night_focus_man.state = NIGHT_STATE_COARSE;
    night_focus_man.interval_near = NIGHT_FV_NOT_MEASURED;
    night_focus_man.interval_far = NIGHT_FV_NOT_MEASURED;
    const int32_t laser = GetCurrentLaserDistance() & 0xFFFF;
    night_focus_man.laser_distance = laser;
    std::printf("获得用于策略评判的初次雷达值:%d\r\n", laser);
    if (valid_laser(laser)) {
        std::printf("\r\n初始化阶段，存在雷达值:%d,开始进行精确搜索范围确认!\r\n", laser);
        get_exact_search_range_by_laser(static_cast<uint32_t>(laser));
    } else {
        std::printf("\r\n初始化阶段,无有效雷达值:%d,开始进行粗搜索范围确认!\r\n", laser);
        get_rough_search_range_by_laser();
    }
}

// The report after the third failed attempt; the small-step search also pauses a second.
void report_missing_focus_values(int32_t state) {
    if (state == NIGHT_STATE_SMALLSTEP) {
        std::puts("\r\n\r\n!!!get fv fail!\r\n\r\n\r");
        std::puts("Error get fv sleep!\r");
        platform().sleep_ns(kSmallStepFailurePauseNs);
        return;
    }
    std::puts(state == NIGHT_STATE_COARSE ? "\r\n\r\nError!!!get fv fail!\r\n\r"
                                          : "Error!!!get fv fail!\r");
    std::puts("\r\n\r\n\r\nError get fv sleep!\r\n\r\n\r");
}

// Up to four attempts at the frame's focus values, 15 ms apart. After four failures the
// search step runs all the same on the values the record still holds.
void read_focus_values(AfLoopState& loop, int32_t state) {
    for (int attempt = 0; attempt < kFocusValueAttempts; ++attempt) {
        if (fv_publish_consume_encodered_data(&loop.fv) == 0) {
            std::printf("app_pdaf get fvinfo fv1:%ld,fv2:%ld,time:%d\r\n",
                        static_cast<long>(loop.fv.fv1), static_cast<long>(loop.fv.fv2), attempt);
            return;
        }
        platform().sleep_ns(kFocusValueRetryNs);
        if (attempt == kFailureReportAttempt) report_missing_focus_values(state);
    }
}

}  // namespace

void night_focus_step(AfLoopState& loop) {
    switch (night_focus_man.state) {
        case NIGHT_STATE_UNINITIALISED:
            start_search();  // no focus value is read in this pass
            return;
        case NIGHT_STATE_COARSE:
            std::puts("夜视对焦处于粗搜索状态!\r");
            read_focus_values(loop, NIGHT_STATE_COARSE);
            do_coarch_search(loop.fv.fv1, loop.fv.fv2);
            return;
        case NIGHT_STATE_BIGSTEP:
            std::puts("夜视对焦处于大步精确状态!\r");
            read_focus_values(loop, NIGHT_STATE_BIGSTEP);
            do_bigstep_exact_search(loop.fv.fv1, loop.fv.fv2);
            return;
        case NIGHT_STATE_SMALLSTEP:
            // The big-step text is printed for the small-step search too.
            std::puts("夜视对焦处于大步精确状态!\r");
            read_focus_values(loop, NIGHT_STATE_SMALLSTEP);
            do_smallstep_exact_search(loop.fv.fv1, loop.fv.fv2);
            return;
        default:  // done: the motor stands at the sharpest point until a change
            return;
    }
}

}  // namespace zoomaf
