// Descriptor table and sandbox mapping of the twin board.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "board_io.hpp"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

using test::read_path;
using test::write_path;

int count_open_process_fds() {
    int count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

TEST(Descriptors, StartAtHundredAndReuseTheLowestFree) {
    Board board;
    board.write_file("/a", "a");
    const int first = board.open("/a", O_RDONLY);
    const int second = board.open("/a", O_RDONLY);
    const int third = board.open("/dev/spidev1.0", O_RDWR);
    EXPECT_EQ(first, 100);
    EXPECT_EQ(second, 101);
    EXPECT_EQ(third, 102);
    ASSERT_EQ(board.close(second), 0);
    EXPECT_EQ(board.open("/a", O_RDONLY), 101);
    EXPECT_EQ(board.open_descriptors(), 3u);
}

TEST(Descriptors, UnknownDescriptorsFailWithEbadf) {
    Board board;
    char byte = 0;
    errno = 0;
    EXPECT_EQ(board.close(100), -1);
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    EXPECT_EQ(board.read(3, &byte, 1), -1);  // a real stdio-like number means nothing here
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    EXPECT_EQ(board.write(100, &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    EXPECT_EQ(board.ioctl(100, SPI_IOC_RD_MODE, &byte), -1);
    EXPECT_EQ(errno, EBADF);

    const int fd = board.open("/dev/spidev1.0", O_RDWR);
    ASSERT_EQ(board.close(fd), 0);
    errno = 0;
    EXPECT_EQ(board.close(fd), -1) << "closing twice";
    EXPECT_EQ(errno, EBADF);
}

TEST(Descriptors, AccessModeIsEnforced) {
    Board board;
    board.write_file("/f", "content");
    char buf[8];
    const int read_only = board.open("/f", O_RDONLY);
    errno = 0;
    EXPECT_EQ(board.write(read_only, "x", 1), -1);
    EXPECT_EQ(errno, EBADF);
    const int write_only = board.open("/f", O_WRONLY);
    errno = 0;
    EXPECT_EQ(board.read(write_only, buf, sizeof buf), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(Descriptors, DestroyingTheBoardClosesTheRealFiles) {
    const int before = count_open_process_fds();
    {
        Board board;
        board.write_file("/x", "1");
        for (int i = 0; i < 4; ++i) ASSERT_GE(board.open("/x", O_RDONLY), 100);
        EXPECT_EQ(count_open_process_fds(), before + 4);
    }
    EXPECT_EQ(count_open_process_fds(), before);
}

TEST(Sandbox, AbsolutePathsLiveUnderTheSandbox) {
    Board board;
    board.write_file("/usr/hx7/calibration/motor_calibration.cfg", "12 34\n");
    const std::string real = board.sandbox_path("/usr/hx7/calibration/motor_calibration.cfg");
    EXPECT_EQ(real, board.sandbox_path("/") + "/usr/hx7/calibration/motor_calibration.cfg");
    EXPECT_TRUE(std::filesystem::exists(real));
    EXPECT_EQ(read_path(board, "/usr/hx7/calibration/motor_calibration.cfg"), "12 34\n");
}

TEST(Sandbox, RelativePathsResolveAgainstTheSandboxRoot) {
    Board board;
    const int fd = board.open("zy_240408_tvk_update.csv", O_WRONLY | O_CREAT | O_TRUNC);
    ASSERT_GE(fd, 100);
    ASSERT_EQ(board.write(fd, "1,2,3\n", 6), 6);
    board.close(fd);
    EXPECT_EQ(board.read_file("/zy_240408_tvk_update.csv"), "1,2,3\n");
    EXPECT_EQ(board.sandbox_path("./laserclearinfo"), board.sandbox_path("/laserclearinfo"));
}

TEST(Sandbox, DotDotNeverLeavesTheSandbox) {
    Board board;
    const std::string root = board.sandbox_path("/");
    EXPECT_EQ(board.sandbox_path("../../etc/passwd"), root + "/etc/passwd");
    EXPECT_EQ(board.sandbox_path("/usr/../../etc//./passwd"), root + "/etc/passwd");
    errno = 0;
    EXPECT_EQ(board.open("/../../../etc/passwd", O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(Sandbox, OpenCreateNeedsTheParentDirectory) {
    Board board;
    errno = 0;
    EXPECT_EQ(board.open("/usr/hx7/calibration/pd_calibration.cfg", O_WRONLY | O_CREAT), -1);
    EXPECT_EQ(errno, ENOENT);
    board.write_file("/usr/hx7/calibration/other.cfg", "");
    const int fd = board.open("/usr/hx7/calibration/pd_calibration.cfg", O_WRONLY | O_CREAT);
    EXPECT_GE(fd, 100);
    struct stat st {};
    ASSERT_EQ(::stat(board.sandbox_path("/usr/hx7/calibration/pd_calibration.cfg").c_str(), &st),
              0);
    const mode_t umask_now = ::umask(0);
    ::umask(umask_now);
    EXPECT_EQ(st.st_mode & 0777, 0666u & ~umask_now) << "created with mode 0666";
}

TEST(Sandbox, AccessTellsExistenceOfFilesAndNodes) {
    Board board;
    errno = 0;
    EXPECT_EQ(board.access("/usr/hx7/calibration/lasertable_calibration.cfg", F_OK), -1);
    EXPECT_EQ(errno, ENOENT);
    board.write_file("/usr/hx7/calibration/lasertable_calibration.cfg", "x");
    EXPECT_EQ(board.access("/usr/hx7/calibration/lasertable_calibration.cfg", R_OK), 0);
    EXPECT_EQ(board.access("/dev/spidev1.0", R_OK | W_OK), 0);
    EXPECT_EQ(board.access("/sys/class/gpio", F_OK), 0);
    EXPECT_EQ(board.access("/dev/i2c-9", R_OK | W_OK), 0);
    EXPECT_EQ(board.access("/dev/i2c-2", R_OK | W_OK), 0);
    errno = 0;
    EXPECT_EQ(board.access("/dev/i2c-8", F_OK), -1) << "no such bus on this board";
    EXPECT_EQ(errno, ENOENT);
}

TEST(Sandbox, KernelPathsNeverFallBackToTheSandbox) {
    Board board;
    board.write_file("/dev/spidev9.9", "a regular file placed by mistake");
    errno = 0;
    EXPECT_EQ(board.open("/dev/spidev9.9", O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(board.open("/sys/class/gpio", O_RDONLY), -1);
    EXPECT_EQ(errno, EISDIR);
}

TEST(Sandbox, FopenGivesARealStream) {
    Board board;
    board.write_file("/usr/hx7/calibration/keep", "");
    FILE* out = board.fopen("/usr/hx7/calibration/pd_calibration.cfg", "w");
    ASSERT_NE(out, nullptr);
    std::fprintf(out, "%d %d\n", 7, -3);
    std::fclose(out);
    EXPECT_EQ(board.read_file("/usr/hx7/calibration/pd_calibration.cfg"), "7 -3\n");

    errno = 0;
    EXPECT_EQ(board.fopen("/usr/hx7/calibration/missing.cfg", "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(board.fopen("/dev/spidev1.0", "r"), nullptr);
    EXPECT_EQ(errno, ENXIO);
}

TEST(Sandbox, AFreshSandboxGoesWithItsBoardAndAGivenOneStays) {
    std::string fresh;
    {
        Board board;
        fresh = board.sandbox_path("/");
        board.write_file("/usr/hx7/calibration/a.cfg", "a");
        EXPECT_TRUE(std::filesystem::is_directory(fresh));
    }
    EXPECT_FALSE(std::filesystem::exists(fresh));

    char pattern[] = "/tmp/zoomaf-twin-test-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    const std::string given = std::string(pattern) + "/board";
    {
        Board board(BoardConfig{.sandbox = given});
        EXPECT_EQ(board.sandbox_path("/x"), given + "/x");
        board.write_file("/x", "kept");
    }
    EXPECT_TRUE(std::filesystem::exists(given + "/x"));
    std::filesystem::remove_all(pattern);
}

TEST(Sandbox, TwoBoardsDoNotShareFiles) {
    Board first;
    Board second;
    first.write_file("/laserclearinfo", "first");
    EXPECT_NE(first.sandbox_path("/"), second.sandbox_path("/"));
    EXPECT_EQ(second.access("/laserclearinfo", F_OK), -1);
}

TEST(Sandbox, RenameReplacesAFileInsideTheSandboxAndFsyncFlushesIt) {
    Board board;
    board.write_file("/laserclearinfo", "old");
    const int fd = board.open("laserclearinfo.tmp", O_WRONLY | O_CREAT | O_TRUNC);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(board.write(fd, "new", 3), 3);
    EXPECT_EQ(board.fsync(fd), 0);
    ASSERT_EQ(board.close(fd), 0);
    EXPECT_EQ(board.rename("./laserclearinfo.tmp", "./laserclearinfo"), 0);
    EXPECT_EQ(board.read_file("/laserclearinfo"), "new");
    EXPECT_EQ(board.access("/laserclearinfo.tmp", F_OK), -1);

    errno = 0;
    EXPECT_EQ(board.rename("/missing", "/laserclearinfo"), -1);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(board.rename("/laserclearinfo", "/dev/spidev1.0"), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(board.read_file("/laserclearinfo"), "new");

    errno = 0;
    EXPECT_EQ(board.fsync(fd), -1) << "closed descriptor";
    EXPECT_EQ(errno, EBADF);
    const int spi = board.open("/dev/spidev1.0", O_RDWR);
    errno = 0;
    EXPECT_EQ(board.fsync(spi), -1) << "a device node has nothing to flush";
    EXPECT_EQ(errno, EINVAL);
}

TEST(Sandbox, RenameAndFsyncFaultsFailWithoutTouchingTheFiles) {
    Board board;
    board.write_file("/store", "old");
    board.write_file("/store.tmp", "new");
    board.inject({.op = FaultRule::Op::rename, .path = "store.tmp", .error = EIO});
    errno = 0;
    EXPECT_EQ(board.rename("/store.tmp", "/store"), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(board.read_file("/store"), "old");
    EXPECT_EQ(board.read_file("/store.tmp"), "new");

    const int fd = board.open("/store.tmp", O_WRONLY);
    board.inject({.op = FaultRule::Op::fsync, .error = ENOSPC});
    errno = 0;
    EXPECT_EQ(board.fsync(fd), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(board.fsync(fd), 0) << "the fault was delivered once";
}

TEST(Sandbox, TheWorkingDirectoryIsTheSandboxRoot) {
    Board board;
    char cwd[8] = "x";
    EXPECT_STREQ(board.getcwd(cwd, sizeof cwd), "/");
    errno = 0;
    EXPECT_EQ(board.getcwd(cwd, 1), nullptr);
    EXPECT_EQ(errno, ERANGE);
}

}  // namespace
}  // namespace zoomaf::twin
