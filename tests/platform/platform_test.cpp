// The seam's Linux pass-through (installing another platform is what every TwinTest does).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/platform.hpp"

namespace zoomaf {
namespace {

TEST(LinuxPlatform, FilesGoStraightToTheKernelAndAreReplacedByRenameAfterAFlush) {
    char dir[] = "/tmp/zoomaf-platform-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/f", temporary = path + ".tmp";
    LinuxPlatform os;
    const int fd = os.open(temporary.c_str(), O_CREAT | O_WRONLY);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(os.write(fd, "abc", 3), 3);
    EXPECT_EQ(os.fsync(fd), 0);
    EXPECT_EQ(os.close(fd), 0);
    EXPECT_EQ(os.rename(temporary.c_str(), path.c_str()), 0);
    EXPECT_EQ(os.access(temporary.c_str(), F_OK), -1);
    FILE* f = os.fopen(path.c_str(), "r");
    ASSERT_NE(f, nullptr);
    fclose(f);
    const int in = os.open(path.c_str(), O_RDONLY);
    char text[4] = {};
    EXPECT_EQ(os.read(in, text, 3), 3);
    os.close(in);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(os.open((std::string(dir) + "/missing").c_str(), O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(os.close(-1), -1);
    EXPECT_EQ(os.fsync(-1), -1);
    char cwd[4096];
    ASSERT_NE(os.getcwd(cwd, sizeof cwd), nullptr);
    EXPECT_EQ(cwd[0], '/');
    unlink(path.c_str());
    rmdir(dir);
}

TEST(LinuxPlatform, SleepsAtLeastWhatIsAskedOnTheRealClocks) {
    LinuxPlatform os;
    const timespec before = os.monotonic();
    EXPECT_EQ(os.sleep_ns(2000000), 0);
    const timespec after = os.monotonic();
    EXPECT_GE((after.tv_sec - before.tv_sec) * 1000000000LL + (after.tv_nsec - before.tv_nsec),
              2000000);
    EXPECT_GT(os.wall().tv_sec, 1600000000);  // a real date
}

}  // namespace
}  // namespace zoomaf
