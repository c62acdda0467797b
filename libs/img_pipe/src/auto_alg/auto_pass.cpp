#include <auto_alg/auto_pass.h>

#include "auto_step.h"
#include "focus.h"
#include "light_history.h"
#include "records.h"
#include "unmoved_control.h"
#include "white_balance.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace auto_alg {

struct auto_alg_state::contents {
    bool seen = false; // a frame was handled
    std::uint64_t last_block = 0, last_time = 0;
    std::uint64_t min_wait = min_wait_ns, max_wait = max_wait_ns, frames_most = max_frames;
    auto_focus focus;
    temperature_state temperature;
    light_history light;
    std::int32_t once_passes = 0;
    unmoved_control exposure, gain, iris;
    sample_array samples;
};

auto_alg_state::auto_alg_state() : own(new (std::nothrow) contents) {}
auto_alg_state::~auto_alg_state() = default;

namespace {

using contents = auto_alg_state::contents;

// Whether this frame is measured; it is then the last one.
bool is_its_turn(contents& state, const auto_pass_params& p) {
    const bool same_time = state.seen && p.time_ns == state.last_time;
    if (!same_time && state.seen && state.last_block <= p.block_id && p.time_ns >= state.last_time) {
        const std::uint64_t elapsed = p.time_ns - state.last_time;
        if (elapsed < state.min_wait) return false;
        if (p.block_id - state.last_block <= state.frames_most && elapsed <= state.max_wait) return false;
    }
    state.seen = true;
    state.last_block = p.block_id;
    state.last_time = p.time_ns;
    return true;
}

// The next request of white balance once has all its passes.
void begin_balance(contents& state) {
    state.once_passes = 0;
    state.temperature.wb_scan_countdown = scan_passes;
}

void balance(contents& state, const auto_pass_params& p, auto_pass_result& result) {
    const white_balance_params& wb = p.white_balance;
    if (!wb.once && !wb.continuous) return;
    balance_result next{};
    if (wb.table != nullptr) {
        next = balance_by_temperature(state.samples, wb, state.temperature);
        result.temperature = state.temperature.current;
    } else if (state.samples.is_float) {
        next = exec_auto_whitebalance_on_float_pixels(state.samples.floats(), wb.gain);
    } else {
        next = exec_auto_whitebalance_steps_on_pixels(state.samples.bytes(), wb.gain, wb.once);
    }
    // What is grey stays as the camera has it, between the steps: it would be written anew with every pass.
    for (int i = 0; i < 3; ++i)
        if (next.done && std::abs(next.gain[i] - wb.gain[i]) < gain_step) next.gain[i] = wb.gain[i];
    result.wb_r = next.gain[0];
    result.wb_g = next.gain[1];
    result.wb_b = next.gain[2];
    for (int i = 0; i < 3; ++i) result.wb_changed = result.wb_changed || next.gain[i] != wb.gain[i];
    if (!wb.once) return;
    // On floats one pass does it all.
    const bool whole = wb.table == nullptr && state.samples.is_float;
    if (next.done || whole || ++state.once_passes >= most_once_passes) {
        result.wb_done = true;
        begin_balance(state);
    }
}

// Of a value that the consumer sees, the light that it stands for but for a factor: with gamma the loop would
// otherwise take other steps than it means.
float light_of(float value, const software_params& software) {
    const float gamma = software.gamma;
    return std::isfinite(gamma) && gamma >= 0.01F && gamma != 1 ? std::pow(value, 1 / std::min(gamma, 100.0F)) : value;
}

// What the light is multiplied by on its way to the samples, but for a factor.
double light_product(const auto_pass_params& p) {
    double product = std::max(static_cast<double>(p.iris.current), 1.0);
    if (p.exposure.current > 0) product *= static_cast<double>(p.exposure.current);
    const auto gain = static_cast<double>(p.gain.current), doubling = static_cast<double>(p.gain.per_doubling);
    if (!p.gain.logarithmic) return gain > 0 ? product * gain : product;
    return doubling > 0 && std::abs(gain) < 200 ? product * std::exp2(gain / doubling) : product;
}

// An iris moves a quarter of the way where the others move a third, too slow from far above: its goal is put further
// away. Towards darkness that ends at black.
auto_step calc_iris_step(double brightness, double reference, const iris_params& iris) {
    const double further = std::max(reference + (reference - brightness) * iris_lead, 0.0);
    return calc_auto_step(static_cast<float>(brightness), static_cast<float>(further), {}, {}, iris);
}

struct controls {
    exposure_params exposure;
    gain_params gain;
    iris_params iris;
};

auto_step next_step(const controls& c, float light, float wanted) {
    auto_step step = calc_auto_step(light, wanted, c.exposure, c.gain, c.iris);
    const auto_step limited = calc_auto_step(1, 1, c.exposure, c.gain, c.iris);
    if (step.iris != limited.iris)
        step.iris = calc_iris_step(static_cast<double>(light), static_cast<double>(wanted), c.iris).iris;
    return step;
}

// Written so that a current value that is no number counts as another one.
bool changes(const exposure_params& e, const auto_step& step) {
    return is_steered(e) && !(std::round(e.current) == static_cast<float>(step.exposure));
}
bool changes(const gain_params& g, const auto_step& step) { return is_steered(g) && !(step.gain == g.current); }
bool changes(const iris_params& i, const auto_step& step) { return is_steered(i) && step.iris != i.current; }

// The step of those that follow: what stays where it is gets no room for another value.
auto_step next_step_of_followers(contents& state, controls& c, float light, float wanted, std::uint64_t now_ns) {
    bool exposure_moves = false, gain_moves = false, iris_moves = false; // decided once a pass
    const auto stays = [&](unmoved_control& control, bool& moves, double current, double to, bool answered) {
        if (!moves) moves = !control.stays(current, to, answered, now_ns);
        return !moves;
    };
    for (;;) {
        const auto_step step = next_step(c, light, wanted);
        const auto iris = static_cast<double>(c.iris.current);
        bool one_stays = false;
        if (changes(c.exposure, step) &&
            stays(state.exposure, exposure_moves, c.exposure.current, step.exposure, c.exposure.answered)) {
            c.exposure.min = c.exposure.max = std::round(c.exposure.current);
            one_stays = true;
        }
        if (changes(c.gain, step) && stays(state.gain, gain_moves, c.gain.current, step.gain, c.gain.answered)) {
            c.gain.min = c.gain.max = c.gain.current;
            one_stays = true;
        }
        if (changes(c.iris, step) && stays(state.iris, iris_moves, iris, step.iris, c.iris.answered)) {
            c.iris.min = c.iris.max = c.iris.current;
            one_stays = true;
        }
        if (one_stays) continue; // at most once for each
        if (changes(c.exposure, step)) state.exposure.ask(c.exposure.current, step.exposure, now_ns);
        if (changes(c.gain, step)) state.gain.ask(c.gain.current, step.gain, now_ns);
        if (changes(c.iris, step)) state.iris.ask(iris, step.iris, now_ns);
        return step;
    }
}

} // namespace

auto_pass_result auto_pass(auto_alg_state& of, const img_pipe::img_descriptor& image, const auto_pass_params& p) {
    auto_pass_result result;
    contents* const state = of.get();
    if (state == nullptr) return result;

    const auto_focus::step focus = state->focus.advance(image, p);
    result.focus_changed = focus.changed;
    result.focus_position = focus.position;
    result.focus_running = focus.running;
    result.focus_done = focus.done;

    if (!p.white_balance.once) begin_balance(*state);
    if (!is_its_turn(*state, p)) return result;
    if (!p.exposure.enable) state->exposure = {};
    if (!p.gain.enable) state->gain = {};
    if (!p.iris.enable) state->iris = {};
    const bool exposing = p.exposure.enable || p.gain.enable || p.iris.enable;
    if (!exposing && !p.white_balance.continuous && !p.white_balance.once) return result;

    auto_sample_by_img(image, area_of(image, p.region), state->samples);
    if (state->samples.count == 0) return result;
    apply_software_clrmtx_to_sampling_data(p.software, state->samples);
    resulting_brightness seen{};
    if (!p.white_balance.in_picture) seen = calc_resulting_brightness_params(state->samples);
    apply_software_wb_to_sampling_data(p.white_balance, state->samples);
    balance(*state, p, result);
    if (p.white_balance.in_picture) {
        apply_software_params_to_sampling_data(p.software, state->samples);
        seen = calc_resulting_brightness_params(state->samples);
    }
    result.brightness = seen.mean;
    if (!exposing || seen.mean < 0) return result;

    const float reference = reference_brightness(p.exposure.reference, seen.bright);
    const float wanted = light_of(reference, p.software);
    const auto light =
        static_cast<float>(state->light.take(static_cast<double>(light_of(seen.mean, p.software)), light_product(p)));
    controls steered{p.exposure, p.gain, p.iris};
    const auto_step step = next_step_of_followers(*state, steered, light, wanted, p.time_ns);
    result.exposure = step.exposure;
    result.gain = step.gain;
    result.iris = step.iris;
    result.exposure_changed = changes(steered.exposure, step);
    result.gain_changed = changes(steered.gain, step);
    result.iris_changed = changes(steered.iris, step);
    return result;
}

void end_auto_requests(auto_alg_state& of) {
    contents* const state = of.get();
    if (state == nullptr) return;
    state->focus.end();
    state->exposure = state->gain = state->iris = {};
    begin_balance(*state);
}

} // namespace auto_alg
