// A camera in front of a scene, and the service beside it, for the automatic functions: light falls for the exposure
// time through iris and lens on pixels that count electrons, have a full well, noise and a black level; what the
// library writes into the settings block reaches the camera and shows two frames later.
#pragma once
#include "kernel_test.h"

#include <auto_alg/frame_pass.h>
#include <img_pipe/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace auto_test {

using namespace auto_alg;
using namespace img_pipe;
using block = settings_block;

constexpr int width = 256, height = 128;
constexpr double full_well = 10000, read_noise = 6, black = 2.0 / 255; // electrons; black level of full scale

struct camera_values {
    double exposure = 1000, gain = 0, iris = 800;
    double balance[3] = {1, 1, 1};
    std::int64_t focus = 0;
};

class steered_camera final : public IAutoValuesSender {
public:
    steered_camera() {
        settings.set_neutral();
        settings.store(block::frame_rate, rate);
        settings.store(block::exposure_min, 10.0F);
        settings.store(block::exposure_max, 1e6F);
        settings.store(block::gain_max, 24.0F);
        settings.store(block::iris_min, std::int64_t{1});
        settings.store(block::iris_max, std::int64_t{6400});
        for (float& n : noise) n = static_cast<float>(gauss(random));
    }

    // The scene: reflectance in 0 to 1 of a pixel, per colour of the mosaic (0 red, 1 green, 2 blue).
    std::function<double(int x, int y, int colour)> scene = [](int x, int y, int) {
        return 0.15 + 0.6 * (0.5 + 0.5 * std::sin(x * 0.11) * std::cos(y * 0.07));
    };
    double light = 1;   // electrons per us at reflectance 1 and iris 800
    double flicker = 0; // modulation at 100 Hz
    double rate = 30;
    double best_focus = 0, blur_per_unit = 0; // pixels of blur for each unit out of focus
    std::uint32_t format = fcc("RGGB");
    bool balances = true; // the camera has white balance of its own
    // What the camera makes of what it is asked for. NaN: it refuses.
    std::function<double(double)> takes_exposure = [](double us) { return us; };
    std::function<double(double)> takes_gain = [](double decibels) { return decibels; };
    std::uint64_t turn = 0; // frames until the service answers; what is sent meanwhile waits for its next turn
    const temperature_table* table = nullptr;

    // Sets what the camera has now, as the service would.
    void set(const camera_values& v) {
        current = v;
        pending.clear();
        std::memcpy(handled, memory, sizeof handled);
        tell();
    }
    void change_scene(std::function<double(int, int, int)> to) {
        scene = std::move(to);
        reflected.clear();
    }
    const camera_values& values() const { return current; }

    // One frame through the library. Gives its result.
    auto_pass_result frame() {
        ++block_id;
        const double time = static_cast<double>(block_id) / rate;
        while (!pending.empty() && pending.front().first <= block_id) {
            in_force = pending.front().second;
            pending.pop_front();
        }
        if (pending.empty()) in_force = current;
        take(in_force, time);
        if (!auto_function_is_on(settings)) {
            end_auto_passes(settings, state);
            return {};
        }
        const auto_pass_result r =
            run_auto_pass(settings, state, picture(), block_id, static_cast<std::uint64_t>(time * 1e9), *this, table);
        serve();
        if (r.brightness >= 0) {
            ++passes;
            brightness = r.brightness;
        }
        return r;
    }
    // Frames until `n` more passes have measured, or would have, were anything on.
    void run(int n) {
        const int end = passes + n;
        for (int frames = static_cast<int>(n * (0.25 * rate + 3)); passes < end && frames > 0; --frames) (void)frame();
    }
    img_descriptor picture() {
        return make_view(pixels.data(), static_cast<std::uint32_t>(pixels.size()), format, width, height);
    }
    void send_write_auto_values_cmd() override { ++commands, sent = true; }

    // The exposure at which the mean is what the library aims at, found without noise.
    double right_exposure(double wanted = 102.0 / 255) {
        look(0);
        double low = 0.01, high = 1e8;
        for (int i = 0; i < 60; ++i) {
            const double e = std::sqrt(low * high);
            double sum = 0;
            for (const double r : reflected) sum += std::min(1.0, light * e * r / full_well + black);
            (sum / (width * height) < wanted ? low : high) = e;
        }
        return low;
    }

    alignas(8) std::byte memory[block::full_size]{};
    settings_block settings{std::span<std::byte>(memory)};
    auto_alg_state state;
    std::uint64_t block_id = 0;
    int passes = 0, commands = 0;
    double brightness = -1;
    camera_values in_force; // during the last frame

private:
    static int colour(int x, int y) { return x % 2 + y % 2; }

    // `each` with the places of a current value and its result, and what the camera has.
    void for_each_value(const auto& each) {
        each(block::exposure, block::result_exposure, float{}, current.exposure);
        each(block::gain, block::result_gain, float{}, current.gain);
        each(block::iris, block::result_iris, std::int64_t{}, current.iris);
        for (std::size_t i = 0; i < 3; ++i)
            each(block::balance_red + 4 * i, block::result_balance_red + 4 * i, float{}, current.balance[i]);
        each(block::focus_position, block::result_focus, std::int64_t{}, current.focus);
    }

    // A result that equals the current value is no order, and one that came after the turn's begin stays one.
    void tell() {
        const settings_block begin{std::span<std::byte>(handled)};
        for_each_value([&](std::size_t at, std::size_t result_at, auto type, auto value) {
            settings.store(at, static_cast<decltype(type)>(value));
            settings.replace(result_at, begin.load<decltype(type)>(result_at), static_cast<decltype(type)>(value));
        });
    }

    void serve() {
        if (sent && answers_at == 0) {
            sent = false;
            std::memcpy(handled, memory, sizeof handled);
            answers_at = block_id + turn;
        }
        if (answers_at == 0 || block_id < answers_at) return;
        answers_at = 0;
        const settings_block begin{std::span<std::byte>(handled)};
        for_each_value([&](std::size_t at, std::size_t result_at, auto type, auto& value) {
            const auto result = begin.load<decltype(type)>(result_at);
            if (result == begin.load<decltype(type)>(at)) return;
            auto taken = static_cast<std::remove_reference_t<decltype(value)>>(result);
            if (at == block::exposure) taken = takes_exposure(taken);
            if (at == block::gain) taken = takes_gain(taken);
            if (taken >= 0 || taken < 0)
                value = taken;
            else
                begin.store(result_at, std::numeric_limits<decltype(type)>::max()); // the order stays
        });
        pending.emplace_back(block_id + 2, current);
        tell();
    }

    void take(const camera_values& v, double time) {
        const double seconds = v.exposure * 1e-6, w = 2 * std::numbers::pi * 100;
        const double lamp =
            1 + flicker * (std::cos(w * time) - std::cos(w * (time + seconds))) / std::max(w * seconds, 1e-9);
        const double electrons = light * lamp * v.exposure * v.iris / 800, gain = std::pow(2.0, v.gain / 6);
        const double blur = blur_per_unit * std::abs(static_cast<double>(v.focus) - best_focus);
        const bool floats = format == fcc("RGf0"), words = format == fcc("RG16");
        look(blur);
        pixels.resize(image_size(format, width, height));
        std::size_t at = random();
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const int c = colour(x, y);
                const double photons = electrons * reflected[static_cast<std::size_t>(y * width + x)];
                const double seen = photons + std::sqrt(photons + read_noise * read_noise) *
                                                  static_cast<double>(noise[at++ % std::size(noise)]);
                double value = std::clamp(seen, 0.0, full_well) / full_well * gain + black;
                if (balances) value *= v.balance[c];
                value = std::clamp(value, 0.0, 1.0);
                const std::size_t i = static_cast<std::size_t>(y * width + x);
                if (floats)
                    kernel_test::put_real(&pixels[4 * i], static_cast<float>(value));
                else if (words)
                    kernel_test::put_word(&pixels[2 * i], static_cast<unsigned>(value * 65535));
                else
                    pixels[i] = static_cast<std::uint8_t>(value * 255 + 0.5);
            }
    }

    // The scene through the lens: means over 2 blur + 1 samples of one colour along the line.
    void look(double blur) {
        if (!reflected.empty() && blur == blurred_by) return;
        blurred_by = blur;
        reflected.assign(static_cast<std::size_t>(width) * height, 0);
        const int reach = static_cast<int>(std::ceil(blur)), most = 2 * reach + width;
        const double edge = blur - std::floor(blur); // weight of the outermost samples
        for (int y = 0; y < height; ++y) {
            for (int parity = 0; parity < 2; ++parity) {
                std::vector<double> sum(1, 0.0); // of samples from x = parity - 2 reach on
                for (int x = parity - 2 * reach; x < most; x += 2)
                    sum.push_back(sum.back() + scene(x, y, colour(x + 4 * reach, y)));
                for (int x = parity; x < width; x += 2) {
                    const auto middle = static_cast<std::size_t>((x - parity) / 2 + reach);
                    const auto mean = [&](int r) {
                        const auto n = static_cast<std::size_t>(r);
                        return (sum[middle + n + 1] - sum[middle - n]) / (2 * r + 1);
                    };
                    reflected[static_cast<std::size_t>(y * width + x)] =
                        reach == 0 || edge == 0 ? mean(reach) : mean(reach) * edge + mean(reach - 1) * (1 - edge);
                }
            }
        }
    }

    std::vector<double> reflected;
    double blurred_by = -1;
    std::mt19937 random{17};
    std::normal_distribution<double> gauss;
    float noise[65536];
    std::vector<std::uint8_t> pixels;
    camera_values current;
    std::deque<std::pair<std::uint64_t, camera_values>> pending; // first frame that has them
    bool sent = false;                                           // and not yet begun
    std::uint64_t answers_at = 0;                                // the frame; 0: no turn is under way
    alignas(8) std::byte handled[block::full_size]{};            // the block as it was when the turn began
};

inline void expose(steered_camera& b, double us) { b.set({.exposure = us}); }

inline void enable(steered_camera& b, std::initializer_list<block::offset> flags) {
    for (const block::offset at : flags) b.settings.set_flag(at, true);
}

} // namespace auto_test
