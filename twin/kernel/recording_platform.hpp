// A platform that forwards every call to another one (normally a twin board) and records
// what the service asked of the kernel: which paths it opened, the exact bytes it wrote and
// the sleeps it requested. Tests use it to check bytes on the wire, the bench and the demo
// to measure pacing against the prescribed waits.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/platform.hpp"

namespace zoomaf::twin {

class RecordingPlatform final : public Platform {
public:
    struct Write {
        std::string path;
        std::string bytes;
    };

    explicit RecordingPlatform(Platform& inner) : inner_(inner) {}

    std::vector<std::string> opens() const {
        std::lock_guard lock(mutex_);
        return opens_;
    }
    std::vector<Write> writes() const {
        std::lock_guard lock(mutex_);
        return writes_;
    }
    std::vector<Write> writes_to(const std::string& path) const {
        std::vector<Write> matching;
        for (const Write& w : writes())
            if (w.path == path) matching.push_back(w);
        return matching;
    }
    // Every sleep requested, in order.
    std::vector<uint64_t> sleeps() const {
        std::lock_guard lock(mutex_);
        return sleeps_;
    }
    // Sum of the requested sleeps of at least min_ns each (the VD period waits are the only
    // sleeps of 1.515 ms and more).
    uint64_t slept_ns_at_least(uint64_t min_ns) const {
        std::lock_guard lock(mutex_);
        uint64_t sum = 0;
        for (uint64_t ns : sleeps_)
            if (ns >= min_ns) sum += ns;
        return sum;
    }
    // Every rename asked for, as (from, to).
    std::vector<std::pair<std::string, std::string>> renames() const {
        std::lock_guard lock(mutex_);
        return renames_;
    }
    void clear() {
        std::lock_guard lock(mutex_);
        renames_.clear();
        opens_.clear();
        writes_.clear();
        sleeps_.clear();
    }

    int open(const char* path, int flags) override {
        const int fd = inner_.open(path, flags);
        std::lock_guard lock(mutex_);
        opens_.push_back(path);
        if (fd >= 0) paths_[fd] = path;
        return fd;
    }
    int close(int fd) override {
        {
            std::lock_guard lock(mutex_);
            paths_.erase(fd);
        }
        return inner_.close(fd);
    }
    ssize_t read(int fd, void* buf, size_t n) override { return inner_.read(fd, buf, n); }
    ssize_t write(int fd, const void* buf, size_t n) override {
        {
            std::lock_guard lock(mutex_);
            writes_.push_back({paths_[fd], std::string(static_cast<const char*>(buf), n)});
        }
        return inner_.write(fd, buf, n);
    }
    int ioctl(int fd, unsigned long request, void* arg) override {
        return inner_.ioctl(fd, request, arg);
    }
    int access(const char* path, int mode) override { return inner_.access(path, mode); }
    FILE* fopen(const char* path, const char* mode) override { return inner_.fopen(path, mode); }
    int rename(const char* from, const char* to) override {
        {
            std::lock_guard lock(mutex_);
            renames_.push_back({from, to});
        }
        return inner_.rename(from, to);
    }
    int fsync(int fd) override { return inner_.fsync(fd); }
    int fstat(int fd, struct stat* st) override { return inner_.fstat(fd, st); }
    int unlink(const char* path) override { return inner_.unlink(path); }
    char* getcwd(char* buf, size_t size) override { return inner_.getcwd(buf, size); }
    int shmget(key_t key, size_t size, int flags) override {
        return inner_.shmget(key, size, flags);
    }
    void* shmat(int id, const void* addr, int flags) override {
        return inner_.shmat(id, addr, flags);
    }
    int semget(key_t key, int nsems, int flags) override {
        return inner_.semget(key, nsems, flags);
    }
    int semctl(int id, int num, int cmd, int arg) override {
        return inner_.semctl(id, num, cmd, arg);
    }
    int semop(int id, sembuf* ops, size_t nops) override { return inner_.semop(id, ops, nops); }
    int semtimedop(int id, sembuf* ops, size_t nops, const timespec* timeout) override {
        return inner_.semtimedop(id, ops, nops, timeout);
    }
    int sleep_ns(uint64_t ns) override {
        {
            std::lock_guard lock(mutex_);
            sleeps_.push_back(ns);
        }
        return inner_.sleep_ns(ns);
    }
    timespec monotonic() override { return inner_.monotonic(); }
    timeval wall() override { return inner_.wall(); }

private:
    Platform& inner_;
    mutable std::mutex mutex_;
    std::map<int, std::string> paths_;
    std::vector<std::string> opens_;
    std::vector<Write> writes_;
    std::vector<uint64_t> sleeps_;
    std::vector<std::pair<std::string, std::string>> renames_;
};

}  // namespace zoomaf::twin
