// The start-up files: the lens table (read rule, carried-over laser calibration, derived
// focus ranges, refusals, the row of a multiple) and the unit's calibration files.
#include <gmock/gmock.h>
#include <cmath>
#include <cstring>

#include "tests/support/twin_test.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/lib_motor.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

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

class LensTable : public TwinTest {
protected:
    void SetUp() override {
        TwinTest::SetUp();
        for (auto& row : TxtToDat)
            for (int32_t& each : row) each = 7;
    }
};

// Rows 0..9 have no calibration; row 10's carries over to rows 11..29, row 30's to the end.
TEST_F(LensTable, TheTableLoadsShiftedByTheCalibrationCarriedOverRowsWithItsRanges) {
    laser_motor_calibration[10] = cell(10, 5) + 7;
    laser_motor_calibration[30] = cell(30, 5) - 4;
    for (const char* line_end : {"\n", "\r\n", ",\r\n", "\r"}) {
        SCOPED_TRACE(testing::PrintToString(line_end));
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

// What a broken file at a reader's path gives.
struct BrokenFile {
    const char* what;
    Placed kind;
    std::string text;
    int32_t result;
    const char* message;
};

// The synthetic table with one cell (line 3, column 7) replaced.
std::string with_cell(const std::string& cell) {
    return synthetic_table().replace(synthetic_table().find(",20007,") + 1, 5, cell);
}

TEST_F(LensTable, AMissingFileOrACellThatIsNotANumberChangesNothingAndSaysWhere) {
    EXPECT_EQ(call(ReadAFTXT), READ_AFTXT_MISSING);
    EXPECT_EQ(output_,
              "Error: cannot open the lens table file \"zy_240408_tvk_update.csv\" in the working "
              "directory / (No such file or directory); the service cannot focus without it\r\n");
    board().write_file(LENS_TABLE_FILE, with_cell("abc"));
    EXPECT_EQ(call(ReadAFTXT), READ_AFTXT_NOT_NUMBER);
    EXPECT_EQ(output_,
              "Error: the lens table file \"zy_240408_tvk_update.csv\" line 3 column 7: \"abc\" is "
              "not a number; the lens table is not loaded\r\n");
    EXPECT_EQ(TxtToDat[0][0], 7) << "cells before the bad one are not taken either";
    EXPECT_EQ(mator_step_section[0][0], 0);
}

TEST_F(LensTable, BrokenFilesAreRefusedWithLineAndColumnOrWhatTheyAre) {
    std::string long_line = synthetic_table(), short_line = synthetic_table();
    long_line.insert(long_line.find('\n', long_line.find("\n20000,") + 1), ",5");  // line 3
    short_line.erase(short_line.find(",20106\n"), 6);  // line 3 loses its last cell
    const int32_t bad = READ_AFTXT_NOT_NUMBER, unusable = READ_AFTXT_UNREADABLE;
    const BrokenFile cases[] = {
        {"point", Placed::text, with_cell("2872.5"), bad, "line 3 column 7: \"2872.5\" is not a"},
        {"exponent", Placed::text, with_cell("2.8e3"), bad, "line 3 column 7: \"2.8e3\""},
        {"two numbers", Placed::text, with_cell("12-3"), bad, "line 3 column 7: \"12-3\""},
        {"empty cell", Placed::text, with_cell(""), bad, "line 3 column 7: \"\" is not"},
        {"sign alone", Placed::text, with_cell("-"), bad, "line 3 column 7: \"-\" is not"},
        {"too big", Placed::text, with_cell("99999999999"), bad, "7: \"99999999999\" is not"},
        {"NUL", Placed::text, with_cell(std::string("12\0\x33", 4)), bad, "7: \"12\\x003\""},
        {"108th column", Placed::text, long_line, bad, "3 column 107: \"5\" is one column too"},
        {"short line", Placed::text, short_line, bad, "3 column 105: \"20105\" ends the line"},
        {"empty", Placed::text, " \r\n\n", unusable, "holds no numbers"},
        {"directory", Placed::directory, "", unusable, "cannot be used: it is a directory, not"},
        {"FIFO", Placed::fifo, "", unusable, "it is a FIFO, not a regular file"},
        {"/dev/zero", Placed::link_to_dev_zero, "", unusable, "it is a character device, not"},
        {"too large", Placed::text, std::string(1048577, '1'), unusable, "larger than 1048576"},
    };
    for (const BrokenFile& c : cases) {
        SCOPED_TRACE(c.what);
        place(LENS_TABLE_FILE, c.kind, c.text);
        EXPECT_EQ(call(ReadAFTXT), c.result);
        EXPECT_THAT(output_, HasSubstr(c.message));
        EXPECT_THAT(output_, HasSubstr("\"zy_240408_tvk_update.csv\""));
        EXPECT_EQ(TxtToDat[2][7], 7) << "the table is left as it was";
    }
    EXPECT_EQ(mator_step_section[0][0], 0);

    // A short file fills what it has; the rest keeps its values.
    board().write_file(LENS_TABLE_FILE, synthetic_table("\n", 2));
    EXPECT_EQ(call(ReadAFTXT), READ_AFTXT_OK);
    EXPECT_THAT(output_, HasSubstr("Warning: the lens table file \"zy_240408_tvk_update.csv\" ends "
                                   "at line 3 before row 2 column 0; the cells from there on keep "
                                   "their values\r\n"));
    EXPECT_EQ(TxtToDat[1][106], cell(1, 106));
    EXPECT_EQ(TxtToDat[2][0], 7);
    board().write_file(LENS_TABLE_FILE, synthetic_table() + "1,2,3\n");
    EXPECT_EQ(call(ReadAFTXT), READ_AFTXT_OK);
    EXPECT_THAT(output_, HasSubstr("holds more than 170 rows; line 171 on is not read"));
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

using Calibration = TwinTest;

TEST_F(Calibration, TheLaserCalibrationIsTakenWhenWholeAndEveryRowIsPrinted) {
    laser_motor_calibration[3] = 55;
    EXPECT_EQ(call(ReadLaserCalibration), -1);
    EXPECT_THAT(output_, StartsWith("Error:open laser calibration file fail!\r\n"
                                    "multipleindex:10,laser calibration motor:0\r\n"));
    EXPECT_THAT(output_, HasSubstr("multipleindex:13,laser calibration motor:55\r\n"));
    EXPECT_EQ(occurrences(output_, ",laser calibration motor:"), LENS_TABLE_ROWS);

    board().write_file(LASER_CALIBRATION_FILE, "0\n0\n12\n7\n");
    laser_motor_calibration[4] = 9;
    EXPECT_EQ(call(ReadLaserCalibration), 0);
    EXPECT_EQ(laser_motor_calibration[2], 12);
    EXPECT_EQ(laser_motor_calibration[3], 7);
    EXPECT_EQ(laser_motor_calibration[4], 9) << "a short file leaves the rest";
    EXPECT_THAT(output_, HasSubstr("ends before row 4"));
}

TEST_F(Calibration, BrokenCalibrationFilesAreRefusedAndChangeNothing) {
    const BrokenFile cases[] = {
        {"junk", Placed::text, "5\n12x\n", -1,
         "Error: the laser calibration file /usr/hx7/calibration/lasertable_calibration.cfg line "
         "2 (row 1): \"12x\" is not a number; the laser calibration is not used\r\n"},
        {"point", Placed::text, "5,2872.5\n", -1, "line 1 (row 1): \"2872.5\""},
        {"directory", Placed::directory, "", -1, "cannot be used: it is a directory, not a"},
        {"too large", Placed::text, std::string(65537, '\n'), -1, "larger than 65536 bytes"},
    };
    laser_motor_calibration[1] = 44;
    for (const BrokenFile& c : cases) {
        SCOPED_TRACE(c.what);
        place(LASER_CALIBRATION_FILE, c.kind, c.text);
        EXPECT_EQ(call(ReadLaserCalibration), c.result);
        EXPECT_THAT(output_, HasSubstr(c.message));
        EXPECT_EQ(laser_motor_calibration[0], 0);
        EXPECT_EQ(laser_motor_calibration[1], 44);
    }
    place(LASER_CALIBRATION_FILE, Placed::text, "1\n2\n");
    board().inject({.op = twin::FaultRule::Op::read, .target = LASER_CALIBRATION_FILE});
    EXPECT_EQ(call(ReadLaserCalibration), -1);
    EXPECT_THAT(output_, HasSubstr("cannot read it: Input/output error"));
    EXPECT_EQ(laser_motor_calibration[1], 44);

    // The PD offset: a file that cannot be used is an error and the offset stays 0.
    place(PD_CALIBRATION_FILE, Placed::directory);
    pd_calibration_value = 9;
    EXPECT_EQ(call(pd_init_calibration), 0);
    EXPECT_THAT(output_, HasSubstr("Error: the PD calibration file "
                                   "/usr/hx7/calibration/pd_calibration.cfg cannot be used: "));
    EXPECT_THAT(output_, HasSubstr("Error:get pd calibration offset step error!\r\n"));
    EXPECT_EQ(pd_calibration_value, 0);
}

TEST_F(Calibration, AMotorCalibrationFileResetsTheRangesToTheTemplateWithOffsetZero) {
    for (int r = 0; r < LENS_TABLE_ROWS; ++r) {
        template_mator_step_section[r][0] = template_mator_step_section[r][2] = -r;
        template_mator_step_section[r][1] = r;
        mator_step_section[r][1] = 12345;
    }
    EXPECT_EQ(call(motor_init_calibration), 0);
    EXPECT_EQ(output_, "\r\nstart motor no need to calibration\r\n");
    EXPECT_EQ(mator_step_section[5][1], 12345);

    calibration_offset_step = 40;
    board().write_file(MOTOR_CALIBRATION_FILE, "7\n");  // the file's content is not read
    EXPECT_EQ(call(motor_init_calibration), 0);
    EXPECT_THAT(output_, StartsWith("\r\nbegin to calibration\r\n"
                                    "motor need calibration offsetstep is 0\r\n"
                                    "multiple:10, 0,0,0\r\n"
                                    "multiple:11, -1,1,-1\r\n"));
    EXPECT_EQ(occurrences(output_, "multiple:"), LENS_TABLE_ROWS);
    EXPECT_EQ(calibration_offset_step, 0);
    EXPECT_EQ(
        std::memcmp(mator_step_section, template_mator_step_section, sizeof mator_step_section), 0);
}

TEST_F(Calibration, ThePdOffsetIsTheLeadingIntegerOfItsFileAndOtherwiseZero) {
    pd_calibration_value = 99;
    EXPECT_EQ(call(pd_init_calibration), 0);
    EXPECT_EQ(output_, "\r\nstart pd no need to calibration\r\n");
    EXPECT_EQ(pd_calibration_value, 0);

    board().write_file(PD_CALIBRATION_FILE, data_file("calibration/pd_calibration.cfg"));
    EXPECT_EQ(call(pd_init_calibration), 0);
    EXPECT_EQ(output_, "\r\nbegin to calibration pd\r\npd need calibration offsetstep is -12\r\n");
    EXPECT_EQ(pd_calibration_value, -12);

    const std::pair<const char*, int32_t> cases[] = {
        {"", 0},
        {"  +7 steps", 7},
        {"00000000000000012345", 1},  // the 17th byte on is not read
        {"99999999999", INT32_MAX},   // saturated, not overflowed
        {"x5", 0}};
    for (auto [content, value] : cases) {
        board().write_file(PD_CALIBRATION_FILE, content);
        EXPECT_EQ(call(pd_init_calibration), 0);
        EXPECT_EQ(pd_calibration_value, value) << content;
    }

    board().write_file(PD_CALIBRATION_FILE, "-12");
    board().inject({.op = twin::FaultRule::Op::open, .target = PD_CALIBRATION_FILE});
    EXPECT_EQ(call(pd_init_calibration), 0);
    EXPECT_EQ(pd_calibration_value, 0) << "a file that cannot be read gives 0";

    int32_t untouched = 5;
    EXPECT_EQ(get_pd_calibration_step("/usr/hx7/calibration/none.cfg", &untouched), 0);
    EXPECT_EQ(untouched, 5);
}

}  // namespace
}  // namespace zoomaf::test
