// The area-focus thread's pass, for the thread body and for tests.
#pragma once

#include "zoomaf/vrel_sharememory.h"

namespace zoomaf {

// One pass of GetAreaFocusUpdateStatus on an opened channel: takes the service lock, looks
// at the channel and applies a new point; releases the lock. False when the channel failed:
// the thread then ends with the service lock still held.
bool area_focus_pass(VrelShareMan& channel);

}  // namespace zoomaf
