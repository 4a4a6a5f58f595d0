// The module EEPROM's identification bytes, and the register-file devices' handling of
// addresses and named registers, as the service reaches them over the bus.
#include "board_io.hpp"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "twin/module_calibration.hpp"

namespace zoomaf::twin {
namespace {

using test::read_reg16;
using test::write_reg16;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr int kBus = Board::kModuleBus;
constexpr uint16_t kEeprom = ModuleEeprom::kAddress;
constexpr uint16_t kFreeAddress = 0x36;  // nothing of the module sits there

// The identification bytes as the motor driver reads them, one transfer each.
std::vector<uint8_t> module_id_bytes(Board& board) {
    std::vector<uint8_t> bytes;
    for (uint16_t addr : {ModuleEeprom::kModuleValidAddr, ModuleEeprom::kMotorIdAddr}) {
        const auto read = read_reg16(board, kBus, kEeprom, addr);
        EXPECT_EQ(read.result, 2);
        bytes.push_back(read.data[0]);
    }
    return bytes;
}

TEST(ModuleEepromContents, DefaultsMatchTheDriverType) {
    Board ms41928(BoardConfig{.driver = DriverType::ms41928});
    EXPECT_THAT(module_id_bytes(ms41928), ElementsAre(1, 1));
    Board ms41908(BoardConfig{.driver = DriverType::ms41908});
    EXPECT_THAT(module_id_bytes(ms41908), ElementsAre(1, 2));
    // The sensor calibration holds the module's data (the first DCC value 1960, low byte
    // first, and the first LRC gains), and the whole 8 KiB is there.
    EXPECT_THAT(read_reg16(ms41908, kBus, kEeprom, 0x092F, 2).data, ElementsAre(0xA8, 0x07));
    EXPECT_THAT(read_reg16(ms41908, kBus, kEeprom, 0x07AF, 2).data,
                ElementsAre(module_lrc_byte(0), module_lrc_byte(1)));
    EXPECT_EQ(ms41908.eeprom_byte(0x1FFF), 0);
    EXPECT_THROW(ms41908.eeprom_byte(0x2000), std::out_of_range);
    EXPECT_THROW(ms41908.set_eeprom_byte(-1, 0), std::out_of_range);
}

TEST(ModuleEepromContents, ConfiguredBytesOverrideTheDefaults) {
    // A module whose information says valid 2 and motor id 16, on an MS41908 board.
    Board board(
        BoardConfig{.driver = DriverType::ms41908, .module_valid = 2, .module_motor_id = 16});
    EXPECT_THAT(module_id_bytes(board), ElementsAre(2, 16));
    Board only_id(BoardConfig{.module_motor_id = 3});
    EXPECT_THAT(module_id_bytes(only_id), ElementsAre(1, 3));

    board.set_eeprom_byte(ModuleEeprom::kModuleValidAddr, 0xFF);
    EXPECT_THAT(module_id_bytes(board), ElementsAre(0xFF, 16));
    EXPECT_TRUE(board.eeprom_writes().empty()) << "the control face is not the bus";
}

TEST(RegisterFileAddressing, AOneByteAddressIsMisuseAndMovesNothing) {
    Board board;
    board.set_eeprom_byte(0x0001, 0x01);
    board.set_eeprom_byte(0x0002, 0x22);
    ASSERT_EQ(read_reg16(board, kBus, kEeprom, 0x0001).result, 2);  // pointer now 0x0002

    // An 8-bit register address, as for a memory with one address byte.
    const int fd = board.open("/dev/i2c-9", O_RDWR);
    uint8_t reg = 0x05;
    uint8_t byte = 0;
    std::vector<i2c_msg> messages{{kEeprom, 0, 1, &reg}, {kEeprom, I2C_M_RD, 1, &byte}};
    EXPECT_EQ(test::i2c_rdwr(board, fd, messages), 2) << "the chip acknowledges it";
    board.close(fd);
    EXPECT_EQ(byte, 0x22) << "the pointer was left where it was";

    const auto faults = board.faults();
    ASSERT_EQ(faults.size(), 1u);
    EXPECT_EQ(faults[0].kind, FaultKind::i2c_misuse);
    EXPECT_THAT(faults[0].text, HasSubstr("module EEPROM"));
    EXPECT_THAT(faults[0].text, HasSubstr("2 bytes"));
}

TEST(RegisterFileAddressing, AddressBitsBeyondTheMemoryAliasAndAreRecorded) {
    Board board;
    ASSERT_EQ(write_reg16(board, kBus, kEeprom, 0x2005, {0x99}), 1);
    EXPECT_EQ(board.eeprom_byte(0x0005), 0x99);
    ASSERT_EQ(board.eeprom_writes().size(), 1u);
    EXPECT_EQ(board.eeprom_writes()[0].addr, 0x0005);
    const auto faults = board.faults();
    ASSERT_EQ(faults.size(), 1u);
    EXPECT_THAT(faults[0].text, HasSubstr("0x2005"));
}

// A chip with named registers, the way the sensor models declare theirs: a mode register,
// a read-only status, and a write-only start register whose write sets the status.
class StatusChip final : public RegisterFile16 {
public:
    static constexpr uint16_t kMode = 0x0100, kStatus = 0x0A01, kStart = 0x0A00;
    explicit StatusChip(const Clock& clock) : RegisterFile16("status chip", 0x10000, clock) {
        name_register(kMode, "mode", Access::read_write);
        name_register(kStatus, "status", Access::read_only);
        name_register(kStart, "start", Access::write_only);
    }

private:
    void on_write(uint16_t addr, uint8_t value) override {
        if (addr == kStart && value == 1) set_byte(kStatus, 0x01);
    }
};

TEST(RegisterFileNamedRegisters, MisuseIsRecordedAndReadOnlyRegistersKeepTheirValue) {
    Board board;
    auto chip = board.make_i2c_device<StatusChip>(kBus, kFreeAddress);

    ASSERT_EQ(write_reg16(board, kBus, kFreeAddress, StatusChip::kMode, {0x03}), 1);
    ASSERT_EQ(write_reg16(board, kBus, kFreeAddress, StatusChip::kStart, {0x01}), 1);
    EXPECT_THAT(read_reg16(board, kBus, kFreeAddress, StatusChip::kStatus).data, ElementsAre(0x01))
        << "the start write acted";
    EXPECT_TRUE(board.faults().empty()) << "all of these are proper uses";

    ASSERT_EQ(write_reg16(board, kBus, kFreeAddress, StatusChip::kStatus, {0x00}), 1);
    EXPECT_EQ(chip->byte(StatusChip::kStatus), 0x01) << "a read-only register ignores writes";
    read_reg16(board, kBus, kFreeAddress, StatusChip::kStart);
    write_reg16(board, kBus, kFreeAddress, 0x0200, {0x00});

    const auto faults = board.faults();
    ASSERT_EQ(faults.size(), 3u);
    EXPECT_THAT(faults[0].text, HasSubstr("read-only register 0x0A01 (status)"));
    EXPECT_THAT(faults[1].text, HasSubstr("write-only register 0x0A00 (start)"));
    EXPECT_THAT(faults[2].text, HasSubstr("0x0200, which the chip does not have"));

    const auto& writes = chip->writes();
    ASSERT_EQ(writes.size(), 3u) << "the ignored write is not logged";
    EXPECT_EQ(writes[0].addr, StatusChip::kMode);
    EXPECT_EQ(writes[1].addr, StatusChip::kStart);
    EXPECT_EQ(writes[2].addr, 0x0200);
}

TEST(RegisterFileNamedRegisters, FaultsOfTheChipAndTheI2cDevicesComeInTimeOrder) {
    Board board;
    test::make_output(board, Board::kChipSelectGpio);
    const int spi = test::open_spi(board);
    test::transfer(board, spi, {0x20, 0, 0});  // chip select low: a driver chip fault
    board.sleep_ns(1000);
    write_reg16(board, kBus, kEeprom, 0x4000, {0});  // beyond the memory
    board.sleep_ns(1000);
    test::transfer(board, spi, {0x20, 0, 0});
    const auto faults = board.faults();
    ASSERT_EQ(faults.size(), 3u);
    EXPECT_EQ(faults[0].kind, FaultKind::chip_not_selected);
    EXPECT_EQ(faults[1].kind, FaultKind::i2c_misuse);
    EXPECT_EQ(faults[2].kind, FaultKind::chip_not_selected);
    EXPECT_LT(faults[0].time_ns, faults[1].time_ns);
}

}  // namespace
}  // namespace zoomaf::twin
