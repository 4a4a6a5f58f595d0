// Internals of the assist channels shared by their units and the tests.
#pragma once

#include "zoomaf/vrel_sharememory.h"

namespace zoomaf::ipc {

// The service's record of the focus-value channel, opened on first use. Zeroing it makes
// the next read open the channel again (tests do so when they change boards).
VrelShareMan& fv_channel();

}  // namespace zoomaf::ipc
