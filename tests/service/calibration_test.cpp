// The unit's calibration files: the laser table calibration (missing, malformed, present),
// the motor offset file and the PD offset file (present, empty, missing, unreadable).
#include <gmock/gmock.h>

#include "tests/service/service_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

using Calibration = ServiceTest;

TEST_F(Calibration, TheLaserCalibrationIsTakenWhenWholeAndEveryRowIsPrinted) {
    laser_motor_calibration[3] = 55;
    EXPECT_EQ(call(ReadLaserCalibration), -1);
    EXPECT_THAT(output_, StartsWith("Error:open laser calibration file fail!\r\n"
                                    "multipleindex:10,laser calibration motor:0\r\n"));
    EXPECT_THAT(output_, HasSubstr("multipleindex:13,laser calibration motor:55\r\n"));
    EXPECT_EQ(occurrences(output_, ",laser calibration motor:"), LENS_TABLE_ROWS);

    board().write_file(LASER_CALIBRATION_FILE, "5\n6\nx12\n7\n");
    EXPECT_EQ(call(ReadLaserCalibration), -1);
    EXPECT_THAT(output_, StartsWith("Error: the laser calibration file "
                                    "/usr/hx7/calibration/lasertable_calibration.cfg line 3 (row "
                                    "2): \"x12\" is not a number; the laser calibration is not "
                                    "used\r\n"));
    EXPECT_EQ(laser_motor_calibration[0], 0) << "nothing of the file is taken";

    // "12x": 12 is read, 'x' is its separator, and the line end is skipped as white space.
    board().write_file(LASER_CALIBRATION_FILE, "0\n0\n12x\n7\n");
    laser_motor_calibration[4] = 9;
    EXPECT_EQ(call(ReadLaserCalibration), 0);
    EXPECT_EQ(laser_motor_calibration[2], 12);
    EXPECT_EQ(laser_motor_calibration[3], 7);
    EXPECT_EQ(laser_motor_calibration[4], 9) << "a short file leaves the rest";
    EXPECT_THAT(output_, HasSubstr("ends before row 4"));

    board().write_file(LASER_CALIBRATION_FILE, data_file("calibration/lasertable_calibration.cfg"));
    EXPECT_EQ(call(ReadLaserCalibration), 0);
    EXPECT_EQ(laser_motor_calibration[25], 2984);
    EXPECT_EQ(laser_motor_calibration[100], -1854);
    EXPECT_THAT(output_, HasSubstr("multipleindex:35,laser calibration motor:2984\r\n"));
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
    board().inject({.op = twin::FaultRule::Op::fopen, .path = PD_CALIBRATION_FILE});
    EXPECT_EQ(call(pd_init_calibration), 0);
    EXPECT_EQ(pd_calibration_value, 0) << "a file that cannot be read gives 0";

    int32_t untouched = 5;
    EXPECT_EQ(get_pd_calibration_step("/usr/hx7/calibration/none.cfg", &untouched), 0);
    EXPECT_EQ(untouched, 5);
}

}  // namespace
}  // namespace zoomaf::test
