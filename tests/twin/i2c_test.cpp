// /dev/i2c-N: I2C_RDWR with the kernel's structures, routing by bus and address, NAKs,
// the kernel's refusals, injected faults and the I2C_SLAVE read/write path.
#include "board_io.hpp"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

using test::read_reg16;
using test::write_reg16;
using ::testing::Each;
using ::testing::ElementsAre;

constexpr int kBus = Board::kModuleBus;
constexpr uint16_t kEeprom = ModuleEeprom::kAddress;

class I2cBusTest : public ::testing::Test {
protected:
    void SetUp() override {
        fd = board.open("/dev/i2c-9", O_RDWR);
        ASSERT_GE(fd, 100);
    }
    void TearDown() override { board.close(fd); }
    Board board;
    int fd = -1;
};

TEST_F(I2cBusTest, AnAddressWriteAndAReadReturnEepromBytes) {
    board.set_eeprom_byte(0x0123, 0x5A);
    const auto read = read_reg16(board, kBus, kEeprom, 0x0123);
    EXPECT_EQ(read.result, 2) << "the kernel returns the number of messages";
    EXPECT_THAT(read.data, ElementsAre(0x5A));

    const auto transfers = board.i2c_transfers(kBus);
    ASSERT_EQ(transfers.size(), 1u);
    EXPECT_EQ(transfers[0].error, 0);
    ASSERT_EQ(transfers[0].messages.size(), 2u);
    EXPECT_FALSE(transfers[0].messages[0].read);
    EXPECT_THAT(transfers[0].messages[0].data, ElementsAre(0x01, 0x23));
    EXPECT_TRUE(transfers[0].messages[1].read);
    EXPECT_THAT(transfers[0].messages[1].data, ElementsAre(0x5A));
    EXPECT_TRUE(board.eeprom_writes().empty()) << "setting the address stores nothing";
}

TEST_F(I2cBusTest, AThreeByteWriteStoresOneByte) {
    const uint8_t before = board.eeprom_byte(0x092E), after = board.eeprom_byte(0x0930);
    EXPECT_EQ(write_reg16(board, kBus, kEeprom, 0x092F, {0xA5}), 1);
    EXPECT_EQ(board.eeprom_byte(0x092F), 0xA5);
    EXPECT_EQ(board.eeprom_byte(0x092E), before) << "the neighbours keep the module's data";
    EXPECT_EQ(board.eeprom_byte(0x0930), after);
    const auto writes = board.eeprom_writes();
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].addr, 0x092F);
    EXPECT_EQ(writes[0].value, 0xA5);
    EXPECT_EQ(writes[0].time_ns, board.now_ns());
    EXPECT_THAT(read_reg16(board, kBus, kEeprom, 0x092F).data, ElementsAre(0xA5));
}

TEST_F(I2cBusTest, ReadsAndWritesAutoIncrementAndRollOverAtTheEnd) {
    ASSERT_EQ(write_reg16(board, kBus, kEeprom, 0x1FFE, {1, 2, 3, 4}), 1);
    EXPECT_EQ(board.eeprom_byte(0x1FFE), 1);
    EXPECT_EQ(board.eeprom_byte(0x1FFF), 2);
    EXPECT_EQ(board.eeprom_byte(0x0000), 3) << "rolled over to the start";
    EXPECT_EQ(board.eeprom_byte(0x0001), 4);
    EXPECT_THAT(read_reg16(board, kBus, kEeprom, 0x1FFE, 4).data, ElementsAre(1, 2, 3, 4));

    // A read without an address goes on from where the last access left the pointer.
    for (int i = 0; i < 4; ++i) board.set_eeprom_byte(0x07AF + i, static_cast<uint8_t>(0x10 + i));
    EXPECT_THAT(read_reg16(board, kBus, kEeprom, 0x07AF, 2).data, ElementsAre(0x10, 0x11));
    std::vector<uint8_t> next(2, 0);
    std::vector<i2c_msg> current{{kEeprom, I2C_M_RD, 2, next.data()}};
    EXPECT_EQ(test::i2c_rdwr(board, fd, current), 1);
    EXPECT_THAT(next, ElementsAre(0x12, 0x13));
    EXPECT_TRUE(board.faults().empty());
}

TEST_F(I2cBusTest, MessagesBeforeANakTakeEffectButNoReadDataComesBack) {
    board.set_eeprom_byte(0x0010, 0x33);
    uint8_t store[3] = {0x00, 0x20, 0x44};
    uint8_t address[2] = {0x00, 0x10};
    uint8_t byte = 0xEE;
    uint8_t probe[1] = {0};
    std::vector<i2c_msg> messages{{kEeprom, 0, 3, store},
                                  {kEeprom, 0, 2, address},
                                  {kEeprom, I2C_M_RD, 1, &byte},
                                  {0x51, 0, 1, probe}};
    errno = 0;
    EXPECT_EQ(test::i2c_rdwr(board, fd, messages), -1);
    EXPECT_EQ(errno, ENXIO);
    EXPECT_EQ(board.eeprom_byte(0x0020), 0x44) << "the write went out before the NAK";
    EXPECT_EQ(byte, 0xEE) << "a failed transfer copies nothing back";
    const auto transfers = board.i2c_transfers(kBus);
    ASSERT_EQ(transfers.size(), 1u);
    EXPECT_EQ(transfers[0].error, ENXIO);
    ASSERT_EQ(transfers[0].messages.size(), 4u);
    EXPECT_EQ(transfers[0].messages[3].addr, 0x51);
}

TEST_F(I2cBusTest, TheKernelsLimitsAreRefusedBeforeAnythingIsSent) {
    std::vector<uint8_t> bytes(3, 0);
    // 42 messages (address-only probes) go through; 43 do not.
    std::vector<i2c_msg> many(42, i2c_msg{kEeprom, 0, 0, nullptr});
    EXPECT_EQ(test::i2c_rdwr(board, fd, many), 42);
    many.push_back(i2c_msg{kEeprom, 0, 0, nullptr});
    errno = 0;
    EXPECT_EQ(test::i2c_rdwr(board, fd, many), -1);
    EXPECT_EQ(errno, EINVAL);

    std::vector<i2c_msg> none;
    errno = 0;
    EXPECT_EQ(test::i2c_rdwr(board, fd, none), -1);
    EXPECT_EQ(errno, EINVAL);

    // A zero-length read refuses the whole transfer, the write before it included.
    uint8_t store[3] = {0x00, 0x05, 0x77};
    std::vector<i2c_msg> zero_read{{kEeprom, 0, 3, store}, {kEeprom, I2C_M_RD, 0, bytes.data()}};
    errno = 0;
    EXPECT_EQ(test::i2c_rdwr(board, fd, zero_read), -1);
    EXPECT_EQ(errno, EOPNOTSUPP);
    EXPECT_EQ(board.eeprom_byte(0x0005), 0);

    std::vector<i2c_msg> too_long{{kEeprom, I2C_M_RD, 8193, bytes.data()}};
    errno = 0;
    EXPECT_EQ(test::i2c_rdwr(board, fd, too_long), -1);
    EXPECT_EQ(errno, EINVAL);
    std::vector<i2c_msg> ten_bit{{kEeprom, I2C_M_TEN | I2C_M_RD, 1, bytes.data()}};
    errno = 0;
    EXPECT_EQ(test::i2c_rdwr(board, fd, ten_bit), -1);
    EXPECT_EQ(errno, EOPNOTSUPP);
    std::vector<i2c_msg> no_buffer{{kEeprom, I2C_M_RD, 1, nullptr}};
    errno = 0;
    EXPECT_EQ(test::i2c_rdwr(board, fd, no_buffer), -1);
    EXPECT_EQ(errno, EFAULT);

    EXPECT_EQ(board.i2c_transfers(kBus).size(), 1u) << "only the 42 messages reached the bus";
}

TEST_F(I2cBusTest, FuncsReportsPlainI2cAndOtherRequestsFail) {
    unsigned long funcs = 0;
    ASSERT_EQ(board.ioctl(fd, I2C_FUNCS, &funcs), 0);
    EXPECT_EQ(funcs & I2C_FUNC_I2C, static_cast<unsigned long>(I2C_FUNC_I2C));
    EXPECT_EQ(funcs & I2C_FUNC_10BIT_ADDR, 0u);
    uint32_t mode = 0;
    errno = 0;
    EXPECT_EQ(board.ioctl(fd, SPI_IOC_RD_MODE32, &mode), -1);
    EXPECT_EQ(errno, ENOTTY);
    errno = 0;
    EXPECT_EQ(board.ioctl(fd, I2C_RDWR, nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST(I2cRouting, TheSameAddressOnAnotherBusIsAnotherDeviceOrNothing) {
    Board board;
    board.set_eeprom_byte(0x0000, 0x01);
    errno = 0;
    const auto nothing = read_reg16(board, Board::kSensorIdBus, kEeprom, 0x0000);
    EXPECT_EQ(nothing.result, -1);
    EXPECT_EQ(errno, ENXIO) << "bus 2 has nothing at 0x50";

    auto other = board.make_i2c_device<ModuleEeprom>(Board::kSensorIdBus, kEeprom);
    ASSERT_EQ(write_reg16(board, Board::kSensorIdBus, kEeprom, 0x0000, {0x7E}), 1);
    EXPECT_EQ(other->byte(0x0000), 0x7E);
    EXPECT_EQ(board.eeprom_byte(0x0000), 0x01) << "bus 9's memory is another chip";
    EXPECT_THAT(read_reg16(board, kBus, kEeprom, 0x0000).data, ElementsAre(0x01));
    EXPECT_EQ(board.i2c_transfers(Board::kSensorIdBus).size(), 2u);
    EXPECT_EQ(board.i2c_transfers(kBus).size(), 1u);

    // A device on a bus the board lacks brings the bus's node with it.
    errno = 0;
    EXPECT_EQ(board.open("/dev/i2c-4", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    auto chip = board.make_i2c_device<ModuleEeprom>(4, 0x57);
    chip->set_byte(0x0100, 0x9C);
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

TEST(I2cNak, AnAbsentAddressFailsWithEnxio) {
    Board board;
    errno = 0;
    const auto read = read_reg16(board, kBus, 0x51, 0x0000, 2);
    EXPECT_EQ(read.result, -1);
    EXPECT_EQ(errno, ENXIO);
    EXPECT_THAT(read.data, Each(0xEE));
}

TEST(I2cNak, AnAddressMadeAbsentNaksUntilItIsBack) {
    Board board;
    board.set_i2c_present(kBus, kEeprom, false);
    errno = 0;
    EXPECT_EQ(read_reg16(board, kBus, kEeprom, 0x0000).result, -1);
    EXPECT_EQ(errno, ENXIO);
    errno = 0;
    EXPECT_EQ(write_reg16(board, kBus, kEeprom, 0x0000, {0x05}), -1);
    EXPECT_EQ(errno, ENXIO);
    EXPECT_EQ(board.eeprom_byte(0x0000), 1) << "the absent chip keeps its contents";
    board.set_eeprom_byte(0x0001, 0x10);  // the control face still reaches it

    board.set_i2c_present(kBus, kEeprom, true);
    const auto read = read_reg16(board, kBus, kEeprom, 0x0001);
    EXPECT_EQ(read.result, 2);
    EXPECT_THAT(read.data, ElementsAre(0x10));

    EXPECT_THROW(board.set_i2c_present(kBus, 0x51, false), std::out_of_range);
    EXPECT_THROW(board.set_i2c_present(3, kEeprom, false), std::out_of_range);
}

TEST(I2cFaults, AnInjectedIoctlFaultFailsOneTransferOnItsBusOnly) {
    Board board;
    board.set_eeprom_byte(0x0000, 0x01);
    board.inject({.op = FaultRule::Op::ioctl, .path = "/dev/i2c-2", .count = -1});
    board.inject({.op = FaultRule::Op::ioctl, .path = "/dev/i2c-9", .error = EREMOTEIO});
    errno = 0;
    const auto failed = read_reg16(board, kBus, kEeprom, 0x0000);
    EXPECT_EQ(failed.result, -1);
    EXPECT_EQ(errno, EREMOTEIO);
    EXPECT_THAT(failed.data, ElementsAre(0xEE));
    EXPECT_TRUE(board.i2c_transfers(kBus).empty()) << "nothing reached the wire";

    const auto next = read_reg16(board, kBus, kEeprom, 0x0000);
    EXPECT_EQ(next.result, 2);
    EXPECT_THAT(next.data, ElementsAre(0x01));
    EXPECT_EQ(board.injected_faults().size(), 1u);
}

TEST_F(I2cBusTest, PlainReadAndWriteGoToTheAddressI2cSlaveSelects) {
    uint8_t byte = 0;
    errno = 0;
    EXPECT_EQ(board.read(fd, &byte, 1), -1) << "no address selected yet: address 0 NAKs";
    EXPECT_EQ(errno, ENXIO);

    ASSERT_EQ(board.ioctl(fd, I2C_SLAVE, reinterpret_cast<void*>(uintptr_t{kEeprom})), 0);
    const uint8_t store[3] = {0x00, 0x40, 0x77};
    EXPECT_EQ(board.write(fd, store, 3), 3);
    EXPECT_EQ(board.eeprom_byte(0x0040), 0x77);
    EXPECT_EQ(board.write(fd, store, 2), 2) << "sets the address pointer back to 0x0040";
    EXPECT_EQ(board.read(fd, &byte, 1), 1);
    EXPECT_EQ(byte, 0x77);
    errno = 0;
    EXPECT_EQ(board.read(fd, &byte, 0), -1) << "a zero-length read";
    EXPECT_EQ(errno, EOPNOTSUPP);

    // The address belongs to the open file.
    const int other = board.open("/dev/i2c-9", O_RDWR);
    ASSERT_EQ(board.ioctl(other, I2C_SLAVE_FORCE, reinterpret_cast<void*>(uintptr_t{0x51})), 0);
    errno = 0;
    EXPECT_EQ(board.write(other, store, 2), -1);
    EXPECT_EQ(errno, ENXIO);
    EXPECT_EQ(board.read(fd, &byte, 1), 1);
    errno = 0;
    EXPECT_EQ(board.ioctl(fd, I2C_SLAVE, reinterpret_cast<void*>(uintptr_t{0x80})), -1);
    EXPECT_EQ(errno, EINVAL) << "not a 7-bit address";
    board.close(other);
}

}  // namespace
}  // namespace zoomaf::twin
