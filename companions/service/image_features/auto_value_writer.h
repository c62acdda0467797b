// Brings what the automatic functions have computed to the camera, and the camera's values back to the settings block,
// on a thread of its own: neither the stream nor other calls wait for it.
#pragma once

#include "camera_nodes.h"
#include "camera_settings.h"
#include "known_answer.h"

#include <gds_helper/line_budget.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

namespace image_features {

// Thread-safe, but for what comes before start.
class auto_value_writer final {
public:
    // `camera` is what the log calls the camera. `pause`: for which a camera that has not answered is left alone.
    auto_value_writer(std::shared_ptr<camera_settings> block, std::unique_ptr<camera_nodes> nodes, std::string camera,
                      std::shared_ptr<gds_helper::log::line_budget> log_lines,
                      std::chrono::milliseconds pause = std::chrono::milliseconds{1000});
    // Waits for the camera access under way: whoever owns the camera cancels that first.
    ~auto_value_writer();
    auto_value_writer(const auto_value_writer&) = delete;
    auto_value_writer& operator=(const auto_value_writer&) = delete;

    // The camera's values into the block. Before start only.
    void read_camera();
    void start();

    // Any thread; none waits. Requests that come meanwhile are done in one: the newest values win.
    void write_results();
    // A function was switched: one that was given up is tried again.
    void settings_changed();
    // Somebody else has written to the camera.
    void camera_written();
    // Whether nothing is to be written or read, now or after a pause.
    [[nodiscard]] bool is_idle();

private:
    enum function : uint8_t { exposure, gain, iris, focus, balance, functions };
    struct attempt {
        bool given_up = false;
        bool told_hindered = false;
        unsigned failures = 0; // in a row
    };

    void run(const std::stop_token& stop);
    // Until something is due; false at the end.
    bool wait(std::unique_lock<std::mutex>& lock, const std::stop_token& stop);
    void write_all(const std::stop_token& stop);
    template <class T>
    void write_number(camera_nodes::control which, std::size_t result_at, std::size_t current_at);
    void write_gains();
    // Of the functions that run once; what one could not bring to the camera when it was over, it never does.
    void write_focus();
    void write_balance();
    // Counts and tells what came of a write; true when the camera has taken it.
    bool judge(function which, const std::error_code& error);
    template <class T>
    void take_number(camera_nodes::control which, double value, std::size_t current_at, std::size_t result_at);
    void take_balance(const camera_nodes::balance& gains);

    const std::shared_ptr<camera_settings> settings;
    const gds_producer::settings_block block;
    const std::unique_ptr<camera_nodes> nodes; // the thread's, once it runs
    const std::string camera_name;
    const std::shared_ptr<gds_helper::log::line_budget> lines;
    const std::chrono::milliseconds retry_pause;
    std::array<attempt, functions> attempts; // the thread's, as are those up to the mutex
    // Either is asked anew after about a hundred passes, 5 s at the soonest: of one value that does not move all but
    // every 21st pass ask for nothing, the white balance asks with each.
    std::array<known_answer<1, 4>, balance> answers; // of the functions of one value
    known_answer<3, 100> balance_answer;
    bool unfinished = false;                          // in this turn: a result is to be tried again
    bool written = false;                             // in this turn: the camera was to take a value
    unsigned unread = 0;                              // looks at the camera without an answer, in a row
    unsigned failures = 0;                            // turns that ended for lack of memory, in a row
    std::chrono::steady_clock::time_point refreshed;  // when the camera's values were read last
    std::chrono::steady_clock::time_point left_alone; // until then

    std::mutex mutex; // guards what follows
    std::condition_variable_any wake;
    bool results_wait = false;
    bool rearm = false;
    bool stale = false; // the camera may hold other values than the block
    bool working = false;
    std::jthread thread;
};

} // namespace image_features
