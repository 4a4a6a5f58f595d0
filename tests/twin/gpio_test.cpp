// sysfs GPIO semantics of the twin board.
#include "board_io.hpp"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

using test::export_line;
using test::gpio_file;
using test::read_path;
using test::set_value;
using test::write_path;

constexpr const char* kExport = "/sys/class/gpio/export";

TEST(GpioExport, CreatesTheLineFilesOnlyOnExport) {
    Board board;
    EXPECT_ERRNO(board.open(gpio_file(26, "value").c_str(), O_RDONLY), ENOENT);
    EXPECT_EQ(board.access("/sys/class/gpio/gpio26", F_OK), -1);

    // "26" and its terminating zero, the three bytes the driver writes.
    EXPECT_EQ(write_path(board, kExport, std::string_view("26\0", 3)), 3);
    EXPECT_EQ(board.access("/sys/class/gpio/gpio26", F_OK), 0);
    EXPECT_EQ(read_path(board, gpio_file(26, "direction")), "in\n") << "new lines are inputs";
    EXPECT_EQ(read_path(board, gpio_file(26, "active_low")), "0\n");
    EXPECT_ERRNO(board.open(gpio_file(26, "edge").c_str(), O_RDONLY), ENOENT);
}

TEST(GpioExport, AcceptsThreeDigitsAndNewlinesAndRejectsTheRest) {
    Board board;
    EXPECT_EQ(write_path(board, kExport, "120"), 3);
    EXPECT_EQ(write_path(board, kExport, "22\n"), 3);
    EXPECT_TRUE(board.gpio_exported(120) && board.gpio_exported(22));
    EXPECT_ERRNO(write_path(board, kExport, "120"), EBUSY) << "exporting an exported line";
    for (const char* bad : {"abc", "\n", "2x", "-1", "160"})
        EXPECT_ERRNO(write_path(board, kExport, bad), EINVAL) << bad;
}

TEST(GpioExport, UnexportRemovesTheFilesAndOpenFilesGoStale) {
    Board board;
    export_line(board, 24);
    const int fd = board.open(gpio_file(24, "value").c_str(), O_RDONLY);
    EXPECT_EQ(write_path(board, "/sys/class/gpio/unexport", "24"), 2);
    EXPECT_FALSE(board.gpio_exported(24));
    EXPECT_EQ(board.access(gpio_file(24, "value").c_str(), F_OK), -1);
    char buf[4];
    EXPECT_ERRNO(board.read(fd, buf, sizeof buf), ENODEV);
    EXPECT_ERRNO(write_path(board, "/sys/class/gpio/unexport", "24"), EINVAL) << "not exported";
    EXPECT_EQ(export_line(board, 24), 3) << "can be exported again";
}

TEST(GpioDirection, InOutHighLow) {
    Board board;
    export_line(board, 120);
    const std::string direction = gpio_file(120, "direction");
    EXPECT_EQ(write_path(board, direction, "out"), 3);
    EXPECT_EQ(read_path(board, direction), "out\n");
    EXPECT_EQ(write_path(board, direction, std::string_view("in\0", 3)), 3);
    EXPECT_EQ(read_path(board, direction), "in\n");
    write_path(board, direction, "high");
    EXPECT_TRUE(board.gpio_direction_out(120));
    EXPECT_EQ(board.gpio_physical(120), 1);
    write_path(board, direction, "low\n");
    EXPECT_EQ(board.gpio_physical(120), 0);
    EXPECT_ERRNO(write_path(board, direction, "sideways"), EINVAL);
    EXPECT_TRUE(board.gpio_direction_out(120)) << "a rejected write changes nothing";
}

TEST(GpioValue, OutputWritesSetThePhysicalLevelThroughActiveLowAndInputsRefuse) {
    Board board;
    export_line(board, 26);
    EXPECT_ERRNO(set_value(board, 26, 1), EPERM) << "26 is an input";
    EXPECT_EQ(board.gpio_physical(26), 0);

    test::make_output(board, 120);
    EXPECT_EQ(set_value(board, 120, 1), 1);
    EXPECT_EQ(board.gpio_physical(120), 1);
    EXPECT_EQ(write_path(board, gpio_file(120, "active_low"), std::string_view("1\0\0", 3)), 3);
    EXPECT_EQ(board.gpio_physical(120), 1) << "polarity alone does not move the line";
    EXPECT_EQ(read_path(board, gpio_file(120, "value")), "0\n");
    set_value(board, 120, 1);
    EXPECT_EQ(board.gpio_physical(120), 0) << "logical 1 is physical 0 when active low";
    EXPECT_EQ(write_path(board, gpio_file(120, "value"), "7\n"), 2) << "non-zero is 1";
    EXPECT_EQ(board.gpio_physical(120), 0);
    EXPECT_ERRNO(write_path(board, gpio_file(120, "value"), "on"), EINVAL);
}

TEST(GpioValue, ActiveLowInvertsInputReadsAndEachOpenReadsFromTheStart) {
    Board board(BoardConfig{.zoom_start = 100});  // positive side: the raw zoom PI is 1
    export_line(board, 22);
    EXPECT_EQ(read_path(board, gpio_file(22, "value")), "1\n");
    write_path(board, gpio_file(22, "active_low"), "5");
    EXPECT_EQ(read_path(board, gpio_file(22, "active_low")), "1\n") << "non-zero is 1";
    EXPECT_EQ(read_path(board, gpio_file(22, "value")), "0\n");
    EXPECT_ERRNO(write_path(board, gpio_file(22, "active_low"), "yes"), EINVAL);

    const int fd = board.open(gpio_file(22, "value").c_str(), O_RDONLY);
    char text[3] = {};
    EXPECT_EQ(board.read(fd, &text[0], 1), 1);
    EXPECT_EQ(board.read(fd, &text[1], 1), 1);
    EXPECT_EQ(board.read(fd, &text[2], 1), 0) << "end of file";
    EXPECT_STREQ(text, "0\n");
    EXPECT_EQ(read_path(board, gpio_file(22, "value")), "0\n") << "a new open starts over";
}

TEST(GpioEdges, EveryPhysicalChangeIsRecordedWithItsTime) {
    Board board;
    test::make_output(board, 120);
    const uint64_t t0 = board.now_ns();
    set_value(board, 120, 1);
    board.advance_ns(1000);
    set_value(board, 120, 1);  // no change, no edge
    board.advance_ns(500);
    set_value(board, 120, 0);
    std::vector<std::pair<uint64_t, int>> edges;
    for (const GpioEdge& edge : board.gpio_edges(120)) edges.emplace_back(edge.time_ns, edge.level);
    EXPECT_EQ(edges, (std::vector<std::pair<uint64_t, int>>{{t0, 1}, {t0 + 1500, 0}}));
    EXPECT_TRUE(board.gpio_edges(121).empty());
    EXPECT_THROW(board.gpio_edges(160), std::out_of_range);
}

}  // namespace
}  // namespace zoomaf::twin
