// The lens table: focus motor steps by zoom row and subject distance, loaded from the
// lens table file in the working directory, shifted by the unit's laser calibration, and
// the focus range of each row derived from it.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "platform/data_file.hpp"
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

// No lens table comes near this size (170 lines of 107 cells of at most 11 characters).
constexpr size_t kLensTableLimit = size_t{1} << 20;
constexpr int kLastColumn = LENS_TABLE_FILE_COLUMNS - 1;

enum class CellsRead { whole, short_file, empty, malformed };

void say_malformed(const DecimalCells& cells, const char* why) {
    std::printf(
        "Error: the lens table file \"%s\" line %d column %d: \"%s\" %s; the lens table is not "
        "loaded\r\n",
        LENS_TABLE_FILE, cells.line(), cells.column(), cells.cell_text().c_str(), why);
}

// After the last column: nothing more on the line, or one empty cell (a trailing comma).
bool line_ends_after_last_column(DecimalCells& cells) {
    if (cells.separator() != DecimalCells::Separator::comma) return true;
    int32_t ignored = 0;
    const DecimalCells::Result more = cells.next(ignored);
    if (more == DecimalCells::Result::end) return true;
    if (cells.cell_text().empty() && cells.separator() != DecimalCells::Separator::comma) {
        return true;
    }
    say_malformed(cells, "is one column too many (a line holds 107)");
    return false;
}

// Reads the file's lines into table, row by row: 107 cells a line, each a decimal integer.
// A file that ends early leaves the cells after its end as they were, so a short update
// file changes only the rows it has. Any other fault in a line refuses the whole file, having
// said where.
CellsRead read_cells(std::string_view text, Table& table) {
    DecimalCells cells(text);
    for (int row = 0; row < LENS_TABLE_ROWS; ++row) {
        cells.skip_blank_lines();
        for (int column = 0; column <= kLastColumn; ++column) {
            switch (cells.next(table.cells[row][column])) {
                case DecimalCells::Result::number:
                    break;
                case DecimalCells::Result::end:
                    if (row == 0 && column == 0) return CellsRead::empty;
                    std::printf(
                        "Warning: the lens table file \"%s\" ends at line %d before row %d "
                        "column %d; the cells from there on keep their values\r\n",
                        LENS_TABLE_FILE, cells.line(), row, column);
                    return CellsRead::short_file;
                case DecimalCells::Result::not_a_number:
                    say_malformed(cells, "is not a number");
                    return CellsRead::malformed;
            }
            if (column < kLastColumn && cells.separator() == DecimalCells::Separator::line_end) {
                say_malformed(cells, "ends the line early (a line holds 107 columns)");
                return CellsRead::malformed;
            }
        }
        if (!line_ends_after_last_column(cells)) return CellsRead::malformed;
    }
    if (!cells.rest_is_blank()) {
        std::printf(
            "Warning: the lens table file \"%s\" holds more than %d rows; line %d on is not "
            "read\r\n",
            LENS_TABLE_FILE, LENS_TABLE_ROWS, cells.line());
    }
    return CellsRead::whole;
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

// A missing, unusable or empty table, or a malformed line, leaves the table as it was and
// is reported; the bench program ends with status 1 on any of these results.
int32_t ReadAFTXT(void) {
    std::string text;
    const zoomaf::DataFileRead file =
        zoomaf::read_data_file(LENS_TABLE_FILE, text, zoomaf::kLensTableLimit);
    if (file.status == zoomaf::DataFileRead::Status::cannot_open) {
        errno = file.error;
        zoomaf::say_missing_table();
        return READ_AFTXT_MISSING;
    }
    if (!file.ok()) {
        std::printf(
            "Error: the lens table file \"%s\" cannot be used: %s; the lens table is not "
            "loaded\r\n",
            LENS_TABLE_FILE, file.reason(zoomaf::kLensTableLimit).c_str());
        return READ_AFTXT_UNREADABLE;
    }
    // The cells go to a copy first, so that a bad file changes nothing.
    auto table = std::make_unique<zoomaf::Table>();
    std::memcpy(table->cells, TxtToDat, sizeof TxtToDat);
    switch (zoomaf::read_cells(text, *table)) {
        case zoomaf::CellsRead::whole:
        case zoomaf::CellsRead::short_file:
            break;
        case zoomaf::CellsRead::empty:
            std::printf(
                "Error: the lens table file \"%s\" holds no numbers; the lens table is not "
                "loaded\r\n",
                LENS_TABLE_FILE);
            return READ_AFTXT_UNREADABLE;
        case zoomaf::CellsRead::malformed:
            return READ_AFTXT_NOT_NUMBER;
    }
    std::memcpy(TxtToDat, table->cells, sizeof TxtToDat);

    zoomaf::apply_laser_calibration();
    zoomaf::derive_step_sections();
    return READ_AFTXT_OK;
}

}  // extern "C"
