#include "platform/data_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "platform/platform.hpp"

namespace zoomaf {

namespace {

const char* kind_of(mode_t mode) {
    if (S_ISDIR(mode)) return "a directory";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISBLK(mode)) return "a block device";
    if (S_ISSOCK(mode)) return "a socket";
    return "not a regular file";
}

// Reads until n bytes or the end; -1 with errno on a read error.
ssize_t read_fully(int fd, char* buf, size_t n) {
    size_t got = 0;
    while (got < n) {
        const ssize_t r = platform().read(fd, buf + got, n - got);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return -1;
        if (r == 0) break;
        got += static_cast<size_t>(r);
    }
    return static_cast<ssize_t>(got);
}

// The file behind fd is a regular file, or result says what it is.
bool regular_file(int fd, struct stat& st, DataFileRead& result) {
    if (platform().fstat(fd, &st) != 0) {
        result.status = DataFileRead::Status::read_error;
        result.error = errno;
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        result.status = DataFileRead::Status::not_regular;
        result.kind = kind_of(st.st_mode);
        return false;
    }
    return true;
}

// Reads into buf: up to capacity bytes, or with refuse_larger the whole file when it holds
// at most capacity bytes.
DataFileRead read_into(int fd, char* buf, size_t capacity, bool refuse_larger) {
    DataFileRead result;
    struct stat st {};
    if (!regular_file(fd, st, result)) return result;
    if (refuse_larger && st.st_size > static_cast<off_t>(capacity)) {
        result.status = DataFileRead::Status::too_large;
        return result;
    }
    const ssize_t got = read_fully(fd, buf, capacity);
    // A file that grew past its size, or one whose file system reports none.
    char more = 0;
    if (got >= 0 && refuse_larger && static_cast<size_t>(got) == capacity &&
        read_fully(fd, &more, 1) != 0) {
        result.status = DataFileRead::Status::too_large;
        return result;
    }
    if (got < 0) {
        result.status = DataFileRead::Status::read_error;
        result.error = errno;
        return result;
    }
    result.size = static_cast<size_t>(got);
    result.status = DataFileRead::Status::ok;
    return result;
}

// Reads the whole file into text when it holds at most limit bytes. The buffer follows the
// file's size (a small file costs a small buffer) and grows when the file does.
DataFileRead read_into(int fd, std::string& text, size_t limit) {
    DataFileRead result;
    struct stat st {};
    if (!regular_file(fd, st, result)) return result;
    if (st.st_size > static_cast<off_t>(limit)) {
        result.status = DataFileRead::Status::too_large;
        return result;
    }
    constexpr size_t kUnknownSize = 64 * 1024;
    const size_t expected = st.st_size > 0 ? static_cast<size_t>(st.st_size) : kUnknownSize;
    text.resize(std::min(limit, expected) + 1);
    size_t got = 0;
    for (;;) {
        const ssize_t n = read_fully(fd, text.data() + got, text.size() - got);
        if (n < 0) {
            result.status = DataFileRead::Status::read_error;
            result.error = errno;
            return result;
        }
        got += static_cast<size_t>(n);
        if (got < text.size()) break;  // the end of the file
        if (got > limit) {
            result.status = DataFileRead::Status::too_large;
            return result;
        }
        text.resize(std::min(limit + 1, text.size() * 2));
    }
    text.resize(got);
    result.size = got;
    result.status = DataFileRead::Status::ok;
    return result;
}

// Opens path without blocking and hands the descriptor to read, closing it after.
template <class Read>
DataFileRead with_open_file(const char* path, int access_mode, Read&& read) {
    const int fd = platform().open(path, access_mode | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        DataFileRead result;
        result.error = errno;
        return result;
    }
    const DataFileRead result = read(fd);
    const int error = errno;
    platform().close(fd);
    errno = error;
    return result;
}

}  // namespace

std::string DataFileRead::reason(size_t limit) const {
    switch (status) {
        case Status::ok:
            return "read";
        case Status::cannot_open:
            return std::string("cannot open it: ") + std::strerror(error);
        case Status::not_regular:
            return std::string("it is ") + kind + ", not a regular file";
        case Status::too_large:
            return "it is larger than " + std::to_string(limit) + " bytes";
        case Status::read_error:
            return std::string("cannot read it: ") + std::strerror(error);
    }
    return "?";
}

DataFileRead read_data_file(const char* path, void* buf, size_t capacity, bool refuse_larger,
                            int access_mode) {
    return with_open_file(path, access_mode, [&](int fd) {
        return read_into(fd, static_cast<char*>(buf), capacity, refuse_larger);
    });
}

DataFileRead read_data_file(const char* path, std::string& text, size_t limit) {
    text.clear();
    const DataFileRead result =
        with_open_file(path, O_RDONLY, [&](int fd) { return read_into(fd, text, limit); });
    if (!result.ok()) text.clear();
    return result;
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

std::string_view trim_blanks(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

template <class Integer>
bool parse_whole(std::string_view text, Integer& value) {
    // from_chars takes a '-' but no '+'; a sign alone or a second sign is no number.
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (text.empty() || text.front() < '0' || text.front() > '9') return false;
    }
    Integer parsed = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, parsed, 10);
    if (error != std::errc() || stop != end) return false;
    value = parsed;
    return true;
}

bool parse_decimal(std::string_view text, int32_t& value) {
    return parse_whole(text, value);
}
bool parse_decimal(std::string_view text, int64_t& value) {
    return parse_whole(text, value);
}

std::string printable(std::string_view text) {
    constexpr size_t kShown = 40;
    std::string shown;
    for (char c : text.substr(0, kShown)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7F && c != '\\') {
            shown += c;
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
            shown += escaped;
        }
    }
    if (text.size() > kShown) shown += "...";
    return shown;
}

}  // namespace zoomaf
