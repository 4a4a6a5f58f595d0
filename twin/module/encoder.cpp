#include "twin/module/encoder.hpp"

#include "twin/kernel/kernel.hpp"

namespace zoomaf::twin {

Encoder::Encoder(Kernel& board, EncoderConfig config)
    : board_(board), channel_(board, VREL_FV_CHANNEL) {
    event_ = board_.add_periodic(config.frame_period_ns,
                                 [this](uint64_t now_ns) { encode_frame(now_ns); });
}

Encoder::~Encoder() {
    board_.cancel_periodic(event_);
}

void Encoder::set_focus_values(int64_t fv1, int64_t fv2) {
    std::lock_guard lock(mutex_);
    fixed_ = FocusValues{fv1, fv2};
    source_ = nullptr;
}

void Encoder::set_source(Source source) {
    std::lock_guard lock(mutex_);
    source_ = std::move(source);
}

uint64_t Encoder::frames() const {
    std::lock_guard lock(mutex_);
    return frames_;
}

void Encoder::encode_frame(uint64_t now_ns) {
    Source source;
    FocusValues values;
    {
        std::lock_guard lock(mutex_);
        source = source_;
        values = fixed_;
    }
    if (source) values = source(now_ns);  // without the lock: the source may take its time
    VrelFocusValues payload{};
    payload.fv1 = values.fv1;
    payload.fv2 = values.fv2;
    if (!channel_.publish(&payload, sizeof payload)) return;
    std::lock_guard lock(mutex_);
    ++frames_;
}

}  // namespace zoomaf::twin
