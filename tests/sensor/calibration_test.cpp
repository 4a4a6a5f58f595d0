// The sensor's calibration data: DCC values from the DCC file, a DCC text file and the
// module memory; LRC data and the register sets as the sensor receives them.
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/sensor/sensor_fixture.hpp"
#include "twin/module_calibration.hpp"

namespace zoomaf::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using twin::FaultRule;

constexpr const char* kDccFile = IMX586_DCC_FILE;

class DccValues : public SensorTest {
protected:
    std::vector<int64_t> dcc() const { return {eeprom_dcc, eeprom_dcc + 48}; }
};

TEST_F(DccValues, AFileOf96BytesGives48BigEndianValues) {
    std::string bytes;
    for (int k = 0; k < 48; ++k) bytes += std::string("\x01\x00", 2);
    board().write_file(kDccFile, bytes);
    EXPECT_EQ(call([] { return read_dcc_data_reg_byfile(kDccFile, eeprom_dcc); }), 0);
    EXPECT_THAT(dcc(), Each(256));
    EXPECT_EQ(output_, "get dcc success from file:0416_-1930_-1960\r\n");

    // Knot k is bytes 2k and 2k + 1; bytes past the 96th are not read.
    bytes[0] = '\x07';
    bytes[1] = '\x9A';
    bytes[94] = '\x00';
    bytes[95] = '\x05';
    board().write_file(kDccFile, bytes + "\xFF\xFF");
    call([] { return read_dcc_data_reg_byfile(kDccFile, eeprom_dcc); });
    EXPECT_EQ(eeprom_dcc[0], 0x079A);
    EXPECT_EQ(eeprom_dcc[1], 256);
    EXPECT_EQ(eeprom_dcc[47], 5);
}

TEST_F(DccValues, AShortOrMissingFileGivesZerosForWhatItLacks) {
    board().write_file(kDccFile, std::string("\x07\x9A\x07\x9B\x07", 5));
    std::fill(eeprom_dcc, eeprom_dcc + 48, 9);
    EXPECT_EQ(call([] { return read_dcc_data_reg_byfile(kDccFile, eeprom_dcc); }), 0);
    EXPECT_EQ(eeprom_dcc[0], 0x079A);
    EXPECT_EQ(eeprom_dcc[1], 0x079B);
    EXPECT_EQ(eeprom_dcc[2], 0x0700) << "half a value: the missing byte is 0";
    EXPECT_THAT(std::vector<int64_t>(eeprom_dcc + 3, eeprom_dcc + 48), Each(0));

    std::fill(eeprom_dcc, eeprom_dcc + 48, 9);
    EXPECT_EQ(call([] { return read_dcc_data_reg_byfile("no_such_file", eeprom_dcc); }), 0);
    EXPECT_THAT(dcc(), Each(0));
    EXPECT_EQ(output_, "\r\n\r\n!!!ERROR:read dcc file error!\r\n\r\n");
    EXPECT_EQ(board().open_descriptors(), 0u);
}

TEST_F(DccValues, TheShippedFileHoldsTheModulesCalibration) {
    std::ifstream shipped(ZOOMAF_DCC_FILE, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(shipped), {}};
    ASSERT_EQ(bytes.size(), 96u);
    board().write_file(kDccFile, bytes);
    call([] { return read_dcc_data_reg_byfile(kDccFile, eeprom_dcc); });
    const std::vector<int64_t> from_file = dcc();
    EXPECT_THAT(from_file, Each(::testing::AllOf(::testing::Ge(1930), ::testing::Le(1960))));

    int64_t from_memory[48] = {};
    ASSERT_EQ(call([&] { return read_dcc_data_reg(from_memory); }), 0);
    EXPECT_THAT(from_file, ElementsAreArray(from_memory, 48));
}

TEST_F(DccValues, ModuleMemoryValuesAreLowByteFirstOneTransferPerByte) {
    board().set_eeprom_byte(0x092F, 0x9A);
    board().set_eeprom_byte(0x0930, 0x07);
    board().set_eeprom_byte(0x092F + 94, 0x01);
    board().set_eeprom_byte(0x0930 + 94, 0x02);
    int64_t values[48] = {};
    const uint64_t slept_before = board().slept_ns();
    EXPECT_EQ(read_dcc_data_reg(values), 0);
    EXPECT_EQ(values[0], 0x079A);
    EXPECT_EQ(values[47], 0x0201);
    const auto transfers = board().i2c_transfers(kModuleBus);
    ASSERT_EQ(transfers.size(), 96u);
    EXPECT_EQ(transfers[1].messages[0].data, (std::vector<uint8_t>{0x09, 0x30}));
    EXPECT_EQ(recorder().opens().size(), 1u) << "one open for all 48 values";
    EXPECT_EQ(board().open_descriptors(), 0u);
    EXPECT_EQ(board().slept_ns() - slept_before, 48u * 2'000'000u);
}

TEST_F(DccValues, AnUnreachableModuleMemoryLeavesTheValuesCleared) {
    std::fill(eeprom_dcc, eeprom_dcc + 48, 5);
    board().set_i2c_present(kModuleBus, 0x50, false);
    EXPECT_EQ(call([] { return read_dcc_data_reg(eeprom_dcc); }), -1);
    EXPECT_EQ(output_, "~ioctl read error addr:0x92f,ret:-1\r\n");
    EXPECT_THAT(dcc(), Each(0));
    EXPECT_EQ(board().open_descriptors(), 0u);

    // A failed high byte has its own text.
    board().set_i2c_present(kModuleBus, 0x50, true);
    board().inject({.op = FaultRule::Op::ioctl, .path = "/dev/i2c-9", .skip = 1});
    EXPECT_EQ(call([] { return read_dcc_data_reg(eeprom_dcc); }), -1);
    EXPECT_EQ(output_, "ioctl read error addr:0x930\r\n");

    board().inject({.op = FaultRule::Op::open, .path = "/dev/i2c-9"});
    EXPECT_EQ(call([] { return read_dcc_data_reg(eeprom_dcc); }), -1);
    EXPECT_EQ(output_, "open iic-8 fail!\r\n");
}

TEST_F(DccValues, ATextFileNamedByTheMultipleGivesOneValuePerLine) {
    board().write_file("5.0_dcc_data", "1940\r\n1941\r\n-7\r\n");
    int64_t values[48] = {};
    EXPECT_EQ(call([&] { return read_dcc_data_from_file(values, 5.0f); }), 0);
    EXPECT_EQ(output_, "fopen 5.0_dcc_data success!\r\n");
    EXPECT_EQ(values[0], 1940);
    EXPECT_EQ(values[1], 1941);
    EXPECT_EQ(values[2], -7);

    // The open's success is announced either way.
    EXPECT_EQ(call([&] { return read_dcc_data_from_file(values, 7.25f); }), -1);
    EXPECT_EQ(output_, "fopen 7.2_dcc_data success!\r\nfopen file:7.250000 error！\r\n");
}

TEST_F(DccValues, ATextFileWithMoreValuesThanKnotsStopsAtTheArraysEnd) {
    std::string text;
    for (int k = 0; k < 50; ++k) text += std::to_string(1900 + k) + "\n";
    board().write_file("3.5_dcc_data", text);
    int64_t values[50] = {};
    values[48] = values[49] = -1;
    EXPECT_EQ(call([&] { return read_dcc_data_from_file(values, 3.5f); }), 0);
    EXPECT_EQ(values[47], 1947);
    EXPECT_EQ(values[48], -1);
    EXPECT_EQ(values[49], -1);
    EXPECT_THAT(output_, HasSubstr("more than 48 values"));
}

using SensorSetUp = SensorTest;

TEST_F(SensorSetUp, DccRegionIsWrittenInTableOrderWithTheModeLast) {
    EXPECT_EQ(call([] { return write_dcc_roi(1); }), 0);
    const std::vector<std::pair<uint16_t, uint8_t>> expected = {
        {0x38A4, 0x00}, {0x38A5, 0x50}, {0x38A6, 0x01}, {0x38A7, 0xA4}, {0x38A8, 0x01},
        {0x38A9, 0xE0}, {0x38AA, 0x01}, {0x38AB, 0x68}, {0x38A3, 0x01}};
    EXPECT_THAT(sensor_writes(), ElementsAreArray(expected));
    EXPECT_EQ(output_, "");

    EXPECT_EQ(call([] { return write_dcc_roi(0); }), 0);
    EXPECT_THAT(output_, ::testing::StartsWith("\r\nread dcc_roi!\r\nread 0x38a4,value 0x0\r\n"
                                               "read 0x38a5,value 0x50\r\n"));
    EXPECT_THAT(output_, ::testing::EndsWith("read 0x38a3,value 0x1\r\n"
                                             "\r\nover read dcc_roi over!\r\n"));
}

TEST_F(SensorSetUp, SettingSetsWriteEightRegistersAndReadThemBack) {
    EXPECT_EQ(call([] { return write_setting2_lrcver(1); }), 0);
    EXPECT_EQ(sensor_writes().size(), 8u);
    EXPECT_THAT(output_, ::testing::StartsWith("settin2 write:0x101,value:0x0\r\n"));
    EXPECT_THAT(output_, ::testing::EndsWith("settin2 write:0x3d10,value:0x0\r\n"));
    EXPECT_EQ(sensor_reg(0x3606), 0);

    clear_sensor_writes();
    EXPECT_EQ(call([] { return write_setting3_fordcc(1); }), 0);
    EXPECT_EQ(sensor_writes().size(), 8u);
    EXPECT_EQ(output_, "");
    EXPECT_EQ(sensor_reg(0x3606), 1);
    EXPECT_EQ(sensor_reg(0x3E36), 1);

    call([] { return write_setting3_fordcc(0); });
    EXPECT_THAT(output_, ::testing::StartsWith("\r\nread setting3!\r\nread 0x101,value 0x0\r\n"));
    EXPECT_THAT(output_,
                ::testing::EndsWith("read 0x3d10,value 0x0\r\n\r\nover read setting3 over!\r\n"));
    EXPECT_TRUE(board().faults().empty()) << "every register the sets name exists";
}

TEST_F(SensorSetUp, CompiledInLrcTablesGoToBothGainBlocks) {
    EXPECT_EQ(call([] { return write_lrcdata_to_imx586_byfile(); }), 0);
    for (uint16_t i = 0; i < 192; ++i) {
        ASSERT_EQ(sensor_reg(0x7510 + i), LRC_GAIN_TABLE_0[i]) << i;
        ASSERT_EQ(sensor_reg(0x7600 + i), LRC_GAIN_TABLE_1[i]) << i;
    }
    EXPECT_THAT(output_, ::testing::StartsWith(
                             "read lrc-left data!\r\n0x89 0x87 0x84 0x82 0x80 0x7e 0x7c 0x7a 0x78 "
                             "0x77 0x75 0x74 0x72 0x70 0x6e 0x6d \r\n0x89 "));
    EXPECT_THAT(
        output_,
        HasSubstr("0x6f \r\n\r\nread lrc-left data over!\r\nread lrc-right data!\r\n0x70 "));
    EXPECT_THAT(output_, ::testing::EndsWith("0x8d \r\n\r\nread lrc-right data over!\r\n"));
}

TEST_F(SensorSetUp, ModuleMemoryLrcWritesTheLeftBlockAndTheDataAfterTheRightTable) {
    EXPECT_EQ(call([] { return write_lrcdata_to_imx586_byeeprom(); }), 0);
    EXPECT_EQ(board().i2c_transfers(kModuleBus).size(), 384u + 2 * 2 * 192u)
        << "384 module-memory bytes, then a write and a read-back per gain register";
    for (uint16_t i = 0; i < 192; ++i) {
        ASSERT_EQ(sensor_reg(0x7510 + i), twin::module_lrc_byte(i)) << i;
    }
    // The right block: the three register sets that follow the right table, each setting
    // two little-endian 32-bit words.
    auto right = [&](uint16_t i) { return sensor_reg(0x7600 + i); };
    const uint8_t setting2_first[8] = {0x01, 0x01, 0, 0, 0x00, 0, 0, 0};
    const uint8_t roi_first[8] = {0xA4, 0x38, 0, 0, 0x00, 0, 0, 0};
    const uint8_t roi_mode[8] = {0xA3, 0x38, 0, 0, 0x01, 0, 0, 0};
    const uint8_t setting3_fifth[8] = {0x35, 0x3E, 0, 0, 0x01, 0, 0, 0};
    for (uint16_t i = 0; i < 8; ++i) {
        EXPECT_EQ(right(i), setting2_first[i]);
        EXPECT_EQ(right(64 + i), 0) << "the end of the setting-2 set";
        EXPECT_EQ(right(72 + i), roi_first[i]);
        EXPECT_EQ(right(136 + i), roi_mode[i]);
        EXPECT_EQ(right(184 + i), setting3_fifth[i]);
    }
    EXPECT_THAT(output_, HasSubstr("read lrc-right data!\r\n0x10x10x00x00x00x00x00x0"));
}

TEST_F(SensorSetUp, AnUnreadableModuleMemoryWritesNoLrcData) {
    board().set_i2c_present(kModuleBus, 0x50, false);
    EXPECT_EQ(call([] { return write_lrcdata_to_imx586_byeeprom(); }), -1);
    EXPECT_EQ(output_, "~ioctl read error addr:0x7af,ret:-1\r\n");
    EXPECT_TRUE(sensor_writes().empty());
}

TEST_F(SensorSetUp, LibraryVersionIsPrinted) {
    EXPECT_EQ(call([] { return get_pdaflib_version(); }), 0);
    EXPECT_EQ(output_, "\r\nPDAF library version is :1.0\r\n");
}

}  // namespace
}  // namespace zoomaf::test
