// Tone mapping: a global photoreceptor operator on mosaics and grey images. A sample p in 0 to 1 becomes p / (p + s),
// stretched to the full range; the adaptation s depends on the luminance around the sample, on the frame's mean and on
// two parameters of the user. What is measured on a frame is smoothed over the frames of a stream.
//
// Thread-bound: a state belongs to one stream. Nothing here fails but for want of memory, which is said where it can.
#pragma once
#include <img_pipe/format.h>

#include <cstdint>
#include <memory>

namespace img_pipe {

struct tonemapping_factors {
    float intensity;         // -8 to 8; above 0 lifts the shadows
    float global_brightness; // 0 to 1: share of the frame's mean in the adaptation
    float mean;              // luminance of the frame, 0 to 1
    float exponent;          // of the adaptation; 0: nothing is applied
    float scale;             // stretch; 0: nothing is applied
    float offset;
};

// A value smoothed over frames: a fifth of the way to each new one, or to the median of the last 21 once there are as
// many.
struct tonemap_filter {
    static constexpr std::uint32_t places = 21;
    float value;
    float history[places]; // a ring from `oldest` on once it is full
    std::uint32_t count;
    std::uint32_t oldest;
};
// What the filter says after `value`; a value that is no finite number changes nothing.
float smooth(float value, tonemap_filter& filter);

// The adaptation by luminance, and what follows from it. Each table is made when it is first asked for.
class adaptation_table {
public:
    static constexpr std::int32_t places = 65536;

    // Holds until one of the four differs.
    void build(float intensity, float global_brightness, float mean, float exponent);
    // For luminance k / 65535. Above 0 and finite whatever the factors are.
    [[nodiscard]] float at(std::int32_t k) const;

    // `places` entries by luminance, in parts of full scale and of 65535. Null when memory is out.
    const float* adaptation();
    const float* adaptation_scaled();
    // The byte that sample v becomes at luminance l, at [256 * l + v]. Null when memory is out.
    const std::uint8_t* byte_table(float scale, float offset);
    // Takes the memory of the one or the other table; false when it is out.
    bool reserve(bool as_bytes);

private:
    struct word_tables {
        float adaptation[places];
        float scaled[places];
    };
    struct bytes {
        std::uint8_t table[65536];
    };
    bool make_words();

    double factor = 1, share = 1, constant = 0, power = 1; // (factor * (share * k + constant)) ^ power
    float intensity = 0, global_brightness = 0, mean = 0, exponent = 0;
    bool words_valid = false, bytes_valid = false;
    float bytes_scale = 0, bytes_offset = 0; // that byte_table was made with
    std::unique_ptr<word_tables> words;
    std::unique_ptr<bytes> byte_places;
};

struct tonemapping_state {
    tonemap_filter exponent_filter{};
    tonemap_filter low_filter{};
    tonemap_filter high_filter{};
    bool initialised = false; // the filters have their start values
    adaptation_table table;
};

struct frame_statistics {
    float mean;
    float exponent; // 0: the frame has no usable statistics
};
// Measures one pixel in 64. `image` is valid, and grey or a mosaic.
frame_statistics measure_frame(const img_descriptor& image);

// The user's parameters brought into their ranges; what is no number is 0.
float bounded_intensity(float value);
float bounded_global_brightness(float value);

// The factors of the stream's next frame; all zero when no mapping is possible. The state's table holds the adaptation.
tonemapping_factors calc_tonemapping_factors(const img_descriptor& image, tonemapping_state& state, float intensity,
                                             float global_brightness);

} // namespace img_pipe
