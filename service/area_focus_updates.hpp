// One look of the area-focus thread at its channel, for whoever polls it in its stead (the
// scenario runner, which drives the service from one thread). Not part of the exported
// interface.
#pragma once

#include "zoomaf/vrel_sharememory.h"

namespace zoomaf {

// A new point on the opened area-focus channel switches the service to free-area focus on
// it. Service lock held. False when the channel's semaphore failed (it said so).
bool take_area_focus_update(VrelShareMan& channel);

}  // namespace zoomaf
