// Learning into the self-study memory: the first offer, the better-focus rule, the refused
// lasers, the row taken from the current zoom, the look-up and the plausibility test.
#include <gmock/gmock.h>

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
};

TEST_F(SelfStudy, TheFirstOfferIsLearnedAndOnlyABetterFocusReplacesIt) {
    EXPECT_EQ(offer(-40, 300, 1200, 77), 0);
    EXPECT_EQ(
        output_,
        "selfstudy-info-Init multiple:3.500000,laser:77,more fresh motor:1200,pd:-40,cl:300\r\n");
    EXPECT_EQ(is_selfstudy_point_update, 1);
    const SelfStudyBlock& block = selfstudy_point[25];
    EXPECT_EQ(block.valid[77], 1);
    EXPECT_EQ(block.motor[77], 1200);
    EXPECT_EQ(block.cl[77], 300);
    EXPECT_EQ(block.pd[77], -40);

    is_selfstudy_point_update = 0;
    EXPECT_EQ(offer(10, 300, 1111, 77), 0) << "same CL is not higher";
    EXPECT_EQ(offer(10, 299, 1111, 77), 0);
    EXPECT_EQ(offer(40, 500, 1111, 77), 0) << "|PD| not smaller";
    EXPECT_EQ(offer(-41, 500, 1111, 77), 0);
    EXPECT_EQ(output_, "");
    EXPECT_EQ(block.motor[77], 1200);
    EXPECT_EQ(is_selfstudy_point_update, 0);

    EXPECT_EQ(offer(39, 301, 1190, 77), 0);
    EXPECT_EQ(
        output_,
        "selfstudy-info-Update multiple:3.500000,laser:77,more fresh motor:1190,pd:39,cl:301\r\n");
    EXPECT_EQ(block.motor[77], 1190);
    EXPECT_EQ(block.cl[77], 301);
    EXPECT_EQ(block.pd[77], 39);
    EXPECT_EQ(is_selfstudy_point_update, 1);

    // CL compares unsigned: a negative CL counts as the highest.
    EXPECT_EQ(offer(1, -1, 1180, 77), 0);
    EXPECT_EQ(block.motor[77], 1180);
    EXPECT_EQ(block.cl[77], -1);
}

TEST_F(SelfStudy, TheRowIsTheCurrentZoomsNotTheOfferedMultiples) {
    current_multiple = 11.0f;
    EXPECT_EQ(offer(0, 200, 500, 10, 3.5f), 0);
    EXPECT_EQ(selfstudy_point[100].valid[10], 1);
    EXPECT_EQ(selfstudy_point[25].valid[10], 0);
    EXPECT_THAT(output_, HasSubstr("multiple:3.500000,"));
}

TEST_F(SelfStudy, LasersWithoutDistanceOutOfTheStoreOrAfterTheStopAreRefused) {
    for (int32_t laser : {4, 1600}) {
        EXPECT_EQ(offer(0, 200, 500, laser), -1);
        EXPECT_EQ(output_, "");
    }
    EXPECT_EQ(selfstudy_point[25].valid[4], 0);
    for (int32_t laser : {-1, 1601}) {
        EXPECT_EQ(offer(0, 200, 500, laser), -1);
        EXPECT_EQ(output_, "Error: update_selfstudy_info_memofy laser:" + std::to_string(laser) +
                               " is out of range(0-1599)!\r\n");
    }
    is_deal_selfstudy = 0;
    EXPECT_EQ(offer(0, 200, 500, 5), -1);
    EXPECT_EQ(selfstudy_point[25].valid[5], 0);
    EXPECT_EQ(is_selfstudy_point_update, 0);
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

TEST_F(SelfStudy, WithoutAStoreNothingIsLearnedOrFound) {
    SelfStudyBlock* store = selfstudy_point;
    selfstudy_point = nullptr;
    EXPECT_EQ(offer(0, 200, 500, 5), -1);
    EXPECT_EQ(get_selfstudy_motor(25, 5), SELFSTUDY_NOT_LEARNED);
    selfstudy_point = store;
}

class Plausibility : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        // Row 25 rising by 100 per column, so that each column pair is a distinct range.
        for (int c = 0; c < LENS_TABLE_COLUMNS; ++c) TxtToDat[25][c] = 100 * c;
    }
    // The column the distance picks, read from the failure message.
    int column_for(int32_t distance) {
        EXPECT_EQ(call([&] {
                      return judge_is_laserdistance_relateto_motorposition(-99999, distance, 3.5f);
                  }),
                  -1);
        const std::string label = "and meter_index:";
        const size_t at = output_.find(label);
        if (at == std::string::npos) {
            ADD_FAILURE() << output_;
            return -1;
        }
        return std::stoi(output_.substr(at + label.size()));
    }
};

TEST_F(Plausibility, TheDistancePicksTheColumnPair) {
    const std::pair<int32_t, int> picks[] = {{-7, 0}, {2, 0},   {3, 2},    {4, 3},     {5, 3},
                                             {6, 4},  {8, 4},   {9, 5},    {10, 5},    {11, 6},
                                             {25, 6}, {26, 7},  {30, 7},   {31, 8},    {45, 8},
                                             {46, 9}, {400, 9}, {401, 10}, {65535, 10}};
    for (auto [distance, column] : picks) EXPECT_EQ(column_for(distance), column) << distance;
}

TEST_F(Plausibility, AStepBetweenTheCalibratedColumnsIsPlausible) {
    calibration_offset_step = 5;
    // Distance 20 m: columns 6 and 7, 600 and 700, plus the offset.
    for (int32_t motor : {605, 650, 705}) {
        EXPECT_EQ(
            call([&] { return judge_is_laserdistance_relateto_motorposition(motor, 20, 3.5f); }), 0)
            << motor;
        EXPECT_EQ(output_, "");
    }
    EXPECT_EQ(call([] { return judge_is_laserdistance_relateto_motorposition(706, 20, 3.5f); }),
              -1);
    EXPECT_EQ(
        output_,
        "temp_multiple_index:25,and meter_index:6\r\n"
        "Fail to selfstudy,current motor:706 was out of distance:20 range form:605 to 705\r\n");
    EXPECT_EQ(call([] { return judge_is_laserdistance_relateto_motorposition(604, 20, 3.5f); }),
              -1);
}

}  // namespace
}  // namespace zoomaf::test
