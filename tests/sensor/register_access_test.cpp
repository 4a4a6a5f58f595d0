// The register primitives on the twin's buses: the messages of each access, one open, one
// transfer and one close per access, the pauses, and every failure with injected faults.
#include <gmock/gmock.h>

#include "tests/sensor/sensor_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::ElementsAre;
using twin::FaultRule;

using RegisterAccess = SensorTest;

TEST_F(RegisterAccess, EachAccessIsOneTransferWithItsMessagesAndPause) {
    struct Case {
        const char* name;
        int bus;
        int (*access)();
        std::vector<twin::I2cMessageRecord> messages;
        uint64_t pause_ns;
    };
    const Case cases[] = {
        {"sensor write",
         kModuleBus,
         [] { return write_imx586_single_reg(0x3E37, 0x01); },
         {{kSensor, false, {0x3E, 0x37, 0x01}}},
         20'000},
        {"sensor read",
         kModuleBus,
         [] {
             uint8_t v;
             return read_imx586_single_reg(0x3E37, &v);
         },
         {{kSensor, false, {0x3E, 0x37}}, {kSensor, true, {0x01}}},
         0},
        {"version write",
         kSensorIdBus,
         [] { return write_sensor_version_reg(0x0A02, 0x7F); },
         {{kSensor, false, {0x0A, 0x02, 0x7F}}},
         2'000'000},
        {"version read",
         kSensorIdBus,
         [] {
             uint8_t v;
             return read_sensor_version_reg(0x0136, &v);
         },
         {{kSensor, false, {0x01, 0x36}}, {kSensor, true, {0x18}}},
         2'000'000},
        {"voice-coil write",
         kModuleBus,
         [] { return write_motor_single_reg(2, 0x00); },
         {{0x0C, false, {0x02, 0x00}}},
         20'000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        board().clear_i2c_transfers(c.bus);
        recorder().clear();
        const uint64_t slept_before = board().slept_ns();
        EXPECT_EQ(c.access(), 0);
        const auto transfers = board().i2c_transfers(c.bus);
        ASSERT_EQ(transfers.size(), 1u);
        ASSERT_EQ(transfers[0].messages.size(), c.messages.size());
        for (size_t i = 0; i < c.messages.size(); ++i) {
            EXPECT_EQ(transfers[0].messages[i].addr, c.messages[i].addr);
            EXPECT_EQ(transfers[0].messages[i].read, c.messages[i].read);
            EXPECT_EQ(transfers[0].messages[i].data, c.messages[i].data);
        }
        EXPECT_EQ(board().slept_ns() - slept_before, c.pause_ns);
        EXPECT_THAT(recorder().opens(), ElementsAre("/dev/i2c-" + std::to_string(c.bus)));
        EXPECT_EQ(board().open_descriptors(), 0u) << "the node is closed again";
    }
    EXPECT_TRUE(board().faults().empty());
}

TEST_F(RegisterAccess, ReadsHandTheByteToTheCaller) {
    board().imx586([](twin::Imx586& s) { s.set_gain_code(0x2A5); });
    uint8_t high = 0, low = 0;
    ASSERT_EQ(read_imx586_single_reg(0x0204, &high), 0);
    ASSERT_EQ(read_imx586_single_reg(0x0205, &low), 0);
    EXPECT_EQ(high, 0x02);
    EXPECT_EQ(low, 0xA5);
    EXPECT_EQ(call([] { return read_imx586_single_reg(0x0205, nullptr); }), -1);
    EXPECT_EQ(output_, "read sensor reg 0x205: no result byte given\r\n");
}

TEST_F(RegisterAccess, ModuleMemoryReadSendsOneAddressByteAndCopiesTheData) {
    uint8_t buf[64];
    std::memset(buf, 0xEE, sizeof buf);
    const uint64_t slept_before = board().slept_ns();
    ASSERT_EQ(iic_read_single_reg(0x05, 4, buf), 0);
    const auto transfers = board().i2c_transfers(kModuleBus);
    ASSERT_EQ(transfers.size(), 1u);
    const auto& m = transfers[0].messages;
    ASSERT_EQ(m.size(), 2u);
    EXPECT_EQ(m[0].addr, 0x50);
    EXPECT_THAT(m[0].data, ElementsAre(0x05));
    EXPECT_TRUE(m[1].read);
    ASSERT_EQ(m[1].data.size(), 4u);
    EXPECT_EQ(std::vector<uint8_t>(buf, buf + 4), m[1].data);
    EXPECT_EQ(buf[4], 0xEE) << "only the length asked for is copied";
    EXPECT_EQ(board().slept_ns() - slept_before, 2'000'000u);

    // The whole receive buffer may be asked for, no more and nothing.
    EXPECT_EQ(iic_read_single_reg(0x00, 64, buf), 0);
    board().clear_i2c_transfers(kModuleBus);
    EXPECT_EQ(call([&] { return iic_read_single_reg(0x00, 65, buf); }), -1);
    EXPECT_NE(output_.find("length 65"), std::string::npos);
    EXPECT_EQ(call([&] { return iic_read_single_reg(0x00, 0, buf); }), -1);
    EXPECT_EQ(call([] { return iic_read_single_reg(0x00, 4, nullptr); }), -1);
    EXPECT_TRUE(board().i2c_transfers(kModuleBus).empty()) << "refused before the bus";
}

TEST_F(RegisterAccess, ANodeThatCannotBeOpenedFailsEveryPrimitive) {
    board().inject({.op = FaultRule::Op::open, .path = "/dev/i2c-9", .count = -1});
    board().inject({.op = FaultRule::Op::open, .path = "/dev/i2c-2", .count = -1});
    uint8_t byte = 0x5A;
    uint8_t buf[4] = {};
    const uint64_t slept_before = board().slept_ns();
    // The text names bus 8 whatever the bus.
    const char* kOpenFail = "open iic-8 fail!\r\n";
    EXPECT_EQ(call([] { return write_imx586_single_reg(0x0104, 1); }), -1);
    EXPECT_EQ(output_, kOpenFail);
    EXPECT_EQ(call([&] { return read_imx586_single_reg(0x0104, &byte); }), -1);
    EXPECT_EQ(output_, kOpenFail);
    EXPECT_EQ(call([&] { return read_sensor_version_reg(0x0136, &byte); }), -1);
    EXPECT_EQ(output_, kOpenFail);
    EXPECT_EQ(call([] { return write_sensor_version_reg(0x0A00, 1); }), -1);
    EXPECT_EQ(output_, kOpenFail);
    EXPECT_EQ(call([] { return write_motor_single_reg(0, 1); }), -1);
    EXPECT_EQ(output_, kOpenFail);
    EXPECT_EQ(call([&] { return iic_read_single_reg(0, 4, buf); }), -1);
    EXPECT_EQ(output_, "") << "the module-memory read fails silently";
    EXPECT_EQ(byte, 0x5A);
    EXPECT_EQ(board().slept_ns(), slept_before) << "no pause after a failure";
    // The hold switches ignore the failure.
    EXPECT_EQ(call([] { return write_imx586_group_hold(1); }), 0);
    EXPECT_EQ(call([] { return write_imx586_pd_read_hold(1); }), 0);
    EXPECT_EQ(call([] { return set_586_mator_enable(); }), 0);
}

TEST_F(RegisterAccess, AFailedTransferClosesTheNodeAndReportsTheRegister) {
    board().inject({.op = FaultRule::Op::ioctl, .path = "/dev/i2c-9", .count = -1});
    board().inject({.op = FaultRule::Op::ioctl, .path = "/dev/i2c-2", .count = -1});
    uint8_t byte = 0x5A;
    EXPECT_EQ(call([] { return write_imx586_single_reg(0x3E37, 1); }), -1);
    EXPECT_EQ(output_, "\r\n~ioctl write error addr:0x3e37,ret:-1\r\n");
    EXPECT_EQ(call([&] { return read_imx586_single_reg(0xC808, &byte); }), -1);
    EXPECT_EQ(output_, "~ioctl read error addr:0xc808,ret:-1\r\n");
    EXPECT_EQ(call([&] { return read_sensor_version_reg(0x0A29, &byte); }), -1);
    EXPECT_EQ(output_, "~ioctl read error addr:0xa29,ret:-1\r\n");
    // The version write reports with the read text.
    EXPECT_EQ(call([] { return write_sensor_version_reg(0x0A00, 1); }), -1);
    EXPECT_EQ(output_, "~ioctl read error addr:0xa00,ret:-1\r\n");
    EXPECT_EQ(call([] { return write_motor_single_reg(1, 0x40); }), -1);
    EXPECT_EQ(output_, "\r\n~586 mator ioctl write error addr:0x1,ret:-1\r\n");
    EXPECT_EQ(byte, 0x5A) << "a failed read leaves the result byte";
    EXPECT_EQ(board().open_descriptors(), 0u);
    EXPECT_EQ(board().injected_faults().size(), 5u) << "one transfer each, nothing retried";
}

TEST_F(RegisterAccess, AnAbsentSensorFailsTheTransfer) {
    board().set_i2c_present(kModuleBus, kSensor, false);
    uint8_t byte = 0x5A;
    EXPECT_EQ(call([&] { return read_imx586_single_reg(0x0104, &byte); }), -1);
    EXPECT_EQ(output_, "~ioctl read error addr:0x104,ret:-1\r\n");
    EXPECT_EQ(byte, 0x5A);
}

using VoiceCoil = SensorTest;

TEST_F(VoiceCoil, PositionsAreClampedSplitAndStored) {
    auto coil_writes = [&] {
        std::vector<std::pair<int, int>> all;
        board().voice_coil([&](twin::VoiceCoilDriver& v) {
            for (const auto& w : v.writes()) all.emplace_back(w.reg, w.value);
        });
        return all;
    };
    auto coil_position = [&] {
        return board().voice_coil([](twin::VoiceCoilDriver& v) { return v.position(); });
    };

    EXPECT_EQ(call([] { return set_586_mator_position(2000); }), 0);
    EXPECT_THAT(coil_writes(), ElementsAre(std::pair{0, 0xFF}, std::pair{1, 0xC0}));
    EXPECT_EQ(motor_position, 1023);
    EXPECT_EQ(coil_position(), 1023);
    EXPECT_EQ(output_,
              "set_586_mator_position: addr1: 0x00, val:255, addr2 : 0x01, val:192, setpos:2000, "
              "value:1023, cur pos: 1023)\r\n\r\n");

    // The position already held writes nothing; the request is printed as it came.
    board().clear_i2c_transfers(kModuleBus);
    EXPECT_EQ(call([] { return set_586_mator_position(1023); }), 0);
    EXPECT_TRUE(board().i2c_transfers(kModuleBus).empty());
    EXPECT_EQ(output_,
              "set_586_mator_position: addr1: 0x00, val:0, addr2 : 0x01, val:0, setpos:1023, "
              "value:1023, cur pos: 1023)\r\n\r\n");

    board().voice_coil([](twin::VoiceCoilDriver& v) { v.clear_writes(); });
    call([] { return set_586_mator_position(5); });
    EXPECT_THAT(coil_writes(), ElementsAre(std::pair{0, 0x01}, std::pair{1, 0x40}));
    EXPECT_EQ(motor_position, 5);
    EXPECT_EQ(coil_position(), 5);
}

TEST_F(VoiceCoil, EnableWritesZeroToTheSwitch) {
    EXPECT_FALSE(board().voice_coil([](twin::VoiceCoilDriver& v) { return v.enabled(); }));
    EXPECT_EQ(set_586_mator_enable(), 0);
    EXPECT_TRUE(board().voice_coil([](twin::VoiceCoilDriver& v) { return v.enabled(); }));
    EXPECT_TRUE(board().faults().empty());
}

}  // namespace
}  // namespace zoomaf::test
