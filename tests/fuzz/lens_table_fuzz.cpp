// libFuzzer target of the lens table reader (ReadAFTXT): the input is the file, after one
// byte that chooses what is at the table's path (mostly a regular file). Besides the
// sanitizers' checks: a refused table changes nothing, a loaded one gives the focus ranges
// of its rows, and the column the file has no room for stays as it was.
#include <cstdint>
#include <cstring>

#include "tests/fuzz/fuzz_platform.hpp"
#include "zoomaf/app_pdaf.h"

namespace {
int32_t before[LENS_TABLE_ROWS][LENS_TABLE_COLUMNS];
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zoomaf::fuzz;
    FuzzPlatform& board = fuzz_platform();
    Input in(data, size);
    const FuzzPlatform::FileKind kind = file_kind(in.byte());
    board.set_file(LENS_TABLE_FILE, in.rest(), kind);

    // Two calibrated rows, so that the calibration's carry-over runs on what was read.
    std::memset(TxtToDat, 0x11, sizeof TxtToDat);
    std::memset(laser_motor_calibration, 0, sizeof laser_motor_calibration);
    laser_motor_calibration[10] = 1000;
    laser_motor_calibration[30] = -7;
    std::memcpy(before, TxtToDat, sizeof before);

    const int32_t result = ReadAFTXT();
    std::fflush(stdout);
    require(result == READ_AFTXT_OK || result == READ_AFTXT_NOT_NUMBER ||
            result == READ_AFTXT_UNREADABLE);
    if (result != READ_AFTXT_OK) {
        require(std::memcmp(before, TxtToDat, sizeof before) == 0);
        return 0;
    }
    require(kind != FuzzPlatform::FileKind::directory && kind != FuzzPlatform::FileKind::fifo);
    for (int row = 0; row < LENS_TABLE_ROWS; ++row) {
        require(TxtToDat[row][LENS_TABLE_COLUMNS - 1] == before[row][LENS_TABLE_COLUMNS - 1]);
        require(mator_step_section[row][0] == TxtToDat[row][106]);
        require(mator_step_section[row][1] == TxtToDat[row][1]);
        require(template_mator_step_section[row][2] == TxtToDat[row][106]);
    }
    return 0;
}
