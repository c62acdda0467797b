// Who changes what. The library writes results and asks for them to be brought to the camera. A result that equals the
// current value is no order: after every access to the camera both are set to what the camera says, the result only if
// it is still the one that was handled. So a newer result is never lost, and an old one never written again.
#include "auto_value_writer.h"

#include <GenICam/error.h>
#include <gds_helper/log.h>
#include <gds_shared/gigecam_error.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace image_features {

using block_t = gds_producer::settings_block;
using control = camera_nodes::control;
using clock = std::chrono::steady_clock;
using gds_shared::gigecam_errc;
using GenICam::genicam_errc;

namespace {

// Values are read anew no more often, however much is written: the control channel is everybody's.
constexpr std::chrono::milliseconds refresh_interval{200};
// A camera that is busy or does not answer is tried again after a pause, so many times in a row. Tries count, however
// many results come meanwhile.
constexpr unsigned most_failures = 3;

using gds_helper::log::main_logger;

constexpr const char* titles[] = {"exposure", "gain", "iris", "focus", "white balance"};

bool is_hindrance(const std::error_code& error) {
    return error == make_error_code(genicam_errc::node_locked) ||
           error == make_error_code(genicam_errc::node_not_available);
}

bool is_end(const std::error_code& error) {
    return error == std::errc::operation_canceled || error == make_error_code(gigecam_errc::device_lost);
}

// A result as the block has it; none for what is no number.
template <class T>
std::optional<double> number_of(T value) {
    const double number = static_cast<double>(value);
    if (!std::isfinite(number)) return {};
    return number;
}

std::array<double, 3> numbers_of(const camera_nodes::balance& gains) { return {gains[0], gains[1], gains[2]}; }

int64_t whole_number(double value) { return std::llround(std::clamp(value, -9e15, 9e15)); }

} // namespace

auto_value_writer::auto_value_writer(std::shared_ptr<camera_settings> shared, std::unique_ptr<camera_nodes> found,
                                     std::string camera, std::shared_ptr<gds_helper::log::line_budget> log_lines,
                                     std::chrono::milliseconds pause)
    : settings(std::move(shared)),
      block(settings->block()),
      nodes(std::move(found)),
      camera_name(std::move(camera)),
      lines(std::move(log_lines)),
      retry_pause(pause) {}

auto_value_writer::~auto_value_writer() = default;

void auto_value_writer::start() {
    thread = std::jthread{[this](const std::stop_token& stop) { run(stop); }};
}

void auto_value_writer::write_results() {
    const std::lock_guard guard{mutex};
    results_wait = true;
    wake.notify_all();
}

void auto_value_writer::settings_changed() {
    const std::lock_guard guard{mutex};
    rearm = true;
    wake.notify_all();
}

void auto_value_writer::camera_written() {
    if (!settings->automatic_function_is_on()) return;
    const std::lock_guard guard{mutex};
    stale = true;
    wake.notify_all();
}

bool auto_value_writer::is_idle() {
    const std::lock_guard guard{mutex};
    return !working && !results_wait && !rearm && !stale;
}

bool auto_value_writer::wait(std::unique_lock<std::mutex>& lock, const std::stop_token& stop) {
    const auto asked = [this] { return results_wait || rearm; };
    while (!stop.stop_requested()) {
        const auto now = clock::now();
        const auto due = asked() ? left_alone : std::max(left_alone, refreshed + refresh_interval);
        if (!asked() && !stale)
            wake.wait(lock, stop, [&] { return asked() || stale; });
        else if (now < due)
            wake.wait_until(lock, stop, due, [&] { return asked() && clock::now() >= left_alone; });
        else
            return true;
    }
    return false;
}

void auto_value_writer::run(const std::stop_token& stop) {
    refreshed = clock::now();
    std::unique_lock lock{mutex};
    while (wait(lock, stop)) {
        const bool results = std::exchange(results_wait, false);
        const bool anew = std::exchange(rearm, false);
        const bool refresh = anew || (stale && clock::now() >= refreshed + refresh_interval);
        if (refresh) stale = false;
        working = true;
        lock.unlock();
        unfinished = written = false;
        nodes->ask_again();
        bool failed = false, again = false;
        try {
            const gds_helper::log::counted_lines counted{lines};
            if (anew) {
                attempts = {};
                answers = {};
                balance_answer = {};
                unread = 0;
            }
            // Before the look at the camera: a camera that is silent there would not be asked here, and no try counted.
            if (results) write_all(stop);
            if (refresh) {
                read_camera();
                refreshed = clock::now();
            }
            failures = 0;
        } catch (const std::exception&) { // no memory: once more, later
            failed = true;
            again = unfinished = ++failures < most_failures;
        }
        const bool silent = nodes->is_silent();
        if (refresh) unread = silent ? unread + 1 : 0;
        if (silent || unfinished || failed) left_alone = clock::now() + retry_pause;
        lock.lock();
        working = false;
        results_wait = results_wait || unfinished;
        rearm = rearm || (again && anew);
        // Limits may follow what was written. Looks are counted like tries, whatever asks for them here.
        stale = stale || (again && refresh) || ((written || unread > 0) && unread < most_failures);
    }
}

template <class T>
void auto_value_writer::take_number(control which, double value, std::size_t current_at, std::size_t result_at) {
    const auto current = block.load<T>(current_at);
    T taken{};
    if constexpr (std::is_integral_v<T>)
        taken = whole_number(value);
    else
        taken = static_cast<T>(value);
    if (taken != current)
        answers[static_cast<function>(which)] = {}; // another's write, or the camera was not yet there
    block.replace(result_at, current, taken);
    block.store(current_at, taken);
}

void auto_value_writer::take_balance(const camera_nodes::balance& gains) {
    for (std::size_t i = 0; i < gains.size(); ++i) {
        const std::size_t at = i * sizeof(float);
        const auto current = block.load<float>(block_t::balance_red + at);
        if (gains[i] != current) balance_answer = {};
        block.replace(block_t::result_balance_red + at, current, gains[i]);
        block.store(block_t::balance_red + at, gains[i]);
    }
}

void auto_value_writer::read_camera() {
    if (const auto range = nodes->range_of(control::exposure)) {
        settings->set_exposure_range(static_cast<float>(range->min), static_cast<float>(range->max));
        block.store(block_t::exposure_granularity, static_cast<uint32_t>(std::clamp(range->increment, 0.0, 1e9)));
    }
    if (const auto value = nodes->read(control::exposure))
        take_number<float>(control::exposure, *value, block_t::exposure, block_t::result_exposure);
    if (const auto range = nodes->range_of(control::gain))
        settings->set_gain_range(static_cast<float>(range->min), static_cast<float>(range->max));
    if (const auto value = nodes->read(control::gain))
        take_number<float>(control::gain, *value, block_t::gain, block_t::result_gain);
    if (const auto range = nodes->range_of(control::iris))
        settings->set_iris_range(whole_number(range->min), whole_number(range->max));
    if (const auto value = nodes->read(control::iris))
        take_number<int64_t>(control::iris, *value, block_t::iris, block_t::result_iris);
    if (const auto range = nodes->range_of(control::focus)) {
        block.store(block_t::focus_min, static_cast<float>(range->min));
        block.store(block_t::focus_max, static_cast<float>(range->max));
        block.store(block_t::focus_step, static_cast<float>(std::max(range->increment, 1.0)));
    }
    if (const auto value = nodes->read(control::focus))
        take_number<int64_t>(control::focus, *value, block_t::focus_position, block_t::result_focus);
    if (const auto gains = nodes->read_balance()) take_balance(*gains);
    if (!nodes->has_balance()) block.set_flag(block_t::balance_in_software, true);
    // A camera that does not answer keeps its rate: without one, exposure times would grow beyond the frame's period.
    const auto rate = nodes->frame_rate();
    if (!nodes->is_silent()) block.store(block_t::frame_rate, rate.value_or(0));
}

bool auto_value_writer::judge(function which, const std::error_code& error) {
    attempt& kept = attempts[which];
    if (!error) {
        kept = {};
        unread = 0;
        return true;
    }
    if (is_end(error)) return false;
    // Whatever the nodes made of it: a feature whose state cannot be read counts as not available, for one.
    const bool silent = nodes->is_silent();
    if (!silent && is_hindrance(error)) {
        if (!std::exchange(kept.told_hindered, true))
            main_logger().warn("Automatic {} of {} waits: {}.", titles[which], camera_name, error.message());
        return false;
    }
    const bool busy = error == make_error_code(gigecam_errc::busy);
    if ((silent || busy) && ++kept.failures < most_failures) {
        unfinished = true;
        return false;
    }
    kept.given_up = true;
    main_logger().warn(
        "Automatic {} of {} is given up: the camera {}: {}. It is tried again when one of the functions is "
        "switched.",
        titles[which], camera_name, silent ? "does not answer" : "refuses a value", error.message());
    return false;
}

template <class T>
void auto_value_writer::write_number(control which, std::size_t result_at, std::size_t current_at) {
    const auto function_of = static_cast<function>(which);
    const T result = block.load<T>(result_at);
    const T current = block.load<T>(current_at);
    if (result == current || attempts[function_of].given_up) return;
    const auto wanted = number_of(result);
    if (!wanted || answers[function_of].is_kept({*wanted}, {static_cast<double>(current)})) {
        block.replace(result_at, result, current);
        return;
    }
    written = true;
    if (nodes->is_silent()) {
        unfinished = true; // no try of this one: another has met the silence
        return;
    }
    if (!judge(function_of, nodes->write(which, *wanted))) return;
    const double taken = nodes->read(which).value_or(*wanted);
    T value{};
    if constexpr (std::is_integral_v<T>)
        value = whole_number(taken);
    else
        value = static_cast<T>(taken);
    answers[function_of].learn({*wanted}, {static_cast<double>(value)});
    block.store(current_at, value);
    block.replace(result_at, result, value);
}

void auto_value_writer::write_gains() {
    camera_nodes::balance result{}, current{};
    bool sound = true;
    for (std::size_t i = 0; i < result.size(); ++i) {
        const std::size_t at = i * sizeof(float);
        result[i] = block.load<float>(block_t::result_balance_red + at);
        current[i] = block.load<float>(block_t::balance_red + at);
        sound = sound && std::isfinite(result[i]) && result[i] >= 0 && result[i] <= 4;
    }
    if (result == current || !sound || attempts[balance].given_up) return;
    camera_nodes::balance taken = result;
    if (balance_answer.is_kept(numbers_of(result), numbers_of(current))) {
        taken = current;
    } else if (nodes->has_balance()) {
        written = true;
        if (nodes->is_silent()) {
            unfinished = true;
            return;
        }
        if (!judge(balance, nodes->write_balance(result))) return;
        taken = nodes->read_balance().value_or(result);
        balance_answer.learn(numbers_of(result), numbers_of(taken));
    }
    for (std::size_t i = 0; i < taken.size(); ++i) {
        const std::size_t at = i * sizeof(float);
        block.store(block_t::balance_red + at, taken[i]);
        block.replace(block_t::result_balance_red + at, result[i], taken[i]);
    }
}

// A finished function's result is its last one. Looked at before the result: a newer one is never dropped.
void auto_value_writer::write_focus() {
    const bool over = block.flag(block_t::focus_finished);
    const auto result = block.load<int64_t>(block_t::result_focus);
    write_number<int64_t>(control::focus, block_t::result_focus, block_t::focus_position);
    if (over && !unfinished) block.replace(block_t::result_focus, result, block.load<int64_t>(block_t::focus_position));
}

void auto_value_writer::write_balance() {
    const bool over = block.flag(block_t::white_balance_finished);
    std::array<float, 3> result{};
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = block.load<float>(block_t::result_balance_red + i * sizeof(float));
    write_gains();
    if (!over || unfinished) return;
    for (std::size_t i = 0; i < result.size(); ++i) {
        const std::size_t at = i * sizeof(float);
        block.replace(block_t::result_balance_red + at, result[i], block.load<float>(block_t::balance_red + at));
    }
}

void auto_value_writer::write_all(const std::stop_token& stop) {
    const auto on = [this](std::initializer_list<block_t::offset> flags) {
        return std::ranges::any_of(flags, [this](block_t::offset at) { return block.flag(at); });
    };
    const bool master = block.flag(block_t::master_enable);
    if (master && on({block_t::auto_exposure}))
        write_number<float>(control::exposure, block_t::result_exposure, block_t::exposure);
    if (stop.stop_requested()) return;
    if (master && on({block_t::auto_gain})) write_number<float>(control::gain, block_t::result_gain, block_t::gain);
    if (stop.stop_requested()) return;
    if (master && on({block_t::auto_iris})) write_number<int64_t>(control::iris, block_t::result_iris, block_t::iris);
    if (stop.stop_requested()) return;
    if (master && on({block_t::focus_request, block_t::focus_running, block_t::focus_finished})) write_focus();
    if (stop.stop_requested()) return;
    if (master && on({block_t::auto_white_balance, block_t::white_balance_once, block_t::white_balance_finished}))
        write_balance();
    settings->take_finished();
}

} // namespace image_features
