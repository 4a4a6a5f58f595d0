// The self-study store's shared pieces: the lock that keeps the learning calls and the
// savers from tearing an entry, and the save that replaces the file whole.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "service/safe_message.hpp"

namespace zoomaf::selfstudy {

// The temporary files of a save, beside the store: one for the savers on threads (one at a
// time), one for the fatal-signal handler, which may interrupt a thread's save.
inline constexpr const char* kTemporaryFile = "./laserclearinfo.tmp";
inline constexpr const char* kSignalTemporaryFile = "./laserclearinfo.signal.tmp";

// Held for the few bytes of an entry by the learning calls and for the copy to the file by
// the savers on a thread. The fatal-signal path does not take it: the thread it
// interrupted may hold it, and the process ends right after the save.
extern std::mutex store_mutex;

// Set while the store file that existed at start could not be read then (not opened, not
// a regular file, too large, a read error): the savers must not replace learned entries
// they never saw with the memory's. Cleared by a load or once the file is gone.
extern std::atomic<bool> store_unread;

// The exit save and the stop of learning; in a signal handler with async-signal-safe calls
// only (the Linux platform's access, open, write, fsync, close, unlink, rename and
// nanosleep, and write(2) to stdout).
int32_t exit_save(Context context);
int32_t stop_deal(Context context);

}  // namespace zoomaf::selfstudy
