// The lens motors behind the driver chip: VD edges, direction sense per module type, end
// stops, pulse timing and the photo-interrupters.
#include "board_io.hpp"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

constexpr uint8_t kPsumAB = 0x24, kIntctAB = 0x25, kPsumCD = 0x29, kIntctCD = 0x2A;
constexpr uint16_t kDirection = 0x100;

// A board with chip select and VD exported as outputs and the SPI device open, driven the
// way the motor driver drives it.
class MotorRig {
public:
    explicit MotorRig(BoardConfig config = {}) : board(std::move(config)) {
        test::make_output(board, Board::kChipSelectGpio);
        test::make_output(board, Board::kVdGpio);
        fd = test::open_spi(board);
    }
    // Programs a channel for the next VD period (psum register keeps the 0x1C high byte).
    void program(uint8_t psum_reg, uint8_t intct_reg, unsigned psum, bool dir, uint16_t intct) {
        test::chip_frame(board, fd, psum_reg,
                         static_cast<uint16_t>(0x1C00 | (dir ? kDirection : 0) | psum));
        test::chip_frame(board, fd, intct_reg, intct);
    }
    void stop(uint8_t psum_reg, uint8_t intct_reg) { program(psum_reg, intct_reg, 0, false, 0); }
    void vd() { test::vd_pulse(board); }

    Board board;
    int fd = -1;
};

struct SenseCase {
    DriverType driver;
    uint8_t psum_reg, intct_reg;
    bool dir;
    Motor moved;
    int delta;
};

class MotorSense : public ::testing::TestWithParam<SenseCase> {};

TEST_P(MotorSense, VdEdgeMovesTheWiredMotorByPsumInItsSense) {
    const SenseCase c = GetParam();
    MotorRig rig(BoardConfig{.driver = c.driver, .zoom_start = 0, .focus_start = 0});
    rig.program(c.psum_reg, c.intct_reg, 16, c.dir, 400);
    rig.vd();
    const Motor other = c.moved == Motor::zoom ? Motor::focus : Motor::zoom;
    EXPECT_EQ(rig.board.motor_position(c.moved), c.delta);
    EXPECT_EQ(rig.board.motor_position(other), 0);
    EXPECT_EQ(rig.board.motor_steps_moved(c.moved), 16u);
    EXPECT_EQ(rig.board.vd_pulses(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    BothModules, MotorSense,
    ::testing::Values(
        // MS41928: AB drives focus, CD drives zoom.
        SenseCase{DriverType::ms41928, kPsumAB, kIntctAB, true, Motor::focus, +16},
        SenseCase{DriverType::ms41928, kPsumAB, kIntctAB, false, Motor::focus, -16},
        SenseCase{DriverType::ms41928, kPsumCD, kIntctCD, true, Motor::zoom, -16},
        SenseCase{DriverType::ms41928, kPsumCD, kIntctCD, false, Motor::zoom, +16},
        // MS41908: the channels are swapped, the sense per motor stays.
        SenseCase{DriverType::ms41908, kPsumAB, kIntctAB, true, Motor::zoom, -16},
        SenseCase{DriverType::ms41908, kPsumAB, kIntctAB, false, Motor::zoom, +16},
        SenseCase{DriverType::ms41908, kPsumCD, kIntctCD, true, Motor::focus, +16},
        SenseCase{DriverType::ms41908, kPsumCD, kIntctCD, false, Motor::focus, -16}));

TEST(MotorDrive, OnlyRisingEdgesMoveAndBothChannelsShareOne) {
    MotorRig rig(BoardConfig{.zoom_start = 100, .focus_start = 100});
    rig.program(kPsumAB, kIntctAB, 8, true, 400);   // focus +8
    rig.program(kPsumCD, kIntctCD, 16, true, 400);  // zoom -16
    test::set_value(rig.board, Board::kVdGpio, 1);
    test::set_value(rig.board, Board::kVdGpio, 1);  // still high: no second edge
    EXPECT_EQ(rig.board.motor_position(Motor::focus), 108);
    EXPECT_EQ(rig.board.motor_position(Motor::zoom), 84);
    test::set_value(rig.board, Board::kVdGpio, 0);
    EXPECT_EQ(rig.board.motor_position(Motor::focus), 108) << "a falling edge moves nothing";
    EXPECT_EQ(rig.board.vd_pulses(), 1u);

    rig.board.advance_ns(10'000'000);
    rig.stop(kPsumCD, kIntctCD);
    rig.vd();
    EXPECT_EQ(rig.board.motor_position(Motor::focus), 116);
    EXPECT_EQ(rig.board.motor_position(Motor::zoom), 84) << "psum 0 does not move";
}

TEST(MotorDrive, EndStopsHoldTheMotorsAndCountTheLostPulses) {
    MotorRig rig(BoardConfig{.zoom_start = -5425, .focus_start = 3015});
    rig.program(kPsumAB, kIntctAB, 16, true, 400);  // focus up
    rig.program(kPsumCD, kIntctCD, 16, true, 400);  // zoom down
    rig.vd();
    EXPECT_EQ(rig.board.motor_position(Motor::focus), 3022);
    EXPECT_EQ(rig.board.clamped_pulses(Motor::focus), 9u);
    EXPECT_EQ(rig.board.motor_steps_moved(Motor::focus), 7u);
    EXPECT_EQ(rig.board.motor_position(Motor::zoom), -5430);
    EXPECT_EQ(rig.board.clamped_pulses(Motor::zoom), 11u);

    rig.board.advance_ns(10'000'000);
    rig.vd();
    EXPECT_EQ(rig.board.motor_position(Motor::focus), 3022);
    EXPECT_EQ(rig.board.clamped_pulses(Motor::focus), 25u);
    EXPECT_THROW(rig.board.set_motor_position(Motor::focus, 3023), std::out_of_range);
    EXPECT_THROW(rig.board.set_motor_position(Motor::zoom, -5431), std::out_of_range);
    EXPECT_THROW(Board(BoardConfig{.zoom_start = 1607}), std::out_of_range);
}

TEST(MotorDrive, StartPositionsAreSeededInsideTheRanges) {
    Board a(BoardConfig{.seed = 7});
    Board b(BoardConfig{.seed = 7});
    EXPECT_EQ(a.motor_position(Motor::zoom), b.motor_position(Motor::zoom));
    EXPECT_EQ(a.motor_position(Motor::focus), b.motor_position(Motor::focus));
    bool any_differs = false;
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        Board board(BoardConfig{.seed = seed});
        const int zoom = board.motor_position(Motor::zoom);
        const int focus = board.motor_position(Motor::focus);
        EXPECT_GE(zoom, LensMotor::kZoomMin);
        EXPECT_LE(zoom, LensMotor::kZoomMax);
        EXPECT_GE(focus, LensMotor::kFocusMin);
        EXPECT_LE(focus, LensMotor::kFocusMax);
        any_differs = any_differs || zoom != a.motor_position(Motor::zoom);
    }
    EXPECT_TRUE(any_differs);
    Board placed(BoardConfig{.seed = 7, .focus_start = -12});
    EXPECT_EQ(placed.motor_position(Motor::focus), -12);
    EXPECT_EQ(placed.motor_position(Motor::zoom), a.motor_position(Motor::zoom))
        << "placing one motor leaves the other's draw alone";
}

TEST(MotorTiming, VdBeforeThePulsesFinishIsATimingFault) {
    MotorRig rig(BoardConfig{.zoom_start = 0, .focus_start = 0});
    const uint64_t pulses = DriverChip::pulse_time_ns(16, 400);
    EXPECT_EQ(pulses, 5688889u) << "16 * 400 * 24 / 27 MHz";
    rig.program(kPsumAB, kIntctAB, 16, true, 400);
    rig.vd();
    rig.board.advance_ns(pulses - 1000);
    rig.vd();
    EXPECT_EQ(rig.board.timing_faults(), 1u);
    const auto faults = rig.board.faults();
    ASSERT_EQ(faults.size(), 1u);
    EXPECT_EQ(faults[0].kind, FaultKind::timing);
    EXPECT_EQ(faults[0].time_ns, rig.board.gpio_edges(Board::kVdGpio).back().time_ns)
        << "recorded at the early edge";
}

TEST(MotorTiming, VdAfterThePulsesFinishIsFine) {
    MotorRig rig(BoardConfig{.zoom_start = 0, .focus_start = 0});
    rig.program(kPsumAB, kIntctAB, 16, true, 400);
    rig.program(kPsumCD, kIntctCD, 8, false, 400);
    for (int period = 0; period < 5; ++period) {
        rig.vd();
        rig.board.advance_ns(DriverChip::pulse_time_ns(16, 400));  // exactly long enough
    }
    EXPECT_EQ(rig.board.timing_faults(), 0u);
    EXPECT_EQ(rig.board.motor_position(Motor::focus), 80);
    EXPECT_EQ(rig.board.motor_position(Motor::zoom), 40);
}

TEST(MotorTiming, WritingAChannelWhileItsPulsesRunIsATimingFault) {
    MotorRig rig(BoardConfig{.zoom_start = 0, .focus_start = 0});
    rig.program(kPsumAB, kIntctAB, 16, true, 400);
    rig.vd();
    rig.board.advance_ns(1'000'000);
    rig.program(kPsumCD, kIntctCD, 8, true, 400);  // the idle channel: fine
    EXPECT_EQ(rig.board.timing_faults(), 0u);
    test::chip_read(rig.board, rig.fd, kPsumAB);  // reading is fine too
    EXPECT_EQ(rig.board.timing_faults(), 0u);
    rig.stop(kPsumAB, kIntctAB);  // two writes to the running channel
    EXPECT_EQ(rig.board.timing_faults(), 2u);
    rig.board.advance_ns(5'000'000);
    rig.stop(kPsumAB, kIntctAB);
    EXPECT_EQ(rig.board.timing_faults(), 2u);
}

struct PiCase {
    DriverType driver;
    int active_low;  // what the driver sets for this module type
};

class PhotoInterrupter : public ::testing::TestWithParam<PiCase> {};

TEST_P(PhotoInterrupter, ReadsOneOnThePositiveSideOnceActiveLowIsSet) {
    const PiCase c = GetParam();
    MotorRig rig(BoardConfig{.driver = c.driver, .zoom_start = 5, .focus_start = -1});
    for (int line : {Board::kZoomPiGpio, Board::kFocusPiGpio}) {
        test::export_line(rig.board, line);
        test::write_path(rig.board, test::gpio_file(line, "active_low"), c.active_low ? "1" : "0");
    }
    const std::string zoom_value = test::gpio_file(Board::kZoomPiGpio, "value");
    const std::string focus_value = test::gpio_file(Board::kFocusPiGpio, "value");
    EXPECT_EQ(test::read_path(rig.board, zoom_value), "1\n");
    EXPECT_EQ(test::read_path(rig.board, focus_value), "0\n");
    // The raw line of an MS41908 module is inverted.
    EXPECT_EQ(rig.board.gpio_physical(Board::kZoomPiGpio), c.active_low ? 0 : 1);

    rig.board.set_motor_position(Motor::zoom, -1);
    rig.board.set_motor_position(Motor::focus, 0);
    EXPECT_EQ(test::read_path(rig.board, zoom_value), "0\n");
    EXPECT_EQ(test::read_path(rig.board, focus_value), "1\n") << "position 0 is the positive side";
}

INSTANTIATE_TEST_SUITE_P(BothModules, PhotoInterrupter,
                         ::testing::Values(PiCase{DriverType::ms41928, 0},
                                           PiCase{DriverType::ms41908, 1}));

TEST(PhotoInterrupterEdge, CrossingByVdIsRecordedOnThePiLine) {
    MotorRig rig(BoardConfig{.zoom_start = 500, .focus_start = -10});
    rig.program(kPsumAB, kIntctAB, 8, true, 400);  // focus up by 8 per period
    rig.vd();
    EXPECT_TRUE(rig.board.gpio_edges(Board::kFocusPiGpio).empty()) << "-2 is still negative";
    rig.board.advance_ns(10'000'000);
    rig.vd();
    const auto edges = rig.board.gpio_edges(Board::kFocusPiGpio);
    ASSERT_EQ(edges.size(), 1u);
    EXPECT_EQ(edges[0].level, 1);
    EXPECT_EQ(edges[0].time_ns, rig.board.now_ns());
    EXPECT_TRUE(rig.board.gpio_edges(Board::kZoomPiGpio).empty());
}

TEST(PhotoInterrupterEdge, AStuckLineIgnoresTheMotorUntilReleased) {
    MotorRig rig(BoardConfig{.zoom_start = -300});
    test::export_line(rig.board, Board::kZoomPiGpio);
    const std::string value = test::gpio_file(Board::kZoomPiGpio, "value");
    rig.board.set_pi_stuck(Motor::zoom, 1);
    EXPECT_EQ(test::read_path(rig.board, value), "1\n");
    rig.board.set_motor_position(Motor::zoom, 300);
    rig.board.set_pi_stuck(Motor::zoom, 0);
    EXPECT_EQ(test::read_path(rig.board, value), "0\n");
    rig.board.set_pi_stuck(Motor::zoom, std::nullopt);
    EXPECT_EQ(test::read_path(rig.board, value), "1\n");
}

}  // namespace
}  // namespace zoomaf::twin
