// The lens motors behind the driver chip: VD edges, direction sense per module type, end
// stops, pulse timing and the photo-interrupters.
#include "board_io.hpp"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

constexpr uint8_t kPsumAB = 0x24, kPsumCD = 0x29;  // intct follows each at +1

struct MotorRig : test::Rig {
    using Rig::Rig;
    // Programs a channel for the next VD period (psum register keeps the 0x1C high byte).
    void program(uint8_t psum_reg, unsigned psum, bool dir, uint16_t intct = 400) {
        test::chip_frame(board, spi, psum_reg,
                         static_cast<uint16_t>(0x1C00 | (dir ? 0x100 : 0) | psum));
        test::chip_frame(board, spi, static_cast<uint8_t>(psum_reg + 1), intct);
    }
    int at(Motor m) const { return board.motor_position(m); }
};

TEST(MotorDrive, VdEdgeMovesEachWiredMotorByPsumInItsSense) {
    // AB gets psum 16 and a direction, CD psum 8 and the other one. MS41928: AB drives
    // focus, CD zoom; MS41908 swaps them. Bit 8 set moves focus up and zoom down.
    const struct {
        DriverType driver;
        bool ab_dir;
        std::pair<int, int> focus_zoom;
    } cases[] = {{DriverType::ms41928, true, {+16, +8}},
                 {DriverType::ms41928, false, {-16, -8}},
                 {DriverType::ms41908, true, {-8, -16}},
                 {DriverType::ms41908, false, {+8, +16}}};
    for (const auto& c : cases) {
        MotorRig rig(BoardConfig{.driver = c.driver, .zoom_start = 0, .focus_start = 0});
        rig.program(kPsumAB, 16, c.ab_dir);
        rig.program(kPsumCD, 8, !c.ab_dir);
        rig.vd();
        EXPECT_EQ(std::pair(rig.at(Motor::focus), rig.at(Motor::zoom)), c.focus_zoom)
            << "MS419" << (c.driver == DriverType::ms41908 ? "08" : "28") << " AB dir " << c.ab_dir;
    }
}

TEST(MotorDrive, OnlyRisingEdgesMoveAndPsumZeroStays) {
    MotorRig rig(BoardConfig{.zoom_start = 100, .focus_start = 100});
    rig.program(kPsumAB, 8, true);   // focus +8
    rig.program(kPsumCD, 16, true);  // zoom -16
    for (int level : {1, 1, 0})      // one rising edge: staying high or falling moves nothing
        test::set_value(rig.board, Board::kVdGpio, level);
    EXPECT_EQ(rig.at(Motor::focus), 108);
    EXPECT_EQ(rig.at(Motor::zoom), 84);
    EXPECT_EQ(rig.board.vd_pulses(), 1u);

    rig.board.advance_ns(10'000'000);
    rig.program(kPsumCD, 0, false, 0);
    rig.vd();
    EXPECT_EQ(rig.at(Motor::focus), 116);
    EXPECT_EQ(rig.at(Motor::zoom), 84) << "psum 0 does not move";
    EXPECT_EQ(rig.board.motor_steps_moved(Motor::zoom), 16u);
}

TEST(MotorDrive, EndStopsHoldTheMotorsAndCountTheLostPulses) {
    MotorRig rig(BoardConfig{.zoom_start = -5425, .focus_start = 3015});
    rig.program(kPsumAB, 16, true);  // focus up
    rig.program(kPsumCD, 16, true);  // zoom down
    rig.vd();
    EXPECT_EQ(rig.at(Motor::focus), 3022);
    EXPECT_EQ(rig.board.clamped_pulses(Motor::focus), 9u);
    EXPECT_EQ(rig.board.motor_steps_moved(Motor::focus), 7u);
    EXPECT_EQ(rig.at(Motor::zoom), -5430);
    EXPECT_EQ(rig.board.clamped_pulses(Motor::zoom), 11u);
    rig.board.advance_ns(10'000'000);
    rig.vd();
    EXPECT_EQ(rig.at(Motor::focus), 3022);
    EXPECT_EQ(rig.board.clamped_pulses(Motor::focus), 25u);
    EXPECT_THROW(rig.board.set_motor_position(Motor::focus, 3023), std::out_of_range);
    EXPECT_THROW(rig.board.set_motor_position(Motor::zoom, -5431), std::out_of_range);
    EXPECT_THROW(Board(BoardConfig{.zoom_start = 1607}), std::out_of_range);
}

TEST(MotorDrive, StartPositionsAreSeededInsideTheRanges) {
    auto starts = [](BoardConfig config) {
        Board board(std::move(config));
        return std::pair(board.motor_position(Motor::zoom), board.motor_position(Motor::focus));
    };
    const auto seven = starts({.seed = 7});
    EXPECT_EQ(starts({.seed = 7}), seven);
    EXPECT_NE(starts({.seed = 8}), seven);
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        const auto [zoom, focus] = starts({.seed = seed});
        EXPECT_TRUE(zoom >= LensMotor::kZoomMin && zoom <= LensMotor::kZoomMax) << zoom;
        EXPECT_TRUE(focus >= LensMotor::kFocusMin && focus <= LensMotor::kFocusMax) << focus;
    }
    // Placing one motor leaves the other's draw alone.
    EXPECT_EQ(starts({.seed = 7, .focus_start = -12}), std::pair(seven.first, -12));
}

TEST(MotorTiming, VdBeforeThePulsesFinishIsATimingFaultAtTheEarlyEdge) {
    MotorRig rig(BoardConfig{.zoom_start = 0, .focus_start = 0});
    const uint64_t pulses = DriverChip::pulse_time_ns(16, 400);
    EXPECT_EQ(pulses, 5688889u) << "16 * 400 * 24 / 27 MHz";
    rig.program(kPsumAB, 16, true);
    rig.program(kPsumCD, 8, false);
    for (int period = 0; period < 5; ++period) {
        rig.vd();
        rig.board.advance_ns(pulses);  // exactly long enough
    }
    EXPECT_EQ(rig.board.timing_faults(), 0u);
    EXPECT_EQ(rig.at(Motor::focus), 80);
    EXPECT_EQ(rig.at(Motor::zoom), 40);

    rig.vd();
    rig.board.advance_ns(pulses - 1000);
    rig.vd();
    EXPECT_EQ(rig.board.timing_faults(), 1u);
    ASSERT_THAT(test::fault_kinds(rig.board), ::testing::ElementsAre(FaultKind::timing));
    EXPECT_EQ(rig.board.faults()[0].time_ns, rig.board.now_ns()) << "at the early edge";
}

TEST(MotorTiming, WritingAChannelWhileItsPulsesRunIsATimingFault) {
    MotorRig rig(BoardConfig{.zoom_start = 0, .focus_start = 0});
    rig.program(kPsumAB, 16, true);
    rig.vd();
    rig.board.advance_ns(1'000'000);
    rig.program(kPsumCD, 8, true);                 // the idle channel: fine
    test::chip_read(rig.board, rig.spi, kPsumAB);  // reading is fine too
    EXPECT_EQ(rig.board.timing_faults(), 0u);
    rig.program(kPsumAB, 0, false, 0);  // two writes to the running channel
    EXPECT_EQ(rig.board.timing_faults(), 2u);
    rig.board.advance_ns(5'000'000);
    rig.program(kPsumAB, 0, false, 0);
    EXPECT_EQ(rig.board.timing_faults(), 2u);
}

class PhotoInterrupter : public ::testing::TestWithParam<DriverType> {};

TEST_P(PhotoInterrupter, ReadsOneOnThePositiveSideOnceActiveLowIsSet) {
    // The driver sets active_low 1 on MS41908 modules, whose raw line is inverted.
    const bool active_low = GetParam() == DriverType::ms41908;
    MotorRig rig(BoardConfig{.driver = GetParam(), .zoom_start = 5, .focus_start = -1});
    auto levels = [&] {
        std::string both;
        for (int line : {Board::kZoomPiGpio, Board::kFocusPiGpio})
            both += test::read_path(rig.board, test::gpio_file(line, "value"));
        return both;
    };
    for (int line : {Board::kZoomPiGpio, Board::kFocusPiGpio}) {
        test::export_line(rig.board, line);
        test::write_path(rig.board, test::gpio_file(line, "active_low"), active_low ? "1" : "0");
    }
    EXPECT_EQ(levels(), "1\n0\n");
    EXPECT_EQ(rig.board.gpio_physical(Board::kZoomPiGpio), active_low ? 0 : 1);
    rig.board.set_motor_position(Motor::zoom, -1);
    rig.board.set_motor_position(Motor::focus, 0);
    EXPECT_EQ(levels(), "0\n1\n") << "position 0 is the positive side";
    rig.board.set_pi_stuck(Motor::zoom, active_low ? 0 : 1);  // the positive side's raw level
    EXPECT_EQ(levels(), "1\n1\n") << "a stuck line ignores the motor";
    rig.board.set_pi_stuck(Motor::zoom, std::nullopt);
    EXPECT_EQ(levels(), "0\n1\n");
}

INSTANTIATE_TEST_SUITE_P(BothModules, PhotoInterrupter,
                         ::testing::Values(DriverType::ms41928, DriverType::ms41908));

TEST(PhotoInterrupterEdge, CrossingByVdIsRecordedOnThePiLine) {
    MotorRig rig(BoardConfig{.zoom_start = 500, .focus_start = -10});
    rig.program(kPsumAB, 8, true);  // focus up by 8 per period
    rig.vd();
    EXPECT_TRUE(rig.board.gpio_edges(Board::kFocusPiGpio).empty()) << "-2 is still negative";
    rig.board.advance_ns(10'000'000);
    rig.vd();
    const auto edges = rig.board.gpio_edges(Board::kFocusPiGpio);
    ASSERT_EQ(edges.size(), 1u);
    EXPECT_TRUE(edges[0].level == 1 && edges[0].time_ns == rig.board.now_ns());
    EXPECT_TRUE(rig.board.gpio_edges(Board::kZoomPiGpio).empty());
}

}  // namespace
}  // namespace zoomaf::twin
