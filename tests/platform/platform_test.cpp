// The seam: the Linux pass-through and the installed platform.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/platform.hpp"

namespace zoomaf {
namespace {

TEST(LinuxPlatform, FilesGoStraightToTheKernel) {
    char dir[] = "/tmp/zoomaf-platform-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/f";
    LinuxPlatform os;
    const int fd = os.open(path.c_str(), O_CREAT | O_RDWR);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(os.write(fd, "abc", 3), 3);
    EXPECT_EQ(os.close(fd), 0);
    EXPECT_EQ(os.access(path.c_str(), F_OK), 0);
    FILE* f = os.fopen(path.c_str(), "r");
    ASSERT_NE(f, nullptr);
    char text[4] = {};
    EXPECT_EQ(fread(text, 1, 3, f), 3u);
    fclose(f);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(os.open((std::string(dir) + "/missing").c_str(), O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(os.close(-1), -1);
    unlink(path.c_str());
    rmdir(dir);
}

TEST(LinuxPlatform, ReplacesAFileByRenameAfterFlushingIt) {
    char dir[] = "/tmp/zoomaf-platform-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/f";
    const std::string temporary = path + ".tmp";
    LinuxPlatform os;
    const int fd = os.open(temporary.c_str(), O_CREAT | O_WRONLY);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(os.write(fd, "new", 3), 3);
    EXPECT_EQ(os.fsync(fd), 0);
    EXPECT_EQ(os.close(fd), 0);
    EXPECT_EQ(os.rename(temporary.c_str(), path.c_str()), 0);
    EXPECT_EQ(os.access(temporary.c_str(), F_OK), -1);
    EXPECT_EQ(os.access(path.c_str(), F_OK), 0);
    EXPECT_EQ(os.fsync(-1), -1);
    char cwd[4096];
    ASSERT_NE(os.getcwd(cwd, sizeof cwd), nullptr);
    EXPECT_EQ(cwd[0], '/');
    unlink(path.c_str());
    rmdir(dir);
}

TEST(LinuxPlatform, SleepsAtLeastWhatIsAsked) {
    LinuxPlatform os;
    const timespec before = os.monotonic();
    EXPECT_EQ(os.sleep_ns(2000000), 0);
    const timespec after = os.monotonic();
    const int64_t elapsed =
        (after.tv_sec - before.tv_sec) * 1000000000LL + (after.tv_nsec - before.tv_nsec);
    EXPECT_GE(elapsed, 2000000);
    EXPECT_GT(os.wall().tv_sec, 1600000000);  // a real date
}

class FixedClock final : public LinuxPlatform {
public:
    int sleep_ns(uint64_t ns) override {
        slept += ns;
        return 0;
    }
    uint64_t slept = 0;
};

TEST(InstalledPlatform, ReplacesTheKernelUntilRemoved) {
    Platform& linux_platform = platform();
    FixedClock clock;
    install_platform(&clock);
    EXPECT_EQ(&platform(), &clock);
    platform().sleep_ns(5);
    EXPECT_EQ(clock.slept, 5u);
    install_platform(nullptr);
    EXPECT_EQ(&platform(), &linux_platform);
}

}  // namespace
}  // namespace zoomaf
