// The lens table load: the read rule (a number, then one separator), the laser calibration
// carried over the rows below a calibrated one, the derived focus ranges and their
// printout, the failures that leave the table as it was, and the row of a multiple.
#include <gmock/gmock.h>

#include <cmath>

#include "tests/service/service_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// Cell (r, c) of a synthetic table: distinct everywhere, negative in row 0.
int32_t cell(int r, int c) {
    return 10000 * r + (r == 0 ? -c : c);
}

std::string synthetic_table(const char* line_end = "\n", int rows = LENS_TABLE_ROWS) {
    std::string text;
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < LENS_TABLE_FILE_COLUMNS; ++c)
            text += std::to_string(cell(r, c)) + (c + 1 < LENS_TABLE_FILE_COLUMNS ? "," : line_end);
    }
    return text;
}

class LensTable : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        for (auto& row : TxtToDat)
            for (int32_t& each : row) each = 7;
    }
};

// Rows 0..9 have no calibration; row 10's carries over to rows 11..29, row 30's to the end.
TEST_F(LensTable, TheTableLoadsShiftedByTheCalibrationCarriedOverRowsWithItsRanges) {
    laser_motor_calibration[10] = cell(10, 5) + 7;
    laser_motor_calibration[30] = cell(30, 5) - 4;
    for (const char* line_end : {"\n", "\r\n"}) {
        SCOPED_TRACE(line_end[0] == '\r' ? "CR LF" : "LF");
        board().write_file(LENS_TABLE_FILE, synthetic_table(line_end));
        ASSERT_EQ(call(ReadAFTXT), READ_AFTXT_OK);
        for (int r = 0; r < LENS_TABLE_ROWS; ++r) {
            const int offset = r < 10 ? 0 : r < 30 ? 7 : -4;
            for (int c = 0; c < LENS_TABLE_FILE_COLUMNS; ++c)
                ASSERT_EQ(TxtToDat[r][c], cell(r, c) + offset) << r << "," << c;
            const int32_t section[3] = {cell(r, 106) + offset, cell(r, 1) + offset,
                                        cell(r, 106) + offset};
            EXPECT_EQ(std::memcmp(mator_step_section[r], section, sizeof section), 0) << r;
            EXPECT_EQ(std::memcmp(template_mator_step_section[r], section, sizeof section), 0);
        }
        EXPECT_EQ(TxtToDat[20][107], 7) << "column 107 is not in the file and not shifted";
        EXPECT_THAT(output_, HasSubstr("\r\nmultiple20,source:100005,calibration:100012:\r\n"));
        EXPECT_THAT(output_, HasSubstr("\r\nmultiple40,source:300005,calibration:300001:\r\n"));
        EXPECT_THAT(output_, Not(HasSubstr("\r\nmultiple21,source")));
        EXPECT_THAT(output_, HasSubstr("multiple: 10: -106  -1  -106 \r\n"));
        EXPECT_THAT(output_, HasSubstr("multiple: 179: 1690102  1689997  1690102 \r\n"));
    }
}

TEST_F(LensTable, AMissingFileOrACellThatIsNotANumberChangesNothingAndSaysWhere) {
    EXPECT_EQ(call(ReadAFTXT), READ_AFTXT_MISSING);
    EXPECT_EQ(output_,
              "Error: cannot open the lens table file \"zy_240408_tvk_update.csv\" in the working "
              "directory / (No such file or directory); the service cannot focus without it\r\n");
    for (std::string bad : {"abc", "", "99999999999", "-"}) {
        std::string text = synthetic_table();
        text.replace(text.find(",20007,") + 1, 5, bad);  // line 3 (row 2), column 7
        board().write_file(LENS_TABLE_FILE, text);
        EXPECT_EQ(call(ReadAFTXT), READ_AFTXT_NOT_NUMBER) << bad;
        EXPECT_EQ(output_,
                  "Error: the lens table file \"zy_240408_tvk_update.csv\" line 3 column 7: \"" +
                      bad + "\" is not a number; the lens table is not loaded\r\n");
    }
    EXPECT_EQ(TxtToDat[0][0], 7) << "cells before the bad one are not taken either";
    EXPECT_EQ(mator_step_section[0][0], 0);
}

TEST_F(LensTable, AShortFileFillsWhatItHasAndTheRestKeepsItsValues) {
    board().write_file(LENS_TABLE_FILE, synthetic_table("\n", 2));
    EXPECT_EQ(call(ReadAFTXT), READ_AFTXT_OK);
    EXPECT_THAT(output_, HasSubstr("Warning: the lens table file \"zy_240408_tvk_update.csv\" ends "
                                   "at line 3 before row 2 column 0; the cells from there on keep "
                                   "their values\r\n"));
    EXPECT_EQ(TxtToDat[1][106], cell(1, 106));
    EXPECT_EQ(TxtToDat[2][0], 7);
}

// Every multiple the zoom can be asked for (1.0, 1.1, 1.7 and 17.9 among them), also with
// the 0.0001 the zoom requests add; beyond the table the end rows.
TEST(MultipleRow, TheMultiplesMapToTheirRowsAndTheEndsClamp) {
    for (int r = 0; r < LENS_TABLE_ROWS; ++r) {
        const float multiple = static_cast<float>(r + 10) / 10.0f;
        EXPECT_EQ(AppSetMultipleSectionRelation(multiple), r) << multiple;
        EXPECT_EQ(AppSetMultipleSectionRelation(multiple + 0.0001f), r) << multiple;
    }
    for (float low : {0.5f, -3.0f, std::nanf("")}) EXPECT_EQ(AppSetMultipleSectionRelation(low), 0);
    for (float high : {18.0f, 1e30f}) EXPECT_EQ(AppSetMultipleSectionRelation(high), 169);
}

}  // namespace
}  // namespace zoomaf::test
