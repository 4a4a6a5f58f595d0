// Things on the board that happen on their own period of board time (the laser's
// measurements, the encoder's frames). The board keeps them here and runs those that fell
// due whenever its clock moves: in a sleep of the service, in real time as in virtual time,
// or when a test advances the clock. No lock of its own: the board calls it under the board
// mutex and runs the callbacks it hands out after releasing that mutex.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace zoomaf::twin {

class PeriodicEvents {
public:
    // Called with the board time at which it runs (at or after its due time).
    using Callback = std::function<void(uint64_t now_ns)>;

    // First due at first_due_ns, then every period_ns (> 0). Returns the event's id.
    // Throws std::invalid_argument on a period of 0.
    int add(uint64_t first_due_ns, uint64_t period_ns, Callback callback);
    // Forgets the event; an unknown id is ignored.
    void remove(int id);

    // The callbacks due at now_ns, earliest first (ties by id), each once: an event that
    // fell due several times since it last ran runs once, as a writer that overwrote its
    // channel several times is seen once. Each is rescheduled to its first due time after
    // now_ns.
    std::vector<std::shared_ptr<const Callback>> take_due(uint64_t now_ns);

    size_t size() const { return events_.size(); }

private:
    struct Event {
        uint64_t due_ns;
        uint64_t period_ns;
        std::shared_ptr<const Callback> callback;
    };
    int next_id_ = 1;
    std::map<int, Event> events_;
};

}  // namespace zoomaf::twin
