// The day focus step the auto-focus loop runs once per pass in centre and free mode. Each
// call acts on the window the latest grid readout chose: it moves the focus motor by that
// window's defocus and decides across calls, with the reference point m0 and the point m1
// reached by the last move, whether the lens converges, has converged (focus locks) or
// oscillates (back to m0). With no usable window for several passes it falls back on the
// laser distance and the lens table.
#include <cstdio>

#include "platform/platform.hpp"
#include "service/pdaf_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/pdaf_focus.h"

int32_t m0_motor = PDAF_EMPTY_POINT;
int64_t m0_pd = PDAF_EMPTY_POINT;
int64_t m0_cl = PDAF_EMPTY_POINT;
int32_t m0_windeos = PDAF_EMPTY_POINT;
int32_t m1_motor = PDAF_EMPTY_POINT;
int64_t m1_pd = PDAF_EMPTY_POINT;
int64_t m1_cl = PDAF_EMPTY_POINT;
int32_t m1_windeos = PDAF_EMPTY_POINT;
int32_t lock_value = 10;
int32_t true_cnt = 0;
int32_t need_laser_cnt = 0;
int32_t zy_shock_cnt = 0;
int32_t zy_judge_shock_cnt = 0;
int32_t current_lowlevel_limit_counter = 5;
int32_t low_ten_pd_motor = PDAF_EMPTY_POINT;
int32_t zy_focus_lock_step = 0;

namespace {

using zoomaf::current_focus_range;
using zoomaf::focus_position_read_back;

constexpr int32_t kEmpty = PDAF_EMPTY_POINT;
constexpr int64_t kLockCl = 1001;             // the lock needs a CL of at least this
constexpr int32_t kLockCalls = 3;             // ... this many calls in a row
constexpr int32_t kLockPassesAfterZoom = 11;  // ... and this many passes since the zoom
constexpr int32_t kShockLimit = 5;            // more non-converging calls lock at m0
constexpr int32_t kReturnCompensation = 8;    // steps against the PD sign on the way to m0
constexpr float kCompensateFromMultiple = 3.0f;
constexpr uint64_t kResetPauseNs = 50'000'000;

bool is_centre_window(int32_t w) {
    for (int32_t c : {11, 12, 19, 20, 27, 28, 35, 36}) {
        if (w == c) return true;
    }
    return false;
}

void empty_m1() {
    m1_motor = kEmpty;
    m1_pd = kEmpty;
    m1_cl = kEmpty;
    m1_windeos = kEmpty;
}

// m0 at the current position, every other field of m0 and m1 empty.
void clear_points() {
    m0_motor = focus_position_read_back();
    m0_pd = kEmpty;
    m0_cl = kEmpty;
    m0_windeos = kEmpty;
    empty_m1();
}

void m1_becomes_m0() {
    m0_motor = m1_motor;
    m0_pd = m1_pd;
    m0_cl = m1_cl;
    m0_windeos = m1_windeos;
}

// Focus is locked: the loop stops calling until something changes.
void lock_focus() {
    is_free_focus_opr_over = 1;
    zy_focus_lock_step = focus_position_read_back();
}

// Moves by the current window's defocus, remembers m1 and tests the lock on the frame's PD
// and CL.
int32_t move_and_lock(PdLibInputData* record) {
    const int64_t pd = record->PhaseDifference;
    const int64_t cl = zoomaf::record_cl(*record);
    int64_t defocus = 0;
    const bool computed = zoomaf::window_defocus(record, defocus);
    zy_shock_cnt = 0;
    if (computed) {
        int64_t steps = zoomaf::defocus_steps(defocus);
        judge_right_windwos_deal(&steps);
        steps = get_target_step(pd < 0 ? -pd : pd, steps);
        AppSetMotorMoveByOffset(steps);
        std::printf("运行完马达当前步数:%ld,当前倍数:%f\r\n", steps,
                    static_cast<double>(current_multiple));
    } else {
        std::puts("\r\n!tvk Warning:pdaf init 0:focsu-pd get error\r");
    }
    m1_motor = focus_position_read_back();
    std::printf("根据m0的cl和pd信息,运行到点位m1:%d\r\n", m1_motor);
    if (pd >= -19 && pd < 20) {
        low_ten_pd_motor = focus_position_read_back();
        std::printf("由于当前pd小于 20,更新low_ten_pd的马达位置为:%d\r\n", low_ten_pd_motor);
    }
    if ((pd < 0 ? -pd : pd) < lock_value && cl >= kLockCl) {
        ++true_cnt;
        if (true_cnt < kLockCalls || pdafcnt_over_multiple_change < kLockPassesAfterZoom) {
            std::printf("cl>1000,pd小于20,且连续次数为%d,暂不锁焦!\r\n", true_cnt);
            return 0;
        }
        lock_focus();
        std::printf("cl>1000,pd小于%d,且连续次数为3,锁焦处理,并清空信息!\r\n", lock_value);
        true_cnt = 0;
        clear_points();
        return 0;
    }
    true_cnt = 0;
    return 0;
}

int32_t reset_centre_focus() {
    zy_judge_shock_cnt = 0;
    true_cnt = 0;
    need_laser_cnt = 0;
    low_ten_pd_motor = kEmpty;
    std::puts("变倍了,将锁焦计数、雷达计数、lowten点位清空!\r");
    zy_shock_cnt = 0;
    clear_points();
    std::printf("由于是变倍初始化状态,所以只记录m0-focus:%d,pd和cl不记录等待有正确值时记录\r\n",
                m0_motor);
    std::puts("变倍初始化参数重置完成\r\n\r\n\r");
    zoomaf::platform().sleep_ns(kResetPauseNs);
    return 0;
}

// A. No usable window: count, and from the fourth call in a row move by the laser.
int32_t laser_counting_strategy() {
    zy_judge_shock_cnt = 0;
    m1_pd = kEmpty;
    m1_cl = kEmpty;
    m1_windeos = kEmpty;
    std::printf("当前cl等级不够,所以走雷达计数策略,当前计数:%d\r\n", need_laser_cnt);
    true_cnt = 0;
    if (need_laser_cnt <= current_lowlevel_limit_counter) {
        // Two per call: with the limit 5 the laser comes on the fourth call (0, 2, 4, 6).
        const int32_t counted = ++need_laser_cnt;
        ++need_laser_cnt;
        std::printf("更新此次雷达计数为:%d\r\n", counted);
        return -1;
    }
    std::puts("超过计数，进行雷达辅助策略!\r");
    const int32_t laser_result = SetMotorByUserLaserinfoAndPtzinfo();
    m0_motor = focus_position_read_back();
    m0_pd = kEmpty;
    m0_cl = kEmpty;
    m0_windeos = kEmpty;
    m1_motor = kEmpty;
    std::printf("走了雷达,清空m0、m1计数,更新m0 focuse为:%d!\r\n", m0_motor);
    zy_shock_cnt = 0;
    if (laser_result == -2) {
        need_laser_cnt = 0;
        std::puts("因为雷达获取到距离为4米,所以此次暂停不走!\r");
        return -1;
    }
    // The count stays: the next call without a window goes straight to the laser again.
    return 0;
}

// The way back to m0 after a non-converging call, 8 steps against the PD sign from x3.0
// on, kept inside the focus range.
void compensate_return(int64_t pd_at_m0) {
    if (current_multiple < kCompensateFromMultiple) {
        std::puts("由于低于3倍,所以回到m0不加补偿!\r");
        return;
    }
    if (pd_at_m0 >= 0) {
        std::printf("由于当前pd大于0,更新m0motor为:%d->%d\r\n", m0_motor,
                    m0_motor - kReturnCompensation);
        m0_motor -= kReturnCompensation;
    } else {
        std::printf("由于当前pd小于0,更新m0motor为:%d->%d\r\n", m0_motor,
                    m0_motor + kReturnCompensation);
        m0_motor += kReturnCompensation;
    }
    int32_t min = 0;
    int32_t max = 0;
    if (current_focus_range("APPSetCenterFocusOprByAssitInfo", min, max) &&
        (m0_motor < min || m0_motor > max)) {
        std::printf("mo超范围了 motor_position:%d was out of range:%d~%d\r\n", m0_motor, min, max);
        m0_motor = m0_motor < min ? min : max;
    }
    std::printf("最终m0:%d\r\n", m0_motor);
}

// D. m1 measured: judge whether the PD in m0's window shrank by more than a tenth.
int32_t judge_convergence(PdLibInputData* record) {
    m1_pd = record->PhaseDifference;
    m1_cl = zoomaf::record_cl(*record);
    m1_windeos = zy_current_select_win;
    std::printf("该次m1获取到了有效窗口win:%d,并获取cl:%ld,pd:%ld\r\n", m1_windeos + 1, m1_cl,
                m1_pd);
    std::puts("m0与m1信息开始判断是否收敛!\r");
    const int32_t m1_pd32 = static_cast<int32_t>(m1_pd);
    if (m1_pd32 >= -18 && m1_pd32 < 19) {
        zy_judge_shock_cnt = 0;
        std::puts(
            "由于m1_pd<19!,所以就不判定收敛条件了,直接将m1信息更新为m0,清空m1信息,"
            "并进行下一步运行\r");
        m1_becomes_m0();
        std::printf("之更新后m0信息为,窗口:%d,并获取cl:%ld,pd:%ld\r\n", m0_windeos + 1, m0_cl,
                    m0_pd);
        std::puts("并以此信息作为基础计算出待运行到的m1点位!\r");
        empty_m1();
        need_laser_cnt = 0;
        return move_and_lock(record);
    }
    // The text says 30; the threshold is 19.
    std::puts("由于m1_pd>=30!,所以就要判定收敛条件了,待比较信息如下:\r");
    std::printf("m0 win:%d,cl:%ld,pd:%ld\r\n", m0_windeos + 1, m0_cl, m0_pd);
    std::printf("m1 win:%d,cl:%ld,pd:%ld\r\n", m1_windeos + 1, m1_cl, m1_pd);
    // m0's window is a grid window: it came from zy_current_select_win, checked on entry.
    const int64_t pd_at_m0 = zypd[m0_windeos];
    std::printf("m1_win[%d],pd:%ld\r\n", m0_windeos + 1, pd_at_m0);
    const int32_t m0_pd32 = static_cast<int32_t>(m0_pd);
    const int32_t now_pd32 = static_cast<int32_t>(pd_at_m0);
    const int64_t a = m0_pd32 < 0 ? -int64_t{m0_pd32} : m0_pd32;
    const int64_t b = now_pd32 < 0 ? -int64_t{now_pd32} : now_pd32;
    const int64_t tenth = static_cast<int64_t>(static_cast<double>(a) * 0.1);
    if (a - b > tenth && b < a) {
        zy_judge_shock_cnt = 0;
        std::printf("由于%ld - %ld > %ld,所以收敛\r\n", a, b, tenth);
        std::puts("因为收敛,将m1信息更新为m0,清空m1信息,并进行下一步运行\r");
        m1_becomes_m0();
        std::printf("更新后m0信息为,窗口:%d,并获取cl:%ld,pd:%ld\r\n", m0_windeos + 1, m0_cl, m0_pd);
        std::puts("并以此信息作为基础计算出待运行到的m1点位!\r");
        empty_m1();
        need_laser_cnt = 0;
        return move_and_lock(record);
    }
    if (b >= a) {
        std::printf("由于%ld >= %ld", b, a);
    } else {
        std::printf("由于%ld - %ld < %ld,所以不收敛\r\n", a, b, tenth);
    }
    if (zy_judge_shock_cnt > kShockLimit) {
        SetFocusLens(static_cast<int16_t>(m0_motor), 0);
        std::puts("因为连续不收敛次数超过5,所以走到m0点位锁焦所以\r");
        motor_position = focus_position_read_back();
        m0_motor = motor_position;
        std::printf("运行到马达位置:%d\r\n", motor_position);
        lock_focus();
        std::puts("锁焦处理,并清空信息!\r");
        true_cnt = 0;
        clear_points();
        return 0;
    }
    std::puts("因为不收敛,所以走回m0点位,并将m1的所以信息清空!\r");
    empty_m1();
    m0_pd = kEmpty;
    m0_cl = kEmpty;
    m0_windeos = kEmpty;
    need_laser_cnt = 0;
    true_cnt = 0;
    compensate_return(pd_at_m0);
    SetFocusLens(static_cast<int16_t>(m0_motor), 0);
    motor_position = focus_position_read_back();
    m0_motor = motor_position;
    std::printf("运行到马达位置:%d,m0位置:%d\r\n", motor_position, m0_motor);
    std::printf("更新不收敛次数:%d->%d\r\n", zy_judge_shock_cnt, zy_judge_shock_cnt + 1);
    ++zy_judge_shock_cnt;
    return 0;
}

}  // namespace

extern "C" {

int32_t APPSetCenterFocusOprByAssitInfo(uint32_t reset, PdLibInputData* record) {
    std::printf("进入对焦逻辑,m0 motor:%d\r\n", m0_motor);
    std::printf("当前不收敛次数:%d\r\n", zy_judge_shock_cnt);
    if (reset != 0) return reset_centre_focus();

    const int32_t window = zy_current_select_win;
    const bool usable = window >= 0 && window < PDAF_GRID_WINDOWS;
    if (record == nullptr || (!usable && window != PDAF_NO_WINDOW)) {
        std::printf(
            "APPSetCenterFocusOprByAssitInfo: no record, or window %d is not a grid "
            "window, nothing done\r\n",
            window + 1);
        return -1;
    }
    std::printf("进入中心对焦处理,当前帧 cl:%ld,当前帧pd:%ld,当前帧窗口:%d\r\n",
                zoomaf::record_cl(*record), record->PhaseDifference, window + 1);
    if (!usable) return laser_counting_strategy();

    if (m0_windeos == kEmpty) {
        // B. Start from this frame; m0_motor is where m0 was last cleared.
        zy_judge_shock_cnt = 0;
        m0_pd = record->PhaseDifference;
        m0_cl = zoomaf::record_cl(*record);
        m0_windeos = window;
        std::printf(
            "之前m0没有效窗口或者是变倍初始化状态,这次有了是窗口:%d,并获取cl:%ld,pd:%ld\r\n",
            m0_windeos + 1, m0_cl, m0_pd);
        need_laser_cnt = 0;
        return move_and_lock(record);
    }
    // C. m1 is always emptied before a call ends; a present m1 means nothing to do.
    if (m1_windeos != kEmpty) return 0;
    if (m0_windeos < 0 || m0_windeos >= PDAF_GRID_WINDOWS) {
        std::printf("APPSetCenterFocusOprByAssitInfo: m0 window %d is not a grid window\r\n",
                    m0_windeos + 1);
        return -1;
    }
    return judge_convergence(record);
}

int64_t get_target_step(int64_t abs_pd, int64_t steps) {
    std::puts("根据pd计算待运行步数\r");
    if (is_centre_window(zy_current_select_win)) {
        std::puts("是中心窗口!\r");
        std::printf("由于是中心窗口,所以待运行步数:%ld不变\r\n", steps);
        return steps;
    }
    std::puts("是外围窗口!\r");
    int64_t divisor = 1;
    if (abs_pd > 150) {
        std::puts("由于pd绝对值大于150,1/4!\r");
        divisor = 4;
    } else if (abs_pd > 100) {
        std::puts("由于pd绝对值大于100,取三分之一!\r");
        divisor = 3;
    } else if (abs_pd > 50) {
        std::puts("由于pd绝对值大于50,取二分之一!\r");
        divisor = 2;
    } else {
        std::printf("由于pd小于50所以待运行步数:%ld不变\r\n", steps);
        return steps;
    }
    std::printf("修正待执行步数%ld->%ld\r\n", steps, steps / divisor);
    return steps / divisor;
}

int32_t judge_right_windwos_deal(int64_t* /*steps*/) {
    return 0;
}

int32_t SetMotorByUserLaserinfoAndPtzinfo(void) {
    int32_t min = 0;
    int32_t max = 0;
    if (!current_focus_range("SetMotorByUserLaserinfoAndPtzinfo", min, max)) return -2;
    const uint16_t distance = GetCurrentLaserDistance() & 0xFFFF;
    if (distance == 0) {
        std::puts("!get laser zeor pause\r");
        return -2;
    }
    const int32_t target = GetTargetPositionByLaser(distance, current_multiple);
    if (target == 0) return 0;
    if (target == LASER_PAUSE_STEP) return -2;
    if (target < min) {
        motor_position = min;
        std::printf("warning:larser target:%d was out of minrange:%d\r\n", target, min);
    } else if (target > max) {
        motor_position = max;
        std::printf("warning:larser target:%d was out of maxrange:%d\r\n", target, max);
    } else {
        motor_position = target;
    }
    zoomaf::move_focus_to(motor_position);
    return 0;
}

}  // extern "C"
