// PdLibGetDefocus on the system record: the defocus (per-knot formula with its clamps,
// interpolated at the window centre in each region around the knot grid) and the confidence
// level = CL x 1024 x 2304 / normaliser / threshold, truncated; OK (0) above 1023, else -80.
#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <thread>
#include <vector>

#include "pdaflib/pdaf_internal.h"
#include "system_record.hpp"
#include "zoomaf/pdaflib.h"

// c_client.c: fills a record in C and calls the library.
extern "C" int64_t pdaflib_c_client_run(PdLibOutputData* output);

namespace {

using zoomaf::test::SystemRecord;

int64_t defocus_at(SystemRecord& record, uint16_t cx, uint16_t cy) {
    record.centre_at(cx, cy);
    return record.run().Defocus;
}

// The plane 1000 + (x - 264) + 10 (y - 260) over the knots X 264, 760, ... 3736 and
// Y 260, 756, ... 2740; beside the grid the nearest edge holds, diagonally the corner knot.
TEST(Defocus, EachRegionAroundTheGrid) {
    const struct {
        uint16_t cx, cy;
        int64_t defocus;
        const char* why;
    } cases[] = {
        {50, 50, 1000, "top-left: knot 0"},
        {3895, 50, 4472, "top-right: knot 7"},
        {50, 2895, 25800, "bottom-left: knot 40"},
        {3895, 2895, 29272, "bottom-right: knot 47"},
        {512, 50, 1248, "top, cell 0"},
        {512, 2895, 26048, "bottom, cell 0: knots 40 and 41"},
        {3736, 2895, 29272, "bottom, under the last knot: the last cell"},
        {50, 508, 3480, "left, cell 0"},
        {3895, 508, 6952, "right, cell 0: knots 7 and 15"},
        {3895, 2492, 26792, "right, cell 4: knots 39 and 47"},
        {512, 508, 3728, "inside, cell (0, 0)"},
        {3364, 2616, 27660, "inside, cell (6, 4)"},
        {3736, 2740, 29272, "on the last knot"},
        {760, 756, 6456, "on inner knot 9, from cell (0, 0)"},
    };
    SystemRecord record;
    record.use_plane();
    for (const auto& c : cases) EXPECT_EQ(defocus_at(record, c.cx, c.cy), c.defocus) << c.why;
}

TEST(Defocus, KnotNumbersWrapAt16Bits) {
    // 256 x 257 = 65792 knots, knot k offset by k: the last knot's number 65791 wraps to 255.
    std::vector<uint16_t> knots(257);  // X uses the first 256
    for (size_t i = 0; i < knots.size(); ++i) knots[i] = static_cast<uint16_t>(10 * i);
    std::vector<int64_t> dcc(256 * 257, 0), offsets(dcc.size());
    std::iota(offsets.begin(), offsets.end(), 0);
    SystemRecord record;
    record.input.DefocusXKnotNum = 256;
    record.input.DefocusYKnotNum = 257;
    record.input.p_DefocusXKnot = record.input.p_DefocusYKnot = knots.data();
    record.input.p_DefocusDcc = dcc.data();
    record.input.p_DefocusOffset = offsets.data();
    EXPECT_EQ(defocus_at(record, 3000, 2900), 255);
}

TEST(Defocus, FormulaInDoublesClampedOneShortOfThe32BitExtremes) {
    const int64_t big = int64_t{1} << 40, large_pd = int64_t{1} << 20;
    const struct {
        int64_t dcc, pd, offset, defocus;
    } cases[] = {
        {1234, -37, 99, -45559},  // 2304 x 1234 x -37 / 2304 + 99
        {0, 1, 2147483647, 2147483646},
        {0, 1, -2147483646, -2147483646},
        {0, 1, -2147483648, -2147483647},
        {big, large_pd, 0, 2147483646},  // 2^60: the product must not be taken in integers
        {big, -large_pd, 0, -2147483647},
    };
    SystemRecord record;
    for (const auto& c : cases) {
        record.dcc[0] = c.dcc;
        record.input.PhaseDifference = c.pd;
        record.offsets[0] = c.offset;
        EXPECT_EQ(defocus_at(record, 50, 50), c.defocus)
            << c.dcc << " x " << c.pd << " + " << c.offset;
    }
    // With the scale fixed at 2304 the formula only yields whole numbers: truncation and the
    // bounds are seen on the clamp alone.
    EXPECT_EQ(limit_defocus_formula(-2.9), -2);
    EXPECT_EQ(limit_defocus_formula(2147483645.99), 2147483645);
    EXPECT_EQ(limit_defocus_formula(-2147483646.99), -2147483646);
}

TEST(Defocus, PdMinus1024StillGivesADefocusFlaggedMinus3) {
    SystemRecord record;
    record.use_plane();
    record.input.PhaseDifference = -1024;
    record.input.ConfidenceLevel = 2000;
    record.centre_at(3895, 2895);  // knot 47: 2304 x 28272 x -1024 / 2304 + 1000
    const PdLibOutputData output = record.run();
    EXPECT_EQ(output.Defocus, -28950528 + 1000);
    EXPECT_EQ(output.DefocusConfidence, -3);
    EXPECT_EQ(output.DefocusConfidenceLevel, 0u);
    EXPECT_EQ(output.PhaseDifference, -1024);
}

TEST(Defocus, ACallFromCGetsTheResult) {
    PdLibOutputData output{};
    EXPECT_EQ(pdaflib_c_client_run(&output), 0);
    EXPECT_EQ(output.Defocus, 40);
    EXPECT_EQ(output.DefocusConfidence, 0);
    EXPECT_EQ(output.DefocusConfidenceLevel, 2048u);
    EXPECT_EQ(output.PhaseDifference, 10);
}

TEST(Defocus, ThreadsShareOneInputRecord) {
    // The library keeps no state: two threads reading one record each get the single-thread
    // result (the sanitizer builds would also report any shared write).
    SystemRecord record;
    record.use_plane();
    record.input.ConfidenceLevel = 300;
    record.centre_at(512, 508);
    auto work = [&record](int* mismatches) {
        for (int i = 0; i < 2000; ++i) {
            PdLibOutputData output{};
            if (PdLibGetDefocus(&record.input, &output) != 0 || output.Defocus != 3728 ||
                output.DefocusConfidenceLevel != 2048) {
                ++*mismatches;
            }
        }
    };
    int first = 0, second = 0;
    std::thread a(work, &first), b(work, &second);
    a.join();
    b.join();
    EXPECT_EQ(first + second, 0);
}

// The level for this CL; the flag follows from it (see the first test).
uint64_t level_at_cl(SystemRecord& record, uint64_t cl) {
    record.input.ConfidenceLevel = cl;
    return record.run().DefocusConfidenceLevel;
}

TEST(Confidence, FlatThresholdOf150AndTheNormaliser) {
    SystemRecord record;
    EXPECT_EQ(level_at_cl(record, 150), 1024u);      // exactly the threshold ...
    EXPECT_EQ(record.run().DefocusConfidence, 0);    // ... is OK
    EXPECT_EQ(level_at_cl(record, 149), 1017u);      // 149 x 1024 / 150 = 1017.2 ...
    EXPECT_EQ(record.run().DefocusConfidence, -80);  // ... is NG
    record.input.ConfidenceNormaliser = 1152;        // CL doubled
    EXPECT_EQ(level_at_cl(record, 74), 1010u);       // 74 x 2048 / 150 = 1010.3
    record.input.ConfidenceNormaliser = 576;         // CL quadrupled
    EXPECT_EQ(level_at_cl(record, 38), 1037u);       // 38 x 4096 / 150 = 1037.7
    EXPECT_EQ(record.run().DefocusConfidence, 0);
}

TEST(Confidence, ThresholdFollowsTheGainAndTheWindowCentre) {
    SystemRecord record;
    for (auto& t : record.thresholds) t = {100, 300};
    record.input.SensorGain = 480;               // halfway: 200
    EXPECT_EQ(level_at_cl(record, 199), 1018u);  // 1018.9
    record.input.SensorGain = 5000;              // past the last point: 300
    EXPECT_EQ(level_at_cl(record, 300), 1024u);

    for (size_t k = 0; k < 48; ++k) record.thresholds[k] = {100 + 10 * k, 100 + 10 * k};
    record.centre_at(512, 508);                  // cell (0, 0): 105 and 185 on its rows, 145
    EXPECT_EQ(level_at_cl(record, 144), 1016u);  // 1016.9
    record.centre_at(3895, 2895);                // right of and below: knot 47, 570
    EXPECT_EQ(level_at_cl(record, 570), 1024u);
    // A 2 x 2 grid of its own on knots 0 and 1024: 105 and 125 on its rows, 115 between.
    record.input.ThrXKnotNum = record.input.ThrYKnotNum = 2;
    record.thr_x_knots[0] = record.thr_y_knots[0] = 0;
    record.thr_x_knots[1] = record.thr_y_knots[1] = 1024;
    record.centre_at(512, 512);
    EXPECT_EQ(level_at_cl(record, 115), 1024u);
    record.input.ThrXKnotNum = record.input.ThrYKnotNum = 1;  // line 0 everywhere: 100
    EXPECT_EQ(level_at_cl(record, 50), 512u);
}

TEST(Confidence, NoPositiveThresholdPassesAnyCl) {
    SystemRecord record;
    record.lines[7].PointNum = 1;  // refused (only line 0 is checked on input): counts as 0
    record.centre_at(3895, 50);    // knot 7 alone
    EXPECT_EQ(level_at_cl(record, 0), 1024u);
    EXPECT_EQ(record.run().DefocusConfidence, 0);
    for (auto& t : record.thresholds) t = {0, 0};
    record.centre_at(512, 508);
    EXPECT_EQ(level_at_cl(record, 0), 1024u);
}

TEST(Confidence, LevelIsClampedOneBelowThe32BitMaximum) {
    SystemRecord record;
    for (auto& t : record.thresholds) t = {1, 1};
    EXPECT_EQ(level_at_cl(record, 4194303), 4294966272u);            // x 1024: below, kept
    EXPECT_EQ(level_at_cl(record, uint64_t{1} << 40), 4294967294u);  // not 2^32 - 1
}

TEST(Confidence, WithoutThresholdGridNoVerdictButADefocus) {
    SystemRecord record;
    record.use_plane();
    record.drop_threshold_grid();
    record.input.ConfidenceLevel = 2000;
    record.centre_at(50, 50);
    const PdLibOutputData output = record.run();
    EXPECT_EQ(output.Defocus, 1000);  // still computed
    EXPECT_EQ(output.DefocusConfidence, -2);
    EXPECT_EQ(output.DefocusConfidenceLevel, 0u);
    record.input.PhaseDifference = -1024;  // no grid outranks a missing phase difference
    EXPECT_EQ(record.run().DefocusConfidence, -2);
}

}  // namespace
