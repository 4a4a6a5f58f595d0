// The defocus library on the system record: the defocus around the knot grid, the confidence
// level and flag, the input checks, and the interpolation routines underneath.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <tuple>
#include <vector>

#include "pdaflib/pdaf_internal.h"
#include "system_record.hpp"
#include "zoomaf/pdaflib.h"

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
}

// The level for this CL; the flag follows from it (see the first test).
uint64_t level_at_cl(SystemRecord& record, uint64_t cl) {
    record.input.ConfidenceLevel = cl;
    return record.run().DefocusConfidenceLevel;
}

TEST(Confidence, FlatThresholdNormaliserNoPositiveThresholdAndTheClamp) {
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
    // No positive threshold passes any CL; the level is clamped one below the 32-bit maximum.
    record.input.ConfidenceNormaliser = 2304;
    record.lines[7].PointNum = 1;  // refused (only line 0 is checked on input): counts as 0
    record.centre_at(3895, 50);    // knot 7 alone
    EXPECT_EQ(level_at_cl(record, 0), 1024u);
    EXPECT_EQ(record.run().DefocusConfidence, 0);
    for (auto& t : record.thresholds) t = {0, 0};
    record.centre_at(512, 508);
    EXPECT_EQ(level_at_cl(record, 0), 1024u);
    for (auto& t : record.thresholds) t = {1, 1};
    EXPECT_EQ(level_at_cl(record, 4194303), 4294966272u);            // x 1024: below, kept
    EXPECT_EQ(level_at_cl(record, uint64_t{1} << 40), 4294967294u);  // not 2^32 - 1
}

// PD -1024 (no phase difference) and no threshold grid: a defocus, but no verdict.
TEST(Confidence, NoPhaseDifferenceOrNoThresholdGridFlagsTheDefocus) {
    SystemRecord record;
    record.use_plane();
    record.input.PhaseDifference = -1024;
    record.input.ConfidenceLevel = 2000;
    record.centre_at(3895, 2895);  // knot 47: 2304 x 28272 x -1024 / 2304 + 1000
    PdLibOutputData output = record.run();
    EXPECT_EQ(std::tuple(output.Defocus, output.DefocusConfidence, output.DefocusConfidenceLevel,
                         output.PhaseDifference),
              std::tuple(-28950528 + 1000, -3, 0u, -1024));
    record.drop_threshold_grid();  // no grid outranks a missing phase difference
    EXPECT_EQ(record.run().DefocusConfidence, -2);
    record.input.PhaseDifference = 1;
    record.centre_at(50, 50);
    output = record.run();
    EXPECT_EQ(std::tuple(output.Defocus, output.DefocusConfidence, output.DefocusConfidenceLevel),
              std::tuple(1000, -2, 0u));
}

using Edit = void (*)(SystemRecord&);

// Each edit makes its check fail, and no earlier one; in the order the library applies them.
const struct {
    int64_t code;
    Edit fail;
} kChecks[] = {
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

TEST(InputCheck, EachCheckGivesItsCodeTheFirstFailingOneWinsAndTheBoundsHold) {
    const size_t count = std::size(kChecks);
    for (size_t first = 0; first < count; ++first) {
        SCOPED_TRACE(kChecks[first].code);
        SystemRecord alone;
        kChecks[first].fail(alone);
        alone.run(kChecks[first].code);

        // This check and every later one fail at once; the output keeps its initial values.
        SystemRecord all_later;
        all_later.input.PhaseDifference = 12;
        all_later.input.ConfidenceLevel = 500;
        for (size_t i = first; i < count; ++i) kChecks[i].fail(all_later);
        const PdLibOutputData o = all_later.run(kChecks[first].code);
        EXPECT_EQ(
            std::tuple(o.Defocus, o.DefocusConfidence, o.DefocusConfidenceLevel, o.PhaseDifference),
            std::tuple(0, -1, 0u, 0));
    }
    // Where checks draw their line: the system record passes, each row edits one thing.
    const struct {
        const char* what;
        Edit edit;
        int64_t code;
    } cases[] = {
        {"ends on last column", [](SystemRecord& r) { r.input.WindowXEnd = 3999; }, 0},
        {"ends past the image", [](SystemRecord& r) { r.input.WindowXEnd = 4000; }, -42},
        {"ends below the image", [](SystemRecord& r) { r.input.WindowYEnd = 3000; }, -43},
        {"2 x 2 grid",
         [](SystemRecord& r) { r.input.DefocusXKnotNum = r.input.DefocusYKnotNum = 2; }, 0},
        {"one knot row", [](SystemRecord& r) { r.input.DefocusYKnotNum = 1; }, -44},
        {"DCC scale above 2304", [](SystemRecord& r) { r.input.DccScale = 2305; }, -45},
        {"thr 1 x 1", [](SystemRecord& r) { r.input.ThrXKnotNum = r.input.ThrYKnotNum = 1; }, 0},
        {"thr 0 x 6", [](SystemRecord& r) { r.input.ThrXKnotNum = 0; }, -48},
        {"bad line 0, no grid",
         [](SystemRecord& r) {
             r.drop_threshold_grid();
             r.lines[0].PointNum = 1;
         },
         -50},
        {"normaliser 0", [](SystemRecord& r) { r.input.ConfidenceNormaliser = 0; }, -53},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        SystemRecord record;
        c.edit(record);
        record.run(c.code);
    }
}

constexpr int64_t kUntouched = 777;

// The code and the result of a routine that may refuse.
struct Call {
    int32_t code;
    int64_t out;
    bool operator==(const Call&) const = default;
};
std::ostream& operator<<(std::ostream& os, const Call& c) {
    return os << "code " << c.code << " out " << c.out;
}
const Call kRefused{-1, kUntouched};

int64_t line(int64_t x0, int64_t y0, int64_t x1, int64_t y1, int64_t x) {
    const int64_t xs[2] = {x0, x1}, ys[2] = {y0, y1};
    int64_t out = kUntouched;
    CalcAddressOnLine_slXslY(xs, ys, x, &out);
    return out;
}

TEST(Line, DegenerateInterpolatedAndClampedValues) {
    const struct {
        int64_t x0, y0, x1, y1, x, expected;
        const char* why;
    } cases[] = {
        {5, 9, 5, 9, 100, 9, "both points equal"},
        {4, 3, 4, 8, 4, 5, "equal X: mean 5.5 truncated"},
        {4, -3, 4, -8, 1000, -5, "equal X: -5.5 toward zero, whatever the abscissa"},
        {0, INT64_MAX, 0, INT64_MAX - 2, 0, INT64_MAX - 1, "the mean does not overflow"},
        {0, 0, 4, -10, 1, -2, "-2.5 toward zero, not -3"},
        {0, 0, 49, 49, 1, 1, "multiplication before division: 1 / 49 x 49 truncates to 0"},
        {10, 100, 20, 200, 9, 100, "left of the segment: no extrapolation"},
        {10, 100, 20, 200, 21, 200, "right of the segment"},
        {INT64_MIN, INT64_MIN, INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX, "whole int64 span"},
        {0, INT64_MAX - 1, 10, INT64_MAX, 5, INT64_MAX, "rounds to 2^63: saturates"},
    };
    for (const auto& c : cases) EXPECT_EQ(line(c.x0, c.y0, c.x1, c.y1, c.x), c.expected) << c.why;
    for (int64_t x = -5; x <= 25; x += 3)
        EXPECT_EQ(line(20, -70, 0, 30, x), line(0, 30, 20, -70, x)) << "swapped points, x " << x;
}

Call broken_line(std::vector<uint64_t> xs, std::vector<uint64_t> ys, uint64_t x) {
    uint64_t out = kUntouched;
    const int32_t code = CalcAddressOnBrokenLine_ulXulY(xs.data(), ys.data(), xs.size(), x, &out);
    return {code, static_cast<int64_t>(out)};
}

TEST(BrokenLine, RefusalsLeaveTheResultUntouched) {
    const uint64_t over = 0x80000000;                                    // one above 0x7FFFFFFF
    EXPECT_EQ(broken_line({}, {}, 5), kRefused);                         // nothing may be read
    EXPECT_EQ(broken_line({5}, {7}, 5), kRefused);                       // a single point
    EXPECT_EQ(broken_line({0, over}, {1, 2}, 0), kRefused);              // last X too large
    EXPECT_EQ(broken_line({0, 10}, {1, 2}, over), kRefused);             // x too large
    EXPECT_EQ(broken_line({0, 10}, {1, over}, 5), kRefused);             // an ordinate too large
    EXPECT_EQ(broken_line({0, 20, 10, 30}, {1, 2, 3, 4}, 5), kRefused);  // X descending
    EXPECT_EQ(broken_line({over, 10}, {1, 2}, 5), kRefused);  // first X above last: descending
}

TEST(BrokenLine, EndsHoldOutsideAndTheLeftSegmentDecidesOnAVertex) {
    const uint64_t top = 0x7FFFFFFF;
    EXPECT_EQ(broken_line({100, 200}, {150, 300}, 99), (Call{0, 150}));   // left of the abscissae
    EXPECT_EQ(broken_line({100, 200}, {150, 300}, 201), (Call{0, 300}));  // right of them
    EXPECT_EQ(broken_line({0, top}, {top, top}, top), (Call{0, top}));    // largest accepted
    // Equal neighbours are accepted; on the vertex (0,0)-(10,100) decides, not the mean 150.
    EXPECT_EQ(broken_line({0, 10, 10, 20}, {0, 100, 200, 300}, 15), (Call{0, 250}));
    EXPECT_EQ(broken_line({0, 10, 10, 20}, {0, 100, 200, 300}, 10), (Call{0, 100}));
    // Down to zero and up again; outside, the end ordinate as it stands.
    EXPECT_EQ(broken_line({0, 10, 20}, {100, 0, 50}, 5), (Call{0, 50}));
    EXPECT_EQ(broken_line({0, 10, 20}, {100, 0, 50}, 10), (Call{0, 0}));
    EXPECT_EQ(broken_line({10, 20, 30}, {0, 0, 5}, 31), (Call{0, 5}));
}

Call plane(int64_t x0, int64_t x1, int64_t y0, int64_t y1, int64_t x, int64_t y,
           const int64_t (&z)[4] = {10, 20, 30, 40}) {
    const int64_t xs[2] = {x0, x1}, ys[2] = {y0, y1};
    Call call{0, kUntouched};
    call.code = CalcAddressOnPlane_slXslYslZ(xs, ys, z, x, y, &call.out);
    return call;
}

TEST(Plane, EdgesAreInsideAndOneBeyondIsRefused) {
    // Corners 10, 20, 30, 40 at (0,0), (8,0), (0,4), (8,4); (4,2): 15 and 35 on the edges.
    const struct {
        int64_t x, y, out;
    } inside[] = {{0, 0, 10}, {8, 0, 20}, {0, 4, 30}, {8, 4, 40}, {4, 4, 35}, {4, 2, 25}};
    for (const auto& c : inside) EXPECT_EQ(plane(0, 8, 0, 4, c.x, c.y), (Call{0, c.out}));
    for (const Call& call : {plane(0, 8, 0, 4, 9, 2), plane(0, 8, 0, 4, 4, -1),
                             plane(8, 8, 0, 4, 8, 2), plane(0, 8, 4, 0, 4, 2)})
        EXPECT_EQ(call, kRefused);  // beyond in X, beyond in Y, empty, reversed
}

}  // namespace
