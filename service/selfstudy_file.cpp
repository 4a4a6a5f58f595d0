// Saving the self-study store to "./laserclearinfo": a fresh file at start, the periodic
// save, the save at exit and the stop of learning. Every save writes a temporary file
// beside the store, flushes it to disk and renames it over the store, so a crash or a
// power loss during a save leaves the old store or the new one, never a torn file.
#include <fcntl.h>

#include <cerrno>
#include <cstdio>

#include "platform/platform.hpp"
#include "service/safe_message.hpp"
#include "service/selfstudy_internal.hpp"
#include "zoomaf/app_pdaf.h"

namespace zoomaf::selfstudy {

namespace {

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

// A save whose file opened but could not be written, flushed or renamed over the store.
void say_not_saved(Context context, const char* caller) {
    SafeMessage()
        .text("Error:")
        .text(caller)
        .text(",can't save the selfstudyinfo file:")
        .text(SELFSTUDY_FILE)
        .text("!\r\n")
        .say(context);
}

void say_no_store(Context context, const char* caller) {
    SafeMessage()
        .text("Error:")
        .text(caller)
        .text(",the selfstudyinfo memory is not allocated!\r\n")
        .say(context);
}

// The body shared by the periodic and the exit save, after their own first message. Once
// the temporary file is open the store counts as saved (and, at exit, learning stops); a
// save that fails after that sets the changed flag again, so that a later save tries again.
void save(Context context, const char* caller, bool stop_learning) {
    if (selfstudy_point == nullptr) {
        say_no_store(context, caller);
        return;
    }
    const int fd = open_temporary();
    if (fd < 0) {
        SafeMessage()
            .text("Error:")
            .text(caller)
            .text(",can't open the selfstudyinfo file:")
            .text(SELFSTUDY_FILE)
            .text("!\r\n")
            .say(context);
        return;
    }
    is_selfstudy_point_update.store(0, std::memory_order_relaxed);
    if (stop_learning) is_deal_selfstudy.store(0, std::memory_order_relaxed);
    if (!replace_store(fd, context)) {
        is_selfstudy_point_update.store(1, std::memory_order_relaxed);
        say_not_saved(context, caller);
    }
}

void save_on_thread(const char* caller, bool stop_learning) {
    std::lock_guard saving(save_mutex);
    save(Context::thread, caller, stop_learning);
}

}  // namespace

std::mutex store_mutex;

int open_temporary() {
    return platform().open(kTemporaryFile, O_WRONLY | O_CREAT | O_TRUNC);
}

bool replace_store(int fd, Context context) {
    const char* bytes = reinterpret_cast<const char*>(selfstudy_point);
    bool ok = false;
    if (context == Context::thread) {
        std::lock_guard lock(store_mutex);
        ok = write_all(fd, bytes, SELFSTUDY_STORE_BYTES);
    } else {
        ok = write_all(fd, bytes, SELFSTUDY_STORE_BYTES);
    }
    ok = ok && platform().fsync(fd) == 0;
    ok = platform().close(fd) == 0 && ok;
    return ok && platform().rename(kTemporaryFile, SELFSTUDY_FILE) == 0;
}

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
    selfstudy_write_try_lock();
    say(context, "Error Capture Start a\r\n");
    exit_save(context);
    is_deal_selfstudy.store(0, std::memory_order_relaxed);
    say(context, "Error Capture Start b\r\n");
    selfstudy_write_unlock();
    return 0;
}

}  // namespace zoomaf::selfstudy

extern "C" {

int32_t CreateFreshSelfstudyClearinfo(void) {
    using namespace zoomaf::selfstudy;
    std::lock_guard saving(save_mutex);
    const int fd = selfstudy_point != nullptr ? open_temporary() : -1;
    if (fd < 0 || !replace_store(fd, zoomaf::Context::thread)) {
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
