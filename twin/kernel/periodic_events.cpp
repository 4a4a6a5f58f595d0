#include "twin/kernel/periodic_events.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace zoomaf::twin {

int PeriodicEvents::add(uint64_t first_due_ns, uint64_t period_ns, Callback callback) {
    if (period_ns == 0) throw std::invalid_argument("twin: a periodic event needs a period");
    const int id = next_id_++;
    events_.emplace(
        id, Event{first_due_ns, period_ns, std::make_shared<const Callback>(std::move(callback))});
    return id;
}

void PeriodicEvents::remove(int id) {
    events_.erase(id);
}

std::vector<std::shared_ptr<const PeriodicEvents::Callback>> PeriodicEvents::take_due(
    uint64_t now_ns) {
    std::vector<std::pair<uint64_t, int>> due;  // (due time, id): map order breaks ties by id
    for (const auto& [id, event] : events_) {
        if (event.due_ns <= now_ns) due.emplace_back(event.due_ns, id);
    }
    std::stable_sort(due.begin(), due.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::shared_ptr<const Callback>> callbacks;
    callbacks.reserve(due.size());
    for (const auto& [due_ns, id] : due) {
        Event& event = events_.at(id);
        const uint64_t missed = (now_ns - event.due_ns) / event.period_ns;
        event.due_ns += (missed + 1) * event.period_ns;
        callbacks.push_back(event.callback);
    }
    return callbacks;
}

}  // namespace zoomaf::twin
