// libFuzzer target of the calibration file readers: the first byte chooses the laser table
// calibration (ReadLaserCalibration) or the PD offset (pd_init_calibration), the second what
// is at the file's path; the rest is the file. Besides the sanitizers' checks: a refused
// laser calibration changes nothing, and the PD offset is 0 whenever the file cannot be used.
#include <cstdint>
#include <cstring>

#include "tests/fuzz/fuzz_platform.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/service_state.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zoomaf::fuzz;
    FuzzPlatform& board = fuzz_platform();
    Input in(data, size);
    const bool laser_table = in.byte() % 2 == 0;
    const FuzzPlatform::FileKind kind = file_kind(in.byte());
    board.set_file(laser_table ? LASER_CALIBRATION_FILE : PD_CALIBRATION_FILE, in.rest(), kind);

    if (laser_table) {
        int32_t before[LENS_TABLE_ROWS];
        for (int row = 0; row < LENS_TABLE_ROWS; ++row) before[row] = row * 3 - 100;
        std::memcpy(laser_motor_calibration, before, sizeof before);
        const int32_t result = ReadLaserCalibration();
        require(result == 0 || result == -1);
        if (result != 0) require(std::memcmp(before, laser_motor_calibration, sizeof before) == 0);
        if (kind == FuzzPlatform::FileKind::directory) require(result == -1);
    } else {
        pd_calibration_value = 12345;
        require(pd_init_calibration() == 0);
        if (kind == FuzzPlatform::FileKind::directory || kind == FuzzPlatform::FileKind::fifo) {
            require(pd_calibration_value == 0);
        }
    }
    std::fflush(stdout);
    return 0;
}
