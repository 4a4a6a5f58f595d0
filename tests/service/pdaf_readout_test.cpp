// The day focus's readouts on the twin: the sensor's PD/CL encoding decoded at its edges,
// the gain, and the window each readout chooses (closest to the average PD, the centre pass
// before the ring with its PD bound, the free group kept on the grid, nothing qualifying).
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "sensor/pd_readout.hpp"
#include "tests/service/day_focus_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

TEST(PdClDecoding, EdgesOfTheElevenBitField) {
    struct Case {
        uint8_t b0, b1, b2;
        int64_t pd, cl;
    };
    const Case cases[] = {
        {0xFF, 0xE0, 0x00, -1, 2047},  // raw 0
        {0x00, 0x00, 0x04, 0, 0},      // raw 1
        {0x00, 0x0F, 0xFC, 1022, 0},   // raw 1023
        {0x00, 0x10, 0x00, 1023, 0},   // raw 1024
        {0x00, 0x10, 0x04, -1022, 0},  // raw 1025
        {0x12, 0x5F, 0xFC, 0, 146},    // raw 2047
        {0x80, 0x3F, 0xF4, -2, 1025},  // raw 2045
    };
    for (const Case& c : cases) {
        const sensor::PdCl decoded = sensor::decode_pd_cl(c.b0, c.b1, c.b2);
        EXPECT_EQ(decoded.pd, c.pd) << int{c.b1} << " " << int{c.b2};
        EXPECT_EQ(decoded.cl, c.cl) << int{c.b0} << " " << int{c.b1};
    }
}

TEST(WindowChoice, ClosestToTheAveragePdWithTiesToTheSmallerMagnitude) {
    struct Case {
        std::vector<int64_t> pd;
        int32_t chosen;
    };
    const Case cases[] = {
        {{10, 20, 30}, 1},    // average 20
        {{30, 10, 20}, 2},    // sorted first: the 20 is window 2
        {{-10, 10}, 0},       // both 10 from the average 0: the first stays
        {{10, -10}, 1},       // sorted, -10 comes first and stays
        {{-200, 150}, 1},     // both 175 from -25: |150| is smaller
        {{77}, 0},            // a single entry
        {{5, 6, 7, 100}, 2},  // average 29: 7 is closest
    };
    for (const Case& c : cases) {
        std::vector<int64_t> pd = c.pd, cl(pd.size(), 1500);
        std::vector<int32_t> win(pd.size());
        for (size_t i = 0; i < win.size(); ++i) win[i] = static_cast<int32_t>(i);
        int64_t cl_out = -1, pd_out = -1;
        quietly([&] {
            EXPECT_EQ(pd_select_sort_wit_win(pd.data(), cl.data(), win.data(),
                                             static_cast<int32_t>(pd.size()), &cl_out, &pd_out),
                      c.chosen);
        });
        EXPECT_EQ(pd_out, c.pd[static_cast<size_t>(c.chosen)]);
        EXPECT_EQ(cl_out, 1500);
    }
    // One or two windows: the smaller signed PD, a tie takes the second.
    struct Pair {
        std::vector<int32_t> pd;
        int32_t chosen;
    };
    for (const Pair& p : {Pair{{5}, 0}, Pair{{5, 3}, 1}, Pair{{3, 5}, 0}, Pair{{4, 4}, 1}}) {
        std::vector<int32_t> pd = p.pd, cl(pd.size(), 1100), win = {7, 9};
        int64_t cl_out = 0, pd_out = 0;
        quietly([&] {
            EXPECT_EQ(
                pd_select_sort_one_or_two_win(pd.data(), cl.data(), win.data(),
                                              static_cast<int32_t>(pd.size()), &cl_out, &pd_out),
                win[static_cast<size_t>(p.chosen)]);
        });
        EXPECT_EQ(pd_out, p.pd[static_cast<size_t>(p.chosen)]);
    }
    int64_t untouched = 5;
    quietly([&] {
        EXPECT_EQ(pd_select_sort_wit_win(nullptr, nullptr, nullptr, 0, &untouched, &untouched), -1);
    });
    EXPECT_EQ(untouched, 5);
}

class Readout : public DayFocusTest {
protected:
    // Runs the centre grid readout: returns its outputs, keeps its messages.
    std::pair<int64_t, int64_t> read_centre() {
        int64_t cl = -1, pd = -1;
        output_ = captured([&] { get_pd_and_lc_48windwos_test(&record_, &cl, &pd, nullptr); });
        return {cl, pd};
    }
    PdLibInputData record_{};
};

TEST_F(Readout, SingleWindowAndGain) {
    set_grid({{0, -7, 1234}, {1, 300, 2047}});
    int64_t cl = 0, pd = 0;
    EXPECT_EQ(get_pd_and_lc(&cl, &pd), 0);
    EXPECT_EQ(cl, 1234);
    EXPECT_EQ(pd, -7);
    for (auto [code, gain] : {std::pair{0, 1}, {512, 2}, {768, 4}, {1023, 1024}}) {
        board().imx586([&](twin::Imx586& s) { s.set_gain_code(code); });
        int64_t read = 0;
        EXPECT_EQ(get_gain_value(&read), 0);
        EXPECT_EQ(read, gain) << "code " << code;
    }
}

TEST_F(Readout, CentrePassBeforeTheRingWithItsPdBound) {
    struct Case {
        const char* name;
        int calibration;
        std::vector<WindowPdCl> windows;
        int32_t chosen;  // grid index, or PDAF_NO_WINDOW
        int64_t cl, pd;
    };
    const Case cases[] = {
        // Centre windows above CL 1000 at any PD: average (30 + 10 - 5) / 3 = 11, closest 10.
        // 28 at CL 1000 does not count; the ring is not looked at.
        {"centre",
         0,
         {{19, 30, 2047}, {20, 10, 1500}, {27, -5, 1001}, {28, 11, 1000}, {10, 11, 2047}},
         20,
         1500,
         10},
        {"centre window far off still counts", 0, {{36, -900, 1100}}, 36, 1100, -900},
        // No centre window above 1000: the ring within |PD| <= 200; -200 and 150 tie at 175
        // from the average -25, and 150 has the smaller magnitude.
        {"ring",
         0,
         {{19, 0, 1000}, {10, 250, 2047}, {13, -200, 1200}, {29, 150, 1001}, {37, 201, 2047}},
         29,
         1001,
         150},
        // The calibration is added before the bound: 195 + 10 is out, 0 + 10 is in.
        {"calibrated ring", 10, {{26, 195, 2047}, {34, 0, 1800}}, 34, 1800, 10},
        {"nothing", 0, {{0, 0, 2047}, {47, 0, 2047}, {10, 300, 2047}}, PDAF_NO_WINDOW, 400, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        pd_calibration_value = c.calibration;
        set_grid(c.windows);
        const auto [cl, pd] = read_centre();
        EXPECT_EQ(zy_current_select_win, c.chosen);
        EXPECT_EQ(cl, c.cl);
        EXPECT_EQ(pd, c.pd);
        EXPECT_EQ(current_select_pdaf_window, c.chosen == PDAF_NO_WINDOW ? 0 : -1);
        // What the centre focus acts on: the chosen window's PD and CL, and its place.
        EXPECT_EQ(record_.PhaseDifference, c.pd);
        EXPECT_EQ(record_.ConfidenceLevel, static_cast<uint64_t>(c.cl));
        if (c.chosen != PDAF_NO_WINDOW) {
            EXPECT_EQ(record_.WindowXStart, 80 + 480 * (c.chosen % 8));
            EXPECT_EQ(record_.WindowYStart, 420 + 360 * (c.chosen / 8));
        }
        for (const WindowPdCl& w : c.windows) {
            EXPECT_EQ(zypd[w.index], w.pd + c.calibration);
            EXPECT_EQ(zycl[w.index], w.cl);
        }
    }
    EXPECT_EQ(ignorecnt, 0) << "a whole number of rows was read";
}

// The windows a free readout grouped, as it lists them (numbers are index + 1).
std::vector<int> listed_group(const std::string& out) {
    std::vector<int> numbers;
    for (size_t at = out.find("选出的窗口是"); numbers.size() < 4;) {
        at = out.find("w[", at);
        if (at == std::string::npos) break;
        at += 2;
        numbers.push_back(std::stoi(out.substr(at, 2)) - 1);
    }
    return numbers;
}

TEST_F(Readout, FreeGroupStaysOnTheGrid) {
    struct Case {
        int x, y;
        std::vector<int> group;
        const char* edge;  // the edge message, or ""
    };
    const Case cases[] = {
        {1000, 1000, {17, 18, 25, 26}, ""},  // right half: no; lower half: yes
        {100, 100, {0, 1, 8, 9}, "坐标对应的窗口在左侧边缘!"},
        {3839, 2159, {38, 39, 46, 47}, "坐标对应的窗口在右侧边缘!"},
        {3999, 2999, {38, 39, 46, 47}, ""},  // beyond the 3840 x 2160 frame: the last cell
        {-5, 1200, {16, 17, 24, 25}, "坐标对应的窗口在左侧边缘!"},
    };
    // Every window qualifies, with its own PD.
    board().imx586([](twin::Imx586& s) {
        for (int i = 0; i < PDAF_GRID_WINDOWS; ++i) s.set_grid_pd_cl(i, 4 * i - 90, 2047);
    });
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.x) + "," + std::to_string(c.y));
        free_focus_pointx = c.x;
        free_focus_pointy = c.y;
        int64_t cl = 0, pd = 0;
        output_ = captured([&] { get_pd_and_lc_freewindows_test(&record_, &cl, &pd, nullptr); });
        EXPECT_THAT(listed_group(output_), ElementsAreArray(c.group));
        if (*c.edge != '\0') {
            EXPECT_THAT(output_, HasSubstr(c.edge));
        }
        // Four PDs 4 apart around their average: the second or third of the sorted group.
        EXPECT_THAT(std::vector<int>({c.group[1], c.group[2]}),
                    ::testing::Contains(zy_current_select_win));
        EXPECT_EQ(pd, 4 * zy_current_select_win - 90);
        EXPECT_EQ(current_select_pdaf_window, -1);
    }
    // No window of the group qualifies: "no window", as the centre readout stores it.
    set_grid({{17, 0, 1000}, {18, 250, 2047}, {0, 0, 2047}});
    free_focus_pointx = free_focus_pointy = 1000;
    int64_t cl = 0, pd = 0;
    quietly([&] { get_pd_and_lc_freewindows_test(&record_, &cl, &pd, nullptr); });
    EXPECT_EQ(zy_current_select_win, PDAF_NO_WINDOW);
    EXPECT_EQ(cl, 400);
    EXPECT_EQ(current_select_pdaf_window, 0);
}

TEST_F(Readout, EightWindowLayoutChoosesFromThreeConfidentWindows) {
    quietly([] {
        write_imx586_group_hold(1);
        set_pdaf_windows_center_area(0);
        write_imx586_group_hold(0);
    });
    struct Case {
        int manual_cl_pd;
        std::vector<int> cl;  // windows 0..7, PD = 10 x window
        int64_t cl_out, pd_out;
        int32_t select;
    };
    const Case cases[] = {
        {1, {900, 0, 0, 0, 0, 0, 0, 0}, 900, 0, 0},            // none: CL 900
        {1, {2047, 1200, 0, 0, 0, 0, 0, 0}, 0, 0, -1},         // two: nothing chosen
        {1, {2047, 1200, 1001, 0, 0, 0, 0, 0}, 1200, 10, -1},  // three: average 10
        {0, {2047, 2047, 2047, 2047, 0, 0, 0, 0}, 900, 0, 0},  // CL forced to 0
    };
    for (const Case& c : cases) {
        Manual_cl_pd = c.manual_cl_pd;
        board().imx586([&](twin::Imx586& s) {
            for (int k = 0; k < 8; ++k) s.set_window_pd_cl(k, 10 * k, c.cl[static_cast<size_t>(k)]);
        });
        int64_t cl = -1, pd = -1;
        output_ = captured([&] { get_pd_and_lc_7windwos_test(&record_, &cl, &pd); });
        EXPECT_EQ(cl, c.cl_out);
        EXPECT_EQ(pd, c.pd_out);
        EXPECT_EQ(current_select_pdaf_window, c.select);
        EXPECT_EQ(c.cl_out == 900,
                  output_.find("Morak-Warn: cl>1000 windowcnt=0,so set pd 0,set cl 900!\r\n") !=
                      std::string::npos);
        int64_t cls[8], pds[8], offsets[8];
        go_get_pd_cl_info(cls, pds, offsets);
        EXPECT_EQ(pds[3], 30);
        EXPECT_EQ(cls[0], c.manual_cl_pd == 0 ? 0 : c.cl[0]);
        // PD 30 at CL 0 still converts: the offset rounds up, opposite to the grid's sign.
        EXPECT_GT(offsets[3], 0);
    }
}

}  // namespace
}  // namespace zoomaf::test
