// The block of settings that library and service share: the functions that a user switches, their current values and
// limits, and the results of the automatic functions. Offsets and widths are a contract between the two processes, and
// so is who writes what: the service everything but the results, the library the results, their flags and what its own
// features set (drop_incomplete_frames).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

namespace auto_alg {

// Both processes may write at any time, so every access is atomic. Values are the other process's word: whoever reads
// one brings it into its bounds. Thread-safe.
class settings_block final {
public:
    // Flags are 32 bits wide, zero or not. Where no width is said: flags unsigned 32, numbers as their comment says.
    enum offset : std::size_t {
        overlay = 0,
        drop_incomplete_frames = 8,
        master_enable = 12,
        brightness = 16, // signed 32, 1/256 of full scale
        gamma = 20,      // float
        saturation = 24, // float, percent
        hue = 28,        // float, degrees
        sharpness = 32,  // signed 32
        denoise = 36,    // signed 32
        color_matrix_enable = 40,
        color_matrix = 44, // 9 floats, row by row
        tonemapping_enable = 80,
        tonemapping_intensity = 84,  // float
        tonemapping_brightness = 88, // float
        frame_rate = 96,             // 64-bit float, frames per second; 0 when unknown
        auto_exposure = 104,
        exposure_by_frame_rate = 108, // the upper exposure limit follows the frame rate
        exposure_reference = 112,     // unsigned 32: mean brightness to reach, 1 to 255; 0: the default
        balance_in_software = 116,    // the white balance gains are applied to the image here, not by the camera
        exposure = 120,               // float, us
        exposure_min = 124,           // float
        exposure_max = 128,           // float
        exposure_granularity = 132,   // unsigned 32, us
        auto_gain = 136,
        gain = 140,     // float, dB
        gain_min = 144, // float
        gain_max = 148, // float
        auto_iris = 152,
        iris = 160,               // signed 64, the camera's unit, larger is brighter
        iris_min = 168,           // signed 64
        iris_max = 176,           // signed 64
        iris_separate = 184,      // steered after exposure and gain
        auto_white_balance = 188, // continuous
        white_balance_once = 192,
        balance_red = 196,    // float, 1 neutral
        balance_green = 200,  // float
        balance_blue = 204,   // float
        focus_request = 208,  // one run for as long as it is set
        focus_position = 216, // signed 64, the camera's unit
        focus_min = 224,      // float
        focus_max = 232,      // float
        focus_step = 240,     // float
        focus_region = 248,   // the region is that of the focus, too
        region_set = 252,
        region_left = 256,            // signed 64
        region_top = 264,             // signed 64
        region_width = 272,           // signed 64
        region_height = 280,          // signed 64
        focus_running = 288,          // written by the library
        result_gain = 296,            // float
        result_exposure = 300,        // float
        result_iris = 304,            // signed 64
        result_balance_red = 312,     // float
        result_balance_green = 316,   // float
        result_balance_blue = 320,    // float
        white_balance_finished = 324, // set by the library
        result_focus = 328,           // signed 64
        focus_finished = 336,         // set by the library

        // Where the block is that large, see has_temperatures.
        balance_by_temperature = 512, // else by what is grey
        temperature_min = 516,        // unsigned 32, K
        temperature_max = 520,        // unsigned 32, K
        result_temperature = 524,     // unsigned 32, K, of the last pass, 0 before: written by the library
        temperature_lights = 528,     // light_count times: unsigned 32, K, 0 for none, and gains of red, green, blue
    };
    static constexpr std::size_t minimum_size = 344;
    static constexpr std::size_t light_count = 8, light_size = 16;
    static constexpr std::size_t full_size = temperature_lights + light_count * light_size;

    settings_block() = default;
    // The bytes outlive the view; at least minimum_size of them, aligned to 8.
    explicit settings_block(std::span<std::byte> memory) : bytes(memory) {}
    explicit operator bool() const noexcept { return bytes.size() >= minimum_size; }

    [[nodiscard]] bool has_temperatures() const noexcept { return bytes.size() >= full_size; }

    [[nodiscard]] bool flag(std::size_t at) const noexcept { return word(at) != 0; }
    void set_flag(std::size_t at, bool value) const noexcept { store(at, std::uint32_t{value}); }

    [[nodiscard]] std::uint32_t word(std::size_t at) const noexcept { return load<std::uint32_t>(at); }
    [[nodiscard]] std::int32_t integer(std::size_t at) const noexcept { return load<std::int32_t>(at); }
    [[nodiscard]] std::int64_t wide_integer(std::size_t at) const noexcept { return load<std::int64_t>(at); }
    [[nodiscard]] float real(std::size_t at) const noexcept { return load<float>(at); }
    [[nodiscard]] double wide_real(std::size_t at) const noexcept { return load<double>(at); }

    template <class T>
    void store(std::size_t at, T value) const noexcept {
        place<T>(at).store(value, std::memory_order_release);
    }
    template <class T>
    [[nodiscard]] T load(std::size_t at) const noexcept {
        return place<T>(at).load(std::memory_order_acquire);
    }
    // Gives what was there; what the caller wrote before is visible to whoever sees the new value.
    template <class T>
    T exchange(std::size_t at, T value) const noexcept {
        return place<T>(at).exchange(value, std::memory_order_acq_rel);
    }

    // Only if the value is still the expected one, bit by bit.
    template <class T>
    bool replace(std::size_t at, T expected, T value) const noexcept {
        return place<T>(at).compare_exchange_strong(expected, value, std::memory_order_acq_rel);
    }

    // Every parameter of the transform neutral, gains 1, everything else 0.
    void set_neutral() const noexcept {
        for (std::size_t at = 0; at < minimum_size; at += 4) store(at, std::uint32_t{0});
        store(gamma, 1.0F);
        store(saturation, 100.0F);
        for (std::size_t i = 0; i < 9; i += 4) store(color_matrix + 4 * i, 1.0F);
        for (const offset at :
             {balance_red, balance_green, balance_blue, result_balance_red, result_balance_green, result_balance_blue})
            store(at, 1.0F);
        if (!has_temperatures()) return;
        for (std::size_t at = balance_by_temperature; at < full_size; at += 4) store(at, std::uint32_t{0});
        store(temperature_min, std::uint32_t{3000});
        store(temperature_max, std::uint32_t{10000});
        for (std::size_t at = temperature_lights; at < full_size; at += light_size)
            for (std::size_t i = 4; i < light_size; i += 4) store(at + i, 1.0F);
    }

private:
    template <class T>
    [[nodiscard]] std::atomic_ref<T> place(std::size_t at) const noexcept {
        static_assert(std::atomic_ref<T>::is_always_lock_free);
        return std::atomic_ref<T>(*reinterpret_cast<T*>(bytes.data() + at));
    }
    std::span<std::byte> bytes;
};

} // namespace auto_alg
