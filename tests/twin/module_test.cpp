// The camera module on the kernel where a wrong twin would let the driver's tests pass: the
// SPI frames the driver never sends, bit order, the motors' VD edges, end stops and pulse
// timing, and the photo-interrupter lines of both module types.
#include "board_io.hpp"
#include "gmock/gmock.h"

namespace zoomaf::twin {
namespace {

using test::chip_frame;
using test::position;
using ::testing::ElementsAre;

constexpr uint8_t kPsumAB = 0x24, kPsumCD = 0x29;  // intct follows each at +1

struct MotorRig : test::Rig {
    using Rig::Rig;
    // Programs a channel for the next VD period (psum register keeps the 0x1C high byte).
    void program(uint8_t psum_reg, unsigned psum, bool dir, uint16_t intct = 400) {
        chip_frame(board, spi, psum_reg, static_cast<uint16_t>(0x1C00 | (dir ? 0x100 : 0) | psum));
        chip_frame(board, spi, static_cast<uint8_t>(psum_reg + 1), intct);
    }
    size_t timing_faults() { return test::fault_kinds(board).size(); }
    template <class F>
    auto motor(Motor m, F f) {
        return board.with<LensMotor>(m, f);
    }
};

class Spidev : public ::testing::Test, protected test::Rig {};

TEST_F(Spidev, FramesWithoutChipSelectOrOfTwoBytesAreIgnoredAndRecorded) {
    EXPECT_EQ(test::transfer(board, spi, {0x24, 0xFF, 0xFF}).result, 3) << "still clocked out";
    test::set_value(board, Board::kChipSelectGpio, 1);
    EXPECT_EQ(test::transfer(board, spi, {0x24, 0x10}).result, 2);
    EXPECT_EQ(test::chip_reg(board, 0x24), 0);
    EXPECT_THAT(test::fault_kinds(board),
                ElementsAre(FaultKind::chip_not_selected, FaultKind::frame_length));
}

TEST_F(Spidev, WithoutLsbFirstTheChipSeesBitReversedBytes) {
    uint32_t msb_first = SPI_MODE_0, lsb_first = SPI_LSB_FIRST;
    ASSERT_EQ(board.ioctl(spi, SPI_IOC_WR_MODE32, &msb_first), 0);
    // 0x25 reversed is 0xA4: the chip takes a write to register 0x24 (bit 7 is not an
    // address bit) with both data bytes reversed.
    chip_frame(board, spi, 0x25, 0x0102);
    EXPECT_EQ(test::chip_reg(board, 0x25), 0);
    EXPECT_EQ(test::chip_reg(board, 0x24), (reverse_bits(0x01) << 8) | reverse_bits(0x02));
    // A read of 0x0B (0x4B) reaches register 0x12 (0xD2 & 0x3F) and comes back reversed.
    board.with<DriverChip>([](DriverChip& c) {
        c.set_reg(0x0B, 0x0480);
        c.set_reg(0x12, 0x1234);
    });
    EXPECT_THAT(chip_frame(board, spi, 0x4B, 0).rx,
                ElementsAre(0, reverse_bits(0x34), reverse_bits(0x12)));
    ASSERT_EQ(board.ioctl(spi, SPI_IOC_WR_MODE32, &lsb_first), 0);
    EXPECT_EQ(test::chip_read(board, spi, 0x0B), 0x0480) << "right again in LSB-first mode";
}

TEST(MotorTiming, APulseOrAChannelWriteBeforeThePulsesFinishIsATimingFault) {
    MotorRig rig(BoardConfig{.zoom_start = 0, .focus_start = 0});
    const uint64_t pulses = DriverChip::pulse_time_ns(16, 400);
    EXPECT_EQ(pulses, 5688889u) << "16 * 400 * 24 / 27 MHz";
    rig.program(kPsumAB, 16, true);
    rig.program(kPsumCD, 8, false);
    for (int period = 0; period < 5; ++period) {
        rig.vd();
        rig.board.advance_ns(pulses);  // exactly long enough
    }
    EXPECT_EQ(rig.timing_faults(), 0u);
    EXPECT_EQ(std::pair(position(rig.board, Motor::focus), position(rig.board, Motor::zoom)),
              std::pair(80, 40));
    rig.vd();
    rig.board.advance_ns(pulses - 1000);
    rig.vd();
    ASSERT_EQ(rig.timing_faults(), 1u);
    EXPECT_EQ(rig.board.faults()[0].time_ns, rig.board.now_ns()) << "at the early edge";
    rig.board.advance_ns(1'000'000);
    rig.program(kPsumCD + 5, 8, true);             // another register: fine
    test::chip_read(rig.board, rig.spi, kPsumAB);  // reading is fine too
    rig.program(kPsumAB, 0, false, 0);             // two writes to the running channel
    EXPECT_EQ(rig.timing_faults(), 3u);
    EXPECT_THAT(test::fault_kinds(rig.board), ::testing::Each(FaultKind::timing));
}

class PhotoInterrupterLine : public ::testing::TestWithParam<DriverType> {};

TEST_P(PhotoInterrupterLine, ReadsOneOnThePositiveSideOnceActiveLowIsSet) {
    // The driver sets active_low 1 on MS41908 modules, whose raw line is inverted.
    const bool active_low = GetParam() == DriverType::ms41908;
    MotorRig rig(BoardConfig{.driver = GetParam(), .zoom_start = 5, .focus_start = -10});
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
    // Crossing the edge by VD pulses is an edge on the line, at the pulse.
    rig.program(active_low ? kPsumCD : kPsumAB, 8, true);  // focus up by 8 per period
    rig.vd();
    EXPECT_EQ(levels(), "1\n0\n") << "-2 is still negative";
    rig.board.advance_ns(10'000'000);
    rig.vd();
    EXPECT_EQ(levels(), "1\n1\n");
}

INSTANTIATE_TEST_SUITE_P(BothModules, PhotoInterrupterLine,
                         ::testing::Values(DriverType::ms41928, DriverType::ms41908));

}  // namespace
}  // namespace zoomaf::twin
