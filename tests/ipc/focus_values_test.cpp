// The focus-value reader on channel 30, fed by the twin's video encoder.
#include <cstring>

#include "channel_fixture.hpp"
#include "twin/encoder.hpp"

namespace zoomaf::test {
namespace {

constexpr uint64_t kFrameNs = 33'333'333;

class FocusValueReader : public ChannelTest {
protected:
    static int64_t consume(VrelFocusValues& record) {
        return call([&] { return fv_publish_consume_encodered_data(&record); }).result;
    }
};

TEST_F(FocusValueReader, TakesEachFrameOnceAndFillsOnlyTheTwoValues) {
    twin::Encoder encoder(board());
    encoder.set_focus_values(123456789012LL, -42);
    VrelFocusValues record{};
    std::memset(record.reserved, 0x77, sizeof record.reserved);
    EXPECT_NE(consume(record), 0) << "no frame encoded yet";

    board().advance_ns(kFrameNs);
    ASSERT_EQ(consume(record), 0);
    EXPECT_EQ(record.fv1, 123456789012LL);
    EXPECT_EQ(record.fv2, -42);
    EXPECT_EQ(record.reserved[0], 0x77) << "callers may keep just the two values";

    record.fv1 = record.fv2 = 5;
    EXPECT_NE(consume(record), 0) << "the same frame is not taken twice";
    EXPECT_EQ(record.fv1, 5) << "and the record is left as it was";

    // A source function follows the board's time.
    encoder.set_source([](uint64_t now_ns) {
        return twin::FocusValues{static_cast<int64_t>(now_ns / 1000), 8};
    });
    board().advance_ns(kFrameNs);
    ASSERT_EQ(consume(record), 0);
    EXPECT_EQ(record.fv1, static_cast<int64_t>(board().now_ns() / 1000));
    EXPECT_EQ(record.fv2, 8);
}

TEST_F(FocusValueReader, AChannelThatCannotBeOpenedMeansNoValuesAndIsTriedAgain) {
    board().fail_shmat_errno = ENOMEM;
    VrelFocusValues record{};
    record.fv2 = 9;
    EXPECT_NE(consume(record), 0);
    EXPECT_EQ(record.fv2, 9);

    board().fail_shmat_errno = 0;
    twin::Encoder encoder(board());
    encoder.set_focus_values(3, 4);
    board().advance_ns(kFrameNs);
    ASSERT_EQ(consume(record), 0);
    EXPECT_EQ(record.fv2, 4);
}

}  // namespace
}  // namespace zoomaf::test
