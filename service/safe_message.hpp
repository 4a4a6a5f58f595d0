// Messages that the fatal-signal path can print too. A line is built in place, without
// allocating, and printed either with stdio (on a thread, in order with every other
// message) or with one write(2) to standard output (in a signal handler, where stdio may
// be in the middle of the call that was interrupted). The bytes are the same either way.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zoomaf {

enum class Context { thread, signal_handler };

class SafeMessage {
public:
    SafeMessage& text(const char* s);
    SafeMessage& number(int64_t n);
    // The system's text of an errno value (from a static table: no locale, no allocation).
    SafeMessage& error(int errnum);
    void say(Context context) const;

private:
    char line_[256];
    size_t size_ = 0;
};

// Prints a fixed text (puts-style lines carry their own "\n").
void say(Context context, const char* text);

}  // namespace zoomaf
