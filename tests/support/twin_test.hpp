// The shared fixture of every test that runs the service on the twin: a fresh board
// (board_config()) behind a RecordingPlatform, every global of the service at its load-time
// value, the service's fatal-signal handlers put back afterwards; call() keeps what a service
// call printed in output_. TearDown checks, for every test:
// - no fault recorded by the emulated hardware (timing, chip select, frame length, I2C
//   misuse) unless the test declared its kind with expect_fault(kind), which must then occur;
// - no descriptor left open on the board (the motor driver's SPI device closed first);
// - the service lock and the self-study write lock free;
// - the driver's position (GetCurSteps) of each motor that moved is the motor's physical
//   one, unless the test allowed an error with expect_position_error(steps).
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/captured_output.hpp"
#include "twin/kernel/recording_platform.hpp"
#include "twin/module/board.hpp"
#include "twin/module/laser.hpp"

namespace zoomaf::test {

// The content of a file shipped in data/ (a test failure when it cannot be read).
std::string data_file(const std::string& name);

// The service lock (motro_safe_lock) is free: taken and given back at once.
bool service_lock_free();

// What a test puts at a data file's path (TwinTest::place).
enum class Placed { text, directory, fifo, link_to_dev_zero };

class TwinTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // The board of every test of the class; override for another configuration.
    virtual twin::BoardConfig board_config() { return {}; }

    void expect_fault(twin::FaultKind kind) { expected_faults_.insert(kind); }
    // The driver's position may differ from a motor's by up to steps; -1: any.
    void expect_position_error(int steps = -1) { position_error_ = steps; }

    // The I2C device at bus/addr (an absent or dead chip) does not acknowledge its address for
    // the next count messages to it (-1: from now on).
    void unplug_i2c(int bus, int addr, int count = -1) {
        board().inject({.op = twin::FaultRule::Op::transfer,
                        .target = twin::i2c_device_name(bus, addr),
                        .error = ENXIO,
                        .count = count});
    }

    // Replaces whatever is at the board path.
    void place(const char* path, Placed what, const std::string& text = {});

    // Runs f and returns its result; what it printed is in output_.
    template <class F>
    auto call(F&& f) {
        if constexpr (std::is_void_v<decltype(f())>) {
            output_ = captured(std::forward<F>(f));
        } else {
            decltype(f()) result{};
            output_ = captured([&] { result = f(); });
            return result;
        }
    }
    std::string output_;

    twin::Board& board() { return *board_; }
    twin::RecordingPlatform& recorder() { return *recorder_; }
    template <class Face, class... Args>
    decltype(auto) with(Args&&... args) {
        return board_->with<Face>(std::forward<Args>(args)...);
    }
    // The motor driver brought up as Initmotor does it, quietly; the chip's register writes
    // and the recorder cleared after.
    void bring_up_driver(uint8_t motor_id = 1);
    int motor_at(twin::Motor motor);
    void place_motor(twin::Motor motor, int position);  // the motor only, not the driver
    uint16_t chip_reg(int addr);
    uint64_t vd_pulses();
    uint8_t sensor_reg(uint16_t addr);  // the IMX586 register in effect
    // Every byte the IMX586 stored from the bus, in order: (register, value).
    std::vector<std::pair<uint16_t, uint8_t>> sensor_writes();
    std::vector<twin::I2cTransferRecord> i2c_transfers(int bus);
    uint64_t slept_ns();

    // The focus service started as the bench starts it, quietly: the lens table and the DCC
    // file from data/ loaded, the laser channel attached, the sensor set up (InitPDSetting).
    void start_focus_service();
    // The motors homed and zoomed to multiple (VerificationSetMotordevInit), quietly; homing
    // stops up to 2 steps past the edge: that position error is allowed from here on.
    void start_motors(float multiple);
    // The fixture's laser measuring decimetres (LASER_NO_ECHO: no echo), its first reading
    // published and the reader's jump filter started from it; laser_off() removes it.
    twin::Laser& laser_on(uint16_t decimetres);
    void laser_off() { laser_.reset(); }

private:
    void check_recorded_faults();
    void check_positions();

    std::unique_ptr<twin::Board> board_;
    std::unique_ptr<twin::RecordingPlatform> recorder_;
    std::optional<twin::Laser> laser_;
    std::set<twin::FaultKind> expected_faults_;
    int position_error_ = 0;
    struct sigaction saved_handlers_[3] = {};
};

}  // namespace zoomaf::test
