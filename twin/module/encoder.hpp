// The video encoder of the camera, as the focus service sees it: every frame it publishes
// the frame's two sharpness values (fv1, fv2) into channel 30. The values come from the
// control face or a source function, on the encoder's own frame clock; or the scene player
// (twin/module/scene_player.hpp) clocks the frames and hands each frame's values to encode().
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
    // 30 frames a second; 0: no clock of its own, the frames come through encode().
    uint64_t frame_period_ns = 33'333'333;
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
    // Publishes one frame's values now.
    void encode(FocusValues values);
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
