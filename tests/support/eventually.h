// To wait for what comes when it comes.
#pragma once

#include <chrono>
#include <thread>

namespace test_support {

// False when it is not so after the time: a test that waits for ever has failed.
template <class Condition>
bool eventually(Condition&& condition, std::chrono::milliseconds limit = std::chrono::seconds{30}) {
    const auto until = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds{5});
    }
    return true;
}

} // namespace test_support
