// The writer's end of an assist channel, as another process of the camera holds it: the
// channel's segment and semaphore opened through the board (so with the board's salted
// keys), and a publish that puts a payload and raises the update flag under the semaphore.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zoomaf/vrel_sharememory.h"

namespace zoomaf::twin {

class Kernel;

class ChannelPublisher {
public:
    // Opens (creating when needed) channel memmode on the board, the way every process of the
    // camera does: whoever comes first creates the segment and a free semaphore, the others
    // join without touching the value. Throws std::invalid_argument on a channel outside
    // 0..33 and std::runtime_error when the board refuses the segment or the semaphore.
    ChannelPublisher(Kernel& board, int memmode);

    // Copies payload (at most the channel's length; shorter payloads leave the rest as it
    // was) and sets the update flag to 1, holding the semaphore. Returns false, changing
    // nothing, when the semaphore cannot be taken (for example after a test removed it).
    bool publish(const void* payload, size_t size);

    int memmode() const { return memmode_; }
    int32_t length() const { return length_; }
    int sem_id() const { return sem_id_; }
    const uint8_t* segment() const { return segment_; }

private:
    Kernel& board_;
    int memmode_;
    int32_t length_;
    int sem_id_ = -1;
    uint8_t* segment_ = nullptr;
};

}  // namespace zoomaf::twin
