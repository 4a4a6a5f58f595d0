// The self-study store at start (allocated, loaded from "./laserclearinfo" or the file
// created) and the fatal-signal handler that saves it before the process ends.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/data_file.hpp"
#include "platform/platform.hpp"
#include "service/safe_message.hpp"
#include "service/selfstudy_internal.hpp"
#include "zoomaf/app_pdaf.h"

namespace zoomaf::selfstudy {
namespace {

void print_learned_entries() {
    for (int block = 0; block < SELFSTUDY_PRINTED_BLOCKS; ++block) {
        const SelfStudyBlock& entries = selfstudy_point[block];
        for (int laser = 0; laser < SELFSTUDY_LASER_ENTRIES; ++laser) {
            if (entries.valid[laser] != 1) continue;
            std::printf("get selfstudy-info multiple:%d,laser%d,motor:%d,cl:%ld,pd:%ld\r\n",
                        block + 10, laser, entries.motor[laser], entries.cl[laser],
                        entries.pd[laser]);
        }
    }
}

// Loads the file into the store: the bytes it has, the rest stays unlearned. A file that
// exists but cannot be opened prints nothing; one that is not a regular file, is larger than
// a store or cannot be read is said so. False when nothing was loaded: the store then stays
// unlearned, and the savers keep the file as it is (store_unread).
bool load_store() {
    std::unique_lock lock(store_mutex);
    const DataFileRead file =
        read_data_file(SELFSTUDY_FILE, selfstudy_point, SELFSTUDY_STORE_BYTES, true, O_RDONLY);
    if (!file.ok()) {
        // Half a store read is not trusted.
        std::memset(selfstudy_point, 0, SELFSTUDY_STORE_BYTES);
        if (file.status == DataFileRead::Status::read_error) {
            std::printf("Error:InitGlobalClearinfo,can't read the selfstudyinfo file:%s!\r\n",
                        SELFSTUDY_FILE);
        } else if (file.status != DataFileRead::Status::cannot_open) {
            std::printf("Error:InitGlobalClearinfo,the selfstudyinfo file %s is not loaded: %s\r\n",
                        SELFSTUDY_FILE, file.reason(SELFSTUDY_STORE_BYTES).c_str());
        }
        return false;
    }
    if (file.size < SELFSTUDY_STORE_BYTES) {
        std::printf(
            "Warning:the selfstudyinfo file %s holds %zu of %d bytes, the rest starts "
            "unlearned\r\n",
            SELFSTUDY_FILE, file.size, SELFSTUDY_STORE_BYTES);
    }
    std::puts("start printf self study info:\r");
    print_learned_entries();
    lock.unlock();
    platform().sleep_ns(3000000000ull);
    std::puts("over printf self study info:\r");
    return true;
}

}  // namespace
}  // namespace zoomaf::selfstudy

extern "C" {

int32_t InitGlobalClearinfo(void) {
    std::signal(SIGINT, SignalFuncFPE);
    std::signal(SIGSEGV, SignalFuncFPE);
    std::signal(SIGTERM, SignalFuncFPE);

    {
        std::lock_guard lock(zoomaf::selfstudy::store_mutex);
        // Called again, it starts from the same memory instead of leaking it.
        if (selfstudy_point == nullptr) {
            selfstudy_point =
                static_cast<SelfStudyBlock*>(std::calloc(SELFSTUDY_BLOCKS, sizeof(SelfStudyBlock)));
            if (selfstudy_point == nullptr) {
                std::puts("selfstudy_point memory malloc fail!\r");
                std::exit(0);
            }
        } else {
            std::memset(selfstudy_point, 0, SELFSTUDY_STORE_BYTES);
        }
    }
    if (zoomaf::platform().access(SELFSTUDY_FILE, F_OK) == 0) {
        zoomaf::selfstudy::store_unread.store(!zoomaf::selfstudy::load_store(),
                                              std::memory_order_relaxed);
    } else {
        zoomaf::selfstudy::store_unread.store(false, std::memory_order_relaxed);
        CreateFreshSelfstudyClearinfo();
    }
    return 0;
}

// Only async-signal-safe calls: messages by write(2), the save by the platform's access,
// open, write, fsync, close, unlink and rename, waits by nanosleep. The memory is not freed
// (free() is not safe here and the process ends at once); the pointer is cleared so nothing
// learns into it any more. The process ends within about a second whatever the other
// threads hold: the self-study write lock is waited for 500 ms at most.
void SignalFuncFPE(int sig) {
    using zoomaf::Context;
    // A second fatal signal while the first is handled (on another thread, or on this one,
    // interrupting the handler) leaves the save to the first and ends the process if the
    // first has not done so within a second.
    static std::atomic<bool> handling{false};
    if (handling.exchange(true)) {
        for (int pause = 0; pause < 50; ++pause) zoomaf::platform().sleep_ns(20000000);
        ::_exit(0);
    }
    zoomaf::say(Context::signal_handler, "\r\nError Capture Start!\r\n");
    zoomaf::SafeMessage()
        .text("AF Module unexception arrival:")
        .number(sig)
        .text("!\r\n")
        .say(Context::signal_handler);
    zoomaf::selfstudy::stop_deal(Context::signal_handler);
    zoomaf::say(Context::signal_handler, "Error Capture Over!\r\n");
    selfstudy_point = nullptr;
    ::_exit(0);
}

}  // extern "C"
