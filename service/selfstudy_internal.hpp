// The self-study store's shared pieces: the lock that keeps the learning calls and the
// savers from tearing an entry, and the save that replaces the file whole.
#pragma once

#include <cstdint>
#include <mutex>

#include "service/safe_message.hpp"

namespace zoomaf::selfstudy {

inline constexpr const char* kTemporaryFile = "./laserclearinfo.tmp";

// Held for the few bytes of an entry by the learning calls and for the copy to the file by
// the savers on a thread. The fatal-signal path does not take it: the thread it
// interrupted may hold it, and the process ends right after the save.
extern std::mutex store_mutex;

// Opens the temporary file beside the store, created or truncated. A descriptor or -1.
int open_temporary();

// Writes the whole store to fd, flushes it to disk, closes it and renames the temporary
// file over the store. False when a step failed: the file then still holds the old store.
bool replace_store(int fd, Context context);

// The exit save and the stop of learning; in a signal handler with async-signal-safe calls
// only (the Linux platform's open, write, fsync, close and rename, and write(2) to stdout).
int32_t exit_save(Context context);
int32_t stop_deal(Context context);

}  // namespace zoomaf::selfstudy
