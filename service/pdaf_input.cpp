// The defocus library's input: the fixed conversion and threshold grids the record points
// at, the record filled for each window layout, and the sensor set-up at start of the day
// focus.
#include <cstdio>

#include "zoomaf/imx586.h"
#include "zoomaf/pdaf_focus.h"

PdLibInputData pdaf_indata = {};
const uint16_t XAddressKnot[8] = {264, 760, 1256, 1752, 2248, 2744, 3240, 3736};
const uint16_t YAddressKnot[6] = {260, 756, 1252, 1748, 2244, 2740};
const uint64_t temp1[2] = {0, 960};
const uint64_t temp2[2] = {150, 150};
PdLibOKNGThrLine p_DefocusOKNGThrLine[PDAF_GRID_WINDOWS] = {};
// Nothing writes the offsets: the offset term stays in the library's formula and adds 0.
int64_t offsetData[PDAF_GRID_WINDOWS] = {};

namespace {

constexpr uint16_t kImageWidth = 4000;
constexpr uint16_t kImageHeight = 3000;
constexpr int64_t kDccScale = 2304;
constexpr uint64_t kConfidenceNormaliser = 2304;

// Bits 12..8 and 7..0 of an address: only the low 13 bits survive, so a start left of or
// above the image wraps to a large value that the library then refuses.
void put_address(int index, int64_t value) {
    focus_area[index] = static_cast<uint8_t>((value >> 8) & 0x1F);
    focus_area[index + 1] = static_cast<uint8_t>(value & 0xFF);
}

void set_focus_area(int64_t x_start, int64_t y_start, int64_t x_end, int64_t y_end) {
    put_address(0, x_start);
    put_address(2, y_start);
    put_address(4, x_end);
    put_address(6, y_end);
}

uint16_t address_at(int index) {
    return static_cast<uint16_t>(focus_area[index] << 8 | focus_area[index + 1]);
}

bool record_given(const PdLibInputData* record, const char* caller) {
    if (record != nullptr) return true;
    std::printf("%s: no input record given\r\n", caller);
    return false;
}

struct Window {
    int32_t x_start, y_start, x_end, y_end;
};

// The eight fixed centre windows, 666 by 500.
constexpr Window kSevenWindowLayout[PDAF_EIGHT_WINDOWS] = {
    {1500, 1000, 2166, 1500}, {1500, 1250, 2166, 1750}, {1500, 1500, 2166, 2000},
    {1833, 1000, 2499, 1500}, {1833, 1250, 2499, 1750}, {1833, 1500, 2499, 2000},
    {1334, 1250, 2000, 1750}, {2000, 1250, 2666, 1750},
};

// The offsets of the four area-focus windows' corners from the focus point.
constexpr int32_t kAreaOffsets[4][2] = {{498, 332}, {498, 166}, {166, 332}, {166, 166}};
constexpr int32_t kAreaWidth = 666;
constexpr int32_t kAreaHeight = 500;

}  // namespace

extern "C" {

int32_t InitPDSetting(void) {
    read_dcc_data_reg_byfile(IMX586_DCC_FILE, eeprom_dcc);
    for (int k = 0; k < IMX586_DCC_KNOTS; ++k)
        std::printf("dcc[%d] data:%ld\r\n", k, eeprom_dcc[k]);
    get_pdaflib_version();
    write_imx586_group_hold(1);
    switch_pd_output(1);
    write_dcc_roi(1);
    return write_imx586_group_hold(0);
}

int32_t InitPdLibInputData(PdLibInputData* record) {
    if (!record_given(record, "InitPdLibInputData")) return -1;
    for (PdLibOKNGThrLine& line : p_DefocusOKNGThrLine) line = PdLibOKNGThrLine{2, temp1, temp2};
    record->WindowXStart = address_at(0);
    record->WindowYStart = address_at(2);
    record->WindowXEnd = address_at(4);
    record->WindowYEnd = address_at(6);
    record->DefocusXKnotNum = 8;
    record->DefocusYKnotNum = 6;
    record->p_DefocusDcc = eeprom_dcc;
    record->p_DefocusOffset = offsetData;
    record->p_DefocusXKnot = XAddressKnot;
    record->p_DefocusYKnot = YAddressKnot;
    record->DccScale = kDccScale;
    record->ThrXKnotNum = 8;
    record->ThrYKnotNum = 6;
    record->p_DefocusOKNGThrLine = p_DefocusOKNGThrLine;
    record->p_ThrXKnot = XAddressKnot;
    record->p_ThrYKnot = YAddressKnot;
    record->ConfidenceNormaliser = kConfidenceNormaliser;
    record->ImageXSize = kImageWidth;
    record->ImageYSize = kImageHeight;
    return 0;
}

int32_t InitPdLibInputData_7windows(PdLibInputData* record, int32_t index) {
    if (!record_given(record, "InitPdLibInputData_7windows")) return -1;
    if (index >= 0 && index < PDAF_EIGHT_WINDOWS) {
        const Window& w = kSevenWindowLayout[index];
        set_focus_area(w.x_start, w.y_start, w.x_end, w.y_end);
    }
    return InitPdLibInputData(record);
}

// The point comes from the host unchecked: the corners are formed in 64 bits and keep their
// low 13 bits, as every address does (a point X of 400 gives window 0 the start 8094).
int32_t InitPdLibInputData_areafocus_windows(PdLibInputData* record, int32_t index) {
    if (!record_given(record, "InitPdLibInputData_areafocus_windows")) return -1;
    if (index >= 0 && index < 4) {
        const int64_t x = int64_t{free_focus_pointx} - kAreaOffsets[index][0];
        const int64_t y = int64_t{free_focus_pointy} - kAreaOffsets[index][1];
        set_focus_area(x, y, x + kAreaWidth, y + kAreaHeight);
    }
    return InitPdLibInputData(record);
}

int32_t InitPdLibInputData_48windows(PdLibInputData* record, int32_t column, int32_t row) {
    if (!record_given(record, "InitPdLibInputData_48windows")) return -1;
    const int64_t x = int64_t{column} * 480;
    const int64_t y = int64_t{row} * 360;
    set_focus_area(80 + x, 420 + y, 560 + x, 780 + y);
    return InitPdLibInputData(record);
}

}  // extern "C"
