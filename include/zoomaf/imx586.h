/* The IMX586 image sensor side of the camera module: register access over I2C (the sensor,
   its identification registers, the module memory and the lens voice-coil driver), the
   PDAF window layouts, the PD/CL block and gain the day focus reads, and the sensor's
   calibration data (LRC gain tables, DCC region and the DCC values from a file or the
   module memory).

   The register primitives share process-wide transfer buffers and take no lock: sensor
   access is confined to one thread at a time, which is the callers' duty. */
#ifndef ZOOMAF_IMX586_H
#define ZOOMAF_IMX586_H

#include <stdint.h>

#include "zoomaf/export.h"
#include "zoomaf/service_state.h"

ZOOMAF_EXTERN_C_BEGIN

/* ---- Register access (sensor/register_access.cpp) ------------------------------------------ */

/* All return 0 on success and -1 on failure. Each access opens the bus, makes exactly one
   I2C_RDWR transfer and closes the bus again. */
ZOOMAF_API int write_imx586_single_reg(uint16_t reg, uint8_t value);  /* bus 9, 0x1A */
ZOOMAF_API int read_imx586_single_reg(uint16_t reg, uint8_t* value);  /* bus 9, 0x1A */
ZOOMAF_API int read_sensor_version_reg(uint16_t reg, uint8_t* value); /* bus 2, 0x1A */
ZOOMAF_API int write_sensor_version_reg(uint16_t reg, uint8_t value); /* bus 2, 0x1A */
/* len bytes (1 to 64) from the module memory (bus 9, 0x50) at an 8-bit register address. */
ZOOMAF_API int iic_read_single_reg(uint8_t reg, int32_t len, uint8_t* buf);
ZOOMAF_API int write_motor_single_reg(uint8_t reg, uint8_t value); /* bus 9, 0x0C */

/* Group hold (0x0104) and PD readout hold (0xE24F): 1 on, 0 off. Always return 0. */
ZOOMAF_API int write_imx586_group_hold(uint8_t value);
ZOOMAF_API int write_imx586_pd_read_hold(uint8_t value);

/* ---- Lens voice-coil driver (sensor/voice_coil.cpp) ----------------------------------------- */

/* Enable, and a 10-bit position (clamped to 1023) that is also stored in motor_position.
   Both return 0. */
ZOOMAF_API int set_586_mator_enable(void);
ZOOMAF_API int set_586_mator_position(uint16_t pos);

/* ---- Identification (sensor/sensor_id.cpp) -------------------------------------------------- */

/* Start-up identification: reads and reports the chip type (0x40 expected). Returns 0. */
ZOOMAF_API int read_sensor_id(void);

/* ---- PDAF window layouts (sensor/pdaf_windows.cpp) ------------------------------------------
   The only writer of the window registers. The window being written is assembled in
   focus_area, and the window index the readouts use is current_select_pdaf_window: both
   are shared state (zoomaf/service_state.h). */

ZOOMAF_API int set_pdaf_windows_center_area(int32_t ratio);
ZOOMAF_API int set_pdaf_area_windows_by_center_coordinate(int32_t center_x, int32_t center_y);
ZOOMAF_API int set_pdaf_windows_free_area(int32_t x_start, int32_t y_start, int32_t width,
                                          int32_t height);
ZOOMAF_API int switch_pd_output(uint8_t value);

/* ---- PD/CL readout (sensor/pd_readout.cpp) -------------------------------------------------- */

/* Window 0 of the PD/CL block (0xC808..0xC80A) under the PD readout hold, decoded; no
   calibration added. Note the order: CL first. 0 (-1 without outputs). */
ZOOMAF_API int32_t get_pd_and_lc(int64_t* cl, int64_t* pd);
/* The analogue gain factor 1024 / (1024 - code) of the gain code in 0x0204/0x0205. 0. */
ZOOMAF_API int32_t get_gain_value(int64_t* gain);

/* ---- Calibration data (sensor/calibration_tables.cpp, dcc_data.cpp, lrc_data.cpp,
   register_sets.cpp) ------------------------------------------------------------------------ */

#define IMX586_DCC_KNOTS 48  /* 8 x 6 knots, row by row */
#define IMX586_LRC_BLOCK 192 /* bytes of one LRC gain block (left or right) */
#define IMX586_LRC_BYTES 384 /* left and right block in the module memory */
/* The DCC file the day focus loads: no directory, so it is looked up in the working
   directory (data/ of the source tree holds the module's default). */
#define IMX586_DCC_FILE "0416_-1930_-1960"

/* One register setting of a compiled-in set: two 32-bit words. A set ends with {0, 0}. */
typedef struct Imx586RegSetting {
    uint32_t addr;
    uint32_t value;
} Imx586RegSetting;

/* The DCC of each knot, loaded by read_dcc_data_reg_byfile at start of the day focus.
   Signed, as the defocus library takes it; the values themselves are 0 .. 65535. */
ZOOMAF_API extern int64_t eeprom_dcc[IMX586_DCC_KNOTS];

ZOOMAF_API extern const uint8_t LRC_GAIN_TABLE_0[IMX586_LRC_BLOCK]; /* left, to 0x7510 + i */
ZOOMAF_API extern const uint8_t LRC_GAIN_TABLE_1[IMX586_LRC_BLOCK]; /* right, to 0x7600 + i */
ZOOMAF_API extern const Imx586RegSetting setting2_for_lrcver_table[9];
ZOOMAF_API extern const Imx586RegSetting dcc_roi_table[10];
ZOOMAF_API extern const Imx586RegSetting setting3_for_dcc_table[9];

/* dcc receives IMX586_DCC_KNOTS values in each of these. */
ZOOMAF_API int read_dcc_data_reg_byfile(const char* path, int64_t* dcc);
ZOOMAF_API int read_dcc_data_from_file(int64_t* dcc, float multiple);
ZOOMAF_API int read_dcc_data_reg(int64_t* dcc);
/* buffer receives IMX586_LRC_BYTES bytes. */
ZOOMAF_API int read_lrc_data_reg(uint8_t* buffer);

ZOOMAF_API int write_lrcdata_to_imx586_byfile(void);
ZOOMAF_API int write_lrcdata_to_imx586_byeeprom(void);
/* write non-zero: write the set; 0: read its registers back and print them. */
ZOOMAF_API int write_setting2_lrcver(int32_t write);
ZOOMAF_API int write_setting3_fordcc(int32_t write);
ZOOMAF_API int write_dcc_roi(int32_t write);
ZOOMAF_API int get_pdaflib_version(void);

ZOOMAF_EXTERN_C_END

#endif
