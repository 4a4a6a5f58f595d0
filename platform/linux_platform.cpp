// Pass-through to the kernel: one libc call per method, errno left as the call set it.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/shm.h>
#include <unistd.h>

#include "platform/platform.hpp"

namespace zoomaf {

int LinuxPlatform::open(const char* path, int flags) {
    return ::open(path, flags, 0666);
}
int LinuxPlatform::close(int fd) {
    return ::close(fd);
}
ssize_t LinuxPlatform::read(int fd, void* buf, size_t n) {
    return ::read(fd, buf, n);
}
ssize_t LinuxPlatform::write(int fd, const void* buf, size_t n) {
    return ::write(fd, buf, n);
}
int LinuxPlatform::ioctl(int fd, unsigned long request, void* arg) {
    return ::ioctl(fd, request, arg);
}
int LinuxPlatform::access(const char* path, int mode) {
    return ::access(path, mode);
}
FILE* LinuxPlatform::fopen(const char* path, const char* mode) {
    return ::fopen(path, mode);
}
int LinuxPlatform::rename(const char* from, const char* to) {
    return ::rename(from, to);
}
int LinuxPlatform::fsync(int fd) {
    return ::fsync(fd);
}
int LinuxPlatform::fstat(int fd, struct stat* st) {
    return ::fstat(fd, st);
}
int LinuxPlatform::unlink(const char* path) {
    return ::unlink(path);
}
char* LinuxPlatform::getcwd(char* buf, size_t size) {
    return ::getcwd(buf, size);
}

int LinuxPlatform::shmget(key_t key, size_t size, int flags) {
    return ::shmget(key, size, flags);
}
void* LinuxPlatform::shmat(int id, const void* addr, int flags) {
    return ::shmat(id, addr, flags);
}
int LinuxPlatform::semget(key_t key, int nsems, int flags) {
    return ::semget(key, nsems, flags);
}
int LinuxPlatform::semctl(int id, int num, int cmd, int arg) {
    return ::semctl(id, num, cmd, arg);
}
int LinuxPlatform::semop(int id, sembuf* ops, size_t nops) {
    return ::semop(id, ops, nops);
}
int LinuxPlatform::semtimedop(int id, sembuf* ops, size_t nops, const timespec* timeout) {
    return ::semtimedop(id, ops, nops, timeout);
}

int LinuxPlatform::sleep_ns(uint64_t ns) {
    timespec req{static_cast<time_t>(ns / 1000000000u), static_cast<long>(ns % 1000000000u)};
    return ::nanosleep(&req, nullptr);
}

timespec LinuxPlatform::monotonic() {
    timespec ts{};
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts;
}

timeval LinuxPlatform::wall() {
    timeval tv{};
    ::gettimeofday(&tv, nullptr);
    return tv;
}

}  // namespace zoomaf
