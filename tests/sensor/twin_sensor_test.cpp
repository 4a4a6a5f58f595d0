// The twin's IMX586 as the service meets it: PD and CL set through the control face read
// back through the register block as a frame encodes them, the group hold and the PD
// readout hold, the PD output switch and the two window layouts.
#include <gmock/gmock.h>

#include "tests/sensor/sensor_fixture.hpp"
#include "tests/twin/board_io.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

class TwinSensor : public SensorTest {
protected:
    // The day focus's start-up set-up: PD output and the DCC region's 8 x 6 grid, inside
    // one group hold.
    void start_pd_grid() {
        captured([] {
            write_imx586_group_hold(1);
            switch_pd_output(1);
            write_dcc_roi(1);
            write_imx586_group_hold(0);
        });
    }
    // A window's three bytes read by the service under the PD readout hold, decoded.
    DecodedPdCl read_window(uint16_t first) {
        uint8_t b[3] = {0, 0, 0};
        write_imx586_pd_read_hold(1);
        for (uint16_t i = 0; i < 3; ++i) read_imx586_single_reg(first + i, &b[i]);
        write_imx586_pd_read_hold(0);
        return decode_pd_cl(b[0], b[1], b[2]);
    }
    static uint16_t grid_address(int index) {
        return static_cast<uint16_t>(0xC808 + 64 * (index / 8) + 4 * (index % 8));
    }
};

TEST_F(TwinSensor, EveryGridWindowReadsBackAsTheFrameEncodesIt) {
    start_pd_grid();
    // Every PD the 11-bit field carries, both ends and the -1 / 0 seam included.
    auto pd_of = [](int index) {
        const int pds[] = {-1022, -1021, -2, -1, 0, 1, 1022, 1023};
        return index < 8 ? pds[index] : (index * 97) % 2045 - 1022;
    };
    auto cl_of = [](int index) { return index == 0 ? 0 : index == 1 ? 2047 : index * 43; };
    board().imx586([&](twin::Imx586& s) {
        for (int index = 0; index < 48; ++index)
            s.set_grid_pd_cl(index, pd_of(index), cl_of(index));
    });
    for (int index = 0; index < 48; ++index) {
        SCOPED_TRACE(index);
        const DecodedPdCl read = read_window(grid_address(index));
        EXPECT_EQ(read.pd, pd_of(index));
        EXPECT_EQ(read.cl, cl_of(index));
    }
    EXPECT_TRUE(board().faults().empty());
}

TEST_F(TwinSensor, TheEncodingIsTheSensorsOwn) {
    auto bytes = [](int pd, int cl) {
        const twin::PdClBytes b = twin::Imx586::encode_pd_cl(pd, cl);
        return std::vector<int>{b.b0, b.b1, b.b2, b.b3};
    };
    EXPECT_EQ(bytes(-1, 2047), (std::vector<int>{0xFF, 0xE0, 0x00, 0}));
    EXPECT_EQ(bytes(-1022, 0), (std::vector<int>{0x00, 0x10, 0x04, 0}));  // field 1025
    EXPECT_EQ(bytes(1023, 0), (std::vector<int>{0x00, 0x10, 0x00, 0}));   // field 1024
    EXPECT_EQ(bytes(1022, 0), (std::vector<int>{0x00, 0x0F, 0xFC, 0}));   // field 1023
    EXPECT_EQ(bytes(0, 0), (std::vector<int>{0x00, 0x00, 0x04, 0}));      // field 1
    // The sensor saturates.
    EXPECT_EQ(bytes(5000, 9000), bytes(1023, 2047));
    EXPECT_EQ(bytes(-5000, -3), bytes(-1022, 0));
}

TEST_F(TwinSensor, EightWindowLayoutReportsTheEnabledWindows) {
    captured([] {
        set_pdaf_windows_free_area(100, 200, 666, 500);
        switch_pd_output(1);
    });
    board().imx586([](twin::Imx586& s) {
        s.set_window_pd_cl(0, 37, 1500);
        s.set_window_pd_cl(5, -300, 900);
        s.set_grid_pd_cl(0, 11, 11);  // another layout: not shown
    });
    DecodedPdCl w0 = read_window(0xC808);
    EXPECT_EQ(w0.pd, 37);
    EXPECT_EQ(w0.cl, 1500);
    // Window 5 is not enabled yet: its bytes read 0 (CL 0, PD -1).
    EXPECT_EQ(read_window(0xC808 + 20).cl, 0);
    captured([] { set_pdaf_windows_center_area(0); });
    const DecodedPdCl w5 = read_window(0xC808 + 20);
    EXPECT_EQ(w5.pd, -300);
    EXPECT_EQ(w5.cl, 900);

    // With PD output off the block is empty.
    captured([] { switch_pd_output(0); });
    EXPECT_EQ(read_window(0xC808).cl, 0);
}

TEST_F(TwinSensor, PdReadoutHoldKeepsTheFrameUntilReleased) {
    start_pd_grid();
    board().imx586([](twin::Imx586& s) { s.set_grid_pd_cl(9, 100, 2000); });
    write_imx586_pd_read_hold(1);
    board().imx586([](twin::Imx586& s) { s.set_grid_pd_cl(9, -100, 1000); });
    uint8_t b0 = 0;
    read_imx586_single_reg(grid_address(9), &b0);
    EXPECT_EQ(b0, 2000 >> 3) << "the held frame";
    write_imx586_pd_read_hold(0);
    read_imx586_single_reg(grid_address(9), &b0);
    EXPECT_EQ(b0, 1000 >> 3) << "the newest frame";
    EXPECT_FALSE(board().imx586([](twin::Imx586& s) { return s.pd_read_hold(); }));
}

TEST_F(TwinSensor, GroupHoldAppliesALayoutAtOnceWhenReleased) {
    write_imx586_group_hold(1);
    const uint64_t written_at = board().now_ns();
    call([] { return set_pdaf_windows_center_area(0); });
    // Under the hold the read-backs see the registers in effect, not the new layout.
    EXPECT_THAT(output_, HasSubstr("\r\n0x38A3 value:0x0"));
    EXPECT_THAT(output_,
                HasSubstr("\r\nread windows addr:0x38b5,value:0x0,source write value:0xdc"));
    EXPECT_EQ(board().imx586([](twin::Imx586& s) { return s.held_writes(); }), 73u);
    EXPECT_TRUE(sensor_writes().size() == 1u) << "only the hold itself took effect";
    EXPECT_FALSE(board().imx586([](twin::Imx586& s) { return s.window(7).enabled; }));

    write_imx586_group_hold(0);
    const auto geometry = board().imx586([](twin::Imx586& s) { return s.window(7); });
    EXPECT_EQ(geometry.x_end, 2666);
    EXPECT_EQ(geometry.y_end, 1750);
    EXPECT_TRUE(geometry.enabled);
    EXPECT_EQ(sensor_reg(0x38A3), 2);
    // All 73 took effect together, in order, at the release.
    uint64_t release_time = 0;
    std::vector<twin::I2cRegisterWrite> writes;
    board().imx586([&](twin::Imx586& s) {
        writes = s.writes();
        release_time = writes.back().time_ns;
    });
    // The hold on, the hold off, then the held writes in the order they were made.
    ASSERT_EQ(writes.size(), 1u + 1u + 73u);
    EXPECT_GT(release_time, written_at);
    for (size_t i = 1; i < writes.size(); ++i) EXPECT_EQ(writes[i].time_ns, release_time) << i;
    EXPECT_EQ(writes[1].addr, 0x0104);
    EXPECT_EQ(writes[2].addr, 0x38A3);
    EXPECT_EQ(writes.back().addr, 0x38F3);
    EXPECT_FALSE(board().imx586([](twin::Imx586& s) { return s.group_hold(); }));

    // Without a hold a write takes effect at once.
    write_imx586_single_reg(0x38A3, 1);
    EXPECT_EQ(sensor_reg(0x38A3), 1);
}

TEST_F(TwinSensor, AnOtpReadTakesTimeAndReadsTheSelectedPage) {
    using twin::test::read_reg16;
    using twin::test::write_reg16;
    // Without a page selected the read brings page 0, which is empty.
    ASSERT_EQ(write_reg16(board(), kSensorIdBus, kSensor, 0x0A00, {0x01}), 1);
    EXPECT_EQ(read_reg16(board(), kSensorIdBus, kSensor, 0x0A01).data[0], 0) << "still reading";
    board().advance_ns(500'000);
    EXPECT_EQ(read_reg16(board(), kSensorIdBus, kSensor, 0x0A01).data[0], 1) << "done";
    EXPECT_EQ(read_reg16(board(), kSensorIdBus, kSensor, 0x0A29).data[0], 0);

    ASSERT_EQ(write_reg16(board(), kSensorIdBus, kSensor, 0x0A02, {0x7F}), 1);
    ASSERT_EQ(write_reg16(board(), kSensorIdBus, kSensor, 0x0A00, {0x01}), 1);
    EXPECT_EQ(read_reg16(board(), kSensorIdBus, kSensor, 0x0A29).data[0], 0) << "not yet";
    board().advance_ns(500'000);
    EXPECT_EQ(read_reg16(board(), kSensorIdBus, kSensor, 0x0A29).data[0], 0x40);
    EXPECT_TRUE(board().faults().empty());
}

TEST_F(TwinSensor, TheVoiceCoilDriverHasThreeRegisters) {
    using twin::test::i2c_rdwr;
    const int fd = board().open("/dev/i2c-9", O_RDWR);
    uint8_t write[4] = {0x00, 0x80, 0x40, 0x00};  // position 513, enable, in one message
    uint8_t reg = 0x01, read[3] = {};
    std::vector<i2c_msg> messages{
        {0x0C, 0, 4, write}, {0x0C, 0, 1, &reg}, {0x0C, I2C_M_RD, 3, read}};
    EXPECT_EQ(i2c_rdwr(board(), fd, messages), 3);
    board().close(fd);
    EXPECT_EQ(board().voice_coil([](twin::VoiceCoilDriver& v) { return v.position(); }), 513);
    EXPECT_TRUE(board().voice_coil([](twin::VoiceCoilDriver& v) { return v.enabled(); }));
    EXPECT_EQ(read[0], 0x40);
    EXPECT_EQ(read[1], 0x00);
    const auto faults = board().faults();
    ASSERT_EQ(faults.size(), 1u) << "the read ran past register 2";
    EXPECT_THAT(faults[0].text, HasSubstr("read of register 3"));
}

TEST_F(TwinSensor, MisdirectedAccessesAreRecorded) {
    write_imx586_single_reg(0xC808, 0x12);  // the PD/CL block is read-only
    write_imx586_single_reg(0x1234, 0x00);  // no such register
    const auto faults = board().faults();
    ASSERT_EQ(faults.size(), 2u);
    EXPECT_THAT(faults[0].text, HasSubstr("read-only register 0xC808 (PD/CL block)"));
    EXPECT_THAT(faults[1].text, HasSubstr("0x1234, which the chip does not have"));
}

}  // namespace
}  // namespace zoomaf::test
