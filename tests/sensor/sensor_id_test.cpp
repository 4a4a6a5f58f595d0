// Start-up identification of the sensor: the order of its accesses over the two buses and
// the verdict on the chip type.
#include <gmock/gmock.h>

#include "tests/sensor/sensor_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::ElementsAreArray;

using SensorIdentification = SensorTest;

// (register, written value or -1 for a read) of each transfer on a bus.
std::vector<std::pair<int, int>> accesses(const std::vector<twin::I2cTransferRecord>& transfers) {
    std::vector<std::pair<int, int>> all;
    for (const auto& t : transfers) {
        const auto& first = t.messages.at(0).data;
        const int reg = first.at(0) << 8 | first.at(1);
        all.emplace_back(reg, t.messages.size() == 2 ? -1 : first.at(2));
    }
    return all;
}

TEST_F(SensorIdentification, ReadsTheIdentificationPageOverBus2WithHoldsOverBus9) {
    EXPECT_EQ(call([] { return read_sensor_id(); }), 0);
    EXPECT_EQ(output_,
              "read otp-read-status:1\r\n"
              "\r\nover read sensor chip type:0x40!\r\n"
              "Success:true sensor chip type!\r\n");

    std::vector<std::pair<int, int>> expected = {
        {0x0136, -1}, {0x0137, -1}, {0x0A02, 0x7F}, {0x0A00, 0x01}, {0x0A01, -1}};
    for (int reg = 0x0A1F; reg <= 0x0A29; ++reg) expected.emplace_back(reg, -1);
    EXPECT_THAT(accesses(board().i2c_transfers(kSensorIdBus)), ElementsAreArray(expected));

    // One hold on and off around each of the eleven reads, on the other bus.
    std::vector<std::pair<int, int>> holds;
    for (int i = 0; i < 11; ++i) {
        holds.emplace_back(0x0104, 1);
        holds.emplace_back(0x0104, 0);
    }
    EXPECT_THAT(accesses(board().i2c_transfers(kModuleBus)), ElementsAreArray(holds));
    EXPECT_EQ(board().sensor_id([](twin::SensorIdRegisters& s) { return s.otp_reads_started(); }),
              1u);
    EXPECT_TRUE(board().faults().empty());
}

TEST_F(SensorIdentification, OnlyTheLastChipTypeByteDecides) {
    // 0x0A24..0x0A28 may hold 0x40 or anything else: 0x0A29 is what counts.
    board().sensor_id([](twin::SensorIdRegisters& s) {
        s.set_otp_byte(0x7F, 0x0A28, 0x40);
        s.set_chip_type(0x41);
    });
    call([] { return read_sensor_id(); });
    EXPECT_EQ(output_,
              "read otp-read-status:1\r\n"
              "\r\nover read sensor chip type:0x41!\r\n"
              "Error:error sensor chip type!\r\n");
}

TEST_F(SensorIdentification, AFailedChipTypeReadLeavesTheClearedByteAndIsAnError) {
    // The sixteenth transfer on bus 2 is the read of 0x0A29.
    board().inject({.op = twin::FaultRule::Op::ioctl, .path = "/dev/i2c-2", .skip = 15});
    EXPECT_EQ(call([] { return read_sensor_id(); }), 0);
    EXPECT_THAT(output_, ::testing::HasSubstr("~ioctl read error addr:0xa29,ret:-1\r\n"));
    EXPECT_THAT(output_, ::testing::EndsWith("\r\nover read sensor chip type:0x0!\r\n"
                                             "Error:error sensor chip type!\r\n"));
}

TEST_F(SensorIdentification, AnAbsentSensorIsReportedAndTheServiceGoesOn) {
    board().set_i2c_present(kSensorIdBus, kSensor, false);
    EXPECT_EQ(call([] { return read_sensor_id(); }), 0);
    EXPECT_THAT(output_, ::testing::HasSubstr("read otp-read-status:0\r\n"));
    EXPECT_THAT(output_, ::testing::HasSubstr("Error:error sensor chip type!\r\n"));
}

}  // namespace
}  // namespace zoomaf::test
