// Closing one module takes turns: who closes what another thread is closing waits for that one.
#pragma once

#include <cstdint>
#include <mutex>

namespace GenTL::Producer {

// When either of two closes returns, nothing writes to the consumer's memory any more. Thread-safe.
class ClosingTurn final {
public:
    ClosingTurn() noexcept;
    // To be held over the whole of a close. A child made by fork does not wait: who held it in the parent never gives
    // it back there.
    [[nodiscard]] std::unique_lock<std::mutex> take();

private:
    std::mutex mutex; // outside all others of the module and of those below
    const int64_t owner;
};

} // namespace GenTL::Producer
