// The self-study store: learning into the memory, the look-up and the plausibility test, and
// the file "./laserclearinfo" (layout, load at start, the savers, the fatal-signal path).
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <tuple>
#include <utility>

#include "service/safe_message.hpp"
#include "state/locks.hpp"
#include "tests/support/twin_test.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/lib_motor.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// The store allocated and empty, as InitGlobalClearinfo leaves it without a file.
void allocate_store() {
    if (selfstudy_point == nullptr) {
        selfstudy_point =
            static_cast<SelfStudyBlock*>(std::calloc(SELFSTUDY_BLOCKS, sizeof(SelfStudyBlock)));
    }
    ASSERT_NE(selfstudy_point, nullptr);
}

class SelfStudy : public TwinTest {
protected:
    void SetUp() override {
        TwinTest::SetUp();
        allocate_store();
        current_multiple = 3.5f;  // row 25
    }
    int32_t offer(int32_t pd, int32_t cl, uint32_t motor, int32_t laser, float multiple = 3.5f) {
        return call([&] { return update_selfstudy_info_memofy(pd, cl, motor, laser, multiple); });
    }
    // valid, motor, CL and PD of an entry of row 25.
    static std::tuple<int32_t, int32_t, int64_t, int64_t> entry(int laser) {
        const SelfStudyBlock& b = selfstudy_point[25];
        return {b.valid[laser], b.motor[laser], b.cl[laser], b.pd[laser]};
    }
};

// The row is always the current zoom's; the offered multiple is only printed.
TEST_F(SelfStudy, TheFirstOfferIsLearnedAndOnlyABetterFocusReplacesIt) {
    EXPECT_EQ(offer(-40, 300, 1200, 77, 11.0f), 0);
    EXPECT_EQ(
        output_,
        "selfstudy-info-Init multiple:11.000000,laser:77,more fresh motor:1200,pd:-40,cl:300\r\n");
    EXPECT_EQ(entry(77), std::make_tuple(1, 1200, 300, -40));
    EXPECT_EQ(is_selfstudy_point_update, 1);

    is_selfstudy_point_update = 0;
    // Not better: the same or a lower CL, or a |PD| that is not smaller.
    for (auto [pd, cl] : {std::pair{10, 300}, {10, 299}, {40, 500}, {-41, 500}}) {
        EXPECT_EQ(offer(pd, cl, 1111, 77), 0);
        EXPECT_EQ(entry(77), std::make_tuple(1, 1200, 300, -40)) << pd << "," << cl;
    }
    EXPECT_EQ(is_selfstudy_point_update, 0);

    EXPECT_EQ(offer(39, 301, 1190, 77), 0);
    EXPECT_EQ(
        output_,
        "selfstudy-info-Update multiple:3.500000,laser:77,more fresh motor:1190,pd:39,cl:301\r\n");
    EXPECT_EQ(entry(77), std::make_tuple(1, 1190, 301, 39));
    EXPECT_EQ(is_selfstudy_point_update, 1);

    // CL compares unsigned: a negative CL counts as the highest.
    EXPECT_EQ(offer(1, -1, 1180, 77), 0);
    EXPECT_EQ(entry(77), std::make_tuple(1, 1180, -1, 1));
}

TEST_F(SelfStudy, RefusedLasersAndTheLookUpOfLearnedAndUnlearnedSteps) {
    for (int32_t laser : {4, 1600, -1, 1601}) EXPECT_EQ(offer(0, 200, 500, laser), -1) << laser;
    EXPECT_EQ(output_,
              "Error: update_selfstudy_info_memofy laser:1601 is out of range(0-1599)!\r\n");
    is_deal_selfstudy = 0;
    EXPECT_EQ(offer(0, 200, 500, 5), -1);
    is_deal_selfstudy = 1;
    SelfStudyBlock* store = std::exchange(selfstudy_point, nullptr);
    EXPECT_EQ(offer(0, 200, 500, 5), -1) << "no store, nothing learned";
    EXPECT_EQ(get_selfstudy_motor(25, 5), SELFSTUDY_NOT_LEARNED);
    selfstudy_point = store;
    // A learned step is found, an unlearned one is -3000.
    EXPECT_EQ(call([] { return get_selfstudy_motor(25, 1599); }), SELFSTUDY_NOT_LEARNED);
    EXPECT_EQ(output_, "");
    offer(3, 400, 2222, 1599);
    EXPECT_EQ(call([] { return get_selfstudy_motor(25, 1599); }), 2222);
    EXPECT_EQ(output_, "AHAHAHA Get SelfStudy distance:1599 success,it's clear motor is:2222\r\n");
    for (auto [row, laser] : {std::pair{-1, 0}, {SELFSTUDY_BLOCKS, 0}, {0, -1}, {0, 1600}}) {
        EXPECT_EQ(call([&] { return get_selfstudy_motor(row, laser); }), SELFSTUDY_NOT_LEARNED);
        EXPECT_THAT(output_, HasSubstr("is out of range(0-179/0-1599)!\r\n"));
    }
}

class Plausibility : public TwinTest {
protected:
    void SetUp() override {
        TwinTest::SetUp();
        // Row 25 rising by 100 per column, so that each column pair is a distinct range.
        for (int c = 0; c < LENS_TABLE_COLUMNS; ++c) TxtToDat[25][c] = 100 * c;
    }
    int32_t judge(int32_t motor, int32_t distance) {
        return call(
            [&] { return judge_is_laserdistance_relateto_motorposition(motor, distance, 3.5f); });
    }
};

TEST_F(Plausibility, AStepBetweenTheColumnPairOfTheDistanceIsPlausible) {
    const std::pair<int32_t, int> picks[] = {{-7, 0}, {2, 0},   {3, 2},    {4, 3},     {5, 3},
                                             {6, 4},  {8, 4},   {9, 5},    {10, 5},    {11, 6},
                                             {25, 6}, {26, 7},  {30, 7},   {31, 8},    {45, 8},
                                             {46, 9}, {400, 9}, {401, 10}, {65535, 10}};
    for (auto [distance, column] : picks) {
        EXPECT_EQ(judge(-99999, distance), -1);
        int picked = -1;  // the column the distance picks, from the failure message
        std::sscanf(output_.c_str(), "temp_multiple_index:25,and meter_index:%d", &picked);
        EXPECT_EQ(picked, column) << distance;
    }

    calibration_offset_step = 5;
    // Distance 20 m: columns 6 and 7, 600 and 700, plus the offset.
    for (int32_t motor : {605, 650, 705}) EXPECT_EQ(judge(motor, 20), 0) << motor;
    EXPECT_EQ(output_, "");
    EXPECT_EQ(judge(604, 20), -1);
    EXPECT_EQ(judge(706, 20), -1);
    EXPECT_EQ(
        output_,
        "temp_multiple_index:25,and meter_index:6\r\n"
        "Fail to selfstudy,current motor:706 was out of distance:20 range form:605 to 705\r\n");
}

constexpr uint64_t kThreeSeconds = 3000000000ull;

// An entry placed by the documented offsets of its block, little-endian.
void learn(std::string& image, int block, int laser, int32_t valid, int32_t motor, int64_t cl,
           int64_t pd) {
    auto put = [&](size_t at, auto value) {
        for (size_t i = 0; i < sizeof value; ++i)
            image[38400u * block + at + i] =
                static_cast<char>(static_cast<uint64_t>(value) >> (8 * i));
    };
    put(4u * laser, valid);
    put(6400 + 4u * laser, motor);
    put(12800 + 8u * laser, cl);
    put(25600 + 8u * laser, pd);
}

class SelfStudyFile : public TwinTest {
protected:
    std::string store_file() { return board().read_file(SELFSTUDY_FILE).value_or("<none>"); }
    std::string store_memory() {
        return std::string(reinterpret_cast<const char*>(selfstudy_point), SELFSTUDY_STORE_BYTES);
    }
    // The store allocated with one entry learned, so that it differs from the file.
    void change_store() {
        allocate_store();
        (void)captured([] { update_selfstudy_info_memofy(-6, 300, 1500, 33, 1.0f); });
    }
};

TEST_F(SelfStudyFile, WithoutAFileTheStartCreatesAnEmptyOneAndCatchesFatalSignals) {
    EXPECT_EQ(call(InitGlobalClearinfo), 0);
    ASSERT_NE(selfstudy_point, nullptr);
    EXPECT_EQ(store_file(), std::string(SELFSTUDY_STORE_BYTES, '\0'));
    EXPECT_EQ(output_, "");
    for (int sig : {SIGINT, SIGSEGV, SIGTERM, SIGFPE}) {
        struct sigaction action {};
        sigaction(sig, nullptr, &action);
        // SIGFPE is not caught, whatever the handler's name says.
        EXPECT_EQ(action.sa_handler == &SignalFuncFPE, sig != SIGFPE) << sig;
    }

    SelfStudyBlock* store = std::exchange(selfstudy_point, nullptr);
    board().write_file(SELFSTUDY_FILE, "old");
    const uint64_t slept = slept_ns();
    EXPECT_EQ(call(CreateFreshSelfstudyClearinfo), -1) << "there is no store to write";
    EXPECT_EQ(output_, "\r\n\r\n\r\nError:create_fresh_selfstudy_clearinfo fail\r\n\r\n\r\n");
    EXPECT_EQ(slept_ns() - slept, kThreeSeconds);
    EXPECT_EQ(store_file(), "old");
    selfstudy_point = store;
}

TEST_F(SelfStudyFile, TheStartLoadsTheFileByItsLayoutWhatAShortFileHasAndPrintsTheEntries) {
    std::string image(SELFSTUDY_STORE_BYTES, '\0');
    learn(image, 0, 5, 1, -1200, 700, -3);
    learn(image, 174, 1599, 1, 2900, 0x1'0000'0000ll, 12);
    learn(image, 175, 1, 1, 42, 1, 1);  // a block that is never printed
    learn(image, 30, 9, 2, 42, 1, 1);   // not learned: valid is not 1
    board().write_file(SELFSTUDY_FILE, image);
    const uint64_t slept = slept_ns();

    EXPECT_EQ(call(InitGlobalClearinfo), 0);
    EXPECT_EQ(output_,
              "start printf self study info:\r\n"
              "get selfstudy-info multiple:10,laser5,motor:-1200,cl:700,pd:-3\r\n"
              "get selfstudy-info multiple:184,laser1599,motor:2900,cl:4294967296,pd:12\r\n"
              "over printf self study info:\r\n");
    EXPECT_EQ(slept_ns() - slept, kThreeSeconds);
    EXPECT_EQ(store_memory(), image);
    EXPECT_EQ(get_selfstudy_motor(30, 9), SELFSTUDY_NOT_LEARNED);
    EXPECT_TRUE(recorder().writes_to("./laserclearinfo.tmp").empty()) << "loading writes nothing";

    // A short file loads what it has; one that cannot be opened nothing.
    image.resize(38400);
    learn(image, 0, 8, 1, 100, 200, 0);
    board().write_file(SELFSTUDY_FILE, image);
    EXPECT_EQ(call(InitGlobalClearinfo), 0);
    EXPECT_THAT(output_, StartsWith("Warning:the selfstudyinfo file ./laserclearinfo holds 38400 "
                                    "of 6912000 bytes, the rest starts unlearned\r\n"));
    EXPECT_EQ(call([] { return get_selfstudy_motor(0, 8); }), 100);
    EXPECT_EQ(get_selfstudy_motor(174, 1599), SELFSTUDY_NOT_LEARNED);

    board().inject({.op = twin::FaultRule::Op::open, .target = SELFSTUDY_FILE});
    EXPECT_EQ(call(InitGlobalClearinfo), 0);
    EXPECT_EQ(output_, "");
    EXPECT_EQ(get_selfstudy_motor(0, 8), SELFSTUDY_NOT_LEARNED);
    EXPECT_EQ(store_file(), image);
}

TEST_F(SelfStudyFile, ASaveInterruptedAfterTheTemporaryFileLeavesTheOldStore) {
    const std::string old(SELFSTUDY_STORE_BYTES, '\x5A');
    board().write_file(SELFSTUDY_FILE, old);
    change_store();
    for (auto op :
         {twin::FaultRule::Op::rename, twin::FaultRule::Op::fsync, twin::FaultRule::Op::write}) {
        SCOPED_TRACE(twin::op_name(op));
        board().inject({.op = op});
        EXPECT_EQ(call(DealWriteSelfStudyInfo2File), 0);
        EXPECT_EQ(output_,
                  "DealWriteSelfStudyInfo2File update\r\n"
                  "Error:DealWriteSelfStudyInfo2File,can't save the selfstudyinfo "
                  "file:./laserclearinfo!\r\n");
        EXPECT_EQ(store_file(), old);
        EXPECT_EQ(is_selfstudy_point_update, 1) << "a later save tries again";
    }

    EXPECT_EQ(call(DealWriteSelfStudyInfo2File), 0);
    EXPECT_EQ(store_file(), store_memory()) << "the next save goes through";
    EXPECT_EQ(is_selfstudy_point_update, 0);
}

TEST_F(SelfStudyFile, TheExitSaveWritesOnlyAChangedStoreAndEndsLearning) {
    allocate_store();
    board().write_file(SELFSTUDY_FILE, "old");
    EXPECT_EQ(call(ExitSaveSelfStudyInfo), 0);
    EXPECT_EQ(output_, "");
    EXPECT_EQ(recorder().opens(), std::vector<std::string>{});
    EXPECT_EQ(is_deal_selfstudy, 1);

    change_store();
    board().inject({.op = twin::FaultRule::Op::open});
    EXPECT_EQ(call(ExitSaveSelfStudyInfo), 0);
    EXPECT_EQ(output_,
              "before exit do ExitSaveSelfStudyInfo\r\n"
              "Error:SaveSelfStudyInfo,can't open the selfstudyinfo file:./laserclearinfo!\r\n");
    EXPECT_EQ(store_file(), "old");
    EXPECT_EQ(is_selfstudy_point_update, 1) << "a later save tries again";

    EXPECT_EQ(call(ExitSaveSelfStudyInfo), 0);
    EXPECT_EQ(store_file(), store_memory());
    EXPECT_EQ(is_selfstudy_point_update, 0);
    EXPECT_EQ(update_selfstudy_info_memofy(0, 900, 66, 13, 1.0f), -1) << "no learning after it";

    // The stop with nothing left to save (the fatal-signal test below saves a changed store).
    is_deal_selfstudy = 1;
    EXPECT_EQ(call(StopSelfStudyDeal), 0);
    EXPECT_EQ(output_, "Error Capture Start a\r\nError Capture Start b\r\n");
    EXPECT_EQ(is_deal_selfstudy, 0);
}

// A store that could not be read at start is never replaced by the memory's (empty) one.
TEST_F(SelfStudyFile, AStoreThatCouldNotBeReadAtStartIsNeverReplaced) {
    std::string image(SELFSTUDY_STORE_BYTES, '\0');
    learn(image, 3, 7, 1, 1234, 500, 2);
    const std::string path = board().sandbox_path(SELFSTUDY_FILE);
    const auto injected = [&](twin::FaultRule::Op op, int error) {
        return [=, this] {
            board().write_file(SELFSTUDY_FILE, image);
            board().inject({.op = op, .target = SELFSTUDY_FILE, .error = error});
        };
    };
    const std::pair<std::function<void()>, const char*> cases[] = {
        {injected(twin::FaultRule::Op::open, EACCES), ""},  // nothing is printed at start
        {injected(twin::FaultRule::Op::read, EIO),
         "Error:InitGlobalClearinfo,can't read the selfstudyinfo file:./laserclearinfo!\r\n"},
        {[&] { place(SELFSTUDY_FILE, Placed::directory); },
         "the selfstudyinfo file ./laserclearinfo is not loaded: it is a directory, not a "
         "regular file\r\n"},
        {[&] { place(SELFSTUDY_FILE, Placed::text, image + "x"); },
         "it is larger than 6912000 bytes\r\n"},
    };
    for (const auto& [make, at_start] : cases) {
        SCOPED_TRACE(at_start);
        std::filesystem::remove_all(path);
        make();
        EXPECT_EQ(call(InitGlobalClearinfo), 0);
        EXPECT_EQ(output_.empty(), *at_start == '\0') << output_;
        EXPECT_THAT(output_, HasSubstr(at_start));
        const auto kind = std::filesystem::status(path).type();
        const std::string content = kind == std::filesystem::file_type::regular ? store_file() : "";
        change_store();
        call(DealWriteSelfStudyInfo2File);
        EXPECT_THAT(output_, HasSubstr(",the selfstudyinfo file:./laserclearinfo could not be read "
                                       "at start; it is kept as it is, not replaced!\r\n"));
        EXPECT_EQ(std::filesystem::status(path).type(), kind);
        EXPECT_TRUE(content.empty() || store_file() == content);
        EXPECT_EQ(is_selfstudy_point_update, 1) << "a later save tries again";
    }
    // Once the file is gone there is nothing left to keep.
    std::filesystem::remove_all(path);
    EXPECT_EQ(call(DealWriteSelfStudyInfo2File), 0);
    EXPECT_EQ(store_file(), store_memory());
}

// Whatever is at the temporary file's name (a planted link, a leftover) is removed.
TEST_F(SelfStudyFile, TheTemporaryFileIsNeverWrittenThroughWhatIsAtItsName) {
    change_store();
    board().write_file("/victim", "keep me");
    const std::string temporary = board().sandbox_path("./laserclearinfo.tmp");
    for (const std::string& target : {board().sandbox_path("/victim"), std::string("/nowhere")}) {
        ASSERT_EQ(::symlink(target.c_str(), temporary.c_str()), 0);
        EXPECT_EQ(call(DealWriteSelfStudyInfo2File), 0);
        EXPECT_THAT(output_, HasSubstr("Warning:removed the leftover ./laserclearinfo.tmp\r\n"));
        EXPECT_EQ(board().read_file("/victim"), "keep me");
        EXPECT_EQ(store_file(), store_memory());
        EXPECT_FALSE(std::filesystem::exists(temporary));
    }
}

// The handler ends the process: it runs in a child whose output goes to a sandbox file. An
// interrupted writer keeps the self-study write lock: the handler's wait for it is bounded.
TEST_F(SelfStudyFile, TheFatalSignalHandlerSavesAChangedStoreAndExitsWithZero) {
    change_store();
    const std::string log = board().sandbox_path("/signal.log");
    selfstudy_write_try_lock();
    EXPECT_EXIT(
        {
            ::dup2(::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDOUT_FILENO);
            SignalFuncFPE(SIGTERM);
        },
        ::testing::ExitedWithCode(0), "");
    selfstudy_write_unlock();
    EXPECT_EQ(board().read_file("/signal.log"),
              "\r\nError Capture Start!\r\n"
              "AF Module unexception arrival:15!\r\n"
              "Warning:the selfstudy write lock is held by an interrupted writer, saving without "
              "it\r\n"
              "Error Capture Start a\r\n"
              "before exit do ExitSaveSelfStudyInfo\r\n"
              "Error Capture Start b\r\n"
              "Error Capture Over!\r\n");
    EXPECT_EQ(store_file(), store_memory());
}

// The lock counters; the signal handler's wait for the self-study write lock is bounded.
TEST_F(SelfStudy, LockCountersAndTheBoundedWaitForTheWriteLock) {
    EXPECT_EQ(ptz_try_lock(), 1);
    EXPECT_EQ(ptz_unlock(), 0);
    EXPECT_EQ(laser_try_lock(), 0);
    EXPECT_EQ(laser_unlock(), 0);
    EXPECT_EQ(selfstudy_write_try_lock(), 1);
    const uint64_t before = slept_ns();
    EXPECT_FALSE(selfstudy_write_try_lock_for(100'000'000));
    EXPECT_EQ(slept_ns() - before, 100'000'000u);  // five 20 ms pauses, then it gives up
    EXPECT_EQ(selfstudy_write_unlock(), 0);
    EXPECT_TRUE(selfstudy_write_try_lock_for(100'000'000));
    EXPECT_EQ(slept_ns() - before, 100'000'000u);
    EXPECT_EQ(selfstudy_write_unlock(), 0);
}

// The handler's messages read the same from a thread and a signal handler; a line is cut.
TEST(SafeMessages, ReadTheSameFromAThreadAndFromASignalHandler) {
    for (const Context context : {Context::thread, Context::signal_handler}) {
        const std::string out = captured([&] {
            SafeMessage message;
            for (int64_t n : {INT64_MIN, int64_t{0}, int64_t{-7}, int64_t{1234}})
                message.number(n).text(" ");
            message.error(ENOENT).text(" ").error(99999).text("\n").say(context);
        });
        EXPECT_EQ(out, "-9223372036854775808 0 -7 1234 No such file or directory error 99999\n");
        const std::string line(300, 'x');
        EXPECT_EQ(captured([&] { SafeMessage().text(line.c_str()).say(context); }),
                  std::string(255, 'x'));
    }
}

}  // namespace
}  // namespace zoomaf::test
