/* Lens motor driver: the MS41908/MS41928 stepper driver on SPI, its GPIO lines, its
   registers and the run engine that paces the zoom and focus motors by VD pulses.
   Motor 0 is the zoom motor, motor 1 the focus motor, everywhere in the driver. */
#ifndef ZOOMAF_LIB_MOTOR_H
#define ZOOMAF_LIB_MOTOR_H

#include <pthread.h>
#include <stdint.h>

#include "zoomaf/export.h"

ZOOMAF_EXTERN_C_BEGIN

/* ---- SPI bus (motor/spi_bus.cpp) ------------------------------------------------------------ */

/* The SPI device record: filled by InitAttr and InitSpi. */
typedef struct SpiDevAttr {
    int32_t fd;             /* open descriptor of the SPI device, -1 when not open */
    uint32_t mode;          /* SPI mode word (8 = SPI_LSB_FIRST, clock mode 0) */
    uint8_t bits;           /* bits per word */
    uint32_t speed;         /* maximum clock in Hz */
    uint16_t delay;         /* microseconds after each transfer */
    char device[32];        /* device path */
    uint16_t cs_gpio;       /* chip-select line (active high, driven by software) */
    uint16_t spare;         /* never written or read */
    uint16_t vd_zoom_gpio;  /* VD line used for motor 0 */
    uint16_t vd_focus_gpio; /* VD line used for motor 1 (the same pin on this board) */
    uint16_t pi_zoom_gpio;  /* zoom photo-interrupter input */
    uint16_t pi_focus_gpio; /* focus photo-interrupter input */
    uint16_t vd_ms;         /* VD period in milliseconds, at least 10 */
} SpiDevAttr;

ZOOMAF_API extern SpiDevAttr gSpiDev;
ZOOMAF_API extern pthread_mutex_t spi_safe_lock;

ZOOMAF_API int spi_try_lock(void);
ZOOMAF_API int spi_unlock(void);
ZOOMAF_API void nSleep(uint32_t ns);
ZOOMAF_API int Spi_Transfer(int fd, const uint8_t* tx, uint8_t* rx, uint64_t len);
ZOOMAF_API uint32_t Spi_WriteReg(int fd, uint32_t cs_gpio, uint16_t addr, uint16_t value);
ZOOMAF_API uint32_t Spi_ReadReg(int fd, uint32_t cs_gpio, uint16_t addr);
ZOOMAF_API uint32_t Spi_Write_Reg(int fd, uint32_t cs_gpio, uint16_t addr, uint16_t value);

/* ---- GPIO lines (motor/gpio.cpp) ------------------------------------------------------------ */

ZOOMAF_API int RK3588_GPIO(const char* name);
ZOOMAF_API void Gpio_SetGpio(uint32_t gpio);
ZOOMAF_API void Gpio_SetDirection(uint32_t gpio, uint8_t direction);
ZOOMAF_API void Gpio_SetActive(uint32_t gpio, uint8_t active_low);
ZOOMAF_API void Gpio_SetValue(uint32_t gpio, uint16_t value);
ZOOMAF_API int GetGpioValue(uint32_t gpio);
ZOOMAF_API int Gpio_GetValue(uint32_t gpio);

/* ---- Driver registers and run state (motor/registers.cpp) ----------------------------------- */

/* Register addresses of the two motor channels; Initmotor swaps them on MS41908 modules. */
ZOOMAF_API extern uint8_t reg_addr_psum_f;
ZOOMAF_API extern uint8_t reg_addr_intct_f;
ZOOMAF_API extern uint8_t reg_addr_psum_z;
ZOOMAF_API extern uint8_t reg_addr_intct_z;
/* Drive duty of the focus and zoom motor (duty = value / 128), despite the names. */
ZOOMAF_API extern uint8_t REG_ADDR_PPW_F;
ZOOMAF_API extern uint8_t REG_ADDR_PPW_Z;

#define REG_MOTOR_ENTRIES 20
/* Default register table written at initialisation: address, value bits 15..8, bits 7..0. */
ZOOMAF_API extern uint8_t reg_motor[REG_MOTOR_ENTRIES][3];

typedef struct MotorRunState {
    int16_t cur_steps;              /* current position in driver steps */
    uint16_t steps_vd;              /* steps per VD period (16 zoom, 8 focus at start-up) */
    uint8_t last_dir;               /* direction of the previous completed move */
    uint16_t compen_steps_forward;  /* backlash compensation, direction 0 */
    uint16_t compen_steps_backward; /* backlash compensation, direction 1 */
    /* The plan of the current run, cleared after every run: */
    int16_t dst_steps;    /* target position */
    uint8_t dir;          /* direction flag, psum register bit 8 */
    uint16_t loops;       /* VD periods this motor runs */
    uint16_t total_steps; /* distance of the planned move before compensation */
    uint16_t intct;       /* pulse interval count */
    uint8_t psum;         /* pulses per period but the last */
    uint8_t last_psum;    /* pulses in the last period */
} MotorRunState;

typedef struct MotorRunData {
    uint8_t running;     /* run in progress: every move refuses while it is 1 */
    uint8_t motor_order; /* bits 1..0 first motor + 1, bits 3..2 second motor + 1,
                            bit 5 the focus motor starts late */
    uint16_t maxloops;   /* VD periods of the run */
    float multiple_cur;  /* current zoom multiple */
    uint8_t init_flag;   /* set to 1 at start-up */
    MotorRunState motor[2];
} MotorRunData;

#define MOTOR_ZOOM 0
#define MOTOR_FOCUS 1
#define MOTOR_ORDER_FOCUS_LATE 0x20

ZOOMAF_API extern MotorRunData gRunData;

#define TRACKING_TABLE_ROWS 80
#define TRACKING_TABLE_COLUMNS 10
#define TRACKING_NAME_LENGTH 8

/* Lens parameter block, loaded from the compiled-in 4.49 mm tracking table. */
typedef struct FocusParamList {
    uint16_t rows;
    uint16_t columns;
    uint8_t distance_unit;
    uint8_t data_len;
    char column_name[TRACKING_TABLE_COLUMNS][TRACKING_NAME_LENGTH];
    int16_t data[TRACKING_TABLE_ROWS][TRACKING_TABLE_COLUMNS];
} FocusParamList;

ZOOMAF_API extern FocusParamList gFocusParam;

ZOOMAF_API uint32_t SetReg(uint8_t psum, uint16_t intct, uint8_t dir, uint8_t motor, uint8_t which);
ZOOMAF_API uint32_t SetReg_Psum(uint8_t psum, uint8_t dir, uint8_t motor);
ZOOMAF_API uint32_t SetReg_Intct(uint16_t intct, uint8_t motor);
ZOOMAF_API uint32_t SetRunReg(uint8_t psum, uint16_t intct, uint8_t dir, uint8_t motor);
ZOOMAF_API int SetMotorPWM(uint8_t motor, uint8_t on);
ZOOMAF_API int SetVDGpio(uint8_t motor_mask);
ZOOMAF_API int SetVDSteps(uint8_t motor, uint16_t steps);
ZOOMAF_API uint32_t GetTimes(uint8_t psum, uint16_t intct);
ZOOMAF_API uint32_t GetOneLoopTimes(uint8_t psum, uint16_t intct);
ZOOMAF_API uint32_t SetRegAndRun(uint8_t psum, uint16_t intct, uint8_t dir, uint32_t time_us,
                                 uint8_t motor);
ZOOMAF_API uint32_t StartMotorRun(uint8_t psum, uint16_t intct, uint8_t dir, uint8_t motor);
ZOOMAF_API int GetCurSteps(uint8_t motor);
ZOOMAF_API float GetCurMultiple(void);

/* ---- Run engines (motor/run_engine.cpp, start_run.cpp, start_run_renew.cpp) ----------------- */

/* Error-step history and run counter of the revised run loop. */
ZOOMAF_API extern int8_t old_error_step[120];
ZOOMAF_API extern uint32_t run_times;

ZOOMAF_API int StartRun(void);
ZOOMAF_API int StartRunReNew(void);

/* ---- Tracking tables (motor/tracking_tables.cpp) -------------------------------------------- */

/* The compiled-in zoom-focus tracking tables of the 4.71 mm and the 4.49 mm lens: rows by
   zoom multiple (column 0: multiple x 10, 1: focal length in 0.01 mm, 2: zoom position,
   3..8: focus positions for the distances named by the column names). Rows beyond the row
   count and the tenth column are zero. */
ZOOMAF_API extern const uint16_t rows_471;
ZOOMAF_API extern const uint16_t column_471;
ZOOMAF_API extern const uint8_t distance_unit_471;
ZOOMAF_API extern const uint8_t data_len_471;
ZOOMAF_API extern const char column_name_471[TRACKING_TABLE_COLUMNS][TRACKING_NAME_LENGTH];
ZOOMAF_API extern const int16_t focus_zoom_data_471[TRACKING_TABLE_ROWS][TRACKING_TABLE_COLUMNS];
ZOOMAF_API extern const uint16_t rows_449;
ZOOMAF_API extern const uint16_t column_449;
ZOOMAF_API extern const uint8_t distance_unit_449;
ZOOMAF_API extern const uint8_t data_len_449;
ZOOMAF_API extern const char column_name_449[TRACKING_TABLE_COLUMNS][TRACKING_NAME_LENGTH];
ZOOMAF_API extern const int16_t focus_zoom_data_449[TRACKING_TABLE_ROWS][TRACKING_TABLE_COLUMNS];

/* ---- Initialisation and homing (motor/init.cpp, initmotor.cpp, homing.cpp, module_eeprom.cpp) */

/* Bits of the Initmotor result. */
#define INITMOTOR_MODULE_INVALID 1
#define INITMOTOR_SPI_FAILED 2
#define INITMOTOR_ZOOM_HOMING_FAILED 4
#define INITMOTOR_FOCUS_HOMING_FAILED 8
#define INITMOTOR_BOTH_HOMING_FAILED 16

/* Module motor ids read from the module memory. */
#define MOTOR_ID_MS41928 1
#define MOTOR_ID_MS41908 2

typedef struct MotorDriverVersion {
    uint32_t pcb_version; /* 3576 */
    uint32_t reg_entries; /* entries of reg_motor that InitReg writes */
    uint32_t revision;    /* 11 */
} MotorDriverVersion;

typedef struct ModuleVersion {
    uint32_t pcb_version; /* copied from msVersion */
    uint32_t motor_id;    /* 1 MS41928, 2 MS41908, 0 unknown */
    uint32_t code_major;
    uint32_t code_minor;
} ModuleVersion;

ZOOMAF_API extern MotorDriverVersion msVersion;
ZOOMAF_API extern ModuleVersion moVersion;
ZOOMAF_API extern uint8_t lastdirection[2];
ZOOMAF_API extern uint32_t curteps;

ZOOMAF_API uint32_t Initmotor(uint16_t vd_ms, uint8_t home);
ZOOMAF_API void UnInitmotor(void);
ZOOMAF_API void InitAttr(uint16_t vd_ms);
ZOOMAF_API int InitSpi(void);
ZOOMAF_API void InitGPIO(uint8_t motor_id);
ZOOMAF_API uint32_t InitReg(void);
ZOOMAF_API int InitPI(uint8_t motor_selector);
ZOOMAF_API ModuleVersion GetVersion(void);
ZOOMAF_API int GetCurGPIO(uint8_t motor);
ZOOMAF_API int read_imx586_eeprom_reg(int bus, uint8_t device, uint16_t addr, uint8_t* value);
ZOOMAF_API int write_imx586_eeprom_reg(int bus, uint8_t device, uint16_t addr, uint8_t value);

/* ---- Tracking lookups and ranges (motor/tracking_lookup.cpp) -------------------------------- */

/* Flags of GetListSteps (bits 3..0; the step value is above them, shifted left by 4). */
#define LIST_TABLE_EMPTY 2
#define LIST_DISTANCE_CLAMPED 4
#define LIST_MULTIPLE_CLAMPED 8

ZOOMAF_API int LoadParamList(void);
ZOOMAF_API int32_t GetListSteps(uint8_t kind, float multiple, float distance);
ZOOMAF_API double GetStepRatio(uint8_t motor);
ZOOMAF_API int16_t GetPhysicalSteps(uint8_t motor, int16_t travel);
ZOOMAF_API int16_t GeMotorRangeSteps(uint8_t motor, uint8_t max);
ZOOMAF_API int16_t GetFocusRange(uint8_t max);
ZOOMAF_API int32_t GetFocusRangeSteps(uint8_t max, float multiple);

/* ---- Zoom and focus moves (motor/zoom_move.cpp, focus_move.cpp, bench_moves.cpp,
   time_stamp.cpp) ------------------------------------------------------------------------------ */

#define MULTIPLE_MIN 3.5
#define MULTIPLE_MAX 11.0

/* Result codes of the move calls (bits 3..0; elapsed microseconds above, shifted left by 4). */
#define ERR_NO 0
#define MOVE_MOTOR_RUNNING 1
#define MOVE_LOOKUP_FAILED 2
#define OUTOFRANGE 4
#define MOVE_MULTIPLE_CLAMPED 8
#define MOVE_NOT_NEEDED 16

ZOOMAF_API uint8_t SetMultipleValue(int16_t focus_steps, uint8_t move_focus, float multiple);
ZOOMAF_API uint32_t SetMultiple(int16_t focus_steps, uint8_t move_focus, float multiple);
ZOOMAF_API uint8_t SetMultipleSteps(int16_t focus_steps, uint8_t move_focus, float multiple);
ZOOMAF_API uint32_t SetFocusLens(int16_t steps, uint8_t relative);
ZOOMAF_API int SetFocusSteps(int16_t steps, uint8_t relative, float multiple);
ZOOMAF_API uint32_t SetFocusMotor(float distance);
ZOOMAF_API void SetMotorDrivingForce(uint8_t percent);
ZOOMAF_API int TestMotors(uint8_t motor, uint8_t dir_flag, uint16_t steps, uint16_t intct);
/* Prints "<label> : <local date and time with microseconds>". */
ZOOMAF_API void Get_Times(const char* label);

ZOOMAF_EXTERN_C_END

#endif
