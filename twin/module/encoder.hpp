// The video encoder of the camera, as the focus service sees it: every frame it publishes
// the frame's two sharpness values (fv1, fv2) into channel 30. For now the values come from
// the control face or a source function; the optics that make them peak at the true focus
// plug in as such a source.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>

#include "twin/module/channel_publisher.hpp"

namespace zoomaf::twin {

class Kernel;

struct FocusValues {
    int64_t fv1 = 0;
    int64_t fv2 = 0;
};

struct EncoderConfig {
    uint64_t frame_period_ns = 33'333'333;  // 30 frames a second
};

class Encoder {
public:
    // Called for every frame with the board time; runs outside the board mutex, so it may
    // read the board (the focus motor's position, say).
    using Source = std::function<FocusValues(uint64_t now_ns)>;

    // Opens channel 30 on the board and publishes from one frame period on. Must go before
    // the board does. Throws what ChannelPublisher throws.
    explicit Encoder(Kernel& board, EncoderConfig config = {});
    ~Encoder();
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;

    // ---- control face ----
    // Fixed values for the following frames (drops a source).
    void set_focus_values(int64_t fv1, int64_t fv2);
    void set_source(Source source);
    uint64_t frames() const;  // frames published so far

private:
    void encode_frame(uint64_t now_ns);

    Kernel& board_;
    ChannelPublisher channel_;
    mutable std::mutex mutex_;
    FocusValues fixed_{};
    Source source_;
    uint64_t frames_ = 0;
    int event_ = 0;
};

}  // namespace zoomaf::twin
