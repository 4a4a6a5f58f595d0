// The two version lines printed at start-up. Not part of the exported interface.
#pragma once

namespace zoomaf {

// "hardware is ..." for the motor driver, then "dcc is ..." for the focus software.
void print_versions();

}  // namespace zoomaf
