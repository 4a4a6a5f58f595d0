// Lock calls of the state layer that are not part of the exported interface.
#pragma once

#include <cstdint>

namespace zoomaf {

// selfstudy_write_try_lock that gives up after about max_wait_ns: true when it took the
// lock. For the fatal-signal handler, which must not wait for ever on a writer it
// interrupted (nanosleep and atomics only, so it is async-signal-safe on the board).
bool selfstudy_write_try_lock_for(uint64_t max_wait_ns);

}  // namespace zoomaf
