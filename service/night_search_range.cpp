// Where a night search begins: with a laser distance, a short interval around the lens
// table's step for that distance, its width set by the zoom and the distance; without one,
// five coarse points over the whole range. Also the stop test of the coarse walk.
#include <algorithm>
#include <cstdio>

#include "service/night_search_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/night_focus.h"

namespace zoomaf::night {
namespace {

// The lens table's row of the current zoom, or -1 with a message when there is none.
int32_t current_row() {
    const int32_t row = current_multiple_index;
    if (row >= 0 && row < LENS_TABLE_ROWS) return row;
    std::printf(
        "Error: night search: current_multiple_index %d is not a row of the lens table "
        "(0..%d); the search is not laid out\r\n",
        row, LENS_TABLE_ROWS - 1);
    return -1;
}

// The lens table column of a laser distance in 0.1 m: whole metres up to 100 m, then the
// 200..600 m columns. Distances up to 4 m take column 0, the first field of the table's
// line, which holds no focus step; it is taken all the same.
int32_t column_for_distance(uint32_t distance) {
    if (distance >= 6001) return 105;
    if (distance >= 5001) return 104;
    if (distance >= 4001) return 103;
    if (distance >= 3001) return 102;
    if (distance >= 2001) return 101;
    if (distance >= 1001) return 100;
    if (distance >= 41) return static_cast<int32_t>(distance / 10);
    return 0;
}

struct Widening {
    int32_t steps;  // the interval is the step plus and minus this
    int32_t state;  // the search that follows
};

// 4.0 and 6.5 are compared in single precision, 10.1 and 11.1 in double: they differ for
// multiples such as 10.1f, which is just above 10.1.
Widening widening_for(float multiple, int32_t column) {
    if (multiple < 4.0f) return {2, NIGHT_STATE_SMALLSTEP};
    if (multiple < 6.5f) {
        return column < 25 ? Widening{10, NIGHT_STATE_BIGSTEP} : Widening{3, NIGHT_STATE_SMALLSTEP};
    }
    if (static_cast<double>(multiple) < 10.1) {
        if (column < 10) return {15, NIGHT_STATE_BIGSTEP};
        return column < 25 ? Widening{6, NIGHT_STATE_BIGSTEP} : Widening{3, NIGHT_STATE_SMALLSTEP};
    }
    if (static_cast<double>(multiple) < 11.1) {
        if (column < 10) return {22, NIGHT_STATE_BIGSTEP};
        return {column < 25 ? 9 : 6, NIGHT_STATE_BIGSTEP};
    }
    return {0, night_focus_man.state};
}

// The coarse points: the 6 m, 10 m, 25 m, 60 m and 600 m columns, the first two on the
// near side.
constexpr int32_t kCoarseColumns[NIGHT_COARSE_POINTS] = {6, 10, 25, 60, 105};

void print_coarse_steps() {
    char line[NIGHT_COARSE_POINTS * 12 + 1] = "";
    size_t used = 0;
    for (const NightCoarsePoint& point : night_focus_man.coarse_points)
        used += std::snprintf(line + used, sizeof line - used, "%d ", point.step);
    std::printf("粗搜索五个点位%s\r\n", line);
}

void say_start_point() {
    const NightFocusRecord& record = night_focus_man;
    std::printf("当前focus：%d最接近搜索点位为:%d，从该点位往方向：%d搜索\r\n", motor_position,
                record.coarse_points[record.coarse_index].step, record.coarse_dir);
}

// The point at which the coarse walk starts. Walking near (direction 1) it is the first
// point below the position the record last saw; walking far, the point above the first one
// below the position read from the driver. Both rules are kept as the walk expects them.
void choose_coarse_start() {
    NightFocusRecord& record = night_focus_man;
    if (record.coarse_dir == 1) {
        for (int32_t i = 0; i < NIGHT_COARSE_POINTS; ++i) {
            if (record.coarse_points[i].step < motor_position) {
                if (i == 0)
                    std::puts("\r\n\r\n\r\ntvk 0726 warnning:在第0个就判断出在右边\r\n\r\n\r");
                record.coarse_index = i;
                say_start_point();
                break;
            }
        }
        if (record.coarse_index == 0) {
            std::puts("区间内没有大于当前点位的focus点位，所以修正为右边界开始！\r");
            record.coarse_index = record.coarse_first;
        }
        return;
    }
    motor_position = GetCurSteps(MOTOR_FOCUS);
    for (int32_t i = 0; i < NIGHT_COARSE_POINTS; ++i) {
        if (record.coarse_points[i].step < motor_position) {
            record.coarse_index = std::max(i - 1, 0);
            say_start_point();
            break;
        }
    }
}

}  // namespace
}  // namespace zoomaf::night

extern "C" {

int32_t get_exact_search_range_by_laser(uint32_t distance) {
    using namespace zoomaf::night;
    const int32_t row = current_row();
    if (row < 0) return -1;
    NightFocusRecord& record = night_focus_man;
    const int32_t column = column_for_distance(distance);
    const int32_t step = TxtToDat[row][column];
    std::printf("得出雷达值对应列数%d,得出focus位置：%d\r\n", column, step);

    const Widening widening = widening_for(current_multiple, column);
    record.state = widening.state;
    int64_t near = int64_t{step} + widening.steps;
    int64_t far = int64_t{step} - widening.steps;
    if (near > record.range_near) {
        near = record.range_near;
        std::printf("Error:搜索区间的近焦focus位置超过边界，修正为:%d\r\n", record.range_near);
    }
    if (far < record.range_far) {
        far = record.range_far;
        std::printf("Error:搜索区间的远焦focus位置超过边界，修正为:%d\r\n", record.range_far);
    }
    // Either end is the step within 22 of an int32, or the bound it was cut to.
    record.interval_near = static_cast<int32_t>(near);
    record.interval_far = static_cast<int32_t>(far);

    if (record.state == NIGHT_STATE_BIGSTEP) {
        std::printf(
            "经过调整,搜索近焦边界:%d,搜索远郊边界为:%d，接下来进行大步长精确搜，搜索点位为:\r\n",
            record.interval_near, record.interval_far);
        lay_out_big_step_list(record.interval_near, record.interval_far);
    } else {
        std::printf("经过调整,搜索近焦边界:%d,搜索远郊边界为:%d，接下来进行按1步长精确搜索\r\n",
                    record.interval_near, record.interval_far);
        lay_out_small_step_list(record.interval_near, record.interval_far);
    }
    return 0;
}

int32_t get_rough_search_range_by_laser(void) {
    using namespace zoomaf::night;
    const int32_t row = current_row();
    if (row < 0) return -1;
    NightFocusRecord& record = night_focus_man;
    clear_coarse_part();
    record.coarse_first = 0;
    record.coarse_last = NIGHT_COARSE_POINTS - 1;
    record.coarse_dir = defauult_probe_dir;
    for (int32_t i = 0; i < NIGHT_COARSE_POINTS; ++i) {
        record.coarse_points[i] = {.near_side = i < 2 ? 1 : 0,
                                   .step = TxtToDat[row][kCoarseColumns[i]],
                                   .fv = NIGHT_FV_NOT_MEASURED};
    }
    print_coarse_steps();
    choose_coarse_start();
    record.coarse_near_done = 0;
    record.coarse_far_done = 0;
    move_to_coarse_point(record.coarse_index);
    return 0;
}

// The threshold is the share of the previous value by which the focus value may fall
// between two points before the walk stops; it grows with the zoom. A previous value of 0
// divides by zero in floating point: any fall then stops the walk, no fall does not.
int32_t judge_is_need_stop_currentdir_search(int64_t previous, int64_t current) {
    const double multiple = current_multiple;
    if (multiple < 2.1) {
        std::puts("低于2倍全程搜索，不做fv间隔帧阈值判定！\r");
        return 0;
    }
    float threshold_percent = 15.0f;
    if (multiple < 3.1) {
        threshold_percent = 4.5f;
    } else if (multiple < 3.2) {
        threshold_percent = 5.3f;
    } else if (multiple < 5.1) {
        threshold_percent = 7.5f;
    } else if (current_multiple < 8.0f) {
        threshold_percent = 12.0f;
    }
    // Values from the encoder are not bounded: the difference wraps rather than overflow.
    const auto fall =
        static_cast<int64_t>(static_cast<uint64_t>(previous) - static_cast<uint64_t>(current));
    const float ratio = static_cast<float>(fall) / static_cast<float>(previous);
    std::printf("当前fv%ld,上一帧fv:%ld,差值%ld,差值占比%f\n", static_cast<long>(current),
                static_cast<long>(previous), static_cast<long>(fall), ratio);
    if (ratio > threshold_percent / 100.0f) {
        std::puts("两帧fv判定超过阈值，判定截止!\r");
        return 1;
    }
    std::puts("两帧fv判定没有超过阈值，同方向继续!\r");
    return 0;
}

}  // extern "C"
