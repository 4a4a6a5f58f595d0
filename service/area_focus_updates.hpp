// The area-focus thread's pass, for the thread body, for tests and for the scenario runner
// (which polls the channel from its one thread). Not part of the exported interface.
#pragma once

#include "zoomaf/vrel_sharememory.h"

namespace zoomaf {

// One pass of GetAreaFocusUpdateStatus on an opened channel: takes the service lock, looks
// at the channel and applies a new point; releases the lock. False when the channel failed:
// the thread then ends with the service lock still held.
bool area_focus_pass(VrelShareMan& channel);

}  // namespace zoomaf
