// Internals of the assist channels shared by their units and the tests.
#pragma once

#include <cstdint>

#include "zoomaf/vrel_sharememory.h"

namespace zoomaf::ipc {

// How long the service's readers wait for a channel's semaphore. Writers hold it for a
// copy of a few bytes; one held longer belongs to a process that stopped inside (without
// SEM_UNDO) or does not play by the rules, and the reader goes on without new data.
inline constexpr uint64_t kReaderWaitNs = 200'000'000;

enum class Take { taken, timed_out, failed };

// VrelSemaphoreP for the service's readers: waits at most wait_ns. A failure prints
// "SemaphoreP failed" as VrelSemaphoreP does; a timeout prints nothing (the reader says
// what it goes on with).
Take semaphore_take_within(VrelShareMan& channel, uint64_t wait_ns);
// What a reader says when the wait ran out.
void say_semaphore_held(const char* reader, const VrelShareMan& channel, uint64_t wait_ns);

// The service's record of the focus-value channel, opened on first use. Zeroing it makes
// the next read open the channel again (tests do so when they change boards).
VrelShareMan& fv_channel();

}  // namespace zoomaf::ipc
