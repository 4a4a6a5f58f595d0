// The twin's side of the channels: periodic events on board time (which run once however
// many periods a sleep passed), the laser publishing on its own period, and the clean-up
// when the board goes.
#include <algorithm>
#include <string>

#include "channel_fixture.hpp"
#include "twin/encoder.hpp"
#include "twin/laser.hpp"

namespace zoomaf::test {
namespace {

using twin::Board;
using twin::Laser;

TEST(BoardPeriodicEvents, RunWhenSleepsOrAdvancesPassThemUntilCancelled) {
    Board board;
    int runs = 0;
    const int id = board.add_periodic(10'000'000, [&](uint64_t) { ++runs; });
    board.sleep_ns(9'000'000);
    EXPECT_EQ(runs, 0);
    board.sleep_ns(1'000'000);
    EXPECT_EQ(runs, 1);
    board.advance_ns(30'000'000);
    EXPECT_EQ(runs, 2) << "once for three periods";
    board.cancel_periodic(id);
    board.sleep_ns(50'000'000);
    EXPECT_EQ(runs, 2) << "cancelled";
    EXPECT_THROW(board.add_periodic(0, [](uint64_t) {}), std::invalid_argument);
}

using TwinLaser = ChannelTest;

TEST_F(TwinLaser, PublishesItsLatestDistanceEachPeriodForTheServiceToRead) {
    Laser laser(board(), twin::LaserConfig{.period_ns = 100'000'000, .distance = 1234});
    captured([] { ASSERT_EQ(VrelShareManInit(&LaserMenManHandle, VREL_LASER_CHANNEL), 0); });
    board().sleep_ns(100'000'000);
    EXPECT_EQ(call(GetCurrentLaserDistance).result, 1234);

    laser.set_distance(1500);
    board().sleep_ns(250'000'000);  // two periods fell due: one measurement, the latest
    EXPECT_EQ(laser.readings(), 2u);
    EXPECT_EQ(call(GetCurrentLaserDistance).result, 1500);

    laser.set_no_echo(true);
    board().sleep_ns(100'000'000);
    EXPECT_EQ(call(GetCurrentLaserDistance).result, Laser::kNoEcho);
    EXPECT_THROW(laser.set_no_echo_rate(1.5), std::invalid_argument);
}

TEST(TwinLaserNoEcho, ReadingsComeAtTheirRateFromTheSeed) {
    auto pattern = [](uint64_t seed) {
        Board board;
        Laser laser(board, twin::LaserConfig{.no_echo_rate = 0.3, .seed = seed});
        std::string seen;
        for (int i = 0; i < 200; ++i) {
            board.sleep_ns(100'000'000);
            seen += laser.last_reading() == Laser::kNoEcho ? 'x' : '.';
        }
        return seen;
    };
    const std::string first = pattern(7);
    EXPECT_EQ(first, pattern(7)) << "deterministic";
    EXPECT_NE(first, pattern(8));
    const auto lost = std::count(first.begin(), first.end(), 'x');
    EXPECT_TRUE(lost > 30 && lost < 90) << lost;
}

TEST(TwinChannels, GoWithTheBoard) {
    key_t shm_key = 0, sem_key = 0;
    {
        Board board;
        Laser laser(board);
        twin::Encoder encoder(board);
        shm_key = board.salted_key(ipc::shm_key(VREL_FV_CHANNEL));
        sem_key = board.salted_key(ipc::sem_key(VREL_LASER_CHANNEL));
        ASSERT_GE(::shmget(shm_key, 0, 0), 0);
        ASSERT_GE(::semget(sem_key, 0, 0), 0);
    }
    EXPECT_EQ(::shmget(shm_key, 0, 0), -1);
    EXPECT_EQ(::semget(sem_key, 0, 0), -1);
}

}  // namespace
}  // namespace zoomaf::test
