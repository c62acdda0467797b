#include "interruption.h"

#include "../failure/failure.h"

#include <algorithm>
#include <csignal>
#include <initializer_list>
#include <thread>

#include <unistd.h>

namespace cli {

namespace {

volatile std::sig_atomic_t interrupted = 0; // written by the handler alone

extern "C" void remember(int) {
    if (interrupted != 0) _exit(row_of(cause::interrupted).exit_code);
    interrupted = 1;
}

} // namespace

void watch_for_interruption() {
    struct sigaction action {};
    action.sa_handler = remember;
    sigemptyset(&action.sa_mask);
    // The library's calls go on: its own waits are bounded by those who ask.
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
}

bool is_interrupted() noexcept { return interrupted != 0; }

void stop_if_interrupted() {
    if (is_interrupted()) throw failure(cause::interrupted, "Interrupted.");
}

bool sleep_until(std::chrono::steady_clock::time_point due) {
    constexpr std::chrono::milliseconds slice{50};
    for (;;) {
        if (is_interrupted()) return false;
        const auto left = due - std::chrono::steady_clock::now();
        if (left <= left.zero()) return true;
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(left, slice));
    }
}

} // namespace cli
