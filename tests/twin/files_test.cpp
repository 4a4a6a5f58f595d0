// Descriptor table and sandbox mapping of the twin board.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "board_io.hpp"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

namespace fs = std::filesystem;
constexpr const char* kSpi = "/dev/spidev1.0";

TEST(Descriptors, StartAtHundredAndReuseTheLowestFree) {
    Board board;
    board.write_file("/a", "a");
    EXPECT_EQ(board.open("/a", O_RDONLY), 100);
    EXPECT_EQ(board.open("/a", O_RDONLY), 101);
    EXPECT_EQ(board.open(kSpi, O_RDWR), 102);
    ASSERT_EQ(board.close(101), 0);
    EXPECT_EQ(board.open("/a", O_RDONLY), 101);
}

TEST(Descriptors, UnknownClosedOrWrongModeDescriptorsFailWithEbadf) {
    Board board;
    board.write_file("/f", "content");
    char byte = 0;
    EXPECT_ERRNO(board.close(100), EBADF);
    EXPECT_ERRNO(board.read(3, &byte, 1), EBADF);  // a stdio-like number means nothing here
    EXPECT_ERRNO(board.write(100, &byte, 1), EBADF);
    EXPECT_ERRNO(board.ioctl(100, SPI_IOC_RD_MODE, &byte), EBADF);
    EXPECT_ERRNO(board.fsync(100), EBADF);
    const int spi = board.open(kSpi, O_RDWR);
    ASSERT_EQ(board.close(spi), 0);
    EXPECT_ERRNO(board.close(spi), EBADF);
    EXPECT_ERRNO(board.write(board.open("/f", O_RDONLY), "x", 1), EBADF);
    EXPECT_ERRNO(board.read(board.open("/f", O_WRONLY), &byte, 1), EBADF);
}

TEST(Descriptors, DestroyingTheBoardClosesTheRealFiles) {
    auto process_fds = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator{});
    };
    const auto before = process_fds();
    {
        Board board;
        board.write_file("/x", "1");
        for (int i = 0; i < 4; ++i) ASSERT_GE(board.open("/x", O_RDONLY), 100);
        EXPECT_EQ(process_fds(), before + 4);
    }
    EXPECT_EQ(process_fds(), before);
}

TEST(Sandbox, PathsMapUnderTheRootAndDotDotNeverLeavesIt) {
    Board board;
    const std::string root = board.sandbox_path("/");
    const struct {
        const char *path, *mapped;
    } cases[] = {{"/usr/hx7/calibration/a.cfg", "/usr/hx7/calibration/a.cfg"},
                 {"zy_240408_tvk_update.csv", "/zy_240408_tvk_update.csv"},
                 {"./laserclearinfo", "/laserclearinfo"},
                 {"../../etc/passwd", "/etc/passwd"},
                 {"/usr/../../etc//./passwd", "/etc/passwd"}};
    for (const auto& c : cases) EXPECT_EQ(board.sandbox_path(c.path), root + c.mapped) << c.path;
    EXPECT_ERRNO(board.open("/../../../etc/passwd", O_RDONLY), ENOENT);

    char cwd[8] = "x";
    EXPECT_STREQ(board.getcwd(cwd, sizeof cwd), "/") << "the working directory is the root";
    EXPECT_ERRNO(board.getcwd(cwd, 1), ERANGE);
    // A relative open writes the file the absolute path reads.
    const int fd = board.open("zy_240408_tvk_update.csv", O_WRONLY | O_CREAT | O_TRUNC);
    ASSERT_EQ(board.write(fd, "1,2,3\n", 6), 6);
    board.close(fd);
    EXPECT_EQ(test::read_path(board, "/zy_240408_tvk_update.csv"), "1,2,3\n");
}

TEST(Sandbox, OpenCreateNeedsTheParentDirectoryAndUsesMode0666) {
    Board board;
    constexpr const char* kPd = "/usr/hx7/calibration/pd_calibration.cfg";
    EXPECT_ERRNO(board.open(kPd, O_WRONLY | O_CREAT), ENOENT);
    board.write_file("/usr/hx7/calibration/other.cfg", "");
    EXPECT_GE(board.open(kPd, O_WRONLY | O_CREAT), 100);
    struct stat st {};
    ASSERT_EQ(::stat(board.sandbox_path(kPd).c_str(), &st), 0);
    const mode_t umask_now = ::umask(0);
    ::umask(umask_now);
    EXPECT_EQ(st.st_mode & 0777, 0666u & ~umask_now);
}

TEST(Sandbox, AccessTellsExistenceAndKernelPathsNeverFallBackToTheSandbox) {
    Board board;
    constexpr const char* kLaser = "/usr/hx7/calibration/lasertable_calibration.cfg";
    EXPECT_ERRNO(board.access(kLaser, F_OK), ENOENT);
    board.write_file(kLaser, "x");
    EXPECT_EQ(board.access(kLaser, R_OK), 0);
    for (const char* node : {kSpi, "/sys/class/gpio", "/dev/i2c-9", "/dev/i2c-2"})
        EXPECT_EQ(board.access(node, R_OK | W_OK), 0) << node;
    EXPECT_ERRNO(board.access("/dev/i2c-8", F_OK), ENOENT);  // no such bus on this board
    board.write_file("/dev/spidev9.9", "a regular file placed by mistake");
    EXPECT_ERRNO(board.open("/dev/spidev9.9", O_RDONLY), ENOENT);
    EXPECT_ERRNO(board.open("/sys/class/gpio", O_RDONLY), EISDIR);
}

TEST(Sandbox, FopenGivesARealStreamOnSandboxFilesOnly) {
    Board board;
    board.write_file("/usr/hx7/calibration/keep", "");
    FILE* out = board.fopen("/usr/hx7/calibration/pd_calibration.cfg", "w");
    ASSERT_NE(out, nullptr);
    std::fprintf(out, "%d %d\n", 7, -3);
    std::fclose(out);
    EXPECT_EQ(board.read_file("/usr/hx7/calibration/pd_calibration.cfg"), "7 -3\n");
    EXPECT_ERRNO(board.fopen("/usr/hx7/calibration/missing.cfg", "r"), ENOENT);
    EXPECT_ERRNO(board.fopen(kSpi, "r"), ENXIO);
}

TEST(Sandbox, AFreshSandboxIsPrivateAndGoesWithItsBoardAGivenOneStays) {
    std::string fresh;
    {
        Board board, other;
        fresh = board.sandbox_path("/");
        board.write_file("/laserclearinfo", "first");
        EXPECT_ERRNO(other.access("/laserclearinfo", F_OK), ENOENT);
    }
    EXPECT_FALSE(fs::exists(fresh));

    char pattern[] = "/tmp/zoomaf-twin-test-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    const std::string given = std::string(pattern) + "/board";
    Board(BoardConfig{.sandbox = given}).write_file("/x", "kept");
    EXPECT_TRUE(fs::exists(given + "/x"));
    fs::remove_all(pattern);
}

TEST(Sandbox, RenameReplacesAFileAndFsyncFlushesItUnlessAFaultIsInjected) {
    Board board;
    board.write_file("/laserclearinfo", "old");
    const int fd = board.open("laserclearinfo.tmp", O_WRONLY | O_CREAT | O_TRUNC);
    ASSERT_EQ(board.write(fd, "new", 3), 3);
    board.inject({.op = FaultRule::Op::fsync, .error = ENOSPC});
    EXPECT_ERRNO(board.fsync(fd), ENOSPC);
    EXPECT_EQ(board.fsync(fd), 0) << "the fault was delivered once";
    board.inject({.op = FaultRule::Op::rename, .path = "laserclearinfo.tmp", .error = EIO});
    EXPECT_ERRNO(board.rename("/laserclearinfo.tmp", "/laserclearinfo"), EIO);
    EXPECT_EQ(board.read_file("/laserclearinfo"), "old");
    EXPECT_ERRNO(board.rename("/laserclearinfo.tmp", kSpi), EPERM);
    EXPECT_EQ(board.rename("./laserclearinfo.tmp", "./laserclearinfo"), 0);
    EXPECT_EQ(board.read_file("/laserclearinfo"), "new");
    EXPECT_EQ(board.access("/laserclearinfo.tmp", F_OK), -1);
    EXPECT_ERRNO(board.fsync(board.open(kSpi, O_RDWR)), EINVAL) << "a node has nothing to flush";
}

}  // namespace
}  // namespace zoomaf::twin
