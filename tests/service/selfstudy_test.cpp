// Learning into the self-study memory: the first offer, the better-focus rule, the row of
// the current zoom, the refused lasers, the look-up and the plausibility test.
#include <gmock/gmock.h>

#include <cstdio>
#include <tuple>
#include <utility>

#include "tests/service/service_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

class SelfStudy : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        allocate_store();
        current_multiple = 3.5f;  // row 25
    }
    int32_t offer(int32_t pd, int32_t cl, uint32_t motor, int32_t laser, float multiple = 3.5f) {
        return call([&] { return update_selfstudy_info_memofy(pd, cl, motor, laser, multiple); });
    }
    // valid, motor, CL and PD of an entry of row 25.
    static std::tuple<int32_t, int32_t, int64_t, int64_t> entry(int laser) {
        const SelfStudyBlock& b = selfstudy_point[25];
        return {b.valid[laser], b.motor[laser], b.cl[laser], b.pd[laser]};
    }
};

// The row is always the current zoom's; the offered multiple is only printed.
TEST_F(SelfStudy, TheFirstOfferIsLearnedAndOnlyABetterFocusReplacesIt) {
    EXPECT_EQ(offer(-40, 300, 1200, 77, 11.0f), 0);
    EXPECT_EQ(
        output_,
        "selfstudy-info-Init multiple:11.000000,laser:77,more fresh motor:1200,pd:-40,cl:300\r\n");
    EXPECT_EQ(entry(77), std::make_tuple(1, 1200, 300, -40));
    EXPECT_EQ(is_selfstudy_point_update, 1);

    is_selfstudy_point_update = 0;
    // Not better: the same or a lower CL, or a |PD| that is not smaller.
    for (auto [pd, cl] : {std::pair{10, 300}, {10, 299}, {40, 500}, {-41, 500}}) {
        EXPECT_EQ(offer(pd, cl, 1111, 77), 0);
        EXPECT_EQ(entry(77), std::make_tuple(1, 1200, 300, -40)) << pd << "," << cl;
    }
    EXPECT_EQ(is_selfstudy_point_update, 0);

    EXPECT_EQ(offer(39, 301, 1190, 77), 0);
    EXPECT_EQ(
        output_,
        "selfstudy-info-Update multiple:3.500000,laser:77,more fresh motor:1190,pd:39,cl:301\r\n");
    EXPECT_EQ(entry(77), std::make_tuple(1, 1190, 301, 39));
    EXPECT_EQ(is_selfstudy_point_update, 1);

    // CL compares unsigned: a negative CL counts as the highest.
    EXPECT_EQ(offer(1, -1, 1180, 77), 0);
    EXPECT_EQ(entry(77), std::make_tuple(1, 1180, -1, 1));
}

TEST_F(SelfStudy, LasersWithoutDistanceOutOfTheStoreOrAfterTheStopAreRefused) {
    for (int32_t laser : {4, 1600, -1, 1601}) EXPECT_EQ(offer(0, 200, 500, laser), -1) << laser;
    EXPECT_EQ(output_,
              "Error: update_selfstudy_info_memofy laser:1601 is out of range(0-1599)!\r\n");
    is_deal_selfstudy = 0;
    EXPECT_EQ(offer(0, 200, 500, 5), -1);
    is_deal_selfstudy = 1;
    SelfStudyBlock* store = std::exchange(selfstudy_point, nullptr);
    EXPECT_EQ(offer(0, 200, 500, 5), -1) << "no store, nothing learned";
    EXPECT_EQ(get_selfstudy_motor(25, 5), SELFSTUDY_NOT_LEARNED);
    selfstudy_point = store;
}

TEST_F(SelfStudy, ALearnedStepIsFoundAndAnUnlearnedOneIsMinus3000) {
    EXPECT_EQ(call([] { return get_selfstudy_motor(25, 1599); }), SELFSTUDY_NOT_LEARNED);
    EXPECT_EQ(output_, "");
    offer(3, 400, 2222, 1599);
    EXPECT_EQ(call([] { return get_selfstudy_motor(25, 1599); }), 2222);
    EXPECT_EQ(output_, "AHAHAHA Get SelfStudy distance:1599 success,it's clear motor is:2222\r\n");
    for (auto [row, laser] : {std::pair{-1, 0}, {SELFSTUDY_BLOCKS, 0}, {0, -1}, {0, 1600}}) {
        EXPECT_EQ(call([&] { return get_selfstudy_motor(row, laser); }), SELFSTUDY_NOT_LEARNED);
        EXPECT_THAT(output_, HasSubstr("is out of range(0-179/0-1599)!\r\n"));
    }
}

class Plausibility : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        // Row 25 rising by 100 per column, so that each column pair is a distinct range.
        for (int c = 0; c < LENS_TABLE_COLUMNS; ++c) TxtToDat[25][c] = 100 * c;
    }
    int32_t judge(int32_t motor, int32_t distance) {
        return call(
            [&] { return judge_is_laserdistance_relateto_motorposition(motor, distance, 3.5f); });
    }
};

TEST_F(Plausibility, AStepBetweenTheColumnPairOfTheDistanceIsPlausible) {
    const std::pair<int32_t, int> picks[] = {{-7, 0}, {2, 0},   {3, 2},    {4, 3},     {5, 3},
                                             {6, 4},  {8, 4},   {9, 5},    {10, 5},    {11, 6},
                                             {25, 6}, {26, 7},  {30, 7},   {31, 8},    {45, 8},
                                             {46, 9}, {400, 9}, {401, 10}, {65535, 10}};
    for (auto [distance, column] : picks) {
        EXPECT_EQ(judge(-99999, distance), -1);
        int picked = -1;  // the column the distance picks, from the failure message
        std::sscanf(output_.c_str(), "temp_multiple_index:25,and meter_index:%d", &picked);
        EXPECT_EQ(picked, column) << distance;
    }

    calibration_offset_step = 5;
    // Distance 20 m: columns 6 and 7, 600 and 700, plus the offset.
    for (int32_t motor : {605, 650, 705}) EXPECT_EQ(judge(motor, 20), 0) << motor;
    EXPECT_EQ(output_, "");
    EXPECT_EQ(judge(604, 20), -1);
    EXPECT_EQ(judge(706, 20), -1);
    EXPECT_EQ(
        output_,
        "temp_multiple_index:25,and meter_index:6\r\n"
        "Fail to selfstudy,current motor:706 was out of distance:20 range form:605 to 705\r\n");
}

}  // namespace
}  // namespace zoomaf::test
