// The file "./laserclearinfo": its byte layout, the load at start, the three savers and
// their whole-file replacement (an interrupted save leaves the old store), the exit save
// that writes nothing when nothing changed, and the fatal-signal path.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/service/service_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr uint64_t kThreeSeconds = 3000000000ull;

// Little-endian fields of a raw store image, placed by the documented offsets.
void put32(std::string& image, size_t at, int32_t v) {
    for (int i = 0; i < 4; ++i)
        image[at + i] = static_cast<char>((static_cast<uint32_t>(v) >> (8 * i)) & 0xFF);
}
void put64(std::string& image, size_t at, int64_t v) {
    for (int i = 0; i < 8; ++i)
        image[at + i] = static_cast<char>((static_cast<uint64_t>(v) >> (8 * i)) & 0xFF);
}
void learn(std::string& image, int block, int laser, int32_t valid, int32_t motor, int64_t cl,
           int64_t pd) {
    const size_t base = 38400u * block;
    put32(image, base + 4u * laser, valid);
    put32(image, base + 6400 + 4u * laser, motor);
    put64(image, base + 12800 + 8u * laser, cl);
    put64(image, base + 25600 + 8u * laser, pd);
}

class SelfStudyFile : public ServiceTest {
protected:
    std::string store_file() { return board().read_file(SELFSTUDY_FILE).value_or("<none>"); }
    std::string store_memory() {
        return std::string(reinterpret_cast<const char*>(selfstudy_point), SELFSTUDY_STORE_BYTES);
    }
    int writes_to_store_files() {
        return static_cast<int>(recorder().writes_to("./laserclearinfo.tmp").size() +
                                recorder().writes_to(SELFSTUDY_FILE).size());
    }
};

TEST_F(SelfStudyFile, WithoutAFileTheStartCreatesAnEmptyOneAndCatchesFatalSignals) {
    EXPECT_EQ(call([] { return InitGlobalClearinfo(); }), 0);
    ASSERT_NE(selfstudy_point, nullptr);
    EXPECT_EQ(store_file(), std::string(SELFSTUDY_STORE_BYTES, '\0'));
    EXPECT_EQ(output_, "");
    for (int sig : {SIGINT, SIGSEGV, SIGTERM}) {
        struct sigaction action {};
        sigaction(sig, nullptr, &action);
        EXPECT_EQ(action.sa_handler, &SignalFuncFPE) << sig;
    }
    struct sigaction fpe {};
    sigaction(SIGFPE, nullptr, &fpe);
    EXPECT_NE(fpe.sa_handler, &SignalFuncFPE) << "SIGFPE is not caught, whatever the name says";
}

TEST_F(SelfStudyFile, TheStartLoadsTheFileByItsLayoutAndPrintsTheLearnedEntries) {
    std::string image(SELFSTUDY_STORE_BYTES, '\0');
    learn(image, 0, 5, 1, -1200, 700, -3);
    learn(image, 174, 1599, 1, 2900, 0x1'0000'0000ll, 12);
    learn(image, 175, 1, 1, 42, 1, 1);  // a block that is never printed
    learn(image, 30, 9, 2, 42, 1, 1);   // not learned: valid is not 1
    board().write_file(SELFSTUDY_FILE, image);
    const uint64_t slept = board().slept_ns();

    EXPECT_EQ(call([] { return InitGlobalClearinfo(); }), 0);
    EXPECT_EQ(output_,
              "start printf self study info:\r\n"
              "get selfstudy-info multiple:10,laser5,motor:-1200,cl:700,pd:-3\r\n"
              "get selfstudy-info multiple:184,laser1599,motor:2900,cl:4294967296,pd:12\r\n"
              "over printf self study info:\r\n");
    EXPECT_EQ(board().slept_ns() - slept, kThreeSeconds);
    EXPECT_EQ(store_memory(), image);
    EXPECT_EQ(call([] { return get_selfstudy_motor(0, 5); }), -1200);
    EXPECT_EQ(get_selfstudy_motor(30, 9), SELFSTUDY_NOT_LEARNED);
    EXPECT_EQ(writes_to_store_files(), 0) << "loading writes nothing";
}

TEST_F(SelfStudyFile, AShortFileLoadsWhatItHas) {
    std::string image(38400, '\0');
    learn(image, 0, 8, 1, 100, 200, 0);
    board().write_file(SELFSTUDY_FILE, image);
    EXPECT_EQ(call([] { return InitGlobalClearinfo(); }), 0);
    EXPECT_THAT(output_, StartsWith("Warning:the selfstudyinfo file ./laserclearinfo holds 38400 "
                                    "of 6912000 bytes, the rest starts unlearned\r\n"));
    EXPECT_EQ(call([] { return get_selfstudy_motor(0, 8); }), 100);
}

TEST_F(SelfStudyFile, AFileThatCannotBeOpenedPrintsNothingAndStaysAsItIs) {
    board().write_file(SELFSTUDY_FILE, "old");
    board().inject({.op = twin::FaultRule::Op::open, .path = SELFSTUDY_FILE});
    EXPECT_EQ(call([] { return InitGlobalClearinfo(); }), 0);
    EXPECT_EQ(output_, "");
    EXPECT_EQ(store_file(), "old");
}

TEST_F(SelfStudyFile, ThePeriodicSaveReplacesTheFileWholeEvenWhenNothingChanged) {
    allocate_store();
    board().write_file(SELFSTUDY_FILE, "old");
    EXPECT_EQ(call([] { return DealWriteSelfStudyInfo2File(); }), 0);
    EXPECT_EQ(output_, "DealWriteSelfStudyInfo2File update\r\n");
    EXPECT_EQ(store_file(), store_memory());
    EXPECT_EQ(recorder().renames(), (std::vector<std::pair<std::string, std::string>>{
                                        {"./laserclearinfo.tmp", "./laserclearinfo"}}));
    EXPECT_EQ(board().access("laserclearinfo.tmp", F_OK), -1);
    EXPECT_EQ(selfstudy_info_write_lock, 0) << "the write lock is released";

    current_multiple = 1.0f;
    (void)captured([] { update_selfstudy_info_memofy(-2, 250, 77, 12, 1.0f); });
    EXPECT_EQ(is_selfstudy_point_update, 1);
    EXPECT_EQ(call([] { return DealWriteSelfStudyInfo2File(); }), 0);
    EXPECT_EQ(is_selfstudy_point_update, 0);
    EXPECT_EQ(store_file(), store_memory());
    EXPECT_EQ(store_file().substr(4 * 12, 4), std::string("\x01\0\0\0", 4));
}

TEST_F(SelfStudyFile, ASaveInterruptedAfterTheTemporaryFileLeavesTheOldStore) {
    allocate_store();
    const std::string old(SELFSTUDY_STORE_BYTES, '\x5A');
    board().write_file(SELFSTUDY_FILE, old);
    current_multiple = 1.0f;
    (void)captured([] { update_selfstudy_info_memofy(0, 250, 77, 12, 1.0f); });

    for (auto op :
         {twin::FaultRule::Op::rename, twin::FaultRule::Op::fsync, twin::FaultRule::Op::write}) {
        board().inject({.op = op});
        EXPECT_EQ(call([] { return DealWriteSelfStudyInfo2File(); }), 0);
        EXPECT_EQ(output_,
                  "DealWriteSelfStudyInfo2File update\r\n"
                  "Error:DealWriteSelfStudyInfo2File,can't save the selfstudyinfo "
                  "file:./laserclearinfo!\r\n")
            << twin::op_name(op);
        EXPECT_EQ(store_file(), old) << twin::op_name(op);
        EXPECT_EQ(is_selfstudy_point_update, 1) << "a later save tries again";
    }
    EXPECT_EQ(board().open_descriptors(), 0u);

    board().inject({.op = twin::FaultRule::Op::open});
    EXPECT_EQ(call([] { return DealWriteSelfStudyInfo2File(); }), 0);
    EXPECT_THAT(output_, HasSubstr("Error:DealWriteSelfStudyInfo2File,can't open the selfstudyinfo "
                                   "file:./laserclearinfo!\r\n"));
    EXPECT_EQ(store_file(), old);
    EXPECT_EQ(is_selfstudy_point_update, 1);

    EXPECT_EQ(call([] { return DealWriteSelfStudyInfo2File(); }), 0);
    EXPECT_EQ(store_file(), store_memory()) << "the next save goes through";
}

TEST_F(SelfStudyFile, TheExitSaveWritesNothingWhenNothingChanged) {
    allocate_store();
    board().write_file(SELFSTUDY_FILE, "old");
    EXPECT_EQ(call([] { return ExitSaveSelfStudyInfo(); }), 0);
    EXPECT_EQ(output_, "");
    EXPECT_EQ(recorder().opens(), std::vector<std::string>{});
    EXPECT_EQ(store_file(), "old");
    EXPECT_EQ(is_deal_selfstudy, 1);
}

TEST_F(SelfStudyFile, TheExitSaveOfAChangedStoreEndsLearning) {
    allocate_store();
    current_multiple = 1.0f;
    (void)captured([] { update_selfstudy_info_memofy(0, 250, 77, 12, 1.0f); });
    EXPECT_EQ(call([] { return ExitSaveSelfStudyInfo(); }), 0);
    EXPECT_EQ(output_, "before exit do ExitSaveSelfStudyInfo\r\n");
    EXPECT_EQ(store_file(), store_memory());
    EXPECT_EQ(is_selfstudy_point_update, 0);
    EXPECT_EQ(is_deal_selfstudy, 0);
    EXPECT_EQ(update_selfstudy_info_memofy(0, 900, 66, 13, 1.0f), -1) << "no learning after it";

    is_selfstudy_point_update = 1;
    board().inject({.op = twin::FaultRule::Op::open});
    EXPECT_EQ(call([] { return ExitSaveSelfStudyInfo(); }), 0);
    EXPECT_EQ(output_,
              "before exit do ExitSaveSelfStudyInfo\r\n"
              "Error:SaveSelfStudyInfo,can't open the selfstudyinfo file:./laserclearinfo!\r\n");
    EXPECT_EQ(is_selfstudy_point_update, 1);
}

TEST_F(SelfStudyFile, StopSavesUnderTheWriteLockAndStopsLearning) {
    allocate_store();
    EXPECT_EQ(call([] { return StopSelfStudyDeal(); }), 0);
    EXPECT_EQ(output_, "Error Capture Start a\r\nError Capture Start b\r\n");
    EXPECT_EQ(is_deal_selfstudy, 0);
    EXPECT_EQ(selfstudy_info_write_lock, 0);

    is_deal_selfstudy = 1;
    is_selfstudy_point_update = 1;
    EXPECT_EQ(call([] { return StopSelfStudyDeal(); }), 0);
    EXPECT_EQ(output_,
              "Error Capture Start a\r\nbefore exit do ExitSaveSelfStudyInfo\r\n"
              "Error Capture Start b\r\n");
    EXPECT_EQ(store_file(), store_memory());
}

TEST_F(SelfStudyFile, CreatingTheFileWithoutAStoreFailsAfterItsPause) {
    SelfStudyBlock* store = selfstudy_point;
    selfstudy_point = nullptr;
    const uint64_t slept = board().slept_ns();
    EXPECT_EQ(call([] { return CreateFreshSelfstudyClearinfo(); }), -1);
    EXPECT_EQ(output_, "\r\n\r\n\r\nError:create_fresh_selfstudy_clearinfo fail\r\n\r\n\r\n");
    EXPECT_EQ(board().slept_ns() - slept, kThreeSeconds);
    EXPECT_EQ(board().access(SELFSTUDY_FILE, F_OK), -1);
    selfstudy_point = store;
}

// The handler runs in a child process (it ends the process); the child's standard output
// goes to a file of the sandbox so that the parent can read the messages.
TEST_F(SelfStudyFile, TheFatalSignalHandlerSavesAChangedStoreAndExitsWithZero) {
    allocate_store();
    current_multiple = 1.0f;
    (void)captured([] { update_selfstudy_info_memofy(-6, 300, 1500, 33, 1.0f); });
    const std::string log = board().sandbox_path("/signal.log");
    EXPECT_EXIT(
        {
            const int fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            ::dup2(fd, STDOUT_FILENO);
            SignalFuncFPE(SIGTERM);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EQ(board().read_file("/signal.log"),
              "\r\nError Capture Start!\r\n"
              "AF Module unexception arrival:15!\r\n"
              "Error Capture Start a\r\n"
              "before exit do ExitSaveSelfStudyInfo\r\n"
              "Error Capture Start b\r\n"
              "Error Capture Over!\r\n");
    EXPECT_EQ(store_file(), store_memory());
    EXPECT_EQ(store_file().substr(6400 + 4 * 33, 4), std::string("\xDC\x05\0\0", 4));  // 1500
}

// Learning on the loop's thread while the application saves: no entry is torn and nothing
// races (the ThreadSanitizer build runs this too).
TEST_F(SelfStudyFile, LearningWhileSavingDoesNotRace) {
    allocate_store();
    current_multiple = 1.0f;
    std::atomic<bool> stop{false};
    (void)captured([&] {
        std::thread loop([&] {
            for (int laser = 0; !stop.load() || laser < 50; laser = (laser + 1) % 1500) {
                update_selfstudy_info_memofy(-laser, 200 + laser, 1000u + laser, laser + 5, 1.0f);
                get_selfstudy_motor(0, laser + 5);
                if (stop.load() && laser == 49) break;
            }
        });
        for (int i = 0; i < 3; ++i) DealWriteSelfStudyInfo2File();
        stop = true;
        loop.join();
    });
    EXPECT_EQ(call([] { return DealWriteSelfStudyInfo2File(); }), 0);
    EXPECT_EQ(store_file(), store_memory());
}

}  // namespace
}  // namespace zoomaf::test
