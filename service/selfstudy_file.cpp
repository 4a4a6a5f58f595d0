// Saving the self-study store to "./laserclearinfo": a fresh file at start, the periodic
// save, the save at exit and the stop of learning. Every save writes a new temporary file
// beside the store, flushes it to disk and renames it over the store, so a crash or a
// power loss during a save leaves the old store or the new one, never a torn file.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/platform.hpp"
#include "service/safe_message.hpp"
#include "service/selfstudy_internal.hpp"
#include "state/locks.hpp"
#include "zoomaf/app_pdaf.h"

namespace zoomaf::selfstudy {

namespace {

// How long the fatal-signal handler waits for the self-study write lock: a writer it
// interrupted never gives it back, and the process must end within 2 s.
constexpr uint64_t kHandlerLockWaitNs = 500000000;

// Two savers on threads would write the one temporary file at once; the byte counter of
// the write lock orders them but does not exclude them, so this does.
std::mutex save_mutex;

bool write_all(int fd, const char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t written = platform().write(fd, bytes, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

void say_cannot_open(Context context, const char* caller) {
    SafeMessage()
        .text("Error:")
        .text(caller)
        .text(",can't open the selfstudyinfo file:")
        .text(SELFSTUDY_FILE)
        .text("!\r\n")
        .say(context);
}

// The store on disk may be replaced: it was read at start (or there was none), and a plain
// write would be allowed to open it. The rename would bypass both.
bool may_replace(Context context, const char* caller) {
    if (store_unread.load(std::memory_order_relaxed)) {
        if (platform().access(SELFSTUDY_FILE, F_OK) != 0 && errno == ENOENT) {
            store_unread.store(false, std::memory_order_relaxed);
        } else {
            SafeMessage()
                .text("Error:")
                .text(caller)
                .text(",the selfstudyinfo file:")
                .text(SELFSTUDY_FILE)
                .text(" could not be read at start; it is kept as it is, not replaced!\r\n")
                .say(context);
            return false;
        }
    }
    if (platform().access(SELFSTUDY_FILE, W_OK) != 0 && errno != ENOENT) {
        const int error = errno;
        say_cannot_open(context, caller);
        SafeMessage()
            .text("the selfstudyinfo file ")
            .text(SELFSTUDY_FILE)
            .text(" may not be written: ")
            .error(error)
            .text("\r\n")
            .say(context);
        return false;
    }
    return true;
}

// Creates the temporary file new. O_EXCL never opens through a link left at its name;
// such a link, or the leftover of a save that was killed, is removed first (unlink removes
// the link itself, not what it points to).
int open_temporary(const char* path, Context context) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
    int fd = platform().open(path, kFlags);
    if (fd < 0 && errno == EEXIST && platform().unlink(path) == 0) {
        SafeMessage().text("Warning:removed the leftover ").text(path).text("\r\n").say(context);
        fd = platform().open(path, kFlags);
    }
    return fd;
}

bool write_store(int fd, Context context) {
    const char* bytes = reinterpret_cast<const char*>(selfstudy_point);
    if (context == Context::thread) {
        std::lock_guard lock(store_mutex);
        return write_all(fd, bytes, SELFSTUDY_STORE_BYTES);
    }
    return write_all(fd, bytes, SELFSTUDY_STORE_BYTES);
}

void say_not_saved(Context context, const char* caller) {
    SafeMessage()
        .text("Error:")
        .text(caller)
        .text(",can't save the selfstudyinfo file:")
        .text(SELFSTUDY_FILE)
        .text("!\r\n")
        .say(context);
}

// Replaces the store file by the memory, through a new temporary file flushed to disk and
// renamed over it; says why when it does not. With mark_saved the store counts as saved
// once the temporary file is open (and, with stop_learning, learning stops): a save that
// fails after that sets the changed flag again, so that a later save tries again, while an
// entry learned during the write sets it again by itself.
bool write_store_file(Context context, const char* caller, bool mark_saved, bool stop_learning) {
    if (!may_replace(context, caller)) return false;
    const char* temporary = context == Context::thread ? kTemporaryFile : kSignalTemporaryFile;
    const int fd = open_temporary(temporary, context);
    if (fd < 0) {
        say_cannot_open(context, caller);
        return false;
    }
    if (mark_saved) is_selfstudy_point_update.store(0, std::memory_order_relaxed);
    if (stop_learning) is_deal_selfstudy.store(0, std::memory_order_relaxed);
    bool ok = write_store(fd, context);
    ok = ok && platform().fsync(fd) == 0;
    ok = platform().close(fd) == 0 && ok;
    ok = ok && platform().rename(temporary, SELFSTUDY_FILE) == 0;
    if (!ok) {
        platform().unlink(temporary);
        if (mark_saved) is_selfstudy_point_update.store(1, std::memory_order_relaxed);
        say_not_saved(context, caller);
    }
    return ok;
}

// The body shared by the periodic and the exit save, after their own first message.
void save(Context context, const char* caller, bool stop_learning) {
    if (selfstudy_point == nullptr) {
        SafeMessage()
            .text("Error:")
            .text(caller)
            .text(",the selfstudyinfo memory is not allocated!\r\n")
            .say(context);
        return;
    }
    write_store_file(context, caller, true, stop_learning);
}

void save_on_thread(const char* caller, bool stop_learning) {
    std::lock_guard saving(save_mutex);
    save(Context::thread, caller, stop_learning);
}

}  // namespace

std::mutex store_mutex;
std::atomic<bool> store_unread{false};

int32_t exit_save(Context context) {
    if (is_selfstudy_point_update.load(std::memory_order_relaxed) == 0) return 0;
    say(context, "before exit do ExitSaveSelfStudyInfo\r\n");
    if (context == Context::thread) {
        save_on_thread("SaveSelfStudyInfo", true);
    } else {
        save(context, "SaveSelfStudyInfo", true);
    }
    return 0;
}

int32_t stop_deal(Context context) {
    bool locked = true;
    if (context == Context::thread) {
        selfstudy_write_try_lock();
    } else {
        locked = selfstudy_write_try_lock_for(kHandlerLockWaitNs);
    }
    if (!locked) {
        say(context,
            "Warning:the selfstudy write lock is held by an interrupted writer, saving without "
            "it\r\n");
    }
    say(context, "Error Capture Start a\r\n");
    exit_save(context);
    is_deal_selfstudy.store(0, std::memory_order_relaxed);
    say(context, "Error Capture Start b\r\n");
    if (locked) selfstudy_write_unlock();
    return 0;
}

}  // namespace zoomaf::selfstudy

extern "C" {

int32_t CreateFreshSelfstudyClearinfo(void) {
    using namespace zoomaf::selfstudy;
    std::lock_guard saving(save_mutex);
    if (selfstudy_point == nullptr ||
        !write_store_file(zoomaf::Context::thread, "CreateFreshSelfstudyClearinfo", false, false)) {
        std::puts("\r\n\r\n\r\nError:create_fresh_selfstudy_clearinfo fail\r\n\r\n\r");
        zoomaf::platform().sleep_ns(3000000000ull);
        return -1;
    }
    return 0;
}

// Writes whether or not anything changed; when to call it is the application's choice.
int32_t DealWriteSelfStudyInfo2File(void) {
    selfstudy_write_try_lock();
    std::puts("DealWriteSelfStudyInfo2File update\r");
    zoomaf::selfstudy::save_on_thread("DealWriteSelfStudyInfo2File", false);
    selfstudy_write_unlock();
    return 0;
}

// Takes no write lock itself: StopSelfStudyDeal holds it around this call.
int32_t ExitSaveSelfStudyInfo(void) {
    return zoomaf::selfstudy::exit_save(zoomaf::Context::thread);
}

int32_t StopSelfStudyDeal(void) {
    return zoomaf::selfstudy::stop_deal(zoomaf::Context::thread);
}

}  // extern "C"
