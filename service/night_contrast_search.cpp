// The three stages of the night contrast search, one step per frame: record the focus
// value where the motor stands, decide whether the stage is over, move to the next point.
// The coarse walk goes over the five coarse points in one direction until the value drops
// or the end is reached, turns, and then narrows the interval; the big-step search
// measures four evenly spaced points and narrows again; the small-step search measures
// every step and parks the motor on the sharpest.
#include <algorithm>
#include <cstdio>

#include "service/night_search_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/night_focus.h"

namespace zoomaf::night {
namespace {

constexpr int32_t kSmallStepLimit = 11;  // intervals narrower than this go step by step

// Records fv2 at the exact point the motor stands at and makes the next point current.
// False, with nothing changed, when the record has no such point.
bool record_exact_value(int64_t fv2) {
    NightExactPoint* point = exact_point(night_focus_man.exact_index);
    if (point == nullptr) return false;
    point->fv = fv2;
    std::printf("focus点位:%d,fv值:%ld\r\n", point->step, static_cast<long>(fv2));
    night_focus_man.exact_index += 1;
    return true;
}

void start_small_step_search(int32_t near, int32_t far) {
    std::puts("接下来进行按1步长精确搜索,待搜索点位如下:\r");
    night_focus_man.state = NIGHT_STATE_SMALLSTEP;
    lay_out_small_step_list(near, far);
}

void start_big_step_search(int32_t near, int32_t far) {
    night_focus_man.state = NIGHT_STATE_BIGSTEP;
    lay_out_big_step_list(near, far);
}

// The next exact search over near..far: step by step when the interval is narrower than
// 11 steps (a reversed one included), else in big steps again.
void narrow_to(int32_t near, int32_t far) {
    night_focus_man.interval_near = near;
    night_focus_man.interval_far = far;
    if (int64_t{near} - far < kSmallStepLimit) {
        std::printf("最清晰点位前后间隔%d-%d不足10，所以进入小步精搜索！\r\n", near, far);
        start_small_step_search(near, far);
    } else {
        std::printf(
            "由于最高点两边区间步数大于10，更新区间为:%d-%d 进入下一个大步精搜索,搜索点位:\r\n",
            near, far);
        start_big_step_search(near, far);
    }
}

Span coarse_span(int64_t first, int64_t last) {
    return span_in_record(first, last, NIGHT_COARSE_POINTS, "coarse");
}

Span exact_span(int64_t first, int64_t last) {
    return span_in_record(first, last, NIGHT_EXACT_POINTS, "exact");
}

// The walk reads the points next to coarse_index, up to the ends of the list: all of them
// must be points of the record, with the index between the ends.
bool walk_is_in_record() {
    const NightFocusRecord& record = night_focus_man;
    if (0 <= record.coarse_first && record.coarse_first <= record.coarse_index &&
        record.coarse_index <= record.coarse_last && record.coarse_last < NIGHT_COARSE_POINTS) {
        return true;
    }
    std::printf(
        "Error: night search: coarse point %d of the list %d..%d is not in the %d the record "
        "holds; the step is refused\r\n",
        record.coarse_index, record.coarse_first, record.coarse_last, NIGHT_COARSE_POINTS);
    return false;
}

// Both directions are closed: the sharpest coarse point and its near neighbour become the
// interval of the exact search (at index 0 the point and its far neighbour).
void evaluate_coarse_walk() {
    NightFocusRecord& record = night_focus_man;
    std::puts("近焦远焦搜索点位都已截止，开始最清晰点位判断！\r");
    const int32_t best = print_and_choose_sharpest(
        record.coarse_points, coarse_span(record.coarse_first, record.coarse_last));
    const NightCoarsePoint* points = record.coarse_points;
    std::printf("完成本次大步精搜索，最清晰点位：%d\r\n", points[best].step);
    int32_t near = points[0].step;
    int32_t far = points[1].step;
    if (best == 0) {
        std::puts("最清晰点位是近焦点位（6米）,更新区间6米-8米\r");
    } else {
        if (best == record.coarse_last)
            std::puts("最清晰点位是600米点位（6米）,更新区间60米-600米\r");
        near = points[best - 1].step;
        far = points[best].step;
    }
    if (int64_t{near} - far < kSmallStepLimit && int64_t{far} - near > 0) {
        std::puts("错误!,前后focus反置\r\n\r\n\r");
    }
    narrow_to(near, far);
}

// Makes the first unmeasured point from coarse_index toward `to` the one to measure next;
// coarse_index stays when none is left.
void move_on_to_unmeasured(int32_t to) {
    NightFocusRecord& record = night_focus_man;
    const int32_t from = record.coarse_index;
    const int32_t step = to >= from ? 1 : -1;
    const Span span = step > 0 ? coarse_span(from, to) : coarse_span(to, from);
    for (int32_t i = step > 0 ? span.first : span.last; span.first <= i && i <= span.last;
         i += step) {
        if (record.coarse_points[i].fv == NIGHT_FV_NOT_MEASURED) {
            std::printf("搜索点位更新为：%d\r\n", record.coarse_points[i].step);
            record.coarse_index = i;
            return;
        }
    }
}

// One direction of the coarse walk: toward near focus (coarse_dir 1, lower indices) or
// toward far focus (coarse_dir -1, higher indices). The two mirror each other but for the
// value that closes the opposite side after a stop.
struct WalkDirection {
    int32_t index_step;
    int32_t NightFocusRecord::*ahead;   // end the walk heads for; cut to the stop
    int32_t NightFocusRecord::*behind;  // end it came from; the turn heads back there
    int32_t NightFocusRecord::*done;
    int32_t NightFocusRecord::*opposite_done;
    // After a stop the opposite side is closed unless its next point holds this value.
    // Toward near it is -3000, which no unmeasured point holds: the far side is closed at
    // once, so exactly one more point is measured before the evaluation.
    int64_t opposite_open_while;
    const char* turned_here;  // after the turn at the opposite end
    const char* all_measured_here;
    const char* no_previous_point;
    const char* no_previous_value;
    const char* stopped;
    const char* opposite_already_done;
    const char* turning_back;
    const char* all_measured_opposite;
};

constexpr WalkDirection kTowardNear = {
    -1,
    &NightFocusRecord::coarse_first,
    &NightFocusRecord::coarse_last,
    &NightFocusRecord::coarse_near_done,
    &NightFocusRecord::coarse_far_done,
    SELFSTUDY_NOT_LEARNED,
    "到达边界后更改新方向为近焦\r",
    "所有点位以及搜索完成，近焦也截至！\r",
    "往近焦走，但是是最边界点位，所以不做和上一帧的判定\r",
    "往近焦走，但是没有该方向上一帧的fv值，所以不做和上一帧的判定！\r",
    "往近焦点位方向截止\r",
    "远焦点位也结束了！等待结束\r",
    "改朝着远焦搜索\r",
    "所有点位以及搜索完成，远焦也截止，等待结束！\r",
};

constexpr WalkDirection kTowardFar = {
    1,
    &NightFocusRecord::coarse_last,
    &NightFocusRecord::coarse_first,
    &NightFocusRecord::coarse_far_done,
    &NightFocusRecord::coarse_near_done,
    NIGHT_FV_NOT_MEASURED,
    "到达边界后更改新方向为远焦\r",
    "所有点位以及搜索完成，远焦也截至！\r",
    "往远焦走，但是是最边界点位，所以不做和上一帧的判定\r",
    "往远焦走，但是没有该方向上一帧的fv值，所以不做和上一帧的判定！\r",
    "往远焦点位方向截止\r",
    "近焦点位也结束了！等待结束\r",
    "改朝着近焦搜索\r",
    "所有点位以及搜索完成，近焦也截至！\r",
};

// After the turn at one end: go on from the first unmeasured point in the new direction,
// or close that direction too when every point there is measured.
void continue_after_turn(const WalkDirection& direction) {
    NightFocusRecord& record = night_focus_man;
    std::puts(direction.turned_here);
    move_on_to_unmeasured(record.*direction.ahead);
    if (record.coarse_points[record.coarse_index].fv != NIGHT_FV_NOT_MEASURED) {
        std::puts(direction.all_measured_here);
        record.*direction.done = 1;
    }
}

// One step of the walk: compare the point with the one before it and go on, or stop this
// direction and turn back toward the unmeasured points behind.
void walk(const WalkDirection& direction) {
    NightFocusRecord& record = night_focus_man;
    NightCoarsePoint* points = record.coarse_points;
    const int32_t index = record.coarse_index;
    const int32_t previous = index - direction.index_step;
    int32_t stop = 0;
    if (index == record.*direction.behind) {
        std::puts(direction.no_previous_point);
    } else if (points[previous].fv == NIGHT_FV_NOT_MEASURED) {
        std::puts(direction.no_previous_value);
    } else {
        stop = judge_is_need_stop_currentdir_search(points[previous].fv, points[index].fv);
    }
    if (stop == 0) {
        std::puts("不截止，继续下一个点位\r");
        record.coarse_index = index + direction.index_step;
        return;
    }
    std::puts(direction.stopped);
    record.*direction.done = 1;
    record.*direction.ahead = index;
    if (record.*direction.opposite_done == 1) {
        std::puts(direction.opposite_already_done);
        return;
    }
    std::puts(direction.turning_back);
    record.coarse_dir = direction.index_step;
    move_on_to_unmeasured(record.*direction.behind);
    if (points[record.coarse_index].fv != direction.opposite_open_while) {
        std::puts(direction.all_measured_opposite);
        record.*direction.opposite_done = 1;
    }
}

}  // namespace
}  // namespace zoomaf::night

extern "C" {

int32_t do_coarch_search(int64_t fv1, int64_t fv2) {
    using namespace zoomaf::night;
    (void)fv1;
    NightFocusRecord& record = night_focus_man;
    // The frame's value is stored while the near side is closed or the far side open. After a
    // near-side stop both sides are closed at once, and this still stores the value of the
    // one point visited after the stop before the evaluation runs.
    const bool walking = record.coarse_near_done != 0 || record.coarse_far_done == 0;
    if (walking && !walk_is_in_record()) return -1;
    bool turned = false;
    if (walking) {
        NightCoarsePoint& point = record.coarse_points[record.coarse_index];
        point.fv = fv2;
        std::printf("focus点位:%d,fv值:%ld\r\n", point.step, static_cast<long>(fv2));
        std::printf("粗搜index：%d,farstep index:%d\r\n", record.coarse_index, record.coarse_last);
        if (record.coarse_dir == 1 && record.coarse_index == 0) {
            std::puts("粗搜到达了近焦搜索边界，近焦点位截止,搜索方向翻转\r");
            record.coarse_near_done = 1;
            record.coarse_dir = -record.coarse_dir;
            turned = true;
        }
        if (record.coarse_dir != 1 && record.coarse_index == record.coarse_last) {
            std::puts("粗搜到达了远焦搜索边界，远焦点位截止，搜索方向反转\r");
            record.coarse_far_done = 1;
            record.coarse_dir = -record.coarse_dir;
            turned = true;
        }
    }
    if (record.coarse_near_done == 1 && record.coarse_far_done == 1) {
        evaluate_coarse_walk();
        return 0;
    }
    if (turned) {
        // A direction other than +1 or -1 (never laid out) has nowhere to go on.
        if (record.coarse_dir == 1) continue_after_turn(kTowardNear);
        if (record.coarse_dir == -1) continue_after_turn(kTowardFar);
    } else {
        walk(record.coarse_dir == 1 ? kTowardNear : kTowardFar);
    }
    move_to_coarse_point(record.coarse_index);
    return 0;
}

int32_t do_bigstep_exact_search(int64_t fv1, int64_t fv2) {
    using namespace zoomaf::night;
    (void)fv1;
    NightFocusRecord& record = night_focus_man;
    // The far end of the list, the last point's far neighbour, is point exact_last + 1.
    if (record.exact_last > NIGHT_EXACT_POINTS - 2) {
        std::printf(
            "Error: night search: a big-step list up to point %d has no far end in the record's "
            "%d points; the step is refused\r\n",
            record.exact_last, NIGHT_EXACT_POINTS);
        return -1;
    }
    if (!record_exact_value(fv2)) return -1;
    if (record.exact_index <= record.exact_last) {
        move_to_exact_point(record.exact_index);
        return 0;
    }
    std::puts("已经完成大步长精确搜索,各点位信息如下:\r");
    int32_t best = print_and_choose_sharpest(record.exact_points, exact_span(1, record.exact_last));
    if (best == 0) {
        std::puts("4次搜索清晰度一样，选最近焦\r");
        best = 1;
    }
    const NightExactPoint* points = record.exact_points;
    std::printf("完成本次大步精搜索，最清晰点位：%d\r\n", points[best].step);
    narrow_to(points[best - 1].step, points[best + 1].step);
    return 0;
}

int32_t do_smallstep_exact_search(int64_t fv1, int64_t fv2) {
    using namespace zoomaf::night;
    (void)fv1;
    NightFocusRecord& record = night_focus_man;
    if (!record_exact_value(fv2)) return -1;
    if (record.exact_index > record.exact_last) {
        std::puts("已经小步完成了精确搜索,各点位信息如下:\r");
        const Span span = exact_span(0, int64_t{record.exact_last} - record.exact_first);
        const int32_t best = print_and_choose_sharpest(record.exact_points, span);
        std::printf("已经完成小步精搜索，走到最清晰点位：%d\r\n", record.exact_points[best].step);
        move_to_exact_point(best);
        record.state = NIGHT_STATE_DONE;
    } else if (current_multiple > 19.0f) {
        // The message names 17.5 while the bound is 19.0; the lens table ends at 17.9.
        const auto middle = static_cast<int32_t>(
            std::max<int64_t>((int64_t{record.exact_last} - record.exact_first + 1) / 2, 1));
        std::puts("大于17.5倍,直接走到小步精搜的中间!\r");
        move_to_exact_point(middle);
        record.state = NIGHT_STATE_DONE;
    } else {
        move_to_exact_point(record.exact_index);
    }
    return 0;
}

}  // extern "C"
