// The input checks of PdLibGetDefocus: their order, their codes, their bounds, and the output
// left at its initial values when one fails.
#include <gtest/gtest.h>

#include <cstdint>

#include "system_record.hpp"
#include "zoomaf/pdaflib.h"

namespace {

using zoomaf::test::SystemRecord;
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

TEST(InputCheck, EachCheckGivesItsCodeAndTheFirstFailingOneWins) {
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
        const PdLibOutputData output = all_later.run(kChecks[first].code);
        EXPECT_EQ(output.Defocus, 0);
        EXPECT_EQ(output.DefocusConfidence, -1);
        EXPECT_EQ(output.DefocusConfidenceLevel, 0u);
        EXPECT_EQ(output.PhaseDifference, 0);
    }
}

// Where each check draws its line (the system record passes; each row edits one thing).
TEST(InputCheck, BoundsOfEachCheck) {
    const struct {
        const char* what;
        Edit edit;
        int64_t code;
    } cases[] = {
        {"2-wide image, wider window", [](SystemRecord& r) { r.input.ImageXSize = 2; }, -42},
        {"ends on last column", [](SystemRecord& r) { r.input.WindowXEnd = 3999; }, 0},
        {"ends past the image", [](SystemRecord& r) { r.input.WindowXEnd = 4000; }, -42},
        {"starts after its end", [](SystemRecord& r) { r.input.WindowXStart = 2020; }, -42},
        {"ends below the image", [](SystemRecord& r) { r.input.WindowYEnd = 3000; }, -43},
        {"2 x 2 grid",
         [](SystemRecord& r) { r.input.DefocusXKnotNum = r.input.DefocusYKnotNum = 2; }, 0},
        {"one knot row", [](SystemRecord& r) { r.input.DefocusYKnotNum = 1; }, -44},
        {"DCC scale above 2304", [](SystemRecord& r) { r.input.DccScale = 2305; }, -45},
        {"equal Y knots", [](SystemRecord& r) { r.y_knots[1] = r.y_knots[0]; }, -47},
        {"no threshold grid", [](SystemRecord& r) { r.drop_threshold_grid(); }, 0},
        {"thr 1 x 1", [](SystemRecord& r) { r.input.ThrXKnotNum = r.input.ThrYKnotNum = 1; }, 0},
        {"thr 0 x 6", [](SystemRecord& r) { r.input.ThrXKnotNum = 0; }, -48},
        {"thr 8 x 1", [](SystemRecord& r) { r.input.ThrYKnotNum = 1; }, -49},
        {"bad line 47", [](SystemRecord& r) { r.lines[47].PointNum = 1; }, 0},
        {"bad line 0, no grid",
         [](SystemRecord& r) {
             r.drop_threshold_grid();
             r.lines[0].PointNum = 1;
         },
         -50},
        {"normaliser 1152", [](SystemRecord& r) { r.input.ConfidenceNormaliser = 1152; }, 0},
        {"normaliser 576", [](SystemRecord& r) { r.input.ConfidenceNormaliser = 576; }, 0},
        {"normaliser 0", [](SystemRecord& r) { r.input.ConfidenceNormaliser = 0; }, -53},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        SystemRecord record;
        c.edit(record);
        record.run(c.code);
    }
}

}  // namespace
