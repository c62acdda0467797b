// Closing one module takes turns: who closes what is below it, or above, waits for the thread that is at it.
#pragma once

#include <cstdint>
#include <mutex>

namespace GenTL::Producer {

// When a close returns, nothing below its module writes to the consumer's memory any more. Thread-safe.
class ClosingTurn final {
public:
    ClosingTurn() noexcept;
    // To be held over the whole of a close. A child made by fork does not wait: who held it in the parent never gives
    // it back there. Nor does the thread that has it: what it waits for may be interrupted by a signal whose handler
    // ends the process, with all that closes the library then.
    [[nodiscard]] std::unique_lock<std::recursive_mutex> take();

private:
    std::recursive_mutex mutex; // guards the turn alone; outside all others of the module and of those below
    const int64_t owner;
};

} // namespace GenTL::Producer
