// The DCC values from a file: the binary DCC file (big-endian 16-bit values) and a DCC text
// file named by the zoom multiple (one decimal value per line).
#include <fcntl.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "platform/data_file.hpp"
#include "zoomaf/imx586.h"

namespace {

constexpr size_t kDccFileBytes = 2 * IMX586_DCC_KNOTS;
// A DCC text file holds 48 short numbers; no valid one comes near this size.
constexpr size_t kDccTextLimit = 64 * 1024;

// The values of a DCC text file, one per line (blank lines hold none). False, having said
// which line, when a line is not a number: then nothing is taken.
bool parse_dcc_text(const char* name, std::string_view text, int64_t (&values)[IMX586_DCC_KNOTS],
                    size_t& count, bool& overflow) {
    int line = 0;
    while (!text.empty()) {
        ++line;
        const size_t end = text.find('\n');
        const std::string_view raw = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        const std::string_view cell = zoomaf::trim_blanks(raw);
        if (cell.empty()) continue;
        int64_t value = 0;
        if (!zoomaf::parse_decimal(cell, value)) {
            std::printf(
                "Error: the DCC file %s line %d: \"%s\" is not a number; no value is taken\r\n",
                name, line, zoomaf::printable(cell).c_str());
            return false;
        }
        if (count < IMX586_DCC_KNOTS) {
            values[count++] = value;
        } else {
            overflow = true;
        }
    }
    return true;
}

}  // namespace

extern "C" {

// A file that cannot be opened gives 48 zeros (and 0): the day focus then computes no
// defocus and never moves by phase detection. A file shorter than 96 bytes gives zeros for
// the values it lacks and is an error (-1), as is one that is not a regular file (all
// zeros). Every failure names the file.
int read_dcc_data_reg_byfile(const char* path, int64_t* dcc) {
    if (path == nullptr || dcc == nullptr) {
        std::puts("read_dcc_data_reg_byfile: no file name or no DCC array given\r");
        return -1;
    }
    uint8_t bytes[kDccFileBytes] = {};
    // Opened for reading and update, as the calibration tools leave it.
    const zoomaf::DataFileRead file =
        zoomaf::read_data_file(path, bytes, sizeof bytes, false, O_RDWR);
    int result = 0;
    if (file.status == zoomaf::DataFileRead::Status::cannot_open) {
        std::puts("\r\n\r\n!!!ERROR:read dcc file error!\r\n\r");
        std::printf("Error: the DCC file %s: %s; every DCC value is 0\r\n", path,
                    file.reason(sizeof bytes).c_str());
    } else if (!file.ok()) {
        std::printf("Error: the DCC file %s cannot be used: %s; every DCC value is 0\r\n", path,
                    file.reason(sizeof bytes).c_str());
        for (uint8_t& byte : bytes) byte = 0;
        result = -1;
    } else if (file.size < sizeof bytes) {
        std::printf("Error: the DCC file %s holds %zu of %zu bytes; the values it lacks are 0\r\n",
                    path, file.size, sizeof bytes);
        result = -1;
    } else {
        std::printf("get dcc success from file:%s\r\n", path);
    }
    for (size_t k = 0; k < IMX586_DCC_KNOTS; ++k) {
        dcc[k] = bytes[2 * k] << 8 | bytes[2 * k + 1];
    }
    return result;
}

// One value per line. The file must not hold more values than the knots: the values past
// the 48th are not stored (the array has no room for them) and a line says so. A line that
// is not a number refuses the file, changing nothing.
int read_dcc_data_from_file(int64_t* dcc, float multiple) {
    if (dcc == nullptr) {
        std::puts("read_dcc_data_from_file: no DCC array given\r");
        return -1;
    }
    char name[64];
    std::snprintf(name, sizeof name, "%0.1f_dcc_data", static_cast<double>(multiple));
    std::string text;
    const zoomaf::DataFileRead file = zoomaf::read_data_file(name, text, kDccTextLimit);
    std::printf("fopen %s success!\r\n", name);
    if (file.status == zoomaf::DataFileRead::Status::cannot_open) {
        std::printf("fopen file:%f error！\r\n", static_cast<double>(multiple));
        return -1;
    }
    if (!file.ok()) {
        std::printf("Error: the DCC file %s cannot be used: %s\r\n", name,
                    file.reason(kDccTextLimit).c_str());
        return -1;
    }
    int64_t values[IMX586_DCC_KNOTS];
    size_t count = 0;
    bool overflow = false;
    if (!parse_dcc_text(name, text, values, count, overflow)) return -1;
    for (size_t k = 0; k < count; ++k) dcc[k] = values[k];
    if (overflow) {
        std::printf("dcc file %s holds more than %d values, the rest is ignored\r\n", name,
                    IMX586_DCC_KNOTS);
    }
    return 0;
}

}  // extern "C"
