// The area-focus channel (19) as the service's area-focus thread reads it.
#pragma once

#include <optional>

#include "zoomaf/vrel_sharememory.h"

namespace zoomaf::ipc {

enum class AreaFocusLook { done, held, failed };

// One look at an opened area-focus channel under its semaphore: a point flagged as new is
// copied to `point` and the flag and the reserved word are cleared together. held: another
// process kept the semaphore longer than a reader waits (no point this time, said so);
// failed: the semaphore could not be taken or given back (a point taken before the
// give-back failed is still in `point`); each failure prints its message.
AreaFocusLook take_area_focus_point(VrelShareMan& channel,
                                    std::optional<VrelAreaFocusPoint>& point);

}  // namespace zoomaf::ipc
