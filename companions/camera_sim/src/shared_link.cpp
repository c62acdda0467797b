#include <camera_sim/shared_link.h>

#include <algorithm>

namespace camera_sim {

using std::chrono::nanoseconds;

shared_link::shared_link(uint64_t rate_bytes_per_second, uint64_t bytes_of_buffer)
    : rate{rate_bytes_per_second}, buffer_time{time_of(bytes_of_buffer)} {}

nanoseconds shared_link::time_of(std::size_t wire_bytes) const noexcept {
    constexpr uint64_t second = 1'000'000'000;
    return nanoseconds{wire_bytes / rate * second + wire_bytes % rate * second / rate};
}

std::size_t shared_link::add_sender() {
    const std::lock_guard guard{mutex};
    earliest.push_back(time_point::max());
    return earliest.size() - 1;
}

shared_link::time_point shared_link::join(std::size_t sender) {
    // Read under the lock: otherwise the others' packets could pass the time before it is promised, and all that are
    // due meanwhile would come as one burst.
    const std::lock_guard guard{mutex};
    return earliest[sender] = std::max(std::chrono::steady_clock::now(), newest);
}

void shared_link::promise(std::size_t sender, time_point next) {
    {
        const std::lock_guard guard{mutex};
        earliest[sender] = next;
    }
    moved.notify_all();
}

void shared_link::leave(std::size_t sender) { promise(sender, time_point::max()); }

bool shared_link::is_first(std::size_t sender, time_point due) const {
    for (std::size_t other = 0; other < earliest.size(); ++other) {
        // Of two at one time the one that was added first goes first.
        if (other != sender && (earliest[other] < due || (earliest[other] == due && other < sender))) return false;
    }
    return true;
}

bool shared_link::take(time_point due, std::size_t wire_bytes) {
    newest = std::max(newest, due);
    const time_point begin = std::max(idle_from, newest);
    if (begin + time_of(wire_bytes) > newest + buffer_time) return false;
    idle_from = begin + time_of(wire_bytes);
    return true;
}

bool shared_link::pass(std::size_t sender, time_point due, std::size_t wire_bytes, const std::atomic<bool>& given_up) {
    std::unique_lock lock{mutex};
    due = std::max(due, newest);
    earliest[sender] = due;
    moved.notify_all();
    while (!is_first(sender, due)) {
        if (given_up) return false;
        moved.wait_for(lock, std::chrono::milliseconds{5}); // nobody announces that it gives up
    }
    return take(due, wire_bytes);
}

bool shared_link::pass_unscheduled(std::size_t wire_bytes) {
    const std::lock_guard guard{mutex};
    // Not ahead of those who have a schedule, who may be late.
    const time_point next = earliest.empty() ? newest : *std::ranges::min_element(earliest);
    return take(std::min(std::chrono::steady_clock::now(), next), wire_bytes);
}

} // namespace camera_sim
