// Reading the service's data files (lens table, calibration files, DCC files, the
// self-study store) through the platform. A data file is read only when it is a regular
// file: it is opened without blocking (a FIFO in its place never stalls start-up), its kind
// is checked before a byte is read (a directory or /dev/zero is refused), and a read never
// takes more than the caller's limit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zoomaf {

struct DataFileRead {
    enum class Status {
        ok,
        cannot_open,  // error holds open's errno
        not_regular,  // kind says what it is
        too_large,    // larger than the limit (refuse_larger)
        read_error,   // error holds read's errno
    };
    Status status = Status::cannot_open;
    int error = 0;
    const char* kind = "";  // "a directory", "a FIFO" ... for not_regular
    size_t size = 0;        // bytes read into the buffer

    bool ok() const { return status == Status::ok; }
    // Why the file was not read, for messages: "it is a directory, not a regular file".
    std::string reason(size_t limit) const;
};

// Reads the regular file at path into buf, up to capacity bytes. With refuse_larger a file
// that holds more than capacity bytes is refused as too_large (what was read is not to be
// used); without it only its first capacity bytes are read. access_mode is O_RDONLY or
// O_RDWR (the mode the file is meant to be opened in).
DataFileRead read_data_file(const char* path, void* buf, size_t capacity, bool refuse_larger,
                            int access_mode);

// The whole regular file at path as text, when it holds at most limit bytes.
DataFileRead read_data_file(const char* path, std::string& text, size_t limit);

// The blanks around a number in a data file: spaces, tabs and CR (of a CR LF line end).
bool is_blank(char c);
std::string_view trim_blanks(std::string_view text);
// A whole decimal integer with an optional sign and nothing else, within the type's range.
bool parse_decimal(std::string_view text, int32_t& value);
bool parse_decimal(std::string_view text, int64_t& value);
// Text of a data file for a message: bytes outside printable ASCII as \xNN, at most 40 shown.
std::string printable(std::string_view text);

}  // namespace zoomaf
