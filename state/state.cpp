// The shared state of the focus service, valid from load time with its initial values.
#include "zoomaf/service_state.h"

std::atomic<int32_t> current_focus_mode{PDAF_CENTER_MODE};
int32_t cur_day_night_mode = 0;
float current_multiple = 1.0f;
int32_t motor_position = -1;
int32_t current_shockperiod = 50;
int32_t is_coordinates_update = 0;
int32_t free_focus_pointx = 0;
int32_t free_focus_pointy = 0;
int32_t free_focus_width = 0;
int32_t free_focus_height = 0;
int32_t is_manual_positon_update = 0;
float manual_positon_percentage = 0.0f;
int32_t is_center_af_winratio_update = 0;
std::atomic<int32_t> is_free_focus_opr_over{0};
int32_t current_select_pdaf_window = 0;
int32_t laser_focus_compensation = 0;
int32_t pdafcnt_over_multiple_change = 0;
int32_t defauult_probe_dir = -1;
std::atomic<int32_t> multiple_index{0};
int32_t current_multiple_index = 0;
std::atomic<int32_t> zoom_running_flag{0};
std::atomic<int32_t> onoff{0};
std::atomic<int32_t> init_motor_status{0};
uint8_t focus_area[8] = {0, 0, 0, 0, 0, 0, 0, 0};
int32_t pd_calibration_value = 0;
