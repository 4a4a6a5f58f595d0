// The self-study store at start (allocated, loaded from "./laserclearinfo" or the file
// created) and the fatal-signal handler that saves it before the process ends.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/platform.hpp"
#include "service/safe_message.hpp"
#include "service/selfstudy_internal.hpp"
#include "zoomaf/app_pdaf.h"

namespace zoomaf::selfstudy {
namespace {

// Reads the file into the store: the bytes it has, the rest stays unlearned. -1 on a read
// error (the store is then cleared again: half a store read is not trusted).
ssize_t read_store(int fd) {
    char* bytes = reinterpret_cast<char*>(selfstudy_point);
    size_t got = 0;
    while (got < SELFSTUDY_STORE_BYTES) {
        const ssize_t n = platform().read(fd, bytes + got, SELFSTUDY_STORE_BYTES - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            std::memset(selfstudy_point, 0, SELFSTUDY_STORE_BYTES);
            return -1;
        }
        if (n == 0) break;
        got += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(got);
}

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

// A file that exists but cannot be opened prints nothing and leaves the store unlearned.
void load_store() {
    const int fd = platform().open(SELFSTUDY_FILE, O_RDONLY);
    if (fd < 0) return;
    std::unique_lock lock(store_mutex);
    const ssize_t got = read_store(fd);
    platform().close(fd);
    if (got < 0) {
        std::printf("Error:InitGlobalClearinfo,can't read the selfstudyinfo file:%s!\r\n",
                    SELFSTUDY_FILE);
        return;
    }
    if (got < SELFSTUDY_STORE_BYTES) {
        std::printf(
            "Warning:the selfstudyinfo file %s holds %zd of %d bytes, the rest starts "
            "unlearned\r\n",
            SELFSTUDY_FILE, got, SELFSTUDY_STORE_BYTES);
    }
    std::puts("start printf self study info:\r");
    print_learned_entries();
    lock.unlock();
    platform().sleep_ns(3000000000ull);
    std::puts("over printf self study info:\r");
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
        zoomaf::selfstudy::load_store();
    } else {
        CreateFreshSelfstudyClearinfo();
    }
    return 0;
}

// Only async-signal-safe calls: messages by write(2), the save by the platform's open,
// write, fsync, close and rename. The memory is not freed (free() is not safe here and the
// process ends at once); the pointer is cleared so nothing learns into it any more.
void SignalFuncFPE(int sig) {
    using zoomaf::Context;
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
