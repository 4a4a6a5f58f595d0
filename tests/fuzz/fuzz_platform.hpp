// The platform behind the service's parsers while they are fuzzed: one data file whose
// bytes are the fuzz input (or a directory, a FIFO, or a file whose read fails part way),
// and one shared-memory segment with a semaphore that is taken, times out or fails as the
// input says. Everything else fails as on a board without devices; sleeps take no time.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/platform.hpp"
#include "tests/fuzz/fuzz_input.hpp"

namespace zoomaf::fuzz {

class FuzzPlatform final : public Platform {
public:
    enum class FileKind : uint8_t { regular, directory, fifo, failing_read, count };
    enum class Semaphore : uint8_t { free, held, failing, count };

    // The data file at path (any other path does not exist).
    void set_file(std::string path, std::string_view content, FileKind kind) {
        path_ = std::move(path);
        content_ = content;
        kind_ = kind;
    }
    void set_semaphore(Semaphore semaphore) { semaphore_ = semaphore; }
    std::vector<uint8_t>& segment() { return segment_; }

    int open(const char* path, int /*flags*/) override {
        if (path_ != path) return fail(ENOENT);
        offset_ = 0;
        return kFd;
    }
    int close(int fd) override { return fd == kFd ? 0 : fail(EBADF); }
    ssize_t read(int fd, void* buf, size_t n) override {
        if (fd != kFd) return fail(EBADF);
        if (kind_ == FileKind::directory) return fail(EISDIR);
        if (kind_ == FileKind::fifo) return fail(EAGAIN);
        if (kind_ == FileKind::failing_read && offset_ >= content_.size() / 2) return fail(EIO);
        const size_t count = std::min(n, content_.size() - offset_);
        std::memcpy(buf, content_.data() + offset_, count);
        offset_ += count;
        return static_cast<ssize_t>(count);
    }
    ssize_t write(int, const void*, size_t) override { return fail(EBADF); }
    int ioctl(int, unsigned long, void*) override { return fail(ENOTTY); }
    int access(const char* path, int) override { return path_ == path ? 0 : fail(ENOENT); }
    FILE* fopen(const char*, const char*) override {
        errno = ENOENT;
        return nullptr;
    }
    int rename(const char*, const char*) override { return fail(EROFS); }
    int fsync(int) override { return fail(EBADF); }
    int fstat(int fd, struct stat* st) override {
        if (fd != kFd) return fail(EBADF);
        *st = {};
        st->st_mode = kind_ == FileKind::directory ? S_IFDIR | 0755
                      : kind_ == FileKind::fifo    ? S_IFIFO | 0644
                                                   : S_IFREG | 0644;
        st->st_size = static_cast<off_t>(content_.size());
        return 0;
    }
    int unlink(const char*) override { return fail(EROFS); }
    char* getcwd(char* buf, size_t size) override {
        if (size < 2) return nullptr;
        std::strcpy(buf, "/");
        return buf;
    }
    int shmget(key_t, size_t size, int) override {
        segment_.assign(size, 0);
        return 1;
    }
    void* shmat(int, const void*, int) override { return segment_.data(); }
    int semget(key_t, int, int) override { return 1; }
    int semctl(int, int, int, int) override { return 0; }
    int semop(int, sembuf*, size_t) override {
        return semaphore_ == Semaphore::failing ? fail(EIDRM) : 0;
    }
    int semtimedop(int, sembuf*, size_t, const timespec*) override {
        if (semaphore_ == Semaphore::held) return fail(EAGAIN);
        return semaphore_ == Semaphore::failing ? fail(EIDRM) : 0;
    }
    int sleep_ns(uint64_t) override { return 0; }
    timespec monotonic() override { return {}; }
    timeval wall() override { return {}; }

private:
    static constexpr int kFd = 3;
    static int fail(int error) {
        errno = error;
        return -1;
    }

    std::string path_;
    std::string_view content_;
    FileKind kind_ = FileKind::regular;
    size_t offset_ = 0;
    Semaphore semaphore_ = Semaphore::free;
    std::vector<uint8_t> segment_;
};

// Installs the platform and sends the service's messages to /dev/null, once.
inline FuzzPlatform& fuzz_platform() {
    static FuzzPlatform* platform = [] {
        auto* p = new FuzzPlatform;
        install_platform(p);
        if (std::freopen("/dev/null", "w", stdout) == nullptr) broken_promise();
        static char buffer[1 << 16];
        std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
        return p;
    }();
    return *platform;
}

// The file kind chosen by a byte of the input: mostly a regular file.
inline FuzzPlatform::FileKind file_kind(uint8_t byte) {
    return byte < 0xF0 ? FuzzPlatform::FileKind::regular
                       : static_cast<FuzzPlatform::FileKind>(
                             byte % static_cast<uint8_t>(FuzzPlatform::FileKind::count));
}

}  // namespace zoomaf::fuzz
