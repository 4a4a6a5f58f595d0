// The lens table: focus motor steps by zoom row and subject distance, loaded from the
// lens table file in the working directory, shifted by the unit's laser calibration, and
// the focus range of each row derived from it.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "platform/platform.hpp"
#include "service/decimal_cells.hpp"
#include "service/service_internal.hpp"
#include "zoomaf/app_pdaf.h"

int32_t TxtToDat[LENS_TABLE_ROWS][LENS_TABLE_COLUMNS] = {};
int32_t mator_step_section[LENS_TABLE_ROWS][3] = {};
int32_t template_mator_step_section[LENS_TABLE_ROWS][3] = {};

namespace zoomaf {
namespace {

struct Table {
    int32_t cells[LENS_TABLE_ROWS][LENS_TABLE_COLUMNS];
};

// Reads the file's cells into table, row by row. A file that ends early leaves the cells
// after its end as they were, so a short update file changes only the rows it has.
// Returns false, having said why, when a cell is not a number.
bool read_cells(FILE* file, Table& table) {
    DecimalCells cells(file);
    if (cells.read_failed()) {
        std::printf("Error: the lens table file \"%s\" could not be read to its end (%s)\r\n",
                    LENS_TABLE_FILE, std::strerror(errno));
    }
    for (int row = 0; row < LENS_TABLE_ROWS; ++row) {
        for (int column = 0; column < LENS_TABLE_FILE_COLUMNS; ++column) {
            switch (cells.next(table.cells[row][column])) {
                case DecimalCells::Result::number:
                    break;
                case DecimalCells::Result::end:
                    std::printf(
                        "Warning: the lens table file \"%s\" ends at line %d before row %d "
                        "column %d; the cells from there on keep their values\r\n",
                        LENS_TABLE_FILE, cells.line(), row, column);
                    return true;
                case DecimalCells::Result::not_a_number:
                    std::printf(
                        "Error: the lens table file \"%s\" line %d column %d: \"%.*s\" is not "
                        "a number; the lens table is not loaded\r\n",
                        LENS_TABLE_FILE, cells.line(), column,
                        static_cast<int>(cells.cell_text().size()), cells.cell_text().data());
                    return false;
            }
        }
    }
    return true;
}

void say_missing_table() {
    const int error = errno;
    char cwd[4096];
    const char* where = platform().getcwd(cwd, sizeof cwd);
    std::printf(
        "Error: cannot open the lens table file \"%s\" in the working directory %s (%s); the "
        "service cannot focus without it\r\n",
        LENS_TABLE_FILE, where != nullptr ? where : "(unknown)", std::strerror(error));
}

// A row calibrated by the unit shifts itself and every uncalibrated row below it by its
// offset, until the next calibrated row: the calibration carries over on purpose.
void apply_laser_calibration() {
    int32_t offset = 0;
    for (int row = 0; row < LENS_TABLE_ROWS; ++row) {
        if (laser_motor_calibration[row] != 0) {
            offset = static_cast<int32_t>(static_cast<uint32_t>(laser_motor_calibration[row]) -
                                          static_cast<uint32_t>(TxtToDat[row][5]));
            std::printf("\r\nmultiple%d,source:%d,calibration:%d:\r\n", row + 10, TxtToDat[row][5],
                        laser_motor_calibration[row]);
        }
        for (int column = 0; column < LENS_TABLE_FILE_COLUMNS; ++column) {
            TxtToDat[row][column] = wrapping_add(TxtToDat[row][column], offset);
        }
    }
}

void derive_step_sections() {
    for (int row = 0; row < LENS_TABLE_ROWS; ++row) {
        const int32_t section[3] = {TxtToDat[row][106], TxtToDat[row][1], TxtToDat[row][106]};
        std::printf("multiple: %d:", row + 10);
        for (int k = 0; k < 3; ++k) {
            mator_step_section[row][k] = section[k];
            template_mator_step_section[row][k] = section[k];
            std::printf(" %d ", section[k]);
        }
        std::puts("\r");
    }
}

}  // namespace
}  // namespace zoomaf

extern "C" {

// A missing table or a cell that is not a number leaves the table as it was and is
// reported; the bench program ends with status 1 on either result.
int32_t ReadAFTXT(void) {
    FILE* file = zoomaf::platform().fopen(LENS_TABLE_FILE, "r");
    if (file == nullptr) {
        zoomaf::say_missing_table();
        return READ_AFTXT_MISSING;
    }
    // The cells go to a copy first, so that a bad file changes nothing.
    auto table = std::make_unique<zoomaf::Table>();
    std::memcpy(table->cells, TxtToDat, sizeof TxtToDat);
    const bool read = zoomaf::read_cells(file, *table);
    std::fclose(file);
    if (!read) return READ_AFTXT_NOT_NUMBER;
    std::memcpy(TxtToDat, table->cells, sizeof TxtToDat);

    zoomaf::apply_laser_calibration();
    zoomaf::derive_step_sections();
    return READ_AFTXT_OK;
}

}  // extern "C"
