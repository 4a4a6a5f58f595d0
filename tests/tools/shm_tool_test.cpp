// zoomaf-shm on the real System V IPC of this machine, with the service's own readers. Every
// test moves the keys by an offset of its own (ZOOMAF_SHM_KEY_OFFSET), so it never meets a
// camera or another test run, and removes what it created.
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "channels/channel_layout.hpp"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "ipc/key_offset_platform.hpp"
#include "zoomaf/assist_info.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

struct ToolRun {
    int status = -1;
    std::string out, err;
};

std::string slurp(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    std::remove(path.c_str());
    return text.str();
}

class ShmTool : public ::testing::Test {
protected:
    void SetUp() override { use_offset_from_environment(); }
    void TearDown() override {
        ::unsetenv("ZOOMAF_SHM_KEY_OFFSET");
        for (int memmode = VREL_MEMMODE_MIN; memmode <= VREL_MEMMODE_MAX; ++memmode) {
            const int shm = ::shmget(kernel_key(channels::shm_key(memmode)), 0, 0);
            if (shm >= 0) ::shmctl(shm, IPC_RMID, nullptr);
            const int sem = ::semget(kernel_key(channels::sem_key(memmode)), 0, 0);
            if (sem >= 0) ::semctl(sem, 0, IPC_RMID);
        }
    }

    void use_offset_from_environment() {
        ::setenv("ZOOMAF_SHM_KEY_OFFSET", std::to_string(offset_).c_str(), 1);
    }
    key_t kernel_key(key_t key) const { return static_cast<key_t>(uint32_t(key) + offset_); }

    ToolRun tool(const std::string& args) {
        const std::string out = files_ + "out", err = files_ + "err";
        const int raw = std::system(
            (std::string(ZOOMAF_SHM_TOOL) + " " + args + " >" + out + " 2>" + err).c_str());
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
    }

    // A range of 64 keys per test process, far from the real channels' keys.
    const uint32_t offset_ = 0x50000000u + static_cast<uint32_t>(::getpid() % 1000000) * 64u;
    const std::string files_ = testing::TempDir() + "zoomaf-shm-" + std::to_string(::getpid());
};

TEST_F(ShmTool, LaserDistanceReachesTheServiceAndTheDumpShowsItsConsumption) {
    // The option moves the keys as the environment does; a leading 0 is decimal, not octal.
    ::unsetenv("ZOOMAF_SHM_KEY_OFFSET");
    const ToolRun publish = tool("--key-offset 0" + std::to_string(offset_) + " laser 1234");
    use_offset_from_environment();
    ASSERT_EQ(publish.status, 0) << publish.err;
    EXPECT_THAT(publish.out, HasSubstr("published on channel 12\n"));

    const ToolRun dump = tool("dump 12");
    ASSERT_EQ(dump.status, 0) << dump.err;
    char header[200];
    std::snprintf(header, sizeof header,
                  "channel 12: shm key 0x1A2C, sem key 0x1234ABD9, payload 2 bytes\n"
                  "key offset %u: kernel keys 0x%X and 0x%X\nupdate_flag: 1\n",
                  offset_, 0x1A2Cu + offset_, 0x1234ABD9u + offset_);
    EXPECT_THAT(dump.out, HasSubstr(header));
    EXPECT_THAT(dump.out, HasSubstr("payload:\n00000000: d2 04\nlaser distance: 1234 (123.4 m)\n"));
    EXPECT_EQ(tool("dump 12").out, dump.out) << "a dump does not consume the update";

    ipc::KeyOffsetPlatform service_kernel(offset_);  // the service, on the same moved keys
    install_platform(&service_kernel);
    testing::internal::CaptureStdout();
    const int32_t opened = VrelShareManInit(&LaserMenManHandle, VREL_LASER_CHANNEL);
    const uint16_t distance = GetCurrentLaserDistance();
    testing::internal::GetCapturedStdout();
    install_platform(nullptr);
    EXPECT_EQ(opened, 0);
    EXPECT_EQ(distance, 1234);
    EXPECT_THAT(tool("dump 12").out, HasSubstr("update_flag: 0\n"));

    ASSERT_EQ(tool("laser 65535").status, 0);
    EXPECT_THAT(tool("dump 12").out, HasSubstr("laser distance: 65535 (no echo)\n"));
}

TEST_F(ShmTool, BadArgumentsGetStatusTwoAndTouchNothingASystemFailureStatusOne) {
    for (const char* args :
         {"", "laser", "laser abc", "laser 65536", "laser -1", "laser 12x", "laser ' 5'", "point 1",
          "point 1 x", "point 2147483648 0", "fv 1 99999999999999999999", "fv 1", "dump 34",
          "dump -1", "dump 1 2", "focus 3", "--key-offset", "--key-offset -5 dump 12",
          "--key-offset 4294967296 dump 12"}) {
        SCOPED_TRACE(args);
        const ToolRun run = tool(args);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_THAT(run.err, ::testing::StartsWith("zoomaf-shm: "));
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    }
    for (const char* offset : {"lots", "0x", "0x1g"}) {
        ::setenv("ZOOMAF_SHM_KEY_OFFSET", offset, 1);
        const ToolRun bad_env = tool("dump 12");
        EXPECT_EQ(bad_env.status, 2);
        EXPECT_THAT(bad_env.err, HasSubstr("ZOOMAF_SHM_KEY_OFFSET"));
    }
    for (int memmode : {2, 12, 19, 30})
        EXPECT_EQ(::shmget(kernel_key(channels::shm_key(memmode)), 0, 0), -1);
    // Another program holds key 0x1A2C with a segment too small for the laser channel.
    use_offset_from_environment();
    ASSERT_GE(::shmget(kernel_key(channels::shm_key(VREL_LASER_CHANNEL)), 4, IPC_CREAT | 0600), 0);
    const ToolRun run = tool("laser 5");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "zoomaf-shm: channel 12 cannot be opened\n");
    EXPECT_THAT(run.out, HasSubstr("VrelShareMemoryInit error errno:Invalid argument"));
}

}  // namespace
}  // namespace zoomaf::test
