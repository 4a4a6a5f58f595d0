// The twin's true lens: it agrees with both tracking tables and behaves like a lens.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tracking_tables.hpp"
#include "twin/lens_model.hpp"

namespace zoomaf::lensdata_test {
namespace {

using twin::efl_at_zoom_position;
using twin::in_focus_focus_step;
using twin::zoom_position_for_efl;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Each table value is the model at the row's whole zoom position, rounded.
TEST(LensModelAgainstTables, EveryRowOfBothTablesIsTheLensAtItsZoomPosition) {
    for (const auto& t : {table_471(), table_449()}) {
        for (int r = 0; r < t.rows; ++r) {
            for (int i = 0; i < 6; ++i) {
                const double model = in_focus_focus_step(t.zoom(r), kColumnDistanceM[i]);
                EXPECT_NEAR(model, t.data[r][kFirstFocusColumn + i], 0.5 + 1e-6)
                    << t.lens << " key " << t.key(r) << " column " << kFirstFocusColumn + i;
            }
            EXPECT_NEAR(efl_at_zoom_position(t.zoom(r)), t.data[r][1], 1.0)
                << t.lens << " key " << t.key(r);
        }
    }
}

TEST(LensModelAgainstTables, ZoomPositionForTheTableFocalLengthIsTheTableZoom) {
    for (const auto& t : {table_471(), table_449()})
        for (int r = 0; r < t.rows; ++r)
            EXPECT_NEAR(zoom_position_for_efl(t.data[r][1]), t.zoom(r), 3.0)
                << t.lens << " key " << t.key(r);
}

TEST(LensModelZoom, FocalLengthFallsAndItsInverseHoldsOverTheWholeZoomTravel) {
    double previous = kInfinity;
    for (int z = kZoomMin; z <= kZoomMax; ++z) {
        const double efl = efl_at_zoom_position(z);
        ASSERT_LT(efl, previous) << "zoom " << z;
        ASSERT_NEAR(zoom_position_for_efl(efl), z, 1e-6) << "zoom " << z;
        previous = efl;
    }
    // Beyond the travel the lens continues in straight lines, still invertible.
    EXPECT_NEAR(zoom_position_for_efl(efl_at_zoom_position(kZoomMin - 500)), kZoomMin - 500, 1e-6);
    EXPECT_NEAR(zoom_position_for_efl(efl_at_zoom_position(kZoomMax + 500)), kZoomMax + 500, 1e-6);
}

TEST(LensModelZoom, InFocusStepRisesWithTheZoomPositionAtEveryTableDistance) {
    for (double d : {1.0, 3.0, 10.0, 12.5, 40.0, 100.0, 600.0, kInfinity}) {
        double previous = -kInfinity;
        for (int z = kZoomMin; z <= kZoomMax; ++z) {
            const double step = in_focus_focus_step(z, d);
            ASSERT_GT(step, previous) << "zoom " << z << " distance " << d;
            previous = step;
        }
    }
}

TEST(LensModelZoom, IsContinuousAcrossTheOuterZoomKnots) {
    for (double z : {-5392.0, 1504.0})
        for (double d : {2.0, 20.0, kInfinity})
            EXPECT_NEAR(in_focus_focus_step(z - 1e-7, d), in_focus_focus_step(z + 1e-7, d), 1e-4);
}

class LensModelDistance : public ::testing::TestWithParam<double> {};

TEST_P(LensModelDistance, StepFallsAsTheSubjectMovesAway) {
    const double zoom = GetParam();
    double previous = kInfinity;
    for (double d = 0.1; d < 2000.0; d *= 1.01) {
        const double step = in_focus_focus_step(zoom, d);
        ASSERT_LT(step, previous) << "distance " << d;
        previous = step;
    }
    EXPECT_LT(in_focus_focus_step(zoom, kInfinity), previous);
}

TEST_P(LensModelDistance, IsContinuousWhereTheKnotDistancesEnd) {
    const double zoom = GetParam();
    for (double d : {10.0, 100.0})
        EXPECT_NEAR(in_focus_focus_step(zoom, d * (1 - 1e-9)),
                    in_focus_focus_step(zoom, d * (1 + 1e-9)), 1e-4);
}

TEST_P(LensModelDistance, TooNearOrNoDistanceCountsAsTheNearestDistance) {
    const double zoom = GetParam();
    const double nearest = in_focus_focus_step(zoom, twin::kLensNearestDistanceM);
    EXPECT_TRUE(std::isfinite(nearest));
    EXPECT_EQ(in_focus_focus_step(zoom, 0.0), nearest);
    EXPECT_EQ(in_focus_focus_step(zoom, -3.0), nearest);
    EXPECT_EQ(in_focus_focus_step(zoom, std::numeric_limits<double>::quiet_NaN()), nearest);
}

// The two end stops, the published knots and positions between them.
INSTANTIATE_TEST_SUITE_P(ZoomPositions, LensModelDistance,
                         ::testing::Values(-5430.0, -5392.0, -4000.0, -3072.0, -3050.0, -3024.0,
                                           -32.0, 700.0, 1416.0, 1504.0, 1606.0));

TEST(LensModelFar, InfinityAndFarSubjectsStayInsideTheFocusTravel) {
    for (int z = kZoomMin; z <= kZoomMax; z += 7) {
        EXPECT_GT(in_focus_focus_step(z, kInfinity), kFocusMin) << "zoom " << z;
        EXPECT_LT(in_focus_focus_step(z, 10.0), kFocusMax) << "zoom " << z;
    }
}

TEST(LensUnit, AddsItsOffsetToTheLens) {
    const twin::LensUnit unit{.offset_steps = -17.5};
    for (double d : {1.0, 15.0, kInfinity})
        EXPECT_DOUBLE_EQ(unit.in_focus_focus_step(-32.0, d), in_focus_focus_step(-32.0, d) - 17.5);
    EXPECT_DOUBLE_EQ(twin::LensUnit{}.in_focus_focus_step(800.0, 5.0),
                     in_focus_focus_step(800.0, 5.0));
}

}  // namespace
}  // namespace zoomaf::lensdata_test
