// The twin's side of the channels: periodic events on board time, the laser and the encoder
// publishing on their own periods, and the clean-up when the board goes.
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "channel_fixture.hpp"
#include "gmock/gmock.h"
#include "twin/encoder.hpp"
#include "twin/laser.hpp"
#include "twin/periodic_events.hpp"
#include "zoomaf/assist_info.h"

namespace zoomaf::test {
namespace {

using twin::Board;
using twin::Laser;
using twin::PeriodicEvents;

uint16_t published_distance(const Board& board) {
    const int shmid = ::shmget(board.salted_key(ipc::shm_key(VREL_LASER_CHANNEL)), 0, 0);
    auto* segment = static_cast<uint8_t*>(::shmat(shmid, nullptr, SHM_RDONLY));
    uint16_t distance = 0;
    std::memcpy(&distance, segment + VREL_PAYLOAD_OFFSET, sizeof distance);
    ::shmdt(segment);
    return distance;
}

TEST(PeriodicEventsQueue, RunsDueEventsInTimeOrderOnceAndSkipsMissedPeriods) {
    PeriodicEvents events;
    std::vector<std::pair<char, uint64_t>> ran;
    events.add(100, 100, [&](uint64_t now) { ran.emplace_back('a', now); });
    events.add(50, 30, [&](uint64_t now) { ran.emplace_back('b', now); });
    EXPECT_TRUE(events.take_due(49).empty());
    for (const auto& callback : events.take_due(100)) (*callback)(100);
    EXPECT_EQ(ran, (std::vector<std::pair<char, uint64_t>>{{'b', 100}, {'a', 100}}))
        << "b was due first";
    ran.clear();
    // b: due 110 (50, 80 missed in one run); a: due 200.
    EXPECT_EQ(events.take_due(109).size(), 0u);
    EXPECT_EQ(events.take_due(250).size(), 2u);
    EXPECT_EQ(events.take_due(259).size(), 0u) << "b: 250 ran, next 260";
    EXPECT_EQ(events.take_due(260).size(), 1u);
    EXPECT_THROW(events.add(0, 0, [](uint64_t) {}), std::invalid_argument);
}

TEST(BoardPeriodicEvents, RunInSleepsAndAdvancesInVirtualAndRealTime) {
    Board board;
    std::atomic<int> runs{0};
    const int id = board.add_periodic(10'000'000, [&](uint64_t) { ++runs; });
    board.sleep_ns(9'000'000);
    EXPECT_EQ(runs, 0);
    board.sleep_ns(1'000'000);
    EXPECT_EQ(runs, 1);
    board.advance_ns(10'000'000);
    EXPECT_EQ(runs, 2);

    board.set_real_time(10.0);  // 10 ms of board time per real millisecond
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (runs < 5 && std::chrono::steady_clock::now() < deadline) board.sleep_ns(5'000'000);
    EXPECT_GE(runs, 5);

    board.cancel_periodic(id);
    const int before = runs;
    board.sleep_ns(50'000'000);
    EXPECT_EQ(runs, before) << "cancelled";
}

TEST(TwinLaser, PublishesItsDistanceEveryPeriodForTheServiceToRead) {
    Board board;
    install_platform(&board);
    Laser laser(board, twin::LaserConfig{.period_ns = 100'000'000, .distance = 1234});
    EXPECT_EQ(laser.readings(), 0u);
    board.sleep_ns(100'000'000);
    EXPECT_EQ(laser.readings(), 1u);
    EXPECT_EQ(published_distance(board), 1234);

    LaserMenManHandle = VrelShareMan{};
    last_laser = 100;
    last_laster_cnt = 0;
    uint16_t distance = 0;
    testing::internal::CaptureStdout();
    ASSERT_EQ(VrelShareManInit(&LaserMenManHandle, VREL_LASER_CHANNEL), 0);
    distance = GetCurrentLaserDistance();
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(distance, 1234);

    laser.set_distance(1500);
    board.sleep_ns(250'000'000);  // two periods fell due: one measurement, the latest
    EXPECT_EQ(laser.readings(), 2u);
    EXPECT_EQ(published_distance(board), 1500);
    LaserMenManHandle = VrelShareMan{};
    install_platform(nullptr);
}

TEST(TwinLaser, NoEchoReadingsComeAtTheirRateFromTheSeed) {
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
    EXPECT_GT(lost, 30);
    EXPECT_LT(lost, 90);

    Board board;
    Laser laser(board);
    laser.set_no_echo(true);
    board.sleep_ns(100'000'000);
    EXPECT_EQ(published_distance(board), Laser::kNoEcho);
    EXPECT_THROW(laser.set_no_echo_rate(1.5), std::invalid_argument);
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
