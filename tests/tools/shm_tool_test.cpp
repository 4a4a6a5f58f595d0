// zoomaf-shm on the real System V IPC of this machine: round trips with the service's own
// readers, the dump, and the exit statuses. Every test moves the keys by an offset of its
// own (ZOOMAF_SHM_KEY_OFFSET), so it never meets a camera or another test run, and removes
// what it created.
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "ipc/channel_layout.hpp"
#include "ipc/ipc_internal.hpp"
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
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

class ShmTool : public ::testing::Test {
protected:
    void SetUp() override {
        // A range of 64 keys per test process, far from the real channels' keys.
        offset_ = 0x50000000u + static_cast<uint32_t>(::getpid() % 1000000) * 64u;
        ::setenv("ZOOMAF_SHM_KEY_OFFSET", std::to_string(offset_).c_str(), 1);
        char dir[] = "/tmp/zoomaf-shm-test-XXXXXX";
        ASSERT_NE(::mkdtemp(dir), nullptr);
        dir_ = dir;
    }
    void TearDown() override {
        install_platform(nullptr);
        ::unsetenv("ZOOMAF_SHM_KEY_OFFSET");
        for (int memmode = VREL_MEMMODE_MIN; memmode <= VREL_MEMMODE_MAX; ++memmode) {
            const int shm = ::shmget(kernel_key(ipc::shm_key(memmode)), 0, 0);
            if (shm >= 0) ::shmctl(shm, IPC_RMID, nullptr);
            const int sem = ::semget(kernel_key(ipc::sem_key(memmode)), 0, 0);
            if (sem >= 0) ::semctl(sem, 0, IPC_RMID);
        }
        std::remove((dir_ + "/out").c_str());
        std::remove((dir_ + "/err").c_str());
        ::rmdir(dir_.c_str());
    }

    key_t kernel_key(key_t key) const { return static_cast<key_t>(uint32_t(key) + offset_); }
    bool channel_exists(int memmode) const {
        return ::shmget(kernel_key(ipc::shm_key(memmode)), 0, 0) >= 0;
    }

    ToolRun tool(const std::string& args) {
        const std::string command =
            std::string(ZOOMAF_SHM_TOOL) + " " + args + " >" + dir_ + "/out 2>" + dir_ + "/err";
        const int raw = std::system(command.c_str());
        ToolRun run;
        run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        run.out = slurp(dir_ + "/out");
        run.err = slurp(dir_ + "/err");
        return run;
    }

    // The service, on the same moved keys.
    void install_service_platform() {
        platform_ = std::make_unique<ipc::KeyOffsetPlatform>(offset_);
        install_platform(platform_.get());
    }

    uint32_t offset_ = 0;
    std::string dir_;
    std::unique_ptr<ipc::KeyOffsetPlatform> platform_;
};

TEST_F(ShmTool, LaserDistanceReachesTheServiceAndTheDumpShowsItsConsumption) {
    const ToolRun publish = tool("laser 1234");
    ASSERT_EQ(publish.status, 0) << publish.err;
    EXPECT_THAT(publish.out, HasSubstr("published on channel 12"));

    ToolRun dump = tool("dump 12");
    ASSERT_EQ(dump.status, 0) << dump.err;
    char kernel_keys[96];
    std::snprintf(kernel_keys, sizeof kernel_keys, "key offset %u: kernel keys 0x%X and 0x%X\n",
                  offset_, 0x1A2Cu + offset_, 0x1234ABD9u + offset_);
    EXPECT_THAT(dump.out, HasSubstr(std::string("channel 12: shm key 0x1A2C, sem key 0x1234ABD9, "
                                                "payload 2 bytes\n") +
                                    kernel_keys + "update_flag: 1\n"));
    EXPECT_THAT(dump.out, HasSubstr("payload:\n00000000: d2 04\nlaser distance: 1234 (123.4 m)\n"));
    EXPECT_EQ(tool("dump 12").out, dump.out) << "a dump does not consume the update";

    install_service_platform();
    LaserMenManHandle = VrelShareMan{};
    last_laser = 100;
    last_laster_cnt = 0;
    Manual_laser_setup = MANUAL_LASER_NONE;
    testing::internal::CaptureStdout();
    ASSERT_EQ(VrelShareManInit(&LaserMenManHandle, VREL_LASER_CHANNEL), 0);
    const uint16_t distance = GetCurrentLaserDistance();
    testing::internal::GetCapturedStdout();
    LaserMenManHandle = VrelShareMan{};
    EXPECT_EQ(distance, 1234);
    EXPECT_THAT(tool("dump 12").out, HasSubstr("update_flag: 0\n"));

    ASSERT_EQ(tool("laser 65535").status, 0);
    EXPECT_THAT(tool("dump 12").out, HasSubstr("laser distance: 65535 (no echo)\n"));
}

TEST_F(ShmTool, AreaPointAndFocusValuesRoundTrip) {
    ASSERT_EQ(tool("point 100 -200").status, 0);
    const ToolRun point = tool("dump 19");
    EXPECT_THAT(point.out, HasSubstr("00000000: 64 00 00 00 38 ff ff ff\n"
                                     "area focus point: x 100, y -200\n"));

    ASSERT_EQ(tool("fv 9223372036854775807 -1").status, 0);
    const ToolRun fv = tool("dump 30");
    EXPECT_THAT(fv.out, HasSubstr("payload 4096 bytes"));
    EXPECT_THAT(fv.out, HasSubstr("focus values: fv1 9223372036854775807, fv2 -1\n"));

    install_service_platform();
    ipc::fv_channel() = VrelShareMan{};
    VrelFocusValues record{};
    testing::internal::CaptureStdout();
    const int32_t taken = fv_publish_consume_encodered_data(&record);
    testing::internal::GetCapturedStdout();
    ipc::fv_channel() = VrelShareMan{};
    EXPECT_EQ(taken, 0);
    EXPECT_EQ(record.fv1, INT64_MAX);
    EXPECT_EQ(record.fv2, -1);
}

TEST_F(ShmTool, DumpOfALargeChannelShowsItsBeginning) {
    const ToolRun dump = tool("dump 2");
    ASSERT_EQ(dump.status, 0) << dump.err;
    EXPECT_THAT(dump.out, HasSubstr("payload 491520 bytes\n"));
    EXPECT_THAT(dump.out, HasSubstr("update_flag: 0\n"));
    EXPECT_THAT(dump.out, HasSubstr("00000ff0: 00"));
    EXPECT_THAT(dump.out, HasSubstr("... 487424 more bytes not shown\n"));
}

TEST_F(ShmTool, BadArgumentsGetOneLineAndStatusTwoAndTouchNothing) {
    for (const char* args : {"",
                             "laser",
                             "laser abc",
                             "laser 65536",
                             "laser -1",
                             "laser 12x",
                             "laser ' 5'",
                             "point 1",
                             "point 1 x",
                             "point 2147483648 0",
                             "fv 1 99999999999999999999",
                             "fv 1",
                             "dump 34",
                             "dump -1",
                             "dump x",
                             "dump 1 2",
                             "focus 3",
                             "--key-offset",
                             "--key-offset -5 dump 12",
                             "--key-offset 4294967296 dump 12"}) {
        SCOPED_TRACE(args);
        const ToolRun run = tool(args);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_THAT(run.err, ::testing::StartsWith("zoomaf-shm: "));
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    }
    ::setenv("ZOOMAF_SHM_KEY_OFFSET", "lots", 1);
    const ToolRun bad_env = tool("dump 12");
    EXPECT_EQ(bad_env.status, 2);
    EXPECT_THAT(bad_env.err, HasSubstr("ZOOMAF_SHM_KEY_OFFSET"));
    ::setenv("ZOOMAF_SHM_KEY_OFFSET", std::to_string(offset_).c_str(), 1);
    for (int memmode : {2, 12, 19, 30}) EXPECT_FALSE(channel_exists(memmode));
}

TEST_F(ShmTool, HelpAndSystemFailures) {
    const ToolRun help = tool("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("usage: zoomaf-shm [--key-offset N] COMMAND"));
    EXPECT_THAT(help.out, HasSubstr("ZOOMAF_SHM_KEY_OFFSET"));

    // Another program holds key 0x1A2C with a segment too small for the laser channel.
    const int shm = ::shmget(kernel_key(ipc::shm_key(VREL_LASER_CHANNEL)), 4, IPC_CREAT | 0600);
    ASSERT_GE(shm, 0);
    const ToolRun run = tool("laser 5");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "zoomaf-shm: channel 12 cannot be opened\n");
    EXPECT_THAT(run.out, HasSubstr("VrelShareMemoryInit error errno:Invalid argument"));
}

TEST_F(ShmTool, OptionMovesTheKeysLikeTheEnvironment) {
    ::unsetenv("ZOOMAF_SHM_KEY_OFFSET");
    ASSERT_EQ(tool("--key-offset " + std::to_string(offset_) + " laser 42").status, 0);
    ::setenv("ZOOMAF_SHM_KEY_OFFSET", std::to_string(offset_).c_str(), 1);
    EXPECT_THAT(tool("dump 12").out, HasSubstr("laser distance: 42 (4.2 m)"));
}

}  // namespace
}  // namespace zoomaf::test
