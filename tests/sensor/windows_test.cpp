// The PDAF window layouts and the PD output switch as the twin's IMX586 receives them, and
// the PD/CL readouts through the register block, the group hold and the PD readout hold.
#include <gmock/gmock.h>
#include <cstring>

#include "sensor/pd_readout.hpp"
#include "tests/support/twin_test.hpp"
#include "zoomaf/imx586.h"

namespace zoomaf::test {
namespace {

using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class WindowLayouts : public TwinTest {
protected:
    // Start and end of window k as the sensor holds them; -1 when the window is disabled.
    std::array<int, 4> window(int k) {
        const auto w = with<twin::Imx586>([&](auto& s) { return s.window(k); });
        if (!w.enabled) return {-1, -1, -1, -1};
        return {w.x_start, w.y_start, w.x_end, w.y_end};
    }
};

TEST_F(WindowLayouts, FreeAreaWritesInOrderClampsItsStartAndRefusesABadSizeAndPdOutputSwitches) {
    EXPECT_EQ(call([] { return set_pdaf_windows_free_area(100, 200, 666, 500); }), 0);
    const std::vector<std::pair<uint16_t, uint8_t>> expected = {
        {0x38A3, 2},    {0x38AC, 1},    {0x38B4, 0x00}, {0x38B5, 0x64}, {0x38B6, 0x00},
        {0x38B7, 0xC8}, {0x38B8, 0x02}, {0x38B9, 0xFE}, {0x38BA, 0x02}, {0x38BB, 0xBC}};
    EXPECT_THAT(sensor_writes(), ElementsAreArray(expected));
    EXPECT_THAT(output_, StartsWith("\r\n\r\nsleep 5s PDAF SWITCH CHENTER AREA:xstart:100,ystart:"
                                    "200,width:666,height:500\r\n\r\n0x38A3 value:0x2\r\n0x38AC "
                                    "value:0x1"));
    EXPECT_THAT(output_,
                HasSubstr("\r\nread windows addr:0x38bb,value:0xbc,source write value:0xbc"));
    const uint8_t area[8] = {0x00, 0x64, 0x00, 0xC8, 0x02, 0xFE, 0x02, 0xBC};
    EXPECT_EQ(std::memcmp(focus_area, area, 8), 0);
    EXPECT_EQ(window(1)[0], -1) << "the other enables keep their values";

    EXPECT_EQ(call([] { return switch_pd_output(1); }), 0);
    EXPECT_EQ(sensor_reg(0x3E37), 1);
    EXPECT_EQ(output_, "\r\npd output addr:0x3e37,value:0x1\r\n");
    // The start is clamped one short of the edge; a bad size is refused.
    const struct {
        int x, y, w, h;
        std::array<int, 4> window;
    } cases[] = {
        {3500, 2600, 666, 500, {3332, 2498, 3998, 2998}},
        {-20, -1, 3999, 2999, {0, 0, 3999, 2999}},
        {3333, 2499, 666, 500, {3333, 2499, 3999, 2999}},  // exactly at the limit: kept
    };
    for (const auto& c : cases) {
        EXPECT_EQ(call([&] { return set_pdaf_windows_free_area(c.x, c.y, c.w, c.h); }), 0);
        EXPECT_EQ(window(0), c.window) << c.x << "," << c.y;
    }
    EXPECT_THAT(output_, HasSubstr("AREA:xstart:3333,ystart:2499,width:666,height:500\r\n"));
    const size_t writes = sensor_writes().size();
    for (auto [w, h] : {std::pair{4000, 500}, {666, 3000}, {-1, 500}, {666, -1}}) {
        EXPECT_EQ(call([&] { return set_pdaf_windows_free_area(100, 200, w, h); }), -1);
        EXPECT_EQ(output_, "error para error!\r\n");
    }
    EXPECT_EQ(sensor_writes().size(), writes) << "nothing written";
}

TEST_F(WindowLayouts, CentreLayoutIsTheSameForEveryRatio) {
    call([] { return set_pdaf_windows_center_area(0); });
    const auto first = sensor_writes();
    const std::string first_output = output_;
    ASSERT_EQ(first.size(), 9u + 64u) << "mode, eight enables, eight windows of eight bytes";
    for (int ratio = 1; ratio <= 4; ++ratio) {
        call([&] { return set_pdaf_windows_center_area(ratio); });
        const auto all = sensor_writes();
        EXPECT_EQ(std::vector(all.end() - 73, all.end()), first) << ratio;
        EXPECT_EQ(output_, first_output);
    }
    EXPECT_EQ(window(3), (std::array{1833, 1000, 2499, 1500}));
    EXPECT_EQ(window(7), (std::array{2000, 1250, 2666, 1750}));
    EXPECT_EQ(sensor_reg(0x38A3), 2);

    EXPECT_THAT(first_output, StartsWith("PDAF SWITCH CHENTER AREA:\r\n\r\n0x38A3 value:0x2"));
    // The set-window line comes before windows 1..7 and prints the space's size.
    EXPECT_EQ(occurrences(first_output, "set window xstar:"), 7u);
    EXPECT_THAT(first_output,
                HasSubstr("set window xstar:1500,ystart:1250,width:4000,height:3000\r\n"));
}

TEST_F(WindowLayouts, SixWindowsAroundAPointKeepWindowsSixAndSevenAndWrapTo13Bits) {
    call([] { return set_pdaf_windows_center_area(2); });
    call([] { return set_pdaf_area_windows_by_center_coordinate(2000, 1500); });
    const std::array<int, 4> expected[8] = {{1585, 1168, 2251, 1668}, {1585, 1251, 2251, 1751},
                                            {1585, 1334, 2251, 1834}, {1751, 1168, 2417, 1668},
                                            {1751, 1251, 2417, 1751}, {1751, 1334, 2417, 1834},
                                            {1334, 1250, 2000, 1750}, {2000, 1250, 2666, 1750}};
    for (int k = 0; k < 8; ++k) EXPECT_EQ(window(k), expected[k]) << k;
    EXPECT_EQ(occurrences(output_, "set window xstar:"), 5u);
    EXPECT_THAT(output_, HasSubstr("set window xstar:1585,ystart:1251,width:4000,height:3000\r\n"));

    // The centre is neither checked nor clamped: 100 - 415 = -315 is written as its low 13
    // bits 0x1EC5; the end 351 stays.
    call([] { return set_pdaf_area_windows_by_center_coordinate(100, 100); });
    EXPECT_EQ(window(0), (std::array{0x1EC5, 0x2000 - 232, 351, 268}));
    EXPECT_EQ(window(5), (std::array{0x2000 - 149, 0x2000 - 66, 517, 434}));
    EXPECT_EQ(std::pair(focus_area[0], focus_area[1]), std::pair(uint8_t{0x1F}, uint8_t{0x6B}))
        << "the last window written: -149 is 0x1F6B";
    // An extreme centre wraps as well instead of overflowing.
    call([] { return set_pdaf_area_windows_by_center_coordinate(INT32_MAX, INT32_MIN); });
    EXPECT_EQ(window(0)[0], (INT32_MAX - 415) & 0x1FFF);
}

using TwinSensor = TwinTest;

// The listed encodings decode through the grid readout: CL 2047 with PD -1, and the raw PD
// fields 1025, 1024 and 1023 (PD -1022, 1023, 1022); the sensor saturates beyond.
TEST_F(TwinSensor, GridWindowsDecodeAsTheFrameEncodesThem) {
    quietly([] {
        switch_pd_output(1);
        write_dcc_roi(1);
    });
    const std::tuple<int, int, std::array<uint8_t, 3>> encodings[] = {
        {-1, 2047, {0xFF, 0xE0, 0x00}},
        {-1022, 0, {0x00, 0x10, 0x04}},
        {1023, 0, {0x00, 0x10, 0x00}},
        {1022, 0, {0x00, 0x0F, 0xFC}},
    };
    with<twin::Imx586>([&](twin::Imx586& s) {
        for (int i = 0; i < 4; ++i)
            s.set_grid_pd_cl(i * 13, std::get<0>(encodings[i]), std::get<1>(encodings[i]));
        s.set_grid_pd_cl(47, 5000, 7);
    });
    sensor::PdCl grid[sensor::kGridWindows];
    int32_t row_counter = 0;
    sensor::read_grid_windows(grid, row_counter);
    for (int i = 0; i < 4; ++i) {
        const auto& [pd, cl, bytes] = encodings[i];
        EXPECT_EQ(grid[i * 13].pd, pd);
        EXPECT_EQ(grid[i * 13].cl, cl);
        const twin::PdClBytes b = twin::Imx586::encode_pd_cl(pd, cl);
        EXPECT_EQ((std::array{b.b0, b.b1, b.b2}), bytes) << pd;
    }
    EXPECT_EQ(grid[47].pd, 1023);
}

}  // namespace
}  // namespace zoomaf::test
