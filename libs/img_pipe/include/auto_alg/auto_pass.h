// The automatic functions: they measure a delivered frame and say what exposure, gain, iris, white balance and focus
// should become. Frames are only read, and of those no more than some thousand places, whatever their size.
//
// A state belongs to one stream and to the thread that delivers its frames. Nothing fails: a format that cannot be
// sampled, or values that make no sense, change nothing. No pass allocates.
#pragma once
#include <auto_alg/temperature_table.h>
#include <img_pipe/format.h>

#include <cstdint>
#include <memory>

namespace auto_alg {

// In pixels of the image; all zero is the whole image. What lies outside the image does not count.
struct image_region {
    std::int64_t left = 0, top = 0, width = 0, height = 0;
    friend bool operator==(const image_region&, const image_region&) = default;
};

// `answered`, of each control: the camera was asked for what the last passes wanted of it, and whatever it made of that
// is the current value.
struct exposure_params { // us
    bool enable = false;
    float min = 0, max = 0, current = 0;
    float granularity = 0;       // smallest step of the camera; smaller changes than half of it are not made
    std::uint32_t reference = 0; // brightness to reach, 1 to 255; 0: default_reference
    bool answered = true;
};

struct gain_params {
    bool enable = false;
    float min = 0, max = 0, current = 0;
    bool logarithmic = true; // else a factor
    float per_doubling = 6;  // what doubles the signal, in the gain's unit
    bool answered = true;
};

struct iris_params {
    bool enable = false;
    std::int64_t min = 0, max = 0, current = 0;
    bool separate = false; // only where neither exposure nor gain moved
    bool answered = true;
};

struct white_balance_params {
    bool continuous = false;
    bool once = false;         // set beyond wb_done it is another request
    float gain[3] = {1, 1, 1}; // current, R, G, B
    // Whether the image still lacks the gains; they are then applied to what is measured.
    bool in_software = false;
    bool in_picture = true; // else gains in software are looked for all the same, but the brightness is without them
    // By colour temperature where there is a table; it outlives the pass.
    const temperature_table* table = nullptr;
    std::int32_t temperature = 6500, temperature_min = 3000, temperature_max = 10000; // K
};

struct focus_params {
    // A run for as long as it stays set; taken back, it ends where it is. Set beyond focus_done it is another request.
    bool request = false;
    std::int64_t position = 0;
    float min = 0, max = 0, step = 0;
    bool use_region = false;
};

// What the transform will do to the image, so that the consumer's picture is what is measured.
struct software_params {
    bool color_matrix_enable = false;
    float color_matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    float gamma = 1;
    std::int32_t brightness = 0, contrast = 0; // 1/256
};

struct auto_pass_params {
    std::uint64_t block_id = 0;
    std::uint64_t time_ns = 0;
    image_region region;
    exposure_params exposure;
    gain_params gain;
    iris_params iris;
    float frame_time_us = 30.0F; // carried along; nothing depends on it
    white_balance_params white_balance;
    focus_params focus;
    software_params software;
};

struct auto_pass_result {
    bool exposure_changed = false;
    std::int32_t exposure = 0; // us
    bool gain_changed = false;
    float gain = 0;
    bool iris_changed = false;
    std::int32_t iris = 0;
    bool wb_changed = false;
    float wb_r = 1, wb_g = 1, wb_b = 1;
    bool wb_done = false;          // white balance once has just finished
    std::int32_t temperature = -1; // K, of a white balance by temperature; -1 when there was none
    bool focus_changed = false;
    std::int64_t focus_position = 0;
    bool focus_running = false;
    bool focus_done = false; // the run has just finished
    float brightness = -1;   // 0 to 1; -1 when none was measured
};

class auto_alg_state {
public:
    auto_alg_state();
    ~auto_alg_state();
    auto_alg_state(const auto_alg_state&) = delete;
    auto_alg_state& operator=(const auto_alg_state&) = delete;

    struct contents;
    contents* get() const { return own.get(); } // null when memory was out

private:
    std::unique_ptr<contents> own;
};

auto_pass_result auto_pass(auto_alg_state& state, const img_pipe::img_descriptor& image,
                           const auto_pass_params& params);

// What was requested and is not done is taken back.
void end_auto_requests(auto_alg_state& state);

// The most focus positions that one run tries, its last move included.
extern const int focus_most_positions;

} // namespace auto_alg
