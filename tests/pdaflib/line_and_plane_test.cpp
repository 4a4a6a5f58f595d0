// The interpolation routines under the defocus and threshold computation.
#include <gtest/gtest.h>

#include <cstdint>

#include "zoomaf/pdaflib.h"

namespace {

constexpr int64_t kUntouched = -777;

int64_t line(int64_t x0, int64_t y0, int64_t x1, int64_t y1, int64_t x) {
    const int64_t xs[2] = {x0, x1};
    const int64_t ys[2] = {y0, y1};
    int64_t out = kUntouched;
    CalcAddressOnLine_slXslY(xs, ys, x, &out);
    return out;
}

TEST(Line, DegenerateLinesGiveTheSharedOrMeanOrdinate) {
    EXPECT_EQ(line(5, 9, 5, 9, 100), 9);      // both points equal
    EXPECT_EQ(line(0, 9, 10, 9, 100), 9);     // flat line, even outside the segment
    EXPECT_EQ(line(4, 3, 4, 8, 4), 5);        // vertical: (3 + 8) / 2 = 5.5 truncated
    EXPECT_EQ(line(4, -3, 4, -8, 4), -5);     // (-3 - 8) / 2 = -5.5 truncated toward zero
    EXPECT_EQ(line(4, -3, 4, -8, 1000), -5);  // the abscissa plays no part
    // The mean of two large ordinates must not overflow: (2^63 - 1 + 2^63 - 3) / 2 = 2^63 - 2.
    EXPECT_EQ(line(0, INT64_MAX, 0, INT64_MAX - 2, 0), INT64_MAX - 1);
}

TEST(Line, InterpolatesAndTruncatesTowardZero) {
    EXPECT_EQ(line(0, 0, 10, 100, 3), 30);
    EXPECT_EQ(line(0, 0, 4, 10, 1), 2);    // 2.5
    EXPECT_EQ(line(0, 0, 4, -10, 1), -2);  // -2.5 toward zero, not -3
    EXPECT_EQ(line(0, -1, 2, 0, 1), 0);    // -0.5 toward zero
    EXPECT_EQ(line(264, 1000, 760, 1100, 512), 1050);
    // Multiplication before division: 49 x 1 / 49 is exactly 1 in doubles, while
    // 1 / 49 x 49 is 0.99999999999999989 and would truncate to 0.
    EXPECT_EQ(line(0, 0, 49, 49, 1), 1);
}

TEST(Line, DescendingAbscissaeGiveTheSameValuesAsSwappedPoints) {
    for (int64_t x = -5; x <= 25; x += 3) {
        EXPECT_EQ(line(20, -70, 0, 30, x), line(0, 30, 20, -70, x)) << "x " << x;
    }
    EXPECT_EQ(line(20, -70, 0, 30, 5), 5);    // 30 - 100 x 5 / 20
    EXPECT_EQ(line(20, -70, 0, 30, -1), 30);  // left of both: the left point's ordinate
}

TEST(Line, ClampsToTheNearerEndOutsideTheSegment) {
    EXPECT_EQ(line(10, 100, 20, 200, 9), 100);
    EXPECT_EQ(line(10, 100, 20, 200, 21), 200);
    EXPECT_EQ(line(10, 100, 20, 200, INT64_MIN), 100);
    EXPECT_EQ(line(10, 100, 20, 200, INT64_MAX), 200);
    EXPECT_EQ(line(10, 100, 20, 200, 10), 100);
    EXPECT_EQ(line(10, 100, 20, 200, 20), 200);
}

TEST(Line, ExtremeCoordinatesStayDefined) {
    // The differences span the whole int64 range; the result stays an end point.
    EXPECT_EQ(line(INT64_MIN, INT64_MIN, INT64_MAX, INT64_MAX, INT64_MAX), INT64_MAX);
    EXPECT_EQ(line(INT64_MIN, 0, INT64_MAX, 1000, INT64_MIN), 0);
    // Near 2^63 the double result rounds up to 2^63; it saturates instead of wrapping.
    EXPECT_EQ(line(0, INT64_MAX - 1, 10, INT64_MAX, 5), INT64_MAX);
}

struct BrokenLineCall {
    int32_t code;
    uint64_t out;
};

BrokenLineCall broken_line(std::initializer_list<uint64_t> xs, std::initializer_list<uint64_t> ys,
                           uint64_t x) {
    BrokenLineCall call{0, 4242};
    call.code = CalcAddressOnBrokenLine_ulXulY(xs.begin(), ys.begin(), xs.size(), x, &call.out);
    return call;
}

TEST(BrokenLine, RefusesBadLinesAndLeavesTheResultUntouched) {
    const uint64_t over = 0x80000000;  // one above 0x7FFFFFFF
    const BrokenLineCall refusals[] = {
        broken_line({5}, {7}, 5),                       // a single point
        broken_line({0, over}, {1, 2}, 0),              // last X too large
        broken_line({0, 10}, {1, 2}, over),             // x too large
        broken_line({0, 10}, {1, over}, 5),             // an ordinate too large
        broken_line({0, 20, 10, 30}, {1, 2, 3, 4}, 5),  // X descending somewhere
        broken_line({over, 10}, {1, 2}, 5),             // first X above last: descending
    };
    for (const BrokenLineCall& call : refusals) {
        EXPECT_EQ(call.code, -1);
        EXPECT_EQ(call.out, 4242u);
    }
    uint64_t out = 4242;
    EXPECT_EQ(CalcAddressOnBrokenLine_ulXulY(nullptr, nullptr, 0, 5, &out), -1);
    EXPECT_EQ(out, 4242u);
}

TEST(BrokenLine, AcceptsTheLargestValuesAndEqualNeighbours) {
    const uint64_t top = 0x7FFFFFFF;
    EXPECT_EQ(broken_line({0, top}, {top, top}, top).code, 0);
    const BrokenLineCall steps = broken_line({0, 10, 10, 20}, {0, 100, 200, 300}, 15);
    EXPECT_EQ(steps.code, 0);
    EXPECT_EQ(steps.out, 250u);  // segment 2: 200 + 100 x 5 / 10
}

TEST(BrokenLine, OutsideTheAbscissaeTheEndOrdinatesHold) {
    EXPECT_EQ(broken_line({100, 200}, {150, 300}, 99).out, 150u);
    EXPECT_EQ(broken_line({100, 200}, {150, 300}, 201).out, 300u);
    EXPECT_EQ(broken_line({0, 960}, {150, 150}, 0x7FFFFFFF).out, 150u);
}

TEST(BrokenLine, AnInnerVertexUsesTheSegmentOnItsLeft) {
    // At x 10 the segments are (0,0)-(10,100) giving 100, (10,100)-(10,200) giving the mean
    // 150, and (10,200)-(20,300) giving 200: the first one decides.
    EXPECT_EQ(broken_line({0, 10, 10, 20}, {0, 100, 200, 300}, 10).out, 100u);
    EXPECT_EQ(broken_line({0, 10, 20}, {0, 100, 50}, 15).out, 75u);
}

TEST(BrokenLine, ASegmentDownToZeroStaysAtOrAboveZero) {
    // Ordinates are at most 0x7FFFFFFF, so a segment reaches down to 0 but never below it.
    EXPECT_EQ(broken_line({0, 10, 20}, {100, 0, 50}, 5).out, 50u);
    EXPECT_EQ(broken_line({0, 10, 20}, {100, 0, 50}, 10).out, 0u);
    EXPECT_EQ(broken_line({0, 10, 20}, {100, 0, 50}, 19).out, 45u);
    EXPECT_EQ(broken_line({10, 20, 30}, {0, 0, 5}, 15).out, 0u);
    EXPECT_EQ(broken_line({10, 20, 30}, {0, 0, 5}, 31).out, 5u);
}

struct PlaneCall {
    int32_t code;
    int64_t out;
};

PlaneCall plane(int64_t x0, int64_t x1, int64_t y0, int64_t y1, const int64_t (&z)[4], int64_t x,
                int64_t y) {
    const int64_t xs[2] = {x0, x1};
    const int64_t ys[2] = {y0, y1};
    PlaneCall call{0, kUntouched};
    call.code = CalcAddressOnPlane_slXslYslZ(xs, ys, z, x, y, &call.out);
    return call;
}

TEST(Plane, CornersAndEdgesAreInside) {
    const int64_t z[4] = {10, 20, 30, 40};  // (0,0), (8,0), (0,4), (8,4)
    EXPECT_EQ(plane(0, 8, 0, 4, z, 0, 0).out, 10);
    EXPECT_EQ(plane(0, 8, 0, 4, z, 8, 0).out, 20);
    EXPECT_EQ(plane(0, 8, 0, 4, z, 0, 4).out, 30);
    EXPECT_EQ(plane(0, 8, 0, 4, z, 8, 4).out, 40);
    EXPECT_EQ(plane(0, 8, 0, 4, z, 4, 4).out, 35);
    // (4, 2): 15 along the near edge, 35 along the far edge, 25 between them.
    const PlaneCall middle = plane(0, 8, 0, 4, z, 4, 2);
    EXPECT_EQ(middle.code, 0);
    EXPECT_EQ(middle.out, 25);
}

TEST(Plane, RefusesPointsOutsideAndEmptyRectanglesLeavingTheResultUntouched) {
    const int64_t z[4] = {10, 20, 30, 40};
    const PlaneCall refusals[] = {
        plane(0, 8, 0, 4, z, -1, 2), plane(0, 8, 0, 4, z, 9, 2),  // one beyond in X
        plane(0, 8, 0, 4, z, 4, -1), plane(0, 8, 0, 4, z, 4, 5),  // one beyond in Y
        plane(8, 8, 0, 4, z, 8, 2),  plane(0, 8, 4, 4, z, 4, 4),  // empty
        plane(8, 0, 0, 4, z, 4, 2),  plane(0, 8, 4, 0, z, 4, 2),  // reversed edges
    };
    for (const PlaneCall& call : refusals) {
        EXPECT_EQ(call.code, -1);
        EXPECT_EQ(call.out, kUntouched);
    }
}

TEST(Plane, TruncatesEachIntermediateStep) {
    // At (1, 1) of the 2 x 2 square with corners 0, 1, 1, 2 the exact bilinear value is 1,
    // but the near edge gives 0.5 -> 0, the far edge 1.5 -> 1, and between them 0.5 -> 0.
    const int64_t z[4] = {0, 1, 1, 2};
    EXPECT_EQ(plane(0, 2, 0, 2, z, 1, 1).out, 0);
    // Negative values truncate toward zero at every step: -0.5 -> 0 and -1.5 -> -1, then -0.5.
    const int64_t negative[4] = {0, -1, -1, -2};
    EXPECT_EQ(plane(0, 2, 0, 2, negative, 1, 1).out, 0);
}

}  // namespace
