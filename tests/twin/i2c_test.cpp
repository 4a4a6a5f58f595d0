// /dev/i2c-N: I2C_RDWR with the kernel's structures, routing by bus and address, NAKs,
// the kernel's refusals, injected faults and the I2C_SLAVE read/write path; the module
// EEPROM's contents, and how register-file devices take addresses and named registers.
#include "board_io.hpp"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "twin/module_calibration.hpp"

namespace zoomaf::twin {
namespace {

using test::read_reg16;
using test::write_reg16;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr int kBus = Board::kModuleBus, kIdBus = Board::kSensorIdBus;
constexpr uint16_t kEeprom = ModuleEeprom::kAddress;
constexpr uint16_t kFreeAddress = 0x36;  // nothing of the module sits there

class I2cBusTest : public ::testing::Test {
protected:
    void SetUp() override { fd = board.open("/dev/i2c-9", O_RDWR); }
    int rdwr(std::vector<i2c_msg> messages) { return test::i2c_rdwr(board, fd, messages); }
    Board board;
    int fd = -1;
};

TEST_F(I2cBusTest, AnAddressWriteAndAReadReturnEepromBytesAndAreRecorded) {
    board.set_eeprom_byte(0x0123, 0x5A);
    const auto read = read_reg16(board, kBus, kEeprom, 0x0123);
    EXPECT_EQ(read.result, 2) << "the kernel returns the number of messages";
    EXPECT_THAT(read.data, ElementsAre(0x5A));
    const auto transfers = board.i2c_transfers(kBus);
    ASSERT_EQ(transfers.size(), 1u);
    const auto& m = transfers[0].messages;
    ASSERT_EQ(m.size(), 2u);
    EXPECT_TRUE(!m[0].read && m[0].data == std::vector<uint8_t>({0x01, 0x23}));
    EXPECT_TRUE(m[1].read && m[1].data == std::vector<uint8_t>({0x5A}));
    EXPECT_TRUE(board.eeprom_writes().empty()) << "setting the address stores nothing";
}

TEST_F(I2cBusTest, AThreeByteWriteStoresOneByte) {
    const auto before = read_reg16(board, kBus, kEeprom, 0x092E, 3).data;
    EXPECT_EQ(write_reg16(board, kBus, kEeprom, 0x092F, {0xA5}), 1);
    EXPECT_THAT(read_reg16(board, kBus, kEeprom, 0x092E, 3).data,
                ElementsAre(before[0], 0xA5, before[2]))
        << "the neighbours keep the module's data";
    const auto writes = board.eeprom_writes();
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_TRUE(writes[0].addr == 0x092F && writes[0].value == 0xA5);
    EXPECT_EQ(writes[0].time_ns, board.now_ns());
}

TEST_F(I2cBusTest, ReadsAndWritesAutoIncrementAndRollOverAtTheEnd) {
    ASSERT_EQ(write_reg16(board, kBus, kEeprom, 0x1FFE, {1, 2, 3, 4}), 1);
    EXPECT_EQ(board.eeprom_byte(0x1FFF), 2);
    EXPECT_EQ(board.eeprom_byte(0x0000), 3) << "rolled over to the start";
    EXPECT_THAT(read_reg16(board, kBus, kEeprom, 0x1FFE, 2).data, ElementsAre(1, 2));
    // A read without an address goes on from the pointer, over the end to the start.
    std::vector<uint8_t> next(2, 0);
    EXPECT_EQ(rdwr({{kEeprom, I2C_M_RD, 2, next.data()}}), 1);
    EXPECT_THAT(next, ElementsAre(3, 4));
    EXPECT_TRUE(board.faults().empty());
}

TEST_F(I2cBusTest, MessagesBeforeANakTakeEffectButNoReadDataComesBack) {
    uint8_t store[3] = {0x00, 0x20, 0x44}, address[2] = {0x00, 0x20}, byte = 0xEE, probe = 0;
    EXPECT_ERRNO(rdwr({{kEeprom, 0, 3, store},
                       {kEeprom, 0, 2, address},
                       {kEeprom, I2C_M_RD, 1, &byte},
                       {0x51, 0, 1, &probe}}),
                 ENXIO);
    EXPECT_EQ(board.eeprom_byte(0x0020), 0x44) << "the write went out before the NAK";
    EXPECT_EQ(byte, 0xEE) << "a failed transfer copies nothing back";
    const auto transfers = board.i2c_transfers(kBus);
    ASSERT_EQ(transfers.size(), 1u);
    EXPECT_EQ(transfers[0].error, ENXIO);
    EXPECT_EQ(transfers[0].messages.back().addr, 0x51) << "recorded up to the NAK";
}

TEST_F(I2cBusTest, TheKernelsLimitsAreRefusedBeforeAnythingIsSent) {
    uint8_t bytes[3] = {0x00, 0x05, 0x77};  // also a write of 0x77 to 0x0005
    const i2c_msg probe{kEeprom, 0, 0, nullptr};
    EXPECT_EQ(rdwr(std::vector<i2c_msg>(42, probe)), 42) << "42 address-only probes go through";
    const struct {
        const char* what;
        std::vector<i2c_msg> messages;
        int error;
    } refused[] = {
        {"43 messages", std::vector<i2c_msg>(43, probe), EINVAL},
        {"no message", {}, EINVAL},
        {"a zero-length read", {{kEeprom, 0, 3, bytes}, {kEeprom, I2C_M_RD, 0, bytes}}, EOPNOTSUPP},
        {"longer than 8192", {{kEeprom, I2C_M_RD, 8193, bytes}}, EINVAL},
        {"a 10-bit address", {{kEeprom, I2C_M_TEN | I2C_M_RD, 1, bytes}}, EOPNOTSUPP},
        {"no buffer", {{kEeprom, I2C_M_RD, 1, nullptr}}, EFAULT},
    };
    for (const auto& c : refused) EXPECT_ERRNO(rdwr(c.messages), c.error) << c.what;
    EXPECT_EQ(board.eeprom_byte(0x0005), 0) << "the write before the zero-length read";
    EXPECT_EQ(board.i2c_transfers(kBus).size(), 1u) << "only the 42 probes reached the bus";
}

TEST_F(I2cBusTest, FuncsAndPlainReadAndWriteToTheAddressI2cSlaveSelects) {
    unsigned long funcs = 0;
    ASSERT_EQ(board.ioctl(fd, I2C_FUNCS, &funcs), 0);
    EXPECT_EQ(funcs, static_cast<unsigned long>(I2C_FUNC_I2C)) << "plain I2C, no 10-bit";
    EXPECT_ERRNO(board.ioctl(fd, SPI_IOC_RD_MODE32, &funcs), ENOTTY);
    EXPECT_ERRNO(board.ioctl(fd, I2C_RDWR, nullptr), EFAULT);

    uint8_t byte = 0;
    EXPECT_ERRNO(board.read(fd, &byte, 1), ENXIO) << "no address selected yet: address 0 NAKs";
    ASSERT_EQ(board.ioctl(fd, I2C_SLAVE, reinterpret_cast<void*>(uintptr_t{kEeprom})), 0);
    const uint8_t store[3] = {0x00, 0x40, 0x77};
    EXPECT_EQ(board.write(fd, store, 3), 3);
    EXPECT_EQ(board.eeprom_byte(0x0040), 0x77);
    EXPECT_EQ(board.write(fd, store, 2), 2) << "sets the address pointer back to 0x0040";
    EXPECT_EQ(board.read(fd, &byte, 1), 1);
    EXPECT_EQ(byte, 0x77);
    EXPECT_ERRNO(board.read(fd, &byte, 0), EOPNOTSUPP) << "a zero-length read";
    EXPECT_ERRNO(board.ioctl(fd, I2C_SLAVE, reinterpret_cast<void*>(uintptr_t{0x80})), EINVAL);

    // The address belongs to the open file.
    const int other = board.open("/dev/i2c-9", O_RDWR);
    ASSERT_EQ(board.ioctl(other, I2C_SLAVE_FORCE, reinterpret_cast<void*>(uintptr_t{0x51})), 0);
    EXPECT_ERRNO(board.write(other, store, 2), ENXIO);
    EXPECT_EQ(board.read(fd, &byte, 1), 1);
}

TEST(I2cRouting, TheSameAddressOnAnotherBusIsAnotherDeviceOrNothing) {
    Board board;
    board.set_eeprom_byte(0x0000, 0x01);
    EXPECT_ERRNO(read_reg16(board, kIdBus, kEeprom, 0x0000).result, ENXIO) << "bus 2 has no 0x50";
    auto other = board.make_i2c_device<ModuleEeprom>(kIdBus, kEeprom);
    ASSERT_EQ(write_reg16(board, kIdBus, kEeprom, 0x0000, {0x7E}), 1);
    EXPECT_EQ(other->byte(0x0000), 0x7E);
    EXPECT_THAT(read_reg16(board, kBus, kEeprom, 0x0000).data, ElementsAre(0x01))
        << "bus 9's memory is another chip";
    EXPECT_EQ(board.i2c_transfers(kIdBus).size(), 2u);
    EXPECT_EQ(board.i2c_transfers(kBus).size(), 1u);

    // A device on a bus the board lacks brings the bus's node with it.
    EXPECT_ERRNO(board.open("/dev/i2c-4", O_RDWR), ENOENT);
    board.make_i2c_device<ModuleEeprom>(4, 0x57)->set_byte(0x0100, 0x9C);
    EXPECT_THAT(read_reg16(board, 4, 0x57, 0x0100).data, ElementsAre(0x9C));
}

TEST(I2cRouting, TwoDevicesAtOneAddressAndReservedAddressesAreRefused) {
    Board board;
    EXPECT_THROW(board.make_i2c_device<ModuleEeprom>(kBus, kEeprom), std::logic_error);
    EXPECT_THROW(board.make_i2c_device<ModuleEeprom>(kBus, 0x03), std::invalid_argument);
    EXPECT_THROW(board.make_i2c_device<ModuleEeprom>(kBus, 0x78), std::invalid_argument);
    EXPECT_THROW(board.make_i2c_device<ModuleEeprom>(-1, 0x50), std::out_of_range);
    board.set_eeprom_byte(0x0001, 0x02);
    EXPECT_THAT(read_reg16(board, kBus, kEeprom, 0x0001).data, ElementsAre(0x02))
        << "the first device still answers";
}

TEST(I2cNak, AnAbsentAddressOrOneMadeAbsentFailsWithEnxio) {
    Board board;
    const auto absent = read_reg16(board, kBus, 0x51, 0x0000, 2);
    EXPECT_EQ(absent.error, ENXIO);
    EXPECT_THAT(absent.data, Each(0xEE));

    board.set_i2c_present(kBus, kEeprom, false);
    EXPECT_ERRNO(read_reg16(board, kBus, kEeprom, 0x0000).result, ENXIO);
    EXPECT_ERRNO(write_reg16(board, kBus, kEeprom, 0x0000, {0x05}), ENXIO);
    EXPECT_EQ(board.eeprom_byte(0x0000), 1) << "the absent chip keeps its contents";
    board.set_eeprom_byte(0x0001, 0x10);  // the control face still reaches it
    board.set_i2c_present(kBus, kEeprom, true);
    EXPECT_THAT(read_reg16(board, kBus, kEeprom, 0x0001).data, ElementsAre(0x10));
    EXPECT_THROW(board.set_i2c_present(kBus, 0x51, false), std::out_of_range);
    EXPECT_THROW(board.set_i2c_present(3, kEeprom, false), std::out_of_range);
}

TEST(I2cFaults, AnInjectedIoctlFaultFailsOneTransferOnItsBusOnly) {
    Board board;
    board.inject({.op = FaultRule::Op::ioctl, .path = "/dev/i2c-2", .count = -1});
    board.inject({.op = FaultRule::Op::ioctl, .path = "/dev/i2c-9", .error = EREMOTEIO});
    const auto failed = read_reg16(board, kBus, kEeprom, 0x0000);
    EXPECT_EQ(failed.error, EREMOTEIO);
    EXPECT_THAT(failed.data, ElementsAre(0xEE));
    EXPECT_TRUE(board.i2c_transfers(kBus).empty()) << "nothing reached the wire";
    EXPECT_THAT(read_reg16(board, kBus, kEeprom, 0x0000).data, ElementsAre(0x01));
    EXPECT_EQ(board.injected_faults().size(), 1u);
}

// The two identification bytes (module valid, motor id) as the motor driver reads them.
std::vector<uint8_t> module_id_bytes(Board& board) {
    return {read_reg16(board, kBus, kEeprom, ModuleEeprom::kModuleValidAddr).data[0],
            read_reg16(board, kBus, kEeprom, ModuleEeprom::kMotorIdAddr).data[0]};
}

TEST(ModuleEepromContents, IdentificationFollowsTheDriverTypeUnlessConfigured) {
    const struct {
        BoardConfig config;
        std::vector<uint8_t> expected;
    } cases[] = {
        {{.driver = DriverType::ms41928}, {1, 1}},
        {{.driver = DriverType::ms41908}, {1, 2}},
        {{.driver = DriverType::ms41908, .module_valid = 2, .module_motor_id = 16}, {2, 16}},
        {{.module_motor_id = 3}, {1, 3}}};
    for (const auto& c : cases) {
        Board board(c.config);
        EXPECT_EQ(module_id_bytes(board), c.expected);
    }
    Board board;
    board.set_eeprom_byte(ModuleEeprom::kModuleValidAddr, 0xFF);
    EXPECT_THAT(module_id_bytes(board), ElementsAre(0xFF, 1));
    EXPECT_TRUE(board.eeprom_writes().empty()) << "the control face is not the bus";
}

TEST(ModuleEepromContents, HoldsTheSensorCalibrationIn8KiB) {
    Board board;
    // The first DCC value 1960, low byte first, and the first LRC gains.
    EXPECT_THAT(read_reg16(board, kBus, kEeprom, 0x092F, 2).data, ElementsAre(0xA8, 0x07));
    EXPECT_THAT(read_reg16(board, kBus, kEeprom, 0x07AF, 2).data,
                ElementsAre(module_lrc_byte(0), module_lrc_byte(1)));
    EXPECT_EQ(board.eeprom_byte(0x1FFF), 0);
    EXPECT_THROW(board.eeprom_byte(0x2000), std::out_of_range);
    EXPECT_THROW(board.set_eeprom_byte(-1, 0), std::out_of_range);
}

TEST(RegisterFileAddressing, AOneByteAddressIsMisuseAndMovesNothing) {
    Board board;
    board.set_eeprom_byte(0x0002, 0x22);
    ASSERT_EQ(read_reg16(board, kBus, kEeprom, 0x0001).result, 2);  // pointer now 0x0002

    // An 8-bit register address, as for a memory with one address byte.
    const int fd = board.open("/dev/i2c-9", O_RDWR);
    uint8_t reg = 0x05, byte = 0;
    std::vector<i2c_msg> messages{{kEeprom, 0, 1, &reg}, {kEeprom, I2C_M_RD, 1, &byte}};
    EXPECT_EQ(test::i2c_rdwr(board, fd, messages), 2) << "the chip acknowledges it";
    EXPECT_EQ(byte, 0x22) << "the pointer was left where it was";
    const auto faults = board.faults();
    ASSERT_EQ(faults.size(), 1u);
    EXPECT_EQ(faults[0].kind, FaultKind::i2c_misuse);
    EXPECT_THAT(faults[0].text, HasSubstr("module EEPROM"));
    EXPECT_THAT(faults[0].text, HasSubstr("2 bytes"));
}

// A chip with named registers, the way the sensor models declare theirs: a read-only
// status, and a write-only start register whose write sets the status.
class StatusChip final : public RegisterFile16 {
public:
    static constexpr uint16_t kStatus = 0x0A01, kStart = 0x0A00;
    explicit StatusChip(const Clock& clock) : RegisterFile16("status chip", 0x10000, clock) {
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
    write_reg16(board, kBus, kFreeAddress, StatusChip::kStart, {0x01});
    EXPECT_THAT(read_reg16(board, kBus, kFreeAddress, StatusChip::kStatus).data, ElementsAre(0x01))
        << "the start write acted";
    EXPECT_TRUE(board.faults().empty()) << "all of these are proper uses";

    write_reg16(board, kBus, kFreeAddress, StatusChip::kStatus, {0x00});
    EXPECT_EQ(chip->byte(StatusChip::kStatus), 0x01) << "a read-only register ignores writes";
    read_reg16(board, kBus, kFreeAddress, StatusChip::kStart);
    write_reg16(board, kBus, kFreeAddress, 0x0200, {0x00});
    const auto faults = board.faults();
    ASSERT_EQ(faults.size(), 3u);
    EXPECT_THAT(faults[0].text, HasSubstr("read-only register 0x0A01 (status)"));
    EXPECT_THAT(faults[1].text, HasSubstr("write-only register 0x0A00 (start)"));
    EXPECT_THAT(faults[2].text, HasSubstr("0x0200, which the chip does not have"));
    std::vector<uint16_t> logged;
    for (const auto& write : chip->writes()) logged.push_back(write.addr);
    EXPECT_THAT(logged, ElementsAre(StatusChip::kStart, 0x0200))
        << "the ignored write is not logged";
}

TEST(RegisterFileAddressing, BitsBeyondTheMemoryAliasAndAreRecordedInTimeOrder) {
    test::Rig rig;
    Board& board = rig.board;
    test::transfer(board, rig.spi, {0x20, 0, 0});  // chip select low: a driver chip fault
    board.sleep_ns(1000);
    ASSERT_EQ(write_reg16(board, kBus, kEeprom, 0x2005, {0x99}), 1);
    board.sleep_ns(1000);
    test::transfer(board, rig.spi, {0x20, 0, 0});
    EXPECT_EQ(board.eeprom_byte(0x0005), 0x99);
    ASSERT_EQ(board.eeprom_writes().size(), 1u);
    EXPECT_EQ(board.eeprom_writes()[0].addr, 0x0005);
    EXPECT_THAT(test::fault_kinds(board),
                ElementsAre(FaultKind::chip_not_selected, FaultKind::i2c_misuse,
                            FaultKind::chip_not_selected));
    EXPECT_THAT(board.faults()[1].text, HasSubstr("0x2005"));
}

}  // namespace
}  // namespace zoomaf::twin
