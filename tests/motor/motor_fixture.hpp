// A fresh twin board per test, installed behind a recorder, and a driver in its start-up
// state. Helpers bring the driver up the way the service does and capture its messages.
#pragma once

#include "tests/support/captured_output.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "twin/board.hpp"
#include "twin/recording_platform.hpp"
#include "zoomaf/lib_motor.h"

namespace zoomaf::test {

using twin::RecordingPlatform;

inline constexpr uint16_t kChipSelect = 120;
inline constexpr uint16_t kVd = 26;
inline constexpr uint16_t kZoomPi = 22;
inline constexpr uint16_t kFocusPi = 24;

class MotorTest : public ::testing::Test {
protected:
    void SetUp() override {
        board_ = std::make_unique<twin::Board>(board_config());
        recorder_ = std::make_unique<RecordingPlatform>(*board_);
        install_platform(recorder_.get());
        reset_driver();
    }

    void TearDown() override {
        if (gSpiDev.fd >= 0) platform().close(gSpiDev.fd);
        gSpiDev.fd = -1;
        install_platform(nullptr);
    }

    virtual twin::BoardConfig board_config() { return {}; }

    static void reset_driver() {
        std::memset(&gRunData, 0, sizeof gRunData);
        std::memset(old_error_step, 0, sizeof old_error_step);
        run_times = 0;
        reg_addr_psum_f = 0x24;
        reg_addr_intct_f = 0x25;
        reg_addr_psum_z = 0x29;
        reg_addr_intct_z = 0x2A;
        gSpiDev.fd = -1;
    }

    // InitAttr, InitSpi, InitGPIO and InitReg, as initialisation does them.
    void bring_up(uint8_t motor_id = 1) {
        quietly([&] {
            InitAttr(10);
            ASSERT_EQ(InitSpi(), 0);
            InitGPIO(motor_id);
            InitReg();
        });
        board().clear_register_writes();
        recorder().clear();
    }

    twin::Board& board() { return *board_; }
    RecordingPlatform& recorder() { return *recorder_; }

private:
    std::unique_ptr<twin::Board> board_;
    std::unique_ptr<RecordingPlatform> recorder_;
};

}  // namespace zoomaf::test
