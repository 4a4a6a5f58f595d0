// The twin's virtual kernel on its own: descriptors and the sandbox, sysfs GPIO, System V
// IPC, the fault rules, the I2C buses with the module's register-file chips. Periodic events
// are met through the scene's frames and laser (scene_test), the kernel under many threads
// in the scene's and the service's threaded tests.
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "board_io.hpp"
#include "gmock/gmock.h"
#include "twin/module/module_eeprom.hpp"
#include "twin/module/sensor_id.hpp"

namespace zoomaf::twin {
namespace {

namespace fs = std::filesystem;
using Op = FaultRule::Op;
using test::gpio_file;
using test::read_path;
using test::read_reg16;
using test::write_path;
using test::write_reg16;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kSpi = "/dev/spidev1.0";

TEST(Sandbox, PathsMapUnderTheRootAndNeverLeaveIt) {
    Kernel board;
    const std::string root = board.sandbox_path("/");
    const std::pair<const char*, const char*> cases[] = {
        {"/usr/hx7/calibration/a.cfg", "/usr/hx7/calibration/a.cfg"},
        {"zy_240408_tvk_update.csv", "/zy_240408_tvk_update.csv"},
        {"./laserclearinfo", "/laserclearinfo"},
        {"../../etc/passwd", "/etc/passwd"},
        {"/usr/../../etc//./passwd", "/etc/passwd"}};
    for (auto [path, mapped] : cases) EXPECT_EQ(board.sandbox_path(path), root + mapped) << path;
    EXPECT_ERRNO(board.open("/../../../etc/passwd", O_RDONLY), ENOENT);
    board.write_file("/dev/spidev9.9", "a regular file placed by mistake");
    EXPECT_ERRNO(board.open("/dev/spidev9.9", O_RDONLY), ENOENT) << "/dev is the kernel's";
    char cwd[8] = "x";
    EXPECT_STREQ(board.getcwd(cwd, sizeof cwd), "/") << "the working directory is the root";
    EXPECT_ERRNO(board.getcwd(cwd, 1), ERANGE);
    // A relative create writes the file the absolute path reads, mode 0666 less the umask;
    // its directory must exist.
    constexpr const char* kPd = "/usr/hx7/calibration/pd_calibration.cfg";
    EXPECT_ERRNO(board.open(kPd, O_WRONLY | O_CREAT), ENOENT);
    board.write_file("/usr/hx7/calibration/other.cfg", "");
    const int fd = board.open("usr/hx7/calibration/pd_calibration.cfg", O_WRONLY | O_CREAT);
    ASSERT_EQ(board.write(fd, "1,2,3\n", 6), 6);
    board.close(fd);
    EXPECT_EQ(read_path(board, kPd), "1,2,3\n");
    struct stat st {};
    ASSERT_EQ(::stat(board.sandbox_path(kPd).c_str(), &st), 0);
    const mode_t umask_now = ::umask(0);
    ::umask(umask_now);
    EXPECT_EQ(st.st_mode & 0777, 0666u & ~umask_now);
}

TEST(Sandbox, AFreshSandboxIsPrivateAndGoesWithItsKernelAGivenOneStays) {
    std::string fresh;
    {
        Kernel board, other;
        fresh = board.sandbox_path("/");
        board.write_file("/laserclearinfo", "old");
        EXPECT_ERRNO(other.access("/laserclearinfo", F_OK), ENOENT);
        EXPECT_ERRNO(board.rename("/laserclearinfo", kSpi), EPERM);
    }
    EXPECT_FALSE(fs::exists(fresh));
    char pattern[] = "/tmp/zoomaf-twin-test-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    const std::string given = std::string(pattern) + "/board";
    Kernel(KernelConfig{.sandbox = given}).write_file("/x", "kept");
    EXPECT_TRUE(fs::exists(given + "/x"));
    fs::remove_all(pattern);
}

TEST(Gpio, ExportCreatesTheLineFilesOnceForTheNumbersItAccepts) {
    Kernel board;
    EXPECT_ERRNO(board.open(gpio_file(26, "value").c_str(), O_RDONLY), ENOENT);
    EXPECT_EQ(write_path(board, "/sys/class/gpio/export", "22\n"), 3);
    EXPECT_ERRNO(write_path(board, "/sys/class/gpio/export", "22"), EBUSY);
    for (const char* bad : {"abc", "\n", "2x", "-1", "160"})
        EXPECT_ERRNO(write_path(board, "/sys/class/gpio/export", bad), EINVAL) << bad;
    EXPECT_ERRNO(board.open(gpio_file(22, "edge").c_str(), O_RDONLY), ENOENT);
}

TEST(Ipc, KeysAreSaltedPerKernelAndObjectsAreRealAndGoWithTheKernel) {
    constexpr key_t kKey = 0x5A0F0C12;
    key_t salted = 0;
    {
        Kernel board(KernelConfig{.seed = 5}), other(KernelConfig{.seed = 5});
        EXPECT_EQ(board.salted_key(IPC_PRIVATE), IPC_PRIVATE);
        salted = board.salted_key(kKey);
        EXPECT_NE(salted, kKey);
        EXPECT_NE(salted, other.salted_key(kKey)) << "kernels of one seed still differ";
        const key_t salt = board.salted_key(1) ^ 1;  // the key that would salt to IPC_PRIVATE
        for (key_t key : {IPC_PRIVATE, board.salted_key(1), salted})
            EXPECT_NE(board.salted_key(salt), key);
        const int shm = board.shmget(kKey, 4096, IPC_CREAT | 0666);
        ASSERT_GE(shm, 0) << std::strerror(errno);
        EXPECT_EQ(::shmget(salted, 0, 0), shm) << "the kernel knows it by the salted key";
        EXPECT_NE(other.shmget(kKey, 64, IPC_CREAT | 0666), shm);
        std::strcpy(static_cast<char*>(board.shmat(shm, nullptr, 0)), "laser 123");
        EXPECT_STREQ(static_cast<char*>(board.shmat(shm, nullptr, 0)), "laser 123");
        const int sem = board.semget(kKey, 1, IPC_CREAT | 0666);
        EXPECT_EQ(::semget(salted, 0, 0), sem);
    }
    EXPECT_ERRNO(::shmget(salted, 0, 0), ENOENT) << "removed with the kernel";
    EXPECT_ERRNO(::semget(salted, 0, 0), ENOENT);
}

// For each of n opens of path: true when it failed.
std::vector<bool> open_failures(Kernel& board, const char* path, int n) {
    std::vector<bool> failed;
    for (int i = 0; i < n; ++i) {
        const int fd = board.open(path, O_RDONLY);
        failed.push_back(fd < 0);
        if (fd >= 0) board.close(fd);
    }
    return failed;
}

TEST(FaultRules, OnceCountSkipUnlimitedAndTargets) {
    Kernel board;
    constexpr const char* kFile = "/usr/hx7/calibration/motor_calibration.cfg";
    board.write_file(kFile, "1");
    board.write_file("/b", "b");
    board.inject({.op = Op::open, .target = kFile});
    EXPECT_ERRNO(board.open(kFile, O_RDONLY), EIO);
    EXPECT_THAT(open_failures(board, kFile, 2), Each(false)) << "once is once";
    EXPECT_THAT(board.injected_faults(), ElementsAre(HasSubstr(kFile)));
    EXPECT_TRUE(board.faults().empty()) << "injected faults are not the hardware's";
    board.inject({.op = Op::open, .target = kFile, .count = 2, .skip = 1});
    EXPECT_THAT(open_failures(board, kFile, 5), ElementsAre(false, true, true, false, false));
    // A relative target is the same file as the absolute path.
    board.inject(
        {.op = Op::open, .target = "usr/hx7/calibration/motor_calibration.cfg", .count = -1});
    EXPECT_THAT(open_failures(board, kFile, 3), Each(true));
    EXPECT_THAT(open_failures(board, "/b", 1), Each(false));
    board.clear_faults();
    EXPECT_THAT(open_failures(board, kFile, 2), Each(false));
    // An empty target is every object, of that call only; a failed call has no effect.
    board.inject({.op = Op::access, .error = EACCES, .count = -1});
    board.inject({.op = Op::write, .error = EAGAIN});
    board.inject({.op = Op::sleep, .error = EINTR});
    EXPECT_ERRNO(board.access(kSpi, F_OK), EACCES);
    EXPECT_ERRNO(write_path(board, "/b", "changed"), EAGAIN);
    EXPECT_EQ(board.read_file("/b"), "b");
    const uint64_t before = board.now_ns();
    EXPECT_ERRNO(board.sleep_ns(5'000'000), EINTR);
    EXPECT_EQ(board.now_ns(), before) << "a failed sleep sleeps nothing";
    EXPECT_EQ(board.with<Clock>([](const Clock& c) { return c.sleep_calls(); }), 0u);
}

TEST(FaultRules, ARateFailsAboutThatShareInTheSameWayForTheSameSeed) {
    auto run = [](uint64_t seed) {
        Kernel board(KernelConfig{.seed = seed});
        board.write_file("/f", "");
        board.inject({.op = Op::open, .target = "/f", .count = -1, .rate = 0.3});
        return open_failures(board, "/f", 400);
    };
    const auto first = run(11);
    EXPECT_EQ(first, run(11));
    EXPECT_NE(first, run(12));
    const auto failures = std::count(first.begin(), first.end(), true);
    EXPECT_TRUE(failures > 80 && failures < 160) << failures;
    Kernel board;
    EXPECT_THROW(board.inject({.op = Op::open, .rate = 1.5}), std::invalid_argument);
    EXPECT_THROW(board.inject({.op = Op::readback, .reg = 0x40}), std::invalid_argument);
    EXPECT_THROW(board.inject({.op = Op::open, .skip = -1}), std::invalid_argument);
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

TEST_F(I2cBusTest, TransfersReachTheChipOnItsBusAndAreRecorded) {
    ASSERT_EQ(write_reg16(board, 9, kChip, 0x0000, {3, 4}), 1);
    const auto read = read_reg16(board, 9, kChip, 0x0000, 2);
    EXPECT_EQ(read.result, 2) << "the kernel returns the number of messages";
    EXPECT_THAT(read.data, ElementsAre(3, 4));
    const auto transfers = test::transfers(board, 9);
    ASSERT_EQ(transfers.size(), 2u);
    EXPECT_TRUE(!transfers[1].messages[0].read &&
                transfers[1].messages[0].data == std::vector<uint8_t>({0x00, 0x00}));
    EXPECT_EQ(memory->writes().size(), 2u);
    // The same address on another bus is nothing; a device brings its bus's node with it.
    EXPECT_ERRNO(read_reg16(board, 3, kChip, 0x0000).result, ENOENT);
    board.make_i2c_device<ModuleEeprom>(3, kChip)->set_byte(0x0001, 0x9C);
    EXPECT_THAT(read_reg16(board, 3, kChip, 0x0001).data, ElementsAre(0x9C));
}

TEST_F(I2cBusTest, AddressesAreRoutedAndRefusedAsTheKernelDoes) {
    EXPECT_THROW(board.make_i2c_device<ModuleEeprom>(9, kChip), std::logic_error);
    EXPECT_THROW(board.make_i2c_device<ModuleEeprom>(9, 0x03), std::invalid_argument);
    EXPECT_THROW(board.make_i2c_device<ModuleEeprom>(9, 0x78), std::invalid_argument);
    EXPECT_THROW(board.make_i2c_device<ModuleEeprom>(-1, 0x50), std::out_of_range);
    // Messages before a NAK take effect, but no read data comes back.
    uint8_t store[3] = {0x00, 0x20, 0x44}, address[2] = {0x00, 0x20}, byte = 0xEE, probe = 0;
    EXPECT_ERRNO(rdwr({{kChip, 0, 3, store},
                       {kChip, 0, 2, address},
                       {kChip, I2C_M_RD, 1, &byte},
                       {0x51, 0, 1, &probe}}),
                 ENXIO);
    EXPECT_EQ(memory->byte(0x0020), 0x44);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_EQ(test::transfers(board, 9).back().messages.back().addr, 0x51) << "recorded to the NAK";
    // The kernel's limits are refused before anything is sent.
    const i2c_msg zero{kChip, 0, 0, nullptr};
    EXPECT_EQ(rdwr(std::vector<i2c_msg>(42, zero)), 42) << "42 address-only probes go through";
    const std::pair<std::vector<i2c_msg>, int> refused[] = {
        {std::vector<i2c_msg>(43, zero), EINVAL},
        {{}, EINVAL},
        {{{kChip, 0, 3, store}, {kChip, I2C_M_RD, 0, store}}, EOPNOTSUPP},
        {{{kChip, I2C_M_RD, 8193, store}}, EINVAL},
        {{{kChip, I2C_M_TEN | I2C_M_RD, 1, store}}, EOPNOTSUPP},
        {{{kChip, I2C_M_RD, 1, nullptr}}, EFAULT},
    };
    for (const auto& [messages, error] : refused) EXPECT_ERRNO(rdwr(messages), error);
    EXPECT_EQ(test::transfers(board, 9).size(), 2u) << "the NAKed transfer and the probes";
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
    std::vector<uint16_t> logged;
    for (const auto& write : ids->writes()) logged.push_back(write.addr);
    EXPECT_THAT(logged, ElementsAre(SensorIdRegisters::kOtpPage, 0x0200))
        << "the ignored write is not logged";
}

}  // namespace
}  // namespace zoomaf::twin
