// Lookups in the lens's zoom-focus tracking table (the parameter block loaded from the
// 4.49 mm set) and the motors' mechanical ranges.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "motor/motor_internal.hpp"
#include "zoomaf/lib_motor.h"

namespace {

constexpr int kKeyColumn = 0;
constexpr int kZoomColumn = 2;
constexpr int kFirstFocusColumn = 3;
constexpr int kFirstNamedSearchColumn = 4;  // the name search starts here
constexpr int kLowestScanColumn = 5;        // the scan for a farther column stops here
constexpr float kNearest = 1.5f;
constexpr float kFarthest = 100.0f;

double column_distance(int column) {
    char name[TRACKING_NAME_LENGTH + 1] = {};
    std::memcpy(name, gFocusParam.column_name[column], TRACKING_NAME_LENGTH);
    return std::atof(name);
}

// The row of a key: the one with that key, else (with consecutive keys this never happens)
// the first row from the bottom up whose key is greater.
int row_of_key(int key) {
    for (int row = 0; row < gFocusParam.rows; ++row)
        if (gFocusParam.data[row][kKeyColumn] == key) return row;
    for (int row = gFocusParam.rows - 1; row >= 1; --row)
        if (gFocusParam.data[row][kKeyColumn] > key) return row;
    return 0;
}

// The focus column of a distance: the first column from 4 on named exactly that distance,
// else from the last column down to column 5 the first named farther. A distance beyond every
// name searched (above 50 m with the shipped names) leaves no column there; it then takes the
// focus column whose name is nearest the distance (column 3, "100", for 100 m), so that the
// lookup always reads a focus position.
int column_of_distance(float distance) {
    const int columns =
        gFocusParam.columns < TRACKING_TABLE_COLUMNS ? gFocusParam.columns : TRACKING_TABLE_COLUMNS;
    for (int column = kFirstNamedSearchColumn; column < columns; ++column)
        if (column_distance(column) == distance) return column;
    for (int column = columns - 1; column >= kLowestScanColumn; --column)
        if (column_distance(column) > distance) return column;
    int nearest = kFirstFocusColumn;
    for (int column = kFirstFocusColumn; column < columns; ++column)
        if (std::fabs(column_distance(column) - distance) <
            std::fabs(column_distance(nearest) - distance))
            nearest = column;
    return nearest;
}

}  // namespace

extern "C" {

int LoadParamList(void) {
    gFocusParam.rows = rows_449;
    gFocusParam.columns = column_449;
    gFocusParam.distance_unit = distance_unit_449;
    gFocusParam.data_len = data_len_449;
    std::memcpy(gFocusParam.column_name, column_name_449, sizeof gFocusParam.column_name);
    std::memcpy(gFocusParam.data, focus_zoom_data_449, sizeof gFocusParam.data);
    return 0;
}

int32_t GetListSteps(uint8_t kind, float multiple, float distance) {
    const int rows =
        gFocusParam.rows > TRACKING_TABLE_ROWS ? TRACKING_TABLE_ROWS : gFocusParam.rows;
    if (rows == 0 || gFocusParam.columns == 0) {
        MOTOR_LOG("error 1, rows1: %d, column1:%d\n", gFocusParam.rows, gFocusParam.columns);
        return LIST_TABLE_EMPTY;
    }
    int32_t flags = 0;
    if (kind == 1) {
        if (distance > kFarthest) {
            MOTOR_LOG("warn 2, distance:%f > %f, set %f\n", distance, kFarthest, kFarthest);
            distance = kFarthest;
            flags |= LIST_DISTANCE_CLAMPED;
        } else if (distance < kNearest) {
            MOTOR_LOG("warn 3, distance:%f < %f, set %f\n", distance, kNearest, kNearest);
            distance = kNearest;
            flags |= LIST_DISTANCE_CLAMPED;
        }
    }

    // A product such as 34.999998 means key 35: its "%f" text has '9' (or '8') in the
    // fifth character, the second decimal of a two-digit key, the first of a three-digit one.
    const float product = multiple * 10.0f;
    int key = static_cast<int>(product);
    char text[64];
    std::snprintf(text, sizeof text, "%f", product);
    if (text[4] == '9' || text[4] == '8') ++key;

    const int min_key = gFocusParam.data[0][kKeyColumn];
    const int max_key = gFocusParam.data[rows - 1][kKeyColumn];
    if (key < min_key) {
        MOTOR_LOG("warn 4, min:%d > rate:%d, set to %d\n", min_key, key, min_key);
        key = min_key;
        flags |= LIST_MULTIPLE_CLAMPED;
    } else if (key > max_key) {
        MOTOR_LOG("warn 5, rate:%d > max:%d, set to %d\n", key, max_key, max_key);
        key = max_key;
        flags |= LIST_MULTIPLE_CLAMPED;
    }
    const int row = row_of_key(key);

    int16_t value;
    if (kind == 0) {
        value = gFocusParam.data[row][kZoomColumn];
    } else {
        // The value is the cell taken twice: that is how the lookup is defined, and callers
        // use it as it is returned.
        const int column = column_of_distance(distance);
        const int16_t* cells = gFocusParam.data[row];
        value = static_cast<int16_t>(cells[column] + cells[column]);
    }
    return flags | static_cast<int32_t>(value) * 16;
}

double GetStepRatio(uint8_t motor) {
    if (motor == MOTOR_ZOOM) return 0.010002562131693569;
    if (motor == MOTOR_FOCUS) return 0.010002942041776994;
    return 0.0;
}

int16_t GetPhysicalSteps(uint8_t motor, int16_t travel) {
    if (motor > MOTOR_FOCUS) return 0;
    const int steps = static_cast<int>(travel / 100.0 / GetStepRatio(motor));
    return static_cast<int16_t>((steps & 0x1FFF) * 8);
}

int16_t GeMotorRangeSteps(uint8_t motor, uint8_t max) {
    // Base in steps and travel in hundredths of a millimetre per motor and end.
    static constexpr int16_t kBase[2][2] = {{-5662, 2142}, {-3382, 3414}};
    static constexpr int16_t kTravel[2][2] = {{-30, 68}, {-102, 50}};
    if (motor > MOTOR_FOCUS) return 0;
    const int end = max != 0 ? 1 : 0;
    return static_cast<int16_t>(kBase[motor][end] - GetPhysicalSteps(motor, kTravel[motor][end]));
}

int16_t GetFocusRange(uint8_t max) {
    return GeMotorRangeSteps(MOTOR_FOCUS, max);
}

int32_t GetFocusRangeSteps(uint8_t max, float multiple) {
    if (gRunData.running == 1) {
        MOTOR_LOG("warn, motor running, return\n");
        return MOVE_MOTOR_RUNNING;
    }
    int32_t status = 0;
    const int key = static_cast<int>(multiple * 10.0 + 0.00001);
    if (key >= 111) {
        multiple = 11.0f;
        status = 2;
    } else if (key < 35) {
        multiple = 3.5f;
        status = 2;
    }
    int32_t range;
    if (gRunData.init_flag == 0) {
        range = GetListSteps(1, multiple, max != 0 ? kFarthest : kNearest) >> 4;
    } else {
        range = GetFocusRange(max);
    }
    return status | range * 16;
}

}  // extern "C"
