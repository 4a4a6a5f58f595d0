// The unit's calibration files under /usr/hx7/calibration/: the laser table calibration
// (a calibrated focus step per zoom row), the motor offset and the PD offset. A missing
// file is not an error: that calibration is skipped and its offset stays 0.
#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/data_file.hpp"
#include "platform/platform.hpp"
#include "service/decimal_cells.hpp"
#include "service/service_internal.hpp"
#include "zoomaf/app_pdaf.h"

int32_t laser_motor_calibration[LENS_TABLE_ROWS] = {};
int32_t calibration_offset_step = 0;

namespace zoomaf {
namespace {

// The decimal integer at the start of text, as atoi reads it, but bounded to the text and
// saturated to int32 instead of overflowing.
int32_t leading_integer(const char* text, size_t size) {
    size_t i = 0;
    while (i < size && std::isspace(static_cast<unsigned char>(text[i])) != 0) ++i;
    bool negative = false;
    if (i < size && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    int64_t magnitude = 0;
    for (; i < size && text[i] >= '0' && text[i] <= '9'; ++i) {
        if (magnitude <= INT32_MAX) magnitude = magnitude * 10 + (text[i] - '0');
    }
    if (negative) return magnitude > INT32_MAX ? INT32_MIN : static_cast<int32_t>(-magnitude);
    return magnitude > INT32_MAX ? INT32_MAX : static_cast<int32_t>(magnitude);
}

// The laser calibration holds 170 short numbers; no valid file comes near this size.
constexpr size_t kLaserCalibrationLimit = 64 * 1024;

// Reads the laser calibration file into values, one number per line (or separated by
// commas). False, having said why, when a value is not a number; a file that ends early
// leaves the rest of values as they were.
bool read_laser_calibration(std::string_view text, int32_t (&values)[LENS_TABLE_ROWS]) {
    DecimalCells cells(text);
    for (int row = 0; row < LENS_TABLE_ROWS; ++row) {
        cells.skip_blank_lines();
        switch (cells.next(values[row])) {
            case DecimalCells::Result::number:
                break;
            case DecimalCells::Result::end:
                std::printf(
                    "Warning: the laser calibration file %s ends before row %d; the rows from "
                    "there on keep their values\r\n",
                    LASER_CALIBRATION_FILE, row);
                return true;
            case DecimalCells::Result::not_a_number:
                std::printf(
                    "Error: the laser calibration file %s line %d (row %d): \"%s\" is not a "
                    "number; the laser calibration is not used\r\n",
                    LASER_CALIBRATION_FILE, cells.line(), row, cells.cell_text().c_str());
                return false;
        }
    }
    if (!cells.rest_is_blank()) {
        std::printf(
            "Warning: the laser calibration file %s holds more than %d values; line %d on is "
            "not read\r\n",
            LASER_CALIBRATION_FILE, LENS_TABLE_ROWS, cells.line());
    }
    return true;
}

}  // namespace
}  // namespace zoomaf

extern "C" {

// The motor offset is not read from its file in this version: it is always 0.
int32_t get_motor_calibration_step(const char* /*path*/, int32_t* out) {
    if (out != nullptr) *out = 0;
    return 0;
}

// The offset is the leading integer of the file's first 16 bytes. A file that cannot be
// opened leaves *out as it is and is no error; one that is not a regular file or cannot be
// read is, with a message naming it.
int32_t get_pd_calibration_step(const char* path, int32_t* out) {
    if (path == nullptr || out == nullptr) return 0;
    char text[16] = {};
    const zoomaf::DataFileRead file =
        zoomaf::read_data_file(path, text, sizeof text, false, O_RDONLY);
    if (file.status == zoomaf::DataFileRead::Status::cannot_open) return 0;
    if (!file.ok()) {
        std::printf("Error: the PD calibration file %s cannot be used: %s\r\n", path,
                    file.reason(sizeof text).c_str());
        return -1;
    }
    *out = zoomaf::leading_integer(text, file.size);
    return 0;
}

int32_t ReadLaserCalibration(void) {
    int32_t result = -1;
    std::string text;
    const zoomaf::DataFileRead file =
        zoomaf::read_data_file(LASER_CALIBRATION_FILE, text, zoomaf::kLaserCalibrationLimit);
    if (file.status == zoomaf::DataFileRead::Status::cannot_open) {
        std::puts("Error:open laser calibration file fail!\r");
    } else if (!file.ok()) {
        std::printf(
            "Error: the laser calibration file %s cannot be used: %s; the laser calibration is "
            "not used\r\n",
            LASER_CALIBRATION_FILE, file.reason(zoomaf::kLaserCalibrationLimit).c_str());
    } else {
        int32_t values[LENS_TABLE_ROWS];
        std::memcpy(values, laser_motor_calibration, sizeof values);
        if (zoomaf::read_laser_calibration(text, values)) {
            std::memcpy(laser_motor_calibration, values, sizeof values);
            result = 0;
        }
    }
    for (int row = 0; row < LENS_TABLE_ROWS; ++row) {
        std::printf("multipleindex:%d,laser calibration motor:%d\r\n", row + 10,
                    laser_motor_calibration[row]);
    }
    return result;
}

int32_t motor_init_calibration(void) {
    if (zoomaf::platform().access(MOTOR_CALIBRATION_FILE, F_OK) != 0) {
        std::puts("\r\nstart motor no need to calibration\r");
        return 0;
    }
    std::puts("\r\nbegin to calibration\r");
    if (get_motor_calibration_step(MOTOR_CALIBRATION_FILE, &calibration_offset_step) != 0) {
        std::puts("Error:get motor calibration offset step error!\r");
        return 0;
    }
    std::printf("motor need calibration offsetstep is %d\r\n", calibration_offset_step);
    for (int row = 0; row < LENS_TABLE_ROWS; ++row) {
        for (int k = 0; k < 3; ++k) {
            mator_step_section[row][k] =
                zoomaf::wrapping_add(template_mator_step_section[row][k], calibration_offset_step);
        }
        std::printf("multiple:%d, %d,%d,%d\r\n", row + 10, mator_step_section[row][0],
                    mator_step_section[row][1], mator_step_section[row][2]);
    }
    return 0;
}

int32_t pd_init_calibration(void) {
    pd_calibration_value = 0;
    if (zoomaf::platform().access(PD_CALIBRATION_FILE, F_OK) != 0) {
        std::puts("\r\nstart pd no need to calibration\r");
        return 0;
    }
    std::puts("\r\nbegin to calibration pd\r");
    if (get_pd_calibration_step(PD_CALIBRATION_FILE, &pd_calibration_value) == 0) {
        std::printf("pd need calibration offsetstep is %d\r\n", pd_calibration_value);
    } else {
        std::puts("Error:get pd calibration offset step error!\r");
    }
    return 0;
}

}  // extern "C"
