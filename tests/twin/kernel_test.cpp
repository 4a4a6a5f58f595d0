// The twin's virtual kernel where the service's tests would not notice it going wrong: the
// sandbox, sysfs GPIO, System V IPC, the I2C buses and register files, and
// the clock's real-time mode, which the bench and the demos run in (ctest runs it alone).
#include <sys/shm.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "board_io.hpp"
#include "gmock/gmock.h"
#include "twin/module/module_eeprom.hpp"
#include "twin/module/sensor_id.hpp"

namespace zoomaf::twin {
namespace {

namespace fs = std::filesystem;
using test::read_path;
using test::read_reg16;
using test::write_path;
using test::write_reg16;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Each board has a private sandbox and its own System V keys, both gone with it: tests never
// meet each other's files or segments, nor the host's.
TEST(Isolation, PathsMapUnderAPrivateRootAndIpcKeysAreSaltedPerKernel) {
    constexpr key_t kKey = 0x5A0F0C12;
    key_t salted = 0;
    std::string root;
    {
        Kernel board(KernelConfig{.seed = 5}), other(KernelConfig{.seed = 5});
        root = board.sandbox_path("/");
        const std::pair<const char*, const char*> cases[] = {
            {"/usr/hx7/calibration/a.cfg", "/usr/hx7/calibration/a.cfg"},
            {"../../etc/passwd", "/etc/passwd"},
            {"/usr/../../etc//./passwd", "/etc/passwd"}};
        for (auto [path, mapped] : cases)
            EXPECT_EQ(board.sandbox_path(path), root + mapped) << path;
        EXPECT_ERRNO(board.open("/../../../etc/passwd", O_RDONLY), ENOENT);
        board.write_file("/dev/spidev9.9", "a regular file placed by mistake");
        EXPECT_ERRNO(board.open("/dev/spidev9.9", O_RDONLY), ENOENT) << "/dev is the kernel's";
        board.write_file("/laserclearinfo", "old");
        EXPECT_ERRNO(other.access("/laserclearinfo", F_OK), ENOENT) << "another board's";
        // A relative create writes the file the absolute path reads; its directory must exist.
        constexpr const char* kPd = "/usr/hx7/calibration/pd_calibration.cfg";
        EXPECT_ERRNO(board.open(kPd, O_WRONLY | O_CREAT), ENOENT);
        board.write_file("/usr/hx7/calibration/other.cfg", "");
        const int fd = board.open("usr/hx7/calibration/pd_calibration.cfg", O_WRONLY | O_CREAT);
        ASSERT_EQ(board.write(fd, "1,2,3\n", 6), 6);
        board.close(fd);
        EXPECT_EQ(read_path(board, kPd), "1,2,3\n");

        EXPECT_EQ(board.salted_key(IPC_PRIVATE), IPC_PRIVATE);
        salted = board.salted_key(kKey);
        EXPECT_NE(salted, kKey);
        EXPECT_NE(salted, other.salted_key(kKey)) << "kernels of one seed still differ";
        const int shm = board.shmget(kKey, 4096, IPC_CREAT | 0666);
        ASSERT_GE(shm, 0) << std::strerror(errno);
        EXPECT_EQ(::shmget(salted, 0, 0), shm) << "the kernel knows it by the salted key";
        const int sem = board.semget(kKey, 1, IPC_CREAT | 0666);  // made before it is looked up
        EXPECT_EQ(::semget(salted, 0, 0), sem);
    }
    EXPECT_FALSE(fs::exists(root));
    EXPECT_ERRNO(::shmget(salted, 0, 0), ENOENT);
    EXPECT_ERRNO(::semget(salted, 0, 0), ENOENT);
}

// The module memory (8 KiB, every byte readable and writable) on bus 9 and the sensor's
// identification registers (named registers, some read-only) on bus 2: the two shapes of
// register file the module's chips take.
class I2cBusTest : public ::testing::Test {
protected:
    void SetUp() override {
        memory = board.make_i2c_device<ModuleEeprom>(9, kChip);
        ids = board.make_i2c_device<SensorIdRegisters>(2, SensorIdRegisters::kAddress);
    }
    int rdwr(std::vector<i2c_msg> messages) { return test::i2c_rdwr_on(board, 9, messages); }
    Kernel board;
    std::shared_ptr<ModuleEeprom> memory;
    std::shared_ptr<SensorIdRegisters> ids;
    static constexpr uint16_t kChip = ModuleEeprom::kAddress;
};

// Messages before a NAK take effect, but no read data comes back; the kernel's limits are
// refused before anything is sent.
TEST_F(I2cBusTest, TransfersAreRefusedAndNakedAsTheKernelDoes) {
    EXPECT_ERRNO(read_reg16(board, 3, kChip, 0x0000).result, ENOENT) << "another bus";
    EXPECT_THROW(board.make_i2c_device<ModuleEeprom>(9, kChip), std::logic_error);
    uint8_t store[3] = {0x00, 0x20, 0x44}, address[2] = {0x00, 0x20}, byte = 0xEE, probe = 0;
    EXPECT_ERRNO(rdwr({{kChip, 0, 3, store},
                       {kChip, 0, 2, address},
                       {kChip, I2C_M_RD, 1, &byte},
                       {0x51, 0, 1, &probe}}),
                 ENXIO);
    EXPECT_EQ(memory->byte(0x0020), 0x44);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_EQ(test::transfers(board, 9).size(), 1u) << "the NAKed one";
}

TEST_F(I2cBusTest, MisuseIsRecordedAndReadOnlyRegistersKeepTheirValue) {
    constexpr uint16_t kIds = SensorIdRegisters::kAddress, kStatus = SensorIdRegisters::kOtpStatus;
    write_reg16(board, 2, kIds, SensorIdRegisters::kOtpPage, {0x7F});
    EXPECT_THAT(read_reg16(board, 2, kIds, kStatus).data, ElementsAre(0x00));
    EXPECT_TRUE(board.faults().empty()) << "all of these are proper uses";
    write_reg16(board, 2, kIds, kStatus, {0x01});
    EXPECT_EQ(ids->byte(kStatus), 0x00) << "a read-only register ignores writes";
    write_reg16(board, 2, kIds, 0x0200, {0x00});
    write_reg16(board, 9, kChip, 0x2001, {0x99});  // beyond 8 KiB: aliases to 0x0001
    EXPECT_EQ(memory->byte(0x0001), 0x99);
    uint8_t reg = 0x05, byte = 0xEE;  // an 8-bit register address moves nothing
    EXPECT_EQ(rdwr({{kChip, 0, 1, &reg}, {kChip, I2C_M_RD, 1, &byte}}), 2) << "acknowledged";
    EXPECT_EQ(byte, 0x00) << "read on from 0x0002";
    std::vector<std::string> texts;
    for (const auto& fault : board.faults()) texts.push_back(fault.text);
    EXPECT_THAT(texts,
                ElementsAre(HasSubstr("read-only register 0x0A01 (OTP read status)"),
                            HasSubstr("0x0200, which the chip does not have"),
                            HasSubstr("module EEPROM: address 0x2001"), HasSubstr("2 bytes")));
}

// Switching to real time and back never jumps; virtual time stands still between sleeps.
constexpr auto real_ns = &Clock::real_monotonic_ns;

TEST(RealTimeClock, ASleepTakesItsRealTimeDividedByTheSpeedAndModesSwitchContinuously) {
    Kernel board;
    board.sleep_ns(5'000'000'000ull);
    const uint64_t before = board.now_ns(), real_start = real_ns();
    board.set_real_time(10.0);
    EXPECT_LT(board.now_ns() - before, 50'000'000u) << "no jump when switching";
    EXPECT_EQ(board.sleep_ns(40'000'000), 0);  // 4 ms of real time
    const uint64_t real_elapsed = real_ns() - real_start, elapsed = board.now_ns() - before;
    EXPECT_GE(real_elapsed, 4'000'000u);
    EXPECT_LT(real_elapsed, 14'000'000u) << "room for a loaded machine";
    EXPECT_GE(elapsed, 40'000'000u);
    EXPECT_LE(elapsed, real_elapsed * 10 + 1'000'000u);
    board.set_virtual_time();
    const uint64_t frozen = board.now_ns();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(board.now_ns(), frozen) << "virtual time stands still between sleeps";
}

}  // namespace
}  // namespace zoomaf::twin
