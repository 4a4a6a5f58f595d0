// The night contrast search step by step on the twin's motors, over a synthetic lens table row
// (2000 - 10 x column: 1940 at 6 m, 950 at 600 m). Whole searches are in closed_loop_test.cpp.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "service/night_search_internal.hpp"
#include "tests/support/twin_test.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/night_focus.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

constexpr int kRow = 40;

class NightSearch : public TwinTest {
protected:
    twin::BoardConfig board_config() override { return {.zoom_start = 0, .focus_start = 0}; }

    void SetUp() override {
        TwinTest::SetUp();
        bring_up_driver();
        quietly(LoadParamList);
        defauult_probe_dir = -1;
        current_multiple_index = kRow;
        for (int c = 0; c < LENS_TABLE_COLUMNS; ++c) TxtToDat[kRow][c] = 2000 - 10 * c;
        start_record();
    }

    // The record as the loop's first night pass hands it to the range calls.
    static void start_record() {
        std::memset(&night_focus_man, 0, sizeof night_focus_man);
        night_focus_man.range_near = TxtToDat[kRow][6];
        night_focus_man.range_far = TxtToDat[kRow][105] - 50;
        night_focus_man.state = NIGHT_STATE_COARSE;
        night_focus_man.interval_near = night_focus_man.interval_far = NIGHT_FV_NOT_MEASURED;
    }

    static void move_focus(int32_t step) {
        quietly([&] {
            SetFocusLens(static_cast<int16_t>(step), 0);
            motor_position = GetCurSteps(MOTOR_FOCUS);
        });
    }

    int32_t focus_position() { return motor_at(twin::Motor::focus); }
};

// The synthetic row's coarse points: columns 6, 10, 25, 60 and 105.
constexpr std::array<int32_t, 5> kCoarseSteps = {1940, 1900, 1750, 1400, 950};

// The exact list laid out (a big-step list with its two ends), none of it measured yet.
std::vector<int32_t> exact_steps() {
    const NightFocusRecord& record = night_focus_man;
    const int last = record.state == NIGHT_STATE_BIGSTEP ? 5 : record.exact_last;
    std::vector<int32_t> steps;
    for (int i = 0; i <= last; ++i) {
        steps.push_back(record.exact_points[i].step);
        EXPECT_EQ(record.exact_points[i].fv, NIGHT_FV_NOT_MEASURED) << i;
    }
    return steps;
}

// The interval's width and the search that follows, by zoom and column; the motor on the
// list's first point.
TEST_F(NightSearch, TheLaserIntervalIsWidenedByZoomAndDistanceAndLaidOut) {
    const struct {
        float multiple;
        uint32_t distance;
        int32_t state;
        std::vector<int32_t> points;
        const char* said;
    } cases[] = {
        // clang-format off
        {3.0f, 200, NIGHT_STATE_SMALLSTEP, {1802, 1801, 1800, 1799, 1798},
         "经过调整,搜索近焦边界:1802,搜索远郊边界为:1798，接下来进行按1步长精确搜索\r\n"
         "1802 1801 1800 1799 1798 \r\n"},
        {5.0f, 200, NIGHT_STATE_BIGSTEP, {1810, 1806, 1802, 1798, 1794, 1790},
         "经过调整,搜索近焦边界:1810,搜索远郊边界为:1790，接下来进行大步长精确搜，搜索点位为:\r\n"
         "1806 1802 1798 1794 \r\n"},
        {10.5f, 500, NIGHT_STATE_BIGSTEP, {1506, 1504, 1502, 1500, 1498, 1494}, ""},
        {10.5f, 90, NIGHT_STATE_BIGSTEP, {1932, 1924, 1916, 1908, 1900, 1888}, ""},
        // At x12 the list is the column's step alone: the column of whole metres up to 100 m,
        // then of the hundreds. (A step above the night range gives an empty, reversed list.)
        {12.0f, 41, NIGHT_STATE_COARSE, {}, "得出雷达值对应列数4,得出focus位置：1960\r\n"},
        {12.0f, 1000, NIGHT_STATE_COARSE, {1000}, "得出雷达值对应列数100,"},
        {12.0f, 2000, NIGHT_STATE_COARSE, {1000}, "得出雷达值对应列数100,"},
        {12.0f, 2001, NIGHT_STATE_COARSE, {990}, "得出雷达值对应列数101,"},
        {12.0f, 6000, NIGHT_STATE_COARSE, {960}, "得出雷达值对应列数104,"},
        {12.0f, 6001, NIGHT_STATE_COARSE, {950}, "得出雷达值对应列数105,"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "x" << c.multiple << " distance " << c.distance);
        current_multiple = c.multiple;
        start_record();
        call([&] { return get_exact_search_range_by_laser(c.distance); });
        EXPECT_THAT(output_, HasSubstr(c.said));
        const NightFocusRecord& record = night_focus_man;
        EXPECT_EQ(record.state, c.state);
        EXPECT_EQ(exact_steps(), c.points);
        if (c.points.empty()) continue;
        EXPECT_EQ(record.interval_near, c.points.front());
        EXPECT_EQ(record.interval_far, c.points.back());
        const int first = c.state == NIGHT_STATE_BIGSTEP ? 1 : 0;
        EXPECT_EQ(record.exact_index, first);
        EXPECT_EQ(motor_position, c.points[first]);
        EXPECT_EQ(focus_position(), motor_position);
    }
}

TEST_F(NightSearch, TheStopTestThresholdGrowsWithTheZoom) {
    const struct {
        float multiple;
        int64_t previous, current;
        int32_t stop;
    } cases[] = {
        {1.5f, 1000, 0, 0},    {3.0f, 1000, 956, 0}, {3.0f, 1000, 954, 1}, {3.15f, 1000, 948, 0},
        {3.15f, 1000, 946, 1}, {5.0f, 1000, 926, 0}, {5.0f, 1000, 924, 1}, {7.9f, 1000, 881, 0},
        {7.9f, 1000, 879, 1},  {9.0f, 1000, 851, 0}, {9.0f, 1000, 849, 1}, {9.0f, 0, -5, 1},
    };
    for (const auto& c : cases) {
        current_multiple = c.multiple;
        EXPECT_EQ(call([&] { return judge_is_need_stop_currentdir_search(c.previous, c.current); }),
                  c.stop)
            << "x" << c.multiple << " " << c.previous << "->" << c.current;
    }
    EXPECT_EQ(output_, "当前fv-5,上一帧fv:0,差值5,差值占比inf\n两帧fv判定超过阈值，判定截止!\r\n");
    current_multiple = 1.5f;
    call([] { return judge_is_need_stop_currentdir_search(1000, 0); });
    EXPECT_EQ(output_, "低于2倍全程搜索，不做fv间隔帧阈值判定！\r\n");
}

// Whole coarse walks (below x2.1 over the whole range): the point the motor stood at each frame
// and the interval handed on. The walk starts next to the lens, toward the probing direction. A
// near-side stop measures one more point, then evaluates (-9999 ranks first unsigned).
TEST_F(NightSearch, TheCoarseWalkTurnsStopsAndNarrows) {
    const struct {
        const char* name;
        float multiple;
        int32_t dir, start_step;
        std::array<int64_t, 5> fv;
        std::vector<int> visited;  // coarse indices, one per frame
        int32_t near, far;
        const char* said;
    } cases[] = {
        // clang-format off
        {"best at 0; nothing above the lens: from 0", 1.5f, 1, 2000, {900, 500, 300, 200, 100},
         {0, 1, 2, 3, 4}, 1940, 1900,
         "最清晰点位是近焦点位（6米）,更新区间6米-8米\r\n由于最高点两边区间步数大于10，更新区间为:"
         "1940-1900 进入下一个大步精搜索,搜索点位:\r\n1932 1924 1916 1908 \r\n"},
        {"best at 2 of 0..4; nothing below the lens: from 0", 1.5f, 1, 900, {100, 300, 900, 500, 200},
         {0, 1, 2, 3, 4}, 1900, 1750, "完成本次大步精搜索，最清晰点位：1750\r\n"},
        // The turn at the far end finds nothing left toward near: one more frame there.
        {"best at the far end", 1.5f, -1, 2000, {100, 200, 300, 500, 900},
         {0, 1, 2, 3, 4, 4}, 1400, 950, "最清晰点位是600米点位（6米）,更新区间60米-600米\r\n"},
        {"near-side stop: one more point measured", 5.0f, 1, 1800, {100, 500, 1000, 800, 300},
         {2, 1, 3}, 1400, 950, "focsu:1400,fv:800\r\nfocsu:950,fv:-9999\r\n"},
        // Toward far the walk starts above the first point below the lens (1900 for 1800).
        {"far-side stop", 5.0f, -1, 1800, {300, 1000, 500, 100, 50}, {1, 2, 0, 0}, 1940, 1900,
         "往远焦点位方向截止\r\n改朝着近焦搜索\r\n搜索点位更新为：1940\r\n"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        start_record();
        current_multiple = c.multiple;
        defauult_probe_dir = c.dir;
        move_focus(c.start_step);
        quietly(get_rough_search_range_by_laser);
        std::vector<int> visited;
        std::string said;
        while (night_focus_man.state == NIGHT_STATE_COARSE && visited.size() < 10) {
            const auto at = std::find(kCoarseSteps.begin(), kCoarseSteps.end(), focus_position());
            ASSERT_NE(at, kCoarseSteps.end()) << "the motor stands on a coarse point";
            visited.push_back(int(at - kCoarseSteps.begin()));
            EXPECT_EQ(call([&] { return do_coarch_search(0, c.fv[visited.back()]); }), 0);
            said += output_;
        }
        EXPECT_EQ(visited, c.visited);
        EXPECT_EQ(night_focus_man.state, NIGHT_STATE_BIGSTEP);
        EXPECT_EQ(night_focus_man.interval_near, c.near);
        EXPECT_EQ(night_focus_man.interval_far, c.far);
        EXPECT_THAT(said, HasSubstr(c.said));
    }
}

// The big-step search narrows to its sharpest point's neighbours: small steps up to 10 apart.
TEST_F(NightSearch, TheBigStepSearchNarrowsToItsSharpestPointsNeighbours) {
    const struct {
        const char* name;
        float multiple;
        uint32_t distance;
        int32_t range_far;  // cuts the interval's far end
        std::array<int64_t, 4> fv;
        int32_t state;
        std::vector<int32_t> next;
        const char* said;
    } cases[] = {
        // clang-format off
        {"all equal: the nearest", 5.0f, 200, 900, {0, 0, 0, 0}, NIGHT_STATE_SMALLSTEP,
         {1810, 1809, 1808, 1807, 1806, 1805, 1804, 1803, 1802}, "4次搜索清晰度一样，选最近焦\r\n"},
        {"neighbours 10 apart", 10.5f, 95, 1907, {1, 2, 3, 4}, NIGHT_STATE_SMALLSTEP,
         {1917, 1916, 1915, 1914, 1913, 1912, 1911, 1910, 1909, 1908, 1907},
         "最清晰点位前后间隔1917-1907不足10，所以进入小步精搜索！\r\n"},
        {"neighbours 11 apart", 10.5f, 95, 1906, {1, 2, 3, 4}, NIGHT_STATE_BIGSTEP,
         {1917, 1915, 1913, 1911, 1909, 1906},
         "由于最高点两边区间步数大于10，更新区间为:1917-1906 进入下一个大步精搜索,搜索点位:\r\n"
         "1915 1913 1911 1909 \r\n"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        current_multiple = c.multiple;
        start_record();
        night_focus_man.range_far = c.range_far;
        quietly([&] { get_exact_search_range_by_laser(c.distance); });
        std::string said;
        for (int64_t fv : c.fv) {
            ASSERT_EQ(night_focus_man.state, NIGHT_STATE_BIGSTEP);
            EXPECT_EQ(call([&] { return do_bigstep_exact_search(0, fv); }), 0);
            said += output_;
        }
        EXPECT_EQ(night_focus_man.state, c.state);
        EXPECT_EQ(exact_steps(), c.next);
        EXPECT_EQ(night_focus_man.interval_near, c.next.front());
        EXPECT_EQ(night_focus_man.interval_far, c.next.back());
        EXPECT_EQ(focus_position(), c.next[c.state == NIGHT_STATE_BIGSTEP ? 1 : 0]);
        EXPECT_THAT(said, HasSubstr(c.said));
    }
}

// Small-step over 100..96 parks on the sharpest, the nearest among equals (values compare
// unsigned: a negative one ranks first); above x19 on the middle after one point.
TEST_F(NightSearch, TheSmallStepSearchParksOnTheSharpestStep) {
    const struct {
        float multiple;
        std::vector<int64_t> fv;  // at 100, 99, ...
        int32_t parked;
    } cases[] = {
        {3.0f, {5, 9, 9, 3, 1}, 99},
        {3.0f, {5, 9, -1, 3, 1}, 98},
        {3.0f, {0, 0, 0, 0, 0}, 100},
        {19.5f, {5}, 98},
    };
    TxtToDat[kRow][20] = 98;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "x" << c.multiple << " parks at " << c.parked);
        current_multiple = 3.0f;
        start_record();
        night_focus_man.range_far = 0;
        quietly([] { get_exact_search_range_by_laser(200); });
        current_multiple = c.multiple;
        std::string said;
        for (size_t i = 0; i < c.fv.size(); ++i) {
            ASSERT_EQ(night_focus_man.state, NIGHT_STATE_SMALLSTEP);
            EXPECT_EQ(focus_position(), int32_t(100 - i));
            EXPECT_EQ(call([&] { return do_smallstep_exact_search(0, c.fv[i]); }), 0);
            said += output_;
        }
        EXPECT_EQ(night_focus_man.state, NIGHT_STATE_DONE);
        EXPECT_EQ(focus_position(), c.parked);
        EXPECT_EQ(motor_position, c.parked);
        EXPECT_THAT(said, HasSubstr(c.multiple > 19.0f ? "大于17.5倍,直接走到小步精搜的中间!\r\n"
                                                       : "已经完成小步精搜索，走到最清晰点位：" +
                                                             std::to_string(c.parked) + "\r\n"));
    }
}

// Indices in the record are the application's to write too: a step out of the lists is
// refused and changes nothing; a list too long is cut; an empty one leaves the motor.
TEST_F(NightSearch, IndicesOutsideTheRecordAreRefusedOrCut) {
    const auto refused = [](int32_t (*step)(int64_t, int64_t)) {
        const NightFocusRecord before = night_focus_man;
        int32_t result = 0;
        quietly([&] { result = step(0, 1); });
        EXPECT_EQ(result, -1);
        EXPECT_EQ(std::memcmp(&before, &night_focus_man, sizeof before), 0);
    };
    for (auto [index, last] : {std::pair{17, 20}, {-1, 4}, {15, 16}}) {
        night_focus_man.exact_index = index;
        night_focus_man.exact_last = last;
        refused(do_bigstep_exact_search);
        if (last != 16) refused(do_smallstep_exact_search);
    }
    for (auto [first, index, last] : std::vector<std::array<int32_t, 3>>{
             {0, 5, 5}, {0, -1, 4}, {-1, 0, 4}, {0, 4, 9}, {2, 1, 4}}) {
        night_focus_man.coarse_first = first;
        night_focus_man.coarse_index = index;
        night_focus_man.coarse_last = last;
        refused(do_coarch_search);
    }

    call([] {
        night::lay_out_small_step_list(100, 50);
        return 0;
    });
    EXPECT_THAT(output_, HasSubstr("the small-step list 100..50 has 51 points, more than the 17 "
                                   "the record holds; only 100..84 are searched\r\n"));
    EXPECT_EQ(exact_steps().back(), 84);
    night_focus_man.exact_first = -30;  // the evaluation goes over 0..last - first
    night_focus_man.exact_index = night_focus_man.exact_last = 10;
    call([] { return do_smallstep_exact_search(0, 5); });
    EXPECT_THAT(output_, HasSubstr("exact points 0..40 reach beyond the 17 the record holds; "
                                   "only 0..16 are taken\r\n"));
    night_focus_man.coarse_near_done = night_focus_man.coarse_far_done = 1;
    night_focus_man.coarse_first = 0;
    night_focus_man.coarse_last = 12;
    call([] { return do_coarch_search(0, 5); });
    EXPECT_THAT(output_, HasSubstr("of the list 0..12 is not in the 5 the record holds; the step "
                                   "is refused"));

    // Up to 4 m the step is the line's first field (2000, above the range): reversed ends.
    current_multiple = 3.0f;
    start_record();
    move_focus(1234);
    call([] { return get_exact_search_range_by_laser(30); });
    EXPECT_THAT(output_, HasSubstr("exact point 0 is not in the list laid out (0..-58); the "
                                   "focus motor stays at 1234\r\n"));
    quietly([] { do_smallstep_exact_search(0, 77); });
    EXPECT_EQ(night_focus_man.state, NIGHT_STATE_DONE);
    EXPECT_EQ(focus_position(), 1234);
}

}  // namespace
}  // namespace zoomaf::test
