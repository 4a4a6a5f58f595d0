// The unit's calibration files under /usr/hx7/calibration/: the laser table calibration
// (a calibrated focus step per zoom row), the motor offset and the PD offset. A missing
// file is not an error: that calibration is skipped and its offset stays 0.
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

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

// Reads the laser calibration file into values. False, having said why, when a value is
// not a number; a file that ends early leaves the rest of values as they were.
bool read_laser_calibration(FILE* file, int32_t (&values)[LENS_TABLE_ROWS]) {
    DecimalCells cells(file);
    for (int row = 0; row < LENS_TABLE_ROWS; ++row) {
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
                    "Error: the laser calibration file %s line %d (row %d): \"%.*s\" is not a "
                    "number; the laser calibration is not used\r\n",
                    LASER_CALIBRATION_FILE, cells.line(), row,
                    static_cast<int>(cells.cell_text().size()), cells.cell_text().data());
                return false;
        }
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

int32_t get_pd_calibration_step(const char* path, int32_t* out) {
    if (path == nullptr || out == nullptr) return 0;
    FILE* file = zoomaf::platform().fopen(path, "r");
    if (file == nullptr) return 0;
    char text[16] = {};
    const size_t got = std::fread(text, 1, sizeof text, file);
    *out = zoomaf::leading_integer(text, got);
    std::fclose(file);
    return 0;
}

int32_t ReadLaserCalibration(void) {
    int32_t result = -1;
    FILE* file = zoomaf::platform().fopen(LASER_CALIBRATION_FILE, "r");
    if (file != nullptr) {
        int32_t values[LENS_TABLE_ROWS];
        std::memcpy(values, laser_motor_calibration, sizeof values);
        if (zoomaf::read_laser_calibration(file, values)) {
            std::memcpy(laser_motor_calibration, values, sizeof values);
            result = 0;
        }
        std::fclose(file);
    } else {
        std::puts("Error:open laser calibration file fail!\r");
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
