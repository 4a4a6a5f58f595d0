// The focus-value reader on channel 30, fed by the twin's video encoder.
#include "channel_fixture.hpp"
#include "ipc/ipc_internal.hpp"
#include "twin/encoder.hpp"
#include "zoomaf/assist_info.h"

namespace zoomaf::test {
namespace {

constexpr uint64_t kFrameNs = 33'333'333;

class FocusValueReader : public ChannelTest {
protected:
    void SetUp() override {
        ChannelTest::SetUp();
        ipc::fv_channel() = VrelShareMan{};
    }
    void TearDown() override {
        ipc::fv_channel() = VrelShareMan{};
        ChannelTest::TearDown();
    }
    int32_t consume(VrelFocusValues& record) {
        int32_t result = 0;
        captured([&] { result = fv_publish_consume_encodered_data(&record); });
        return result;
    }
};

TEST_F(FocusValueReader, TakesEachFrameOnce) {
    twin::Encoder encoder(board());
    encoder.set_focus_values(123456789012LL, -42);
    VrelFocusValues record{};
    EXPECT_NE(consume(record), 0) << "no frame encoded yet";
    EXPECT_EQ(record.fv1, 0);

    board().advance_ns(kFrameNs);
    ASSERT_EQ(encoder.frames(), 1u);
    ASSERT_EQ(consume(record), 0);
    EXPECT_EQ(record.fv1, 123456789012LL);
    EXPECT_EQ(record.fv2, -42);

    record.fv1 = record.fv2 = 5;
    EXPECT_NE(consume(record), 0) << "the same frame is not taken twice";
    EXPECT_EQ(record.fv1, 5) << "and the record is left as it was";
    EXPECT_EQ(record.fv2, 5);

    encoder.set_focus_values(7, 8);
    board().advance_ns(kFrameNs);
    ASSERT_EQ(consume(record), 0);
    EXPECT_EQ(record.fv1, 7);
    EXPECT_EQ(record.fv2, 8);
}

TEST_F(FocusValueReader, FillsOnlyTheTwoValues) {
    twin::Encoder encoder(board());
    encoder.set_focus_values(1, 2);
    board().advance_ns(kFrameNs);
    VrelFocusValues record{};
    std::memset(record.reserved, 0x77, sizeof record.reserved);
    ASSERT_EQ(consume(record), 0);
    EXPECT_EQ(record.reserved[0], 0x77);
    EXPECT_EQ(record.reserved[sizeof record.reserved - 1], 0x77);
}

TEST_F(FocusValueReader, AChannelThatCannotBeOpenedMeansNoValuesAndIsTriedAgain) {
    board().fail_shmat_errno = ENOMEM;
    VrelFocusValues record{};
    record.fv2 = 9;
    EXPECT_NE(consume(record), 0);
    EXPECT_EQ(record.fv2, 9);
    EXPECT_EQ(ipc::fv_channel().shm_addr, nullptr);

    board().fail_shmat_errno = 0;
    twin::Encoder encoder(board());
    encoder.set_focus_values(3, 4);
    board().advance_ns(kFrameNs);
    ASSERT_EQ(consume(record), 0);
    EXPECT_EQ(record.fv2, 4);
}

TEST_F(FocusValueReader, ValuesFromASourceFollowTheBoard) {
    twin::Encoder encoder(board());
    encoder.set_source([&](uint64_t now_ns) {
        return twin::FocusValues{static_cast<int64_t>(now_ns / 1000), -1};
    });
    board().advance_ns(kFrameNs);
    VrelFocusValues record{};
    ASSERT_EQ(consume(record), 0);
    EXPECT_EQ(record.fv1, static_cast<int64_t>(board().now_ns() / 1000));
}

}  // namespace
}  // namespace zoomaf::test
