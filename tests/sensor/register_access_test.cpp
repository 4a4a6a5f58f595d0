// The register primitives on the twin's buses (pauses, module-memory reads, failures), the
// voice coil, and the start-up identification of the sensor.
#include <gmock/gmock.h>
#include <cstring>
#include <functional>

#include "tests/support/twin_test.hpp"
#include "zoomaf/imx586.h"

namespace zoomaf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using twin::FaultRule;

constexpr int kModuleBus = twin::Board::kModuleBus;

using RegisterAccess = TwinTest;

// The pause after each kind of access, one open of its bus each.
TEST_F(RegisterAccess, EachAccessPausesAsPrescribed) {
    uint8_t v = 0;
    const std::pair<std::function<int()>, uint64_t> cases[] = {
        {[] { return write_imx586_single_reg(0x3E37, 0x01); }, 20'000},
        {[&] { return read_imx586_single_reg(0x3E37, &v); }, 0},
        {[] { return write_sensor_version_reg(0x0A02, 0x7F); }, 2'000'000},
        {[&] { return read_sensor_version_reg(0x0136, &v); }, 2'000'000},
        {[] { return write_motor_single_reg(2, 0x00); }, 20'000},
    };
    for (const auto& [access, pause_ns] : cases) {
        recorder().clear();
        const uint64_t slept_before = slept_ns();
        EXPECT_EQ(access(), 0);
        EXPECT_EQ(slept_ns() - slept_before, pause_ns);
        EXPECT_EQ(recorder().opens().size(), 1u);
    }
}

TEST_F(RegisterAccess, ModuleMemoryReadSendsOneAddressByteAndCopiesTheData) {
    // The module memory takes 16-bit addresses: the one address byte of this read is misuse
    // it records (and it reads on from where its pointer stood).
    expect_fault(twin::FaultKind::i2c_misuse);
    uint8_t buf[64];
    std::memset(buf, 0xEE, sizeof buf);
    const uint64_t slept_before = slept_ns();
    ASSERT_EQ(iic_read_single_reg(0x05, 4, buf), 0);
    const auto transfers = i2c_transfers(kModuleBus);
    ASSERT_EQ(transfers.size(), 1u);
    const auto& m = transfers[0].messages;
    ASSERT_EQ(m.size(), 2u);
    EXPECT_THAT(m[0].data, ElementsAre(0x05));
    EXPECT_EQ(std::vector<uint8_t>(buf, buf + 4), m[1].data);
    EXPECT_EQ(buf[4], 0xEE) << "only the length asked for is copied";
    EXPECT_EQ(slept_ns() - slept_before, 2'000'000u);

    // The whole receive buffer may be asked for, no more and nothing; no result byte either.
    EXPECT_EQ(iic_read_single_reg(0x00, 64, buf), 0);
    EXPECT_EQ(call([&] { return iic_read_single_reg(0x00, 65, buf); }), -1);
    EXPECT_NE(output_.find("length 65"), std::string::npos);
    EXPECT_EQ(call([&] { return iic_read_single_reg(0x00, 0, buf); }), -1);
    EXPECT_EQ(call([] { return iic_read_single_reg(0x00, 4, nullptr); }), -1);
    EXPECT_EQ(call([] { return read_imx586_single_reg(0x0205, nullptr); }), -1);
    EXPECT_EQ(output_, "read sensor reg 0x205: no result byte given\r\n");
    EXPECT_EQ(i2c_transfers(kModuleBus).size(), 2u) << "refused before the bus";
}

// Every primitive on a node that cannot be opened, then on a transfer that fails: the
// message of each, no pause after a failure, a failed read leaves the result byte.
TEST_F(RegisterAccess, FailuresOfTheNodeAndOfTheTransferAreReported) {
    uint8_t byte = 0x5A;
    uint8_t buf[4] = {};
    const struct {
        std::function<int()> access;
        const char* open_failed;  // the text names bus 8 whatever the bus
        const char* transfer_failed;
    } cases[] = {
        {[] { return write_imx586_single_reg(0x3E37, 1); }, "open iic-8 fail!\r\n",
         "\r\n~ioctl write error addr:0x3e37,ret:-1\r\n"},
        {[&] { return read_imx586_single_reg(0xC808, &byte); }, "open iic-8 fail!\r\n",
         "~ioctl read error addr:0xc808,ret:-1\r\n"},
        {[&] { return read_sensor_version_reg(0x0A29, &byte); }, "open iic-8 fail!\r\n",
         "~ioctl read error addr:0xa29,ret:-1\r\n"},
        {[] { return write_sensor_version_reg(0x0A00, 1); }, "open iic-8 fail!\r\n",
         "~ioctl read error addr:0xa00,ret:-1\r\n"},  // the version write uses the read text
        {[] { return write_motor_single_reg(1, 0x40); }, "open iic-8 fail!\r\n",
         "\r\n~586 mator ioctl write error addr:0x1,ret:-1\r\n"},
        {[&] { return iic_read_single_reg(0, 4, buf); }, "", ""},  // fails silently
    };
    for (FaultRule::Op op : {FaultRule::Op::open, FaultRule::Op::ioctl}) {
        SCOPED_TRACE(twin::op_name(op));
        board().clear_faults();
        board().inject({.op = op, .target = "/dev/i2c-9", .count = -1});
        board().inject({.op = op, .target = "/dev/i2c-2", .count = -1});
        const uint64_t slept_before = slept_ns();
        for (const auto& c : cases) {
            EXPECT_EQ(call(c.access), -1);
            EXPECT_EQ(output_, op == FaultRule::Op::open ? c.open_failed : c.transfer_failed);
        }
        EXPECT_EQ(byte, 0x5A);
        EXPECT_EQ(slept_ns(), slept_before) << "no pause after a failure";
    }
    EXPECT_EQ(board().injected_faults().size(), 12u) << "one attempt each, nothing retried";
    // The hold switches and the voice-coil enable ignore the failure.
    EXPECT_EQ(call([] { return write_imx586_group_hold(1); }), 0);
    EXPECT_EQ(call([] { return write_imx586_pd_read_hold(1); }), 0);
    EXPECT_EQ(call(set_586_mator_enable), 0);
}

using VoiceCoil = TwinTest;

TEST_F(VoiceCoil, PositionsAreClampedSplitAndStoredAndEnableWritesZero) {
    auto coil_writes = [&] {
        std::vector<std::pair<int, int>> all;
        with<twin::VoiceCoilDriver>([&](twin::VoiceCoilDriver& v) {
            for (const auto& w : v.writes()) all.emplace_back(w.reg, w.value);
            v.clear_writes();
        });
        return all;
    };
    auto coil = [&](auto get) { return with<twin::VoiceCoilDriver>(get); };

    EXPECT_EQ(call([] { return set_586_mator_position(2000); }), 0);
    EXPECT_THAT(coil_writes(), ElementsAre(std::pair{0, 0xFF}, std::pair{1, 0xC0}));
    EXPECT_EQ(motor_position, 1023);
    EXPECT_EQ(output_,
              "set_586_mator_position: addr1: 0x00, val:255, addr2 : 0x01, val:192, setpos:2000, "
              "value:1023, cur pos: 1023)\r\n\r\n");

    // The position already held writes nothing; the request is printed as it came.
    EXPECT_EQ(call([] { return set_586_mator_position(1023); }), 0);
    EXPECT_TRUE(coil_writes().empty());
    EXPECT_EQ(output_,
              "set_586_mator_position: addr1: 0x00, val:0, addr2 : 0x01, val:0, setpos:1023, "
              "value:1023, cur pos: 1023)\r\n\r\n");

    call([] { return set_586_mator_position(5); });
    EXPECT_THAT(coil_writes(), ElementsAre(std::pair{0, 0x01}, std::pair{1, 0x40}));
    EXPECT_EQ(motor_position, 5);

    EXPECT_FALSE(coil([](auto& v) { return v.enabled(); }));
    EXPECT_EQ(set_586_mator_enable(), 0);
    EXPECT_TRUE(coil([](auto& v) { return v.enabled(); }));
}

using SensorIdentification = TwinTest;

// Only the last type byte, 0x0A29, counts; a failed read of it leaves the cleared byte.
TEST_F(SensorIdentification, OnlyTheLastTypeByteCountsAndAFailedReadIsReported) {
    with<twin::SensorIdRegisters>([](auto& s) { s.set_otp_byte(0x7F, 0x0A28, 0x41); });
    EXPECT_EQ(call(read_sensor_id), 0);
    EXPECT_EQ(output_,
              "read otp-read-status:1\r\n"
              "\r\nover read sensor chip type:0x40!\r\n"
              "Success:true sensor chip type!\r\n");
    EXPECT_EQ(i2c_transfers(9).size(), 22u) << "a hold on and off around each of the 11 reads";
    with<twin::SensorIdRegisters>([](auto& s) {
        s.set_otp_byte(0x7F, 0x0A28, 0x40);
        s.set_chip_type(0x41);
    });
    call(read_sensor_id);
    EXPECT_THAT(output_, EndsWith("\r\nover read sensor chip type:0x41!\r\n"
                                  "Error:error sensor chip type!\r\n"));
    // The sixteenth transfer on bus 2 is the read of 0x0A29.
    board().inject({.op = twin::FaultRule::Op::ioctl, .target = "/dev/i2c-2", .skip = 15});
    EXPECT_EQ(call(read_sensor_id), 0);
    EXPECT_THAT(output_, HasSubstr("~ioctl read error addr:0xa29,ret:-1\r\n"));
    EXPECT_THAT(output_, EndsWith("\r\nover read sensor chip type:0x0!\r\n"
                                  "Error:error sensor chip type!\r\n"));
}

}  // namespace
}  // namespace zoomaf::test
