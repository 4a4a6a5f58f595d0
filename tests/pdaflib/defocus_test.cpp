// The defocus of a window: the per-knot formula with its clamps, and the interpolation at the
// window centre in each region around the knot grid.
#include <gtest/gtest.h>

#include <cstdint>
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
    const SystemRecord::Result result = record.run();
    EXPECT_EQ(result.code, 0);
    return result.output.Defocus;
}

TEST(Version, IsOnePointZero) {
    PdLibVersion version{7, 7};
    PdLibGetVersion(&version);
    EXPECT_EQ(version.Major, 1u);
    EXPECT_EQ(version.Minor, 0u);
}

// With the ramp, knot k holds 100 k + 1000. Knots: X 264, 760, ... 3736; Y 260, 756, ... 2740.
TEST(DefocusRegions, OutsideBothRangesTheCornerKnotHolds) {
    SystemRecord record;
    record.use_ramp();
    EXPECT_EQ(defocus_at(record, 50, 50), 1000);      // knot 0
    EXPECT_EQ(defocus_at(record, 3895, 50), 1700);    // knot 7
    EXPECT_EQ(defocus_at(record, 50, 2895), 5000);    // knot 40
    EXPECT_EQ(defocus_at(record, 3895, 2895), 5700);  // knot 47
    EXPECT_EQ(defocus_at(record, 263, 259), 1000);    // one short of the first knots
    EXPECT_EQ(defocus_at(record, 3737, 2741), 5700);  // one past the last knots
}

TEST(DefocusRegions, AboveAndBelowInterpolateAlongTheEdgeRow) {
    SystemRecord record;
    record.use_ramp();
    // Top, cell 0: 1000 + 100 x (512 - 264) / 496 = 1050.
    EXPECT_EQ(defocus_at(record, 512, 50), 1050);
    // Top, cell 6 (knots 6 and 7): 1600 + 100 x 248 / 496 = 1650.
    EXPECT_EQ(defocus_at(record, 3488, 50), 1650);
    // Bottom, cell 0 of row 5 (knots 40 and 41): 5000 + 50.
    EXPECT_EQ(defocus_at(record, 512, 2895), 5050);
    // Bottom, exactly under the last knot: knots 46 and 47 at 3736 give 5700.
    EXPECT_EQ(defocus_at(record, 3736, 2895), 5700);
}

TEST(DefocusRegions, LeftAndRightInterpolateAlongTheEdgeColumn) {
    SystemRecord record;
    record.use_ramp();
    // Left, cell 0 (knots 0 and 8): 1000 + 800 x (508 - 260) / 496 = 1400.
    EXPECT_EQ(defocus_at(record, 50, 508), 1400);
    // Right, cell 0 (knots 7 and 15): 1700 + 400 = 2100.
    EXPECT_EQ(defocus_at(record, 3895, 508), 2100);
    // Right, cell 4 (knots 39 and 47): 4900 + 800 x (2492 - 2244) / 496 = 5300.
    EXPECT_EQ(defocus_at(record, 3895, 2492), 5300);
    // Left, on the first knot row: knot 0.
    EXPECT_EQ(defocus_at(record, 50, 260), 1000);
}

TEST(DefocusRegions, InsideInterpolatesBilinearly) {
    SystemRecord record;
    record.use_ramp();
    // Cell (0, 0): 1050 on row 0, 1850 on row 1, 1050 + 800 x 248 / 496 = 1450 between.
    EXPECT_EQ(defocus_at(record, 512, 508), 1450);
    // Cell (6, 4) from knot 38 (4800): X 3240 + 124 adds 25, Y 2244 + 372 adds 600.
    EXPECT_EQ(defocus_at(record, 3364, 2616), 4800 + 25 + 600);
    // The knots themselves, first and last.
    EXPECT_EQ(defocus_at(record, 264, 260), 1000);
    EXPECT_EQ(defocus_at(record, 3736, 2740), 5700);
}

TEST(DefocusRegions, ACentreOnAnInnerKnotGivesThatKnotsValue) {
    SystemRecord record;
    record.use_ramp();
    EXPECT_EQ(defocus_at(record, 760, 756), 1900);    // knot 9, reached from cell (0, 0)
    EXPECT_EQ(defocus_at(record, 2248, 1748), 3800);  // knot 8 x 3 + 4 = 28, from cell (3, 2)
    EXPECT_EQ(defocus_at(record, 760, 50), 1100);     // knot 1 on the top edge
}

TEST(DefocusRegions, TheCentreIsTheTruncatedMeanOfTheCorners) {
    SystemRecord record;
    record.use_ramp();
    // Window 500..525: centre (500 + 525) / 2 = 512, as for 502..522.
    record.input.WindowXStart = 500;
    record.input.WindowXEnd = 525;
    record.input.WindowYStart = 40;
    record.input.WindowYEnd = 60;
    EXPECT_EQ(record.run().output.Defocus, 1050);
}

TEST(DefocusRegions, InterpolationTruncatesTowardZero) {
    SystemRecord record;
    record.input.PhaseDifference = 1;
    record.dcc[0] = -1000;
    record.dcc[1] = -1001;
    // -1000 - 1 x 248 / 496 = -1000.5: -1000, not -1001.
    EXPECT_EQ(defocus_at(record, 512, 50), -1000);
}

TEST(DefocusRegions, KnotNumbersWrapAt16Bits) {
    // 256 x 257 = 65792 knots: the last knot's number 65791 wraps to 255.
    const uint16_t nx = 256, ny = 257;
    std::vector<uint16_t> x_knots(nx), y_knots(ny);
    for (uint16_t i = 0; i < nx; ++i) x_knots[i] = static_cast<uint16_t>(10 * i);
    for (uint16_t j = 0; j < ny; ++j) y_knots[j] = static_cast<uint16_t>(10 * j);
    std::vector<int64_t> dcc(size_t{nx} * ny, 0), offsets(size_t{nx} * ny, 0);
    for (size_t k = 0; k < dcc.size(); ++k) offsets[k] = static_cast<int64_t>(k);
    SystemRecord record;
    record.input.ImageXSize = 4000;
    record.input.DefocusXKnotNum = nx;
    record.input.DefocusYKnotNum = ny;
    record.input.p_DefocusXKnot = x_knots.data();
    record.input.p_DefocusYKnot = y_knots.data();
    record.input.p_DefocusDcc = dcc.data();
    record.input.p_DefocusOffset = offsets.data();
    EXPECT_EQ(defocus_at(record, 3000, 2900), 255);
}

TEST(DefocusFormula, ScaleTimesCoefficientTimesPdPlusOffset) {
    SystemRecord record;
    record.input.PhaseDifference = -37;
    record.dcc[0] = 1234;
    record.offsets[0] = 99;
    // 2304 x 1234 x -37 / 2304 + 99 = -45658 + 99.
    EXPECT_EQ(defocus_at(record, 50, 50), -45559);
}

TEST(DefocusFormula, ClampsOneShortOfThe32BitExtremes) {
    SystemRecord record;
    record.input.PhaseDifference = 1;
    const struct {
        int64_t offset;
        int64_t defocus;
    } cases[] = {
        {2147483645, 2147483645},   {2147483646, 2147483646},   {2147483647, 2147483646},
        {INT64_MAX, 2147483646},    {-2147483646, -2147483646}, {-2147483647, -2147483647},
        {-2147483648, -2147483647}, {INT64_MIN, -2147483647},
    };
    for (const auto& c : cases) {
        record.offsets[0] = c.offset;
        EXPECT_EQ(defocus_at(record, 50, 50), c.defocus) << c.offset;
    }
    // A large coefficient times a large PD: 2^40 x 2^20 = 2^60 either way.
    record.offsets[0] = 0;
    record.dcc[0] = int64_t{1} << 40;
    record.input.PhaseDifference = int64_t{1} << 20;
    EXPECT_EQ(defocus_at(record, 50, 50), 2147483646);
    record.input.PhaseDifference = -(int64_t{1} << 20);
    EXPECT_EQ(defocus_at(record, 50, 50), -2147483647);
}

TEST(DefocusFormula, LimitTruncatesTowardZeroInsideTheBounds) {
    EXPECT_EQ(limit_defocus_formula(-2.9), -2);
    EXPECT_EQ(limit_defocus_formula(2.9), 2);
    EXPECT_EQ(limit_defocus_formula(2147483645.99), 2147483645);
    EXPECT_EQ(limit_defocus_formula(2147483646.0), 2147483646);
    EXPECT_EQ(limit_defocus_formula(-2147483646.99), -2147483646);
    EXPECT_EQ(limit_defocus_formula(-2147483647.0), -2147483647);
    EXPECT_EQ(limit_defocus_formula(-1e300), -2147483647);
}

TEST(DefocusFormula, PdMinus1024StillGivesADefocus) {
    SystemRecord record;
    record.use_ramp();
    record.input.PhaseDifference = -1024;
    record.input.ConfidenceLevel = 2000;
    record.centre_at(3895, 2895);  // knot 47: 2304 x 4700 x -1024 / 2304 + 1000
    const SystemRecord::Result result = record.run();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.output.Defocus, -4812800 + 1000);
    EXPECT_EQ(result.output.DefocusConfidence, -3);
    EXPECT_EQ(result.output.DefocusConfidenceLevel, 0u);
    EXPECT_EQ(result.output.PhaseDifference, -1024);
}

TEST(DefocusFormula, ACallFromCGetsTheResult) {
    PdLibOutputData output{};
    EXPECT_EQ(pdaflib_c_client_run(&output), 0);
    EXPECT_EQ(output.Defocus, 40);
    EXPECT_EQ(output.DefocusConfidence, 0);
    EXPECT_EQ(output.DefocusConfidenceLevel, 2048u);
    EXPECT_EQ(output.PhaseDifference, 10);
}

TEST(Reentrancy, ThreadsShareOneInputRecord) {
    // The library keeps no state: two threads reading one record each get the single-thread
    // result (the sanitizer builds would also report any shared write).
    SystemRecord record;
    record.use_ramp();
    record.input.ConfidenceLevel = 300;
    record.centre_at(512, 508);
    const SystemRecord::Result expected = record.run();
    auto work = [&record, &expected](int64_t* mismatches) {
        for (int i = 0; i < 2000; ++i) {
            PdLibOutputData output{};
            const int64_t code = PdLibGetDefocus(&record.input, &output);
            if (code != 0 || output.Defocus != expected.output.Defocus ||
                output.DefocusConfidenceLevel != expected.output.DefocusConfidenceLevel) {
                ++*mismatches;
            }
        }
    };
    int64_t first = 0, second = 0;
    std::thread a(work, &first), b(work, &second);
    a.join();
    b.join();
    EXPECT_EQ(expected.output.Defocus, 1450);
    EXPECT_EQ(first + second, 0);
}

}  // namespace
