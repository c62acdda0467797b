// Frames at a rate of one's own: the camera's software trigger, set up, sent and put back.
#pragma once

#include "node_map.h"

#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace cli {

// Thread-bound but for the questions; commands are sent by a thread of its own.
class software_trigger final {
public:
    // Sets the camera's triggers so that each command starts a frame. Throws failure(cause::feature) with what the
    // camera lacks; nothing is changed then.
    software_trigger(const gentl_library& lib, void* port, double rate_hz);
    // Ends sending. What was changed stays changed, unless put_back was called.
    ~software_trigger();
    software_trigger(const software_trigger&) = delete;
    software_trigger& operator=(const software_trigger&) = delete;

    // From now on at the rate, on a thread of its own: late ones are left out rather than bunched.
    void start();
    void stop();
    // The features as they were; to be called while the camera can be written to. Throws failure.
    void put_back();

    [[nodiscard]] uint64_t sent() const noexcept { return sent_count; }
    [[nodiscard]] uint64_t left_out() const noexcept { return late_count; }
    // What ended the sending, if anything did but stop().
    void throw_if_failed() const;

private:
    void choose();
    void change(const std::string& feature, const std::string& value);
    void send(const std::stop_token& end);

    node_map nodes; // of its own: a document serves one thread at a time
    const double rate;
    std::vector<std::pair<std::string, std::string>> before; // in the order of the changes
    std::atomic<uint64_t> sent_count{0}, late_count{0};
    mutable std::mutex problem_mutex; // guards `problem`
    std::exception_ptr problem;
    std::jthread thread;
};

} // namespace cli
