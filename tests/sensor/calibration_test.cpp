// The sensor's calibration data: DCC values from the DCC file, a DCC text file and the
// module memory; LRC data and the register sets as the sensor receives them.
#include <gmock/gmock.h>

#include "tests/support/twin_test.hpp"
#include "twin/module/module_calibration.hpp"
#include "zoomaf/imx586.h"

namespace zoomaf::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAreArray;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using twin::FaultRule;

constexpr const char* kDccFile = IMX586_DCC_FILE;

class DccValues : public TwinTest {
protected:
    std::vector<int64_t> dcc() const { return {eeprom_dcc, eeprom_dcc + 48}; }
    int read_file() {
        return call([] { return read_dcc_data_reg_byfile(kDccFile, eeprom_dcc); });
    }
};

TEST_F(DccValues, AFileOf96BytesGives48BigEndianValuesAndZerosForWhatItLacks) {
    std::string bytes;
    for (int k = 0; k < 48; ++k) bytes += std::string("\x01\x00", 2);
    bytes[0] = '\x07';
    bytes[1] = '\x9A';
    bytes[94] = '\x00';
    bytes[95] = '\x05';
    board().write_file(kDccFile, bytes + "\xFF\xFF");  // bytes past the 96th are not read
    EXPECT_EQ(read_file(), 0);
    EXPECT_EQ(output_, "get dcc success from file:0416_-1930_-1960\r\n");
    EXPECT_EQ(std::tuple(eeprom_dcc[0], eeprom_dcc[1], eeprom_dcc[47]), std::tuple(0x079A, 256, 5));

    board().write_file(kDccFile, std::string("\x07\x9A\x07\x9B\x07", 5));
    std::fill(eeprom_dcc, eeprom_dcc + 48, 9);
    EXPECT_EQ(read_file(), -1) << "a short file is an error";
    EXPECT_EQ(output_,
              "Error: the DCC file 0416_-1930_-1960 holds 5 of 96 bytes; the values it lacks are "
              "0\r\n");
    EXPECT_EQ(std::tuple(eeprom_dcc[0], eeprom_dcc[1], eeprom_dcc[2]),
              std::tuple(0x079A, 0x079B, 0x0700))
        << "half a value: the missing byte is 0";
    EXPECT_THAT(std::vector<int64_t>(eeprom_dcc + 3, eeprom_dcc + 48), Each(0));
}

// What is at the DCC file's path instead of a DCC file: an error naming it, every value 0.
TEST_F(DccValues, BrokenBinaryFilesAreErrorsNamingThePath) {
    const std::tuple<Placed, int, const char*> cases[] = {
        {Placed::text, -1, "holds 0 of 96 bytes"},
        {Placed::directory, 0, "cannot open it: Is a directory"},
        {Placed::fifo, -1, "it is a FIFO"}};
    for (const auto& [kind, result, message] : cases) {
        SCOPED_TRACE(message);
        place(kDccFile, kind);
        std::fill(eeprom_dcc, eeprom_dcc + 48, 9);
        EXPECT_EQ(read_file(), result);
        EXPECT_THAT(output_, HasSubstr("Error: the DCC file 0416_-1930_-1960"));
        EXPECT_THAT(output_, HasSubstr(message));
        EXPECT_THAT(dcc(), Each(0));
    }
}

// The module memory holds each value low byte first: one transfer per byte, one open for all.
TEST_F(DccValues, TheModuleMemoryHoldsTheModulesCalibration) {
    int64_t from_memory[48] = {};
    const uint64_t slept_before = slept_ns();
    ASSERT_EQ(call([&] { return read_dcc_data_reg(from_memory); }), 0);
    EXPECT_THAT(from_memory, Each(::testing::AllOf(::testing::Ge(1930), ::testing::Le(1960))));
    const auto transfers = i2c_transfers(9);
    ASSERT_EQ(transfers.size(), 96u);
    EXPECT_EQ(transfers[1].messages[0].data, (std::vector<uint8_t>{0x09, 0x30}));
    EXPECT_EQ(recorder().opens().size(), 1u);
    EXPECT_EQ(slept_ns() - slept_before, 48u * 2'000'000u);
}

TEST_F(DccValues, AnUnreachableModuleMemoryLeavesTheValuesCleared) {
    std::fill(eeprom_dcc, eeprom_dcc + 48, 5);
    unplug_i2c(9, 0x50, 1);
    EXPECT_EQ(call([] { return read_dcc_data_reg(eeprom_dcc); }), -1);
    EXPECT_EQ(output_, "~ioctl read error addr:0x92f,ret:-1\r\n");
    EXPECT_THAT(dcc(), Each(0));
    // A failed high byte has its own text.
    board().inject({.op = FaultRule::Op::ioctl, .target = "/dev/i2c-9", .skip = 1});
    EXPECT_EQ(call([] { return read_dcc_data_reg(eeprom_dcc); }), -1);
    EXPECT_EQ(output_, "ioctl read error addr:0x930\r\n");
    board().inject({.op = FaultRule::Op::open, .target = "/dev/i2c-9"});
    EXPECT_EQ(call([] { return read_dcc_data_reg(eeprom_dcc); }), -1);
    EXPECT_EQ(output_, "open iic-8 fail!\r\n");
}

TEST_F(DccValues, ATextFileNamedByTheMultipleGivesOneValuePerLineUpToTheArraysEnd) {
    board().write_file("5.0_dcc_data", "1940\r\n1941\r\n-7\r\n");
    int64_t values[50] = {};
    EXPECT_EQ(call([&] { return read_dcc_data_from_file(values, 5.0f); }), 0);
    EXPECT_EQ(output_, "fopen 5.0_dcc_data success!\r\n");
    EXPECT_EQ(std::tuple(values[0], values[1], values[2]), std::tuple(1940, 1941, -7));
    // The open's success is announced either way.
    EXPECT_EQ(call([&] { return read_dcc_data_from_file(values, 7.25f); }), -1);
    EXPECT_EQ(output_, "fopen 7.2_dcc_data success!\r\nfopen file:7.250000 error！\r\n");

    std::string text;
    for (int k = 0; k < 50; ++k) text += std::to_string(1900 + k) + "\n";
    board().write_file("3.5_dcc_data", text);
    values[48] = values[49] = -1;
    EXPECT_EQ(call([&] { return read_dcc_data_from_file(values, 3.5f); }), 0);
    EXPECT_EQ(std::tuple(values[47], values[48], values[49]), std::tuple(1947, -1, -1));
    EXPECT_THAT(output_, HasSubstr("more than 48 values"));

    // A line is one value however long; one that is not a number refuses the file.
    board().write_file("5.0_dcc_data", "\n000000000001942\r\n  -3 \n\n");
    EXPECT_EQ(call([&] { return read_dcc_data_from_file(values, 5.0f); }), 0);
    EXPECT_EQ(std::tuple(values[0], values[1], values[2]), std::tuple(1942, -3, 1902));
    for (const char* bad : {"12.5", "1e3", "12-3", "99999999999999999999"}) {
        board().write_file("5.0_dcc_data", std::string("1\n") + bad + "\n");
        EXPECT_EQ(call([&] { return read_dcc_data_from_file(values, 5.0f); }), -1) << bad;
        EXPECT_THAT(output_, HasSubstr(std::string("Error: the DCC file 5.0_dcc_data line 2: \"") +
                                       bad + "\" is not a number; no value is taken"));
        EXPECT_EQ(values[0], 1942);
    }
    board().write_file("5.0_dcc_data", std::string(65537, '7'));
    EXPECT_EQ(call([&] { return read_dcc_data_from_file(values, 5.0f); }), -1);
    EXPECT_THAT(output_, HasSubstr("it is larger than 65536 bytes"));
}

using SensorSetUp = TwinTest;

TEST_F(SensorSetUp, RegisterSetsAreWrittenInTableOrderOrReadBack) {
    EXPECT_EQ(call([] { return write_dcc_roi(1); }), 0);
    const std::vector<std::pair<uint16_t, uint8_t>> expected = {
        {0x38A4, 0x00}, {0x38A5, 0x50}, {0x38A6, 0x01}, {0x38A7, 0xA4}, {0x38A8, 0x01},
        {0x38A9, 0xE0}, {0x38AA, 0x01}, {0x38AB, 0x68}, {0x38A3, 0x01}};
    EXPECT_THAT(sensor_writes(), ElementsAreArray(expected));
    EXPECT_EQ(output_, "");
    EXPECT_EQ(call([] { return write_dcc_roi(0); }), 0);
    EXPECT_THAT(output_, StartsWith("\r\nread dcc_roi!\r\nread 0x38a4,value 0x0\r\n"
                                    "read 0x38a5,value 0x50\r\n"));
    EXPECT_THAT(output_, EndsWith("read 0x38a3,value 0x1\r\n\r\nover read dcc_roi over!\r\n"));

    // The setting sets: eight registers each, written or read back.
    EXPECT_EQ(call([] { return write_setting2_lrcver(1); }), 0);
    EXPECT_EQ(sensor_writes().size(), 9u + 8u);
    EXPECT_THAT(output_, StartsWith("settin2 write:0x101,value:0x0\r\n"));
    EXPECT_THAT(output_, EndsWith("settin2 write:0x3d10,value:0x0\r\n"));
    EXPECT_EQ(sensor_reg(0x3606), 0);

    EXPECT_EQ(call([] { return write_setting3_fordcc(1); }), 0);
    EXPECT_EQ(sensor_writes().size(), 9u + 16u);
    EXPECT_EQ(output_, "");
    EXPECT_EQ(std::pair(sensor_reg(0x3606), sensor_reg(0x3E36)), std::pair(uint8_t{1}, uint8_t{1}));
    call([] { return write_setting3_fordcc(0); });
    EXPECT_THAT(output_, StartsWith("\r\nread setting3!\r\nread 0x101,value 0x0\r\n"));
    EXPECT_THAT(output_, EndsWith("read 0x3d10,value 0x0\r\n\r\nover read setting3 over!\r\n"));
}

TEST_F(SensorSetUp, CompiledInLrcTablesGoToBothGainBlocks) {
    EXPECT_EQ(call(write_lrcdata_to_imx586_byfile), 0);
    for (uint16_t i = 0; i < 192; ++i) {
        ASSERT_EQ(sensor_reg(0x7510 + i), LRC_GAIN_TABLE_0[i]) << i;
        ASSERT_EQ(sensor_reg(0x7600 + i), LRC_GAIN_TABLE_1[i]) << i;
    }
    EXPECT_THAT(output_, StartsWith("read lrc-left data!\r\n0x89 0x87 0x84 0x82 0x80 0x7e 0x7c "
                                    "0x7a 0x78 0x77 0x75 0x74 0x72 0x70 0x6e 0x6d \r\n0x89 "));
    EXPECT_THAT(output_, EndsWith("0x8d \r\n\r\nread lrc-right data over!\r\n"));
}

TEST_F(SensorSetUp, ModuleMemoryLrcWritesTheLeftBlockAndTheDataAfterTheRightTable) {
    EXPECT_EQ(call(write_lrcdata_to_imx586_byeeprom), 0);
    EXPECT_EQ(i2c_transfers(9).size(), 384u + 2 * 2 * 192u)
        << "384 module-memory bytes, then a write and a read-back per gain register";
    for (uint16_t i = 0; i < 192; ++i) ASSERT_EQ(sensor_reg(0x7510 + i), twin::module_lrc_byte(i));
    // The right block: the three register sets that follow the right table, each setting
    // two little-endian 32-bit words.
    const std::pair<uint16_t, std::array<uint8_t, 8>> right[] = {
        {0, {0x01, 0x01, 0, 0, 0x00, 0, 0, 0}},    // setting 2, first
        {64, {0, 0, 0, 0, 0, 0, 0, 0}},            // the end of the setting-2 set
        {72, {0xA4, 0x38, 0, 0, 0x00, 0, 0, 0}},   // DCC region, first
        {136, {0xA3, 0x38, 0, 0, 0x01, 0, 0, 0}},  // DCC region, the mode
        {184, {0x35, 0x3E, 0, 0, 0x01, 0, 0, 0}},  // setting 3, fifth
    };
    for (const auto& [at, bytes] : right)
        for (uint16_t i = 0; i < 8; ++i) EXPECT_EQ(sensor_reg(0x7600 + at + i), bytes[i]) << at;
    EXPECT_THAT(output_, HasSubstr("read lrc-right data!\r\n0x10x10x00x00x00x00x00x0"));

    unplug_i2c(9, 0x50);
    const size_t writes = sensor_writes().size();
    EXPECT_EQ(call(write_lrcdata_to_imx586_byeeprom), -1);
    EXPECT_EQ(output_, "~ioctl read error addr:0x7af,ret:-1\r\n");
    EXPECT_EQ(sensor_writes().size(), writes) << "no LRC data written";
}

}  // namespace
}  // namespace zoomaf::test
