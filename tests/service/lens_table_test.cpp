// The lens table load: the read rule (a number, then one separator), the laser calibration
// carried over the rows below a calibrated one, the derived focus ranges and their
// printout, and the failures that leave the table as it was.
#include <gmock/gmock.h>

#include <cmath>
#include <sstream>
#include <vector>

#include "tests/service/service_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

using Rows = std::vector<std::vector<int32_t>>;

Rows parse_csv(const std::string& text) {
    Rows rows;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::vector<int32_t> row;
        std::istringstream cells(line);
        std::string cell;
        while (std::getline(cells, cell, ',')) row.push_back(std::stoi(cell));
        rows.push_back(row);
    }
    return rows;
}

// A table whose cell (r, c) is 10000 * r + c (any line end).
std::string synthetic_table(const char* line_end = "\n", int rows = LENS_TABLE_ROWS) {
    std::string text;
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < LENS_TABLE_FILE_COLUMNS; ++c) {
            text += std::to_string(10000 * r + c);
            text += c + 1 < LENS_TABLE_FILE_COLUMNS ? "," : line_end;
        }
    }
    return text;
}

class LensTable : public ServiceTest {
protected:
    void fill_table(int32_t value) {
        for (auto& row : TxtToDat)
            for (int32_t& cell : row) cell = value;
    }
};

TEST_F(LensTable, TheDefaultTableLoadsWithItsRangesAndPrintout) {
    const std::string csv = data_file("zy_240408_tvk_update.csv");
    board().write_file(LENS_TABLE_FILE, csv);
    ASSERT_EQ(call([] { return ReadAFTXT(); }), READ_AFTXT_OK);

    const Rows rows = parse_csv(csv);
    ASSERT_EQ(rows.size(), size_t{LENS_TABLE_ROWS});
    for (int r = 0; r < LENS_TABLE_ROWS; ++r) {
        ASSERT_EQ(rows[r].size(), size_t{LENS_TABLE_FILE_COLUMNS});
        for (int c = 0; c < LENS_TABLE_FILE_COLUMNS; ++c) ASSERT_EQ(TxtToDat[r][c], rows[r][c]);
        EXPECT_EQ(TxtToDat[r][107], 0) << "not in the file";
        EXPECT_EQ(mator_step_section[r][0], rows[r][106]);
        EXPECT_EQ(mator_step_section[r][1], rows[r][1]);
        EXPECT_EQ(mator_step_section[r][2], rows[r][106]);
        EXPECT_EQ(std::memcmp(mator_step_section[r], template_mator_step_section[r], 12), 0);
        EXPECT_LT(mator_step_section[r][0], mator_step_section[r][1]) << "a usable range";
    }
    EXPECT_THAT(output_, HasSubstr("multiple: 10: " + std::to_string(rows[0][106]) + "  " +
                                   std::to_string(rows[0][1]) + "  " +
                                   std::to_string(rows[0][106]) + " \r\n"));
    EXPECT_THAT(output_, HasSubstr("multiple: 179: "));
    EXPECT_THAT(output_, Not(HasSubstr("source:"))) << "no row is calibrated";
}

TEST_F(LensTable, CarriageReturnLineEndsReadTheSame) {
    board().write_file(LENS_TABLE_FILE, synthetic_table("\r\n"));
    ASSERT_EQ(call([] { return ReadAFTXT(); }), READ_AFTXT_OK);
    EXPECT_EQ(TxtToDat[0][0], 0);
    EXPECT_EQ(TxtToDat[1][0], 10000);
    EXPECT_EQ(TxtToDat[169][106], 1690106);
    EXPECT_EQ(mator_step_section[169][1], 1690001);
}

TEST_F(LensTable, AMissingFileNamesItselfAndTheWorkingDirectoryAndChangesNothing) {
    fill_table(7);
    mator_step_section[3][1] = 8;
    EXPECT_EQ(call([] { return ReadAFTXT(); }), READ_AFTXT_MISSING);
    EXPECT_EQ(output_,
              "Error: cannot open the lens table file \"zy_240408_tvk_update.csv\" in the working "
              "directory / (No such file or directory); the service cannot focus without it\r\n");
    EXPECT_EQ(TxtToDat[169][106], 7);
    EXPECT_EQ(mator_step_section[3][1], 8);
}

TEST_F(LensTable, ACellThatIsNotANumberNamesItsLineAndColumnAndChangesNothing) {
    fill_table(7);
    struct Case {
        std::string bad;
        std::string shown;
    };
    for (const Case& each :
         {Case{"abc", "abc"}, Case{"", ""}, Case{"99999999999", "99999999999"}, Case{"-", "-"}}) {
        std::string text = synthetic_table();
        // Line 3 (row 2), column 7.
        const std::string cell = std::to_string(20007);
        text.replace(text.find("," + cell + ",") + 1, cell.size(), each.bad);
        board().write_file(LENS_TABLE_FILE, text);
        EXPECT_EQ(call([] { return ReadAFTXT(); }), READ_AFTXT_NOT_NUMBER) << each.bad;
        EXPECT_EQ(output_,
                  "Error: the lens table file \"zy_240408_tvk_update.csv\" line 3 column 7: \"" +
                      each.shown + "\" is not a number; the lens table is not loaded\r\n");
        EXPECT_EQ(TxtToDat[0][0], 7) << "cells before the bad one are not taken either";
        EXPECT_EQ(mator_step_section[0][0], 0);
    }
}

TEST_F(LensTable, AShortFileFillsWhatItHasAndTheRestKeepsItsValues) {
    fill_table(7);
    board().write_file(LENS_TABLE_FILE, synthetic_table("\n", 2));
    EXPECT_EQ(call([] { return ReadAFTXT(); }), READ_AFTXT_OK);
    EXPECT_THAT(output_, HasSubstr("Warning: the lens table file \"zy_240408_tvk_update.csv\" ends "
                                   "at line 3 before row 2 column 0; the cells from there on keep "
                                   "their values\r\n"));
    EXPECT_EQ(TxtToDat[1][106], 10106);
    EXPECT_EQ(TxtToDat[2][0], 7);
    EXPECT_EQ(mator_step_section[1][1], 10001);
    EXPECT_EQ(mator_step_section[2][1], 7);
}

TEST_F(LensTable, TheLaserCalibrationCarriesOverToTheRowsBelowACalibratedOne) {
    board().write_file(LENS_TABLE_FILE, synthetic_table());
    laser_motor_calibration[0] = 0;            // row 0 not calibrated: no shift above row 10
    laser_motor_calibration[10] = 100005 + 7;  // row 10's column 5 is 100005
    laser_motor_calibration[30] = 300005 - 4;
    ASSERT_EQ(call([] { return ReadAFTXT(); }), READ_AFTXT_OK);

    for (int r = 0; r < 10; ++r) EXPECT_EQ(TxtToDat[r][5], 10000 * r + 5) << r;
    for (int r = 10; r < 30; ++r) {
        EXPECT_EQ(TxtToDat[r][0], 10000 * r + 7) << r;
        EXPECT_EQ(TxtToDat[r][106], 10000 * r + 106 + 7) << r;
    }
    for (int r = 30; r < LENS_TABLE_ROWS; ++r) EXPECT_EQ(TxtToDat[r][1], 10000 * r + 1 - 4) << r;
    EXPECT_EQ(TxtToDat[20][107], 0) << "column 107 is not shifted";
    EXPECT_EQ(mator_step_section[20][1], 200001 + 7) << "ranges come from the shifted table";
    EXPECT_THAT(output_, HasSubstr("\r\nmultiple20,source:100005,calibration:100012:\r\n"));
    EXPECT_THAT(output_, HasSubstr("\r\nmultiple40,source:300005,calibration:300001:\r\n"));
    EXPECT_THAT(output_, Not(HasSubstr("\r\nmultiple21,source")));
}

TEST(MultipleRow, TheMultiplesMapToTheirRowsAndTheEndsClamp) {
    EXPECT_EQ(AppSetMultipleSectionRelation(1.0f), 0);
    EXPECT_EQ(AppSetMultipleSectionRelation(1.1f), 1);
    EXPECT_EQ(AppSetMultipleSectionRelation(1.7f), 7);
    EXPECT_EQ(AppSetMultipleSectionRelation(3.5f), 25);
    EXPECT_EQ(AppSetMultipleSectionRelation(11.0f), 100);
    EXPECT_EQ(AppSetMultipleSectionRelation(17.9f), 169);
    // Every multiple the zoom can be asked for, also with the 0.0001 the zoom requests add.
    for (int r = 0; r < LENS_TABLE_ROWS; ++r) {
        const float multiple = static_cast<float>(r + 10) / 10.0f;
        EXPECT_EQ(AppSetMultipleSectionRelation(multiple), r) << multiple;
        EXPECT_EQ(AppSetMultipleSectionRelation(multiple + 0.0001f), r) << multiple;
    }
    EXPECT_EQ(AppSetMultipleSectionRelation(0.5f), 0);
    EXPECT_EQ(AppSetMultipleSectionRelation(-3.0f), 0);
    EXPECT_EQ(AppSetMultipleSectionRelation(18.0f), 169);
    EXPECT_EQ(AppSetMultipleSectionRelation(1e30f), 169);
    EXPECT_EQ(AppSetMultipleSectionRelation(std::nanf("")), 0);
}

}  // namespace
}  // namespace zoomaf::test
