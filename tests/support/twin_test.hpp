// The shared fixture of every test that runs the service on the twin.
//
// Per test: a fresh twin board (board_config() chooses it), installed as the platform behind
// a RecordingPlatform; every global of the service back at its load-time value; the fatal
// signal handlers the service installs put back afterwards. call() runs a service call and
// keeps what it printed in output_.
//
// Strict by default, checked in TearDown:
// - no fault recorded by the emulated hardware (timing, chip select, frame length, I2C
//   misuse) unless the test declared its kind with expect_fault(kind); a declared kind must
//   then be recorded at least once;
// - no descriptor left open on the board (the SPI device the motor driver keeps open for
//   the life of the process is closed first, as UnInitmotor would);
// - the service lock and the self-study write lock are free;
// - after the test's moves, the driver's position of each motor that moved (GetCurSteps)
//   is the motor's physical position, unless the test allowed an error with
//   expect_position_error(steps).
//
//     class MyTest : public TwinTest {};
//     TEST_F(MyTest, ChipSelectMisuseIsSeen) {
//         expect_fault(twin::FaultKind::chip_not_selected);
//         ...
//     }
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

// Every global of the service (state, motor driver, sensor, channels, service) back at the
// value it had when the program was loaded. The self-study memory stays allocated, cleared,
// so that tests do not leak it.
void reset_service_globals();

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

    // ---- what the test provokes on purpose ----
    void expect_fault(twin::FaultKind kind) { expected_faults_.insert(kind); }
    // The driver's position may differ from a motor's by up to steps (homing stops up to
    // two steps past the edge; a backlash compensation turns beyond the target); -1: any.
    void expect_position_error(int steps = -1) { position_error_ = steps; }

    // The I2C device at bus/addr does not acknowledge its address for the next count
    // messages to it (-1: from now on), through its fault hook: an absent or dead chip.
    void unplug_i2c(int bus, int addr, int count = -1) {
        board().inject({.op = twin::FaultRule::Op::transfer,
                        .target = twin::i2c_device_name(bus, addr),
                        .error = ENXIO,
                        .count = count});
    }

    // ---- what is at a data file's path ----
    // Replaces whatever is at the board path by a file of text, a directory, a FIFO or a
    // link to /dev/zero.
    void place(const char* path, Placed what, const std::string& text = {});

    // ---- running the service ----
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

    // ---- the board ----
    twin::Board& board() { return *board_; }
    twin::RecordingPlatform& recorder() { return *recorder_; }
    template <class Face, class... Args>
    decltype(auto) with(Args&&... args) {
        return board_->with<Face>(std::forward<Args>(args)...);
    }
    // The motor driver brought up as Initmotor does it (InitAttr, InitSpi, InitGPIO for this
    // motor id, InitReg), quietly; the chip's register writes and the recorder cleared after.
    void bring_up_driver(uint8_t motor_id = 1);
    // The faces tests read most.
    int motor_at(twin::Motor motor);
    void place_motor(twin::Motor motor, int position);  // the motor only, not the driver
    uint16_t chip_reg(int addr);
    uint64_t vd_pulses();
    uint8_t sensor_reg(uint16_t addr);  // the IMX586 register in effect
    // Every byte the IMX586 stored from the bus, in order: (register, value).
    std::vector<std::pair<uint16_t, uint8_t>> sensor_writes();
    std::vector<twin::I2cTransferRecord> i2c_transfers(int bus);
    uint64_t slept_ns();
    size_t recorded(twin::FaultKind kind);

    // ---- the focus service started as the bench starts it ----
    // The lens table and the DCC file from data/ loaded, the laser channel attached and the
    // sensor set up for the day focus (InitPDSetting), quietly.
    void start_focus_service();
    // The motor driver initialised, both motors homed from where the board put them, then
    // zoomed to multiple with its 10 m focus step (VerificationSetMotordevInit), quietly.
    // Homing stops up to 2 steps past the edge: that position error is allowed from here on.
    void start_motors(float multiple);
    // The laser measuring a subject at decimetres (LASER_NO_ECHO: no echo), its first
    // reading published; the reader's jump filter starts from that distance. The laser is
    // the fixture's: laser_off() or the end of the test removes it.
    twin::Laser& laser_on(uint16_t decimetres);
    void laser_off() { laser_.reset(); }
    // The focus motor's physical position minus the lens model's in-focus step for a subject
    // at distance_m at the zoom motor's physical position, rounded.
    int focus_error(double distance_m);

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
