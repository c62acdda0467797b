// A pipe's private memory: kernels of its level, its share of the work pool, tables and temporary images.
#pragma once
#include <img_pipe/kernel_params.h>
#include <img_pipe/tonemapping.h>
#include <img_pipe/transform_pipe.h>
#include <img_pipe/work_pool.h>

#include <array>
#include <cstddef>
#include <memory>

namespace img_pipe {

// The exponent that a value stands for: within bounds that powers can be taken with, neutral for what is no number.
float gamma_within(float value);

// Contrast and brightness, then gamma, of a sample in 0 to 65535.
struct tone_tables {
    std::int32_t contrast = 0, brightness = 0;
    float gamma_value = -1; // none built
    std::uint8_t bytes[256];
    std::uint16_t words[65536];
};

class lut_context {
public:
    // Null when memory is out; the tables of the last value are kept.
    const gamma_tables* gamma(float value);
    // Of the last gamma(), for the kernels: a curve or null, and its entries or the tables' own.
    const power_curve* gamma_curve() const { return has_curve ? &power_built->curve : nullptr; }
    const std::uint16_t* gamma_words() const { return has_curve ? power_built->entries : gamma_built->words; }
    const tone_tables* tone(std::int32_t contrast, std::int32_t brightness, float gamma);
    // Square roots of the linear values of companded samples, whose 12 bits stand at the top of the index.
    const std::uint16_t* companded_roots();
    // The stream's state, made on first use.
    tonemapping_state* tonemapping();

private:
    std::unique_ptr<tonemapping_state> tonemapping_made;
    std::unique_ptr<gamma_tables> gamma_built;
    struct curve_and_entries {
        power_curve curve;
        std::uint16_t entries[65536];
    };
    std::unique_ptr<curve_and_entries> power_built;
    bool has_curve = false; // power_built is that of gamma_built
    std::unique_ptr<tone_tables> tone_built;
    std::unique_ptr<std::array<std::uint16_t, 65536>> roots_built;
};

class transform_state {
public:
    void set_level(std::uint32_t wanted); // 0: the processor's own
    std::uint32_t level() const { return mask; }

    kernel_fn find(kernel_slot slot, std::uint32_t destination, std::uint32_t source, std::int32_t width,
                   std::int32_t height) const;
    // Pieces that an image of `height` lines is worked on in.
    line_split split(std::int32_t height) const;

    // Memory of `pieces` times `bytes`, aligned to 64, and `shared` bytes; false when memory is out. What is there
    // already is kept where it is enough.
    bool reserve(std::int32_t pieces, std::size_t bytes, std::size_t shared);
    std::byte* piece_memory(std::int32_t piece) const { return base + static_cast<std::size_t>(piece) * piece_bytes; }
    std::byte* shared_memory() const { return base + shared_at; }
    void release_memory();
    // A temporary image of `format` and the source's size, kept for the next frame; false when memory is out.
    bool tone_image(std::uint32_t format, const img_descriptor& source, img_descriptor& view);
    std::uint64_t allocations() const { return taken; }

    concurrency threads;
    lut_context luts;

private:
    filter_table table;
    std::uint32_t mask = 0; // no table yet
    std::uint32_t asked = 0;
    std::unique_ptr<std::byte[]> memory;
    std::size_t room = 0; // bytes in `memory` from `base` on
    std::byte* base = nullptr;
    std::size_t piece_bytes = 0, shared_at = 0;
    std::unique_ptr<std::uint8_t[]> tone_memory;
    std::size_t tone_room = 0;
    std::uint64_t taken = 0;
};

} // namespace img_pipe
