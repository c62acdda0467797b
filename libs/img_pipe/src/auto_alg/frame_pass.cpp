#include <auto_alg/frame_pass.h>
#include <img_pipe/transform_pipe.h>

#include <algorithm>
#include <cmath>

namespace auto_alg {

namespace {

using block = settings_block;

float finite(float value, float otherwise) { return std::isfinite(value) ? value : otherwise; }

double known_rate(const block& b) {
    const double rate = b.wide_real(block::frame_rate);
    return std::isfinite(rate) && rate > 0 ? rate : 0;
}

// A request stands until it has been met; the service clears the second flag for the next one.
bool stands(const block& b, block::offset request, block::offset finished) {
    return b.flag(request) && !b.flag(finished);
}
bool balance_requested(const block& b) { return stands(b, block::white_balance_once, block::white_balance_finished); }
bool focus_requested(const block& b) { return stands(b, block::focus_request, block::focus_finished); }

} // namespace

bool auto_function_is_on(const settings_block& b) {
    // A run that is taken back has yet to be ended.
    for (const auto at :
         {block::auto_exposure, block::auto_gain, block::auto_iris, block::auto_white_balance, block::focus_running})
        if (b.flag(at)) return true;
    return balance_requested(b) || focus_requested(b);
}

bool transform_is_on(const settings_block& b) {
    const img_pipe::transform_params p = transform_params_of(b);
    const img_pipe::transform_params neutral;
    const bool balanced = p.wb_enable && !std::ranges::equal(p.wb_gain, neutral.wb_gain);
    const bool matrix = p.color_matrix_enable && !std::ranges::equal(p.color_matrix, neutral.color_matrix);
    return p.brightness != 0 || p.gamma != 1 || p.saturation != 1 || p.hue != 0 || p.sharpness != 0 || p.denoise != 0 ||
           p.tonemapping_enable || balanced || matrix;
}

img_pipe::transform_params transform_params_of(const settings_block& b) {
    img_pipe::transform_params p;
    p.brightness = b.integer(block::brightness);
    p.gamma = finite(b.real(block::gamma), 1);
    p.saturation = finite(b.real(block::saturation), 100) / 100;
    p.hue = finite(b.real(block::hue), 0) / 180;
    p.sharpness = b.integer(block::sharpness);
    p.denoise = b.integer(block::denoise);
    p.color_matrix_enable = b.flag(block::color_matrix_enable);
    for (std::size_t i = 0; i < 9; ++i)
        p.color_matrix[i] = finite(b.real(block::color_matrix + 4 * i), i % 4 == 0 ? 1.0F : 0.0F);
    p.tonemapping_enable = b.flag(block::tonemapping_enable);
    p.tonemapping_intensity = finite(b.real(block::tonemapping_intensity), 0);
    p.tonemapping_global_brightness = finite(b.real(block::tonemapping_brightness), 0);
    p.wb_enable = b.flag(block::balance_in_software);
    const float green = finite(b.real(block::balance_green), 1);
    p.wb_gain[0] = finite(b.real(block::balance_red), 1);
    p.wb_gain[1] = p.wb_gain[3] = green;
    p.wb_gain[2] = finite(b.real(block::balance_blue), 1);
    return p;
}

auto_pass_params auto_params_of(const settings_block& b, std::uint64_t block_id, std::uint64_t time_ns) {
    auto_pass_params p;
    p.block_id = block_id;
    p.time_ns = time_ns;
    if (b.flag(block::region_set))
        p.region = {b.wide_integer(block::region_left), b.wide_integer(block::region_top),
                    b.wide_integer(block::region_width), b.wide_integer(block::region_height)};
    const double rate = known_rate(b);
    const float period = rate > 0 ? static_cast<float>(1e6 / rate) : 0;

    p.exposure = {b.flag(block::auto_exposure),
                  b.real(block::exposure_min),
                  b.real(block::exposure_max),
                  b.real(block::exposure),
                  static_cast<float>(b.word(block::exposure_granularity)),
                  b.word(block::exposure_reference)};
    // It only lowers limits: a longer time than what the camera takes or the user wants is no use. Both of them, for
    // whichever is the upper one, and whole, or the two could enclose no value that can be told.
    if (b.flag(block::exposure_by_frame_rate) && rate > 0) {
        p.exposure.min = std::min(p.exposure.min, std::floor(period));
        p.exposure.max = std::min(p.exposure.max, std::floor(period));
    }
    p.gain = {
        b.flag(block::auto_gain), b.real(block::gain_min), b.real(block::gain_max), b.real(block::gain), true, 6.0F};
    p.iris = {b.flag(block::auto_iris), b.wide_integer(block::iris_min), b.wide_integer(block::iris_max),
              b.wide_integer(block::iris), b.flag(block::iris_separate)};
    // Behind the current values, which the service writes first.
    p.exposure.answered = b.real(block::result_exposure) == p.exposure.current;
    p.gain.answered = b.real(block::result_gain) == p.gain.current;
    p.iris.answered = b.wide_integer(block::result_iris) == p.iris.current;
    if (rate > 0) p.frame_time_us = period;
    p.white_balance.continuous = b.flag(block::auto_white_balance);
    p.white_balance.once = balance_requested(b);
    p.white_balance.in_software = b.flag(block::balance_in_software);
    p.white_balance.gain[0] = finite(b.real(block::balance_red), 1);
    p.white_balance.gain[1] = finite(b.real(block::balance_green), 1);
    p.white_balance.gain[2] = finite(b.real(block::balance_blue), 1);
    if (b.has_temperatures()) {
        const auto kelvins = [&](block::offset at) {
            return static_cast<std::int32_t>(std::clamp(b.word(at),
                                                        static_cast<std::uint32_t>(temperature_table::lowest),
                                                        static_cast<std::uint32_t>(temperature_table::highest)));
        };
        p.white_balance.temperature_min = kelvins(block::temperature_min);
        p.white_balance.temperature_max = kelvins(block::temperature_max);
    }
    p.focus = {focus_requested(b),        b.wide_integer(block::focus_position),
               b.real(block::focus_min),  b.real(block::focus_max),
               b.real(block::focus_step), b.flag(block::focus_region)};
    const img_pipe::transform_params t = transform_params_of(b);
    p.software.color_matrix_enable = t.color_matrix_enable;
    std::ranges::copy(t.color_matrix, p.software.color_matrix);
    p.software.gamma = t.gamma;
    p.software.brightness = t.brightness;
    return p;
}

const temperature_table* block_temperatures::table_of(const settings_block& b) {
    if (!b.has_temperatures() || !b.flag(block::balance_by_temperature)) return nullptr;
    std::array<calibrated_light, settings_block::light_count> now{};
    for (std::size_t i = 0; i < now.size(); ++i) {
        const std::size_t at = block::temperature_lights + i * settings_block::light_size;
        now[i].temperature = static_cast<float>(b.word(at));
        for (std::size_t c = 0; c < 3; ++c) now[i].gain[c] = finite(b.real(at + 4 + 4 * c), 1);
    }
    if (!made || now != lights) make_temperature_table(now, table);
    made = true;
    lights = now;
    return &table;
}

namespace {

// The transform leaves some formats as they are, and gives colour to none that is grey.
void leave_what_shows(auto_pass_params& p, std::uint32_t format) {
    if (img_pipe::format_description(format).is_mono != 0) {
        p.software.color_matrix_enable = false;
        p.white_balance.in_software = false;
    }
    if (img_pipe::changes_in_place(format)) return;
    p.software = {};
    p.white_balance.in_picture = false;
}

} // namespace

auto_pass_result run_auto_pass(const settings_block& b, auto_alg_state& state, const img_pipe::img_descriptor& image,
                               std::uint64_t block_id, std::uint64_t time_ns, IAutoValuesSender& sender,
                               const temperature_table* table) {
    auto_pass_params p = auto_params_of(b, block_id, time_ns);
    p.white_balance.table = table;
    leave_what_shows(p, image.format);
    const auto_pass_result r = auto_pass(state, image, p);
    // Results before the flags that announce them.
    if (r.exposure_changed) b.exchange(block::result_exposure, static_cast<float>(r.exposure));
    if (r.gain_changed) b.exchange(block::result_gain, r.gain);
    if (r.iris_changed) b.exchange(block::result_iris, std::int64_t{r.iris});
    if (r.wb_changed) {
        b.exchange(block::result_balance_red, r.wb_r);
        b.exchange(block::result_balance_green, r.wb_g);
        b.exchange(block::result_balance_blue, r.wb_b);
    }
    if (r.temperature >= 0 && b.has_temperatures())
        b.exchange(block::result_temperature, static_cast<std::uint32_t>(r.temperature));
    if (r.focus_changed) b.exchange(block::result_focus, r.focus_position);
    b.set_flag(block::focus_running, r.focus_running);
    if (r.wb_done) b.exchange(block::white_balance_finished, std::uint32_t{1});
    if (r.focus_done) b.exchange(block::focus_finished, std::uint32_t{1});
    if (r.exposure_changed || r.gain_changed || r.iris_changed || r.wb_changed || r.wb_done || r.focus_changed ||
        r.focus_done)
        sender.send_write_auto_values_cmd();
    return r;
}

void end_auto_passes(const settings_block& b, auto_alg_state& state) {
    end_auto_requests(state);
    b.set_flag(block::focus_running, false);
}

} // namespace auto_alg
