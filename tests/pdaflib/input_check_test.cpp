// The input checks of PdLibGetDefocus: their order, their codes, and the output left at its
// initial values when one fails.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "system_record.hpp"
#include "zoomaf/pdaflib.h"

namespace {

using zoomaf::test::SystemRecord;

void expect_initial_output(const PdLibOutputData& output) {
    EXPECT_EQ(output.Defocus, 0);
    EXPECT_EQ(output.DefocusConfidence, -1);
    EXPECT_EQ(output.DefocusConfidenceLevel, 0u);
    EXPECT_EQ(output.PhaseDifference, 0);
}

struct Check {
    int64_t code;
    std::function<void(SystemRecord&)> fail;  // makes this check fail, and no earlier one
};

// In the order the library applies them.
const std::vector<Check>& all_checks() {
    static const std::vector<Check> checks = {
        {-40, [](SystemRecord& r) { r.input.ImageXSize = 1; }},
        {-41, [](SystemRecord& r) { r.input.ImageYSize = 1; }},
        {-42, [](SystemRecord& r) { r.input.WindowXEnd = r.input.WindowXStart; }},
        {-43, [](SystemRecord& r) { r.input.WindowYEnd = r.input.WindowYStart; }},
        {-44, [](SystemRecord& r) { r.input.DefocusXKnotNum = 1; }},
        {-45, [](SystemRecord& r) { r.input.DccScale = 1152; }},
        {-46, [](SystemRecord& r) { r.x_knots[5] = r.x_knots[4]; }},
        {-47, [](SystemRecord& r) { r.y_knots[5] = 0; }},
        {-48, [](SystemRecord& r) { r.input.ThrYKnotNum = 0; }},
        {-49, [](SystemRecord& r) { r.input.ThrXKnotNum = 1; }},
        {-50, [](SystemRecord& r) { r.lines[0].PointNum = 1; }},
        {-51, [](SystemRecord& r) { r.thr_x_knots[1] = 5000; }},
        {-52, [](SystemRecord& r) { r.thr_y_knots[0] = r.thr_y_knots[1]; }},
        {-53, [](SystemRecord& r) { r.input.ConfidenceNormaliser = 2303; }},
    };
    return checks;
}

TEST(InputCheck, TheSystemRecordPasses) {
    SystemRecord record;
    EXPECT_EQ(record.run().code, 0);
}

TEST(InputCheck, TheFirstFailingCheckWinsAndTheOutputKeepsItsInitialValues) {
    const std::vector<Check>& checks = all_checks();
    for (size_t first = 0; first < checks.size(); ++first) {
        // This check and every later one fail at once.
        SystemRecord record;
        record.input.PhaseDifference = 12;
        record.input.ConfidenceLevel = 500;
        for (size_t i = first; i < checks.size(); ++i) checks[i].fail(record);
        const SystemRecord::Result result = record.run();
        EXPECT_EQ(result.code, checks[first].code);
        expect_initial_output(result.output);
    }
}

TEST(InputCheck, EachCheckAloneGivesItsCode) {
    for (const Check& check : all_checks()) {
        SystemRecord record;
        check.fail(record);
        EXPECT_EQ(record.run().code, check.code);
    }
}

TEST(InputCheck, ImageSizeOfTwoIsTheSmallestAccepted) {
    // A 2 x 2 image holds only the window 0..1 by 0..1; the knots must still ascend.
    SystemRecord record;
    record.input.ImageXSize = 2;
    record.input.ImageYSize = 2;
    record.input.WindowXStart = 0;
    record.input.WindowYStart = 0;
    record.input.WindowXEnd = 1;
    record.input.WindowYEnd = 1;
    EXPECT_EQ(record.run().code, 0);
}

TEST(InputCheck, WindowMustStartBeforeItEndsAndEndInsideTheImage) {
    SystemRecord record;
    record.input.WindowXStart = 100;
    record.input.WindowXEnd = 3999;  // last column of the image
    EXPECT_EQ(record.run().code, 0);
    record.input.WindowXEnd = 4000;
    EXPECT_EQ(record.run().code, -42);
    record.input.WindowXStart = 200;
    record.input.WindowXEnd = 100;
    EXPECT_EQ(record.run().code, -42);

    SystemRecord rows;
    rows.input.WindowYStart = 8094;  // an address wrapped below zero by the window layout
    rows.input.WindowYEnd = 8594;
    EXPECT_EQ(rows.run().code, -43);
    rows.input.WindowYStart = 100;
    rows.input.WindowYEnd = 2999;
    EXPECT_EQ(rows.run().code, 0);
    rows.input.WindowYEnd = 3000;
    EXPECT_EQ(rows.run().code, -43);
}

TEST(InputCheck, ConversionGridNeedsTwoByTwoStrictlyAscendingKnots) {
    SystemRecord record;
    record.input.DefocusYKnotNum = 1;
    EXPECT_EQ(record.run().code, -44);
    record.input.DefocusYKnotNum = 2;
    record.input.DefocusXKnotNum = 2;
    EXPECT_EQ(record.run().code, 0);

    SystemRecord equal_y;
    equal_y.y_knots[1] = equal_y.y_knots[0];
    EXPECT_EQ(equal_y.run().code, -47);
    // Only the counted knots are looked at: a knot past the count may be anything.
    SystemRecord short_y;
    short_y.y_knots[5] = 0;
    short_y.input.DefocusYKnotNum = 5;
    EXPECT_EQ(short_y.run().code, 0);
}

TEST(InputCheck, DccScaleMustBe2304) {
    for (int64_t scale : {0, 2303, 2305, -2304, 4608}) {
        SystemRecord record;
        record.input.DccScale = scale;
        EXPECT_EQ(record.run().code, -45) << scale;
    }
}

TEST(InputCheck, ThresholdGridCountsAreBothZeroBothOneOrBothAboveOne) {
    struct Counts {
        uint16_t x, y;
        int64_t code;
    };
    const Counts cases[] = {
        {0, 0, 0},   {1, 1, 0},   {2, 2, 0},   {8, 6, 0},   {0, 6, -48}, {8, 0, -48},
        {0, 1, -48}, {1, 0, -48}, {1, 6, -49}, {8, 1, -49}, {1, 2, -49},
    };
    for (const Counts& c : cases) {
        SystemRecord record;
        record.input.ThrXKnotNum = c.x;
        record.input.ThrYKnotNum = c.y;
        EXPECT_EQ(record.run().code, c.code) << c.x << " x " << c.y;
    }
}

TEST(InputCheck, OnlyTheFirstThresholdLineIsChecked) {
    SystemRecord later_line_bad;
    later_line_bad.lines[1].PointNum = 0;
    later_line_bad.lines[47].PointNum = 1;
    EXPECT_EQ(later_line_bad.run().code, 0);

    // Line 0 is checked even when there is no threshold grid.
    SystemRecord no_grid;
    no_grid.input.ThrXKnotNum = 0;
    no_grid.input.ThrYKnotNum = 0;
    no_grid.lines[0].PointNum = 1;
    EXPECT_EQ(no_grid.run().code, -50);
    no_grid.lines[0].PointNum = 2;
    EXPECT_EQ(no_grid.run().code, 0);
}

TEST(InputCheck, ThresholdKnotsMustAscendStrictly) {
    SystemRecord record;
    record.thr_y_knots[4] = record.thr_y_knots[5];
    EXPECT_EQ(record.run().code, -52);

    // Without a threshold grid its knots are not looked at.
    SystemRecord no_grid;
    no_grid.input.ThrXKnotNum = 0;
    no_grid.input.ThrYKnotNum = 0;
    no_grid.input.p_ThrXKnot = nullptr;
    no_grid.input.p_ThrYKnot = nullptr;
    EXPECT_EQ(no_grid.run().code, 0);
}

TEST(InputCheck, NormaliserIsOneOfThreeValues) {
    for (uint64_t n : {2304u, 1152u, 576u}) {
        SystemRecord record;
        record.input.ConfidenceNormaliser = n;
        EXPECT_EQ(record.run().code, 0) << n;
    }
    for (uint64_t n : {0u, 288u, 4608u, 2305u}) {
        SystemRecord record;
        record.input.ConfidenceNormaliser = n;
        EXPECT_EQ(record.run().code, -53) << n;
    }
}

}  // namespace
