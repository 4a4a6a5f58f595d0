#include "service/safe_message.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace zoomaf {

SafeMessage& SafeMessage::text(const char* s) {
    while (*s != '\0' && size_ < sizeof line_ - 1) line_[size_++] = *s++;
    line_[size_] = '\0';
    return *this;
}

SafeMessage& SafeMessage::number(int64_t n) {
    char digits[24];
    size_t count = 0;
    // Negated digit by digit, so that the smallest int64 needs no positive counterpart.
    const bool negative = n < 0;
    do {
        const int64_t digit = n % 10;
        digits[count++] = static_cast<char>('0' + (negative ? -digit : digit));
        n /= 10;
    } while (n != 0);
    if (negative) digits[count++] = '-';
    char reversed[24];
    for (size_t i = 0; i < count; ++i) reversed[i] = digits[count - 1 - i];
    reversed[count] = '\0';
    return text(reversed);
}

SafeMessage& SafeMessage::error(int errnum) {
    const char* description = ::strerrordesc_np(errnum);
    return description != nullptr ? text(description) : text("error ").number(errnum);
}

void SafeMessage::say(Context context) const {
    zoomaf::say(context, line_);
}

void say(Context context, const char* text) {
    if (context == Context::thread) {
        std::fputs(text, stdout);
        return;
    }
    size_t left = std::strlen(text);
    while (left > 0) {
        const ssize_t written = ::write(STDOUT_FILENO, text, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        text += written;
        left -= static_cast<size_t>(written);
    }
}

}  // namespace zoomaf
