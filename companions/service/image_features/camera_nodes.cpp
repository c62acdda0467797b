#include "camera_nodes.h"

#include <gds_shared/gigecam_error.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace image_features {

using namespace GenICam;

namespace {

constexpr unsigned direct = access_flags::bypass_cache;

// By preference: a name of the standard's newer editions first. A raw exposure counts microseconds unless the camera
// states a time base. What a step of a raw gain is worth only the camera's manual tells: taken as a whole decibel, or
// as the part of the widest range that its limits leave. A camera with finer steps makes the control slower, never
// unstable.
constexpr auto exposure_names = std::to_array<std::string_view>({"ExposureTime", "ExposureTimeAbs", "ExposureTimeRaw"});
constexpr auto gain_names = std::to_array<std::string_view>({"Gain", "GainAbs", "GainRaw"});
constexpr auto iris_names = std::to_array<std::string_view>({"Iris"});
constexpr auto focus_names = std::to_array<std::string_view>({"Focus", "FocusStepper"});
constexpr auto ratio_names = std::to_array<std::string_view>({"BalanceRatio", "BalanceRatioAbs", "BalanceRatioRaw"});
constexpr double widest_gain = 48; // dB
// The rate that was asked for. What results from it falls with the exposure time, so it is no bound for that.
constexpr auto rate_names = std::to_array<std::string_view>({"AcquisitionFrameRate", "AcquisitionFrameRateAbs"});
// Entries of GainSelector that act on the whole picture.
constexpr auto overall_gains = std::to_array<std::string_view>({"All", "AnalogAll", "DigitalAll"});

bool usable(const INode& node) {
    const auto implemented = node.is_implemented(direct);
    if (!implemented || !*implemented) return false;
    const auto available = node.is_available(direct);
    return available && *available;
}

double microseconds_in(std::string_view unit) {
    if (unit == "ns") return 1e-3;
    if (unit == "ms") return 1e3;
    if (unit == "s") return 1e6;
    return 1;
}

// Selects an entry and puts the former one back at its end, or, where the camera has stopped answering meanwhile, at
// the end of the next selection.
class selection final {
public:
    selection(IEnumeration* selector, IEnumEntry* entry, owed_entry& put_back, camera_nodes::clock::time_point& until)
        : owed(put_back), deadline(until) {
        if (selector == nullptr || entry == nullptr) return;
        const auto before = selector->get_selected_entry(direct);
        if (!before) {
            error = before.error();
            return;
        }
        IEnumEntry* const former = owed.selector != nullptr && owed.chosen == *before ? owed.former : *before;
        if (*before != entry) error = selector->set_selected_entry(entry, direct);
        // A choice that was not answered may have been made all the same.
        if (former != entry)
            owed = {selector, entry, former};
        else if (!error)
            owed = {};
        is_made = true;
    }
    ~selection() {
        if (!is_made || owed.selector == nullptr) return;
        // Also when the time is over: nobody else puts it back.
        const auto kept = std::exchange(deadline, camera_nodes::clock::time_point::max());
        if (!owed.selector->set_selected_entry(owed.former, direct)) owed = {};
        deadline = kept;
    }
    selection(const selection&) = delete;
    selection& operator=(const selection&) = delete;
    [[nodiscard]] const std::error_code& failure() const { return error; }

private:
    owed_entry& owed;
    camera_nodes::clock::time_point& deadline; // of the port, which answers nothing from then on
    bool is_made = false;
    std::error_code error;
};

IEnumEntry* first_entry(const IEnumeration& selector, std::span<const std::string_view> names) {
    for (const std::string_view name : names) {
        IEnumEntry* const entry = selector.find_entry_by_name(name);
        if (entry != nullptr && usable(*entry)) return entry;
    }
    return nullptr;
}

// Why it cannot be written now; nothing when it can.
std::error_code hindrance(const INode& node) {
    if (!usable(node)) return make_error_code(genicam_errc::node_not_available);
    const auto locked = node.is_locked(direct);
    if (!locked) return locked.error();
    if (*locked || node.get_access_mode() == Access_t::RO) return make_error_code(genicam_errc::node_locked);
    return {};
}

// 0 for none, and for one that is no number to count in.
template <class Node>
double increment_of(const Node& node) {
    const auto increment = static_cast<double>(node.get_inc(direct).value_or(0));
    return std::isfinite(increment) ? increment : 0;
}

double nearest(double value, double min, double max, double increment) {
    value = std::clamp(value, min, max);
    if (!(increment > 0)) return value;
    double stepped = min + std::round((value - min) / increment) * increment;
    if (stepped > max) stepped -= increment;
    return std::max(stepped, min);
}

template <class T>
T nearest_of(const std::vector<T>& values, double wanted) {
    return *std::ranges::min_element(values, {},
                                     [&](T value) { return std::abs(static_cast<double>(value) - wanted); });
}

template <class Node>
std::error_code write_nearest(Node& node, double wanted) {
    using value = typename decltype(node.get_val(0))::value_type;
    if (const auto error = hindrance(node)) return error;
    if (node.get_inc_mode() == IncMode_t::List) {
        const auto allowed = node.get_valid_value_set(direct);
        if (!allowed) return allowed.error();
        if (allowed->empty()) return make_error_code(genicam_errc::value_out_of_range);
        return node.set_val(nearest_of(*allowed, wanted), direct);
    }
    const auto min = node.get_min(direct);
    if (!min) return min.error();
    const auto max = node.get_max(direct);
    if (!max) return max.error();
    if (!(*min <= *max)) return make_error_code(genicam_errc::value_out_of_range);
    const double taken = nearest(wanted, static_cast<double>(*min), static_cast<double>(*max), increment_of(node));
    if constexpr (std::is_integral_v<value>)
        return node.set_val(static_cast<value>(std::llround(taken)), direct);
    else
        return node.set_val(taken, direct);
}

template <class Node>
std::optional<camera_nodes::value_range> limits_of(const Node& node, double scale) {
    const auto min = node.get_min(direct);
    const auto max = node.get_max(direct);
    if (!min || !max) return {};
    return camera_nodes::value_range{static_cast<double>(*min) * scale, static_cast<double>(*max) * scale,
                                     increment_of(node) * scale};
}

} // namespace

INode* camera_nodes::number::node() const {
    return integer != nullptr ? static_cast<INode*>(integer) : static_cast<INode*>(real);
}

class camera_nodes::asked_port final : public IDevicePort {
public:
    asked_port(IDevicePort& of, clock::time_point at_most) : until(at_most), camera(of) {}
    result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned flags) override {
        if (is_silent()) return std::unexpected(no_answer());
        auto count = camera.read(address, data, flags);
        silent = !count && count.error() == no_answer();
        return count;
    }
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned flags) override {
        if (is_silent()) return no_answer();
        const std::error_code error = camera.write(address, data, flags);
        silent = error == no_answer();
        return error;
    }
    [[nodiscard]] bool is_over() const { return until != clock::time_point::max() && clock::now() >= until; }
    [[nodiscard]] bool is_silent() const { return silent || is_over(); }
    void ask_again(clock::time_point at_most = clock::time_point::max()) {
        silent = false;
        until = at_most;
    }

    clock::time_point until;

private:
    bool silent = false;
    static std::error_code no_answer() { return make_error_code(gds_shared::gigecam_errc::timeout); }
    IDevicePort& camera;
};

camera_nodes::camera_nodes(std::unique_ptr<asked_port> asked, std::unique_ptr<IGenICamDoc> parsed, bool reader)
    : port(std::move(asked)), document(std::move(parsed)), only_reads(reader) {}

void camera_nodes::ask_again() { port->ask_again(); }
void camera_nodes::look_again(clock::time_point until) {
    port->ask_again(until);
    find_nodes();
}
bool camera_nodes::is_silent() const { return port->is_silent(); }

camera_nodes::~camera_nodes() { document->find<IPort>("Device")->unbind(0); }

std::unique_ptr<camera_nodes> camera_nodes::create(std::string_view text, IDevicePort& camera, bool reads_only,
                                                   clock::time_point until) {
    auto parsed = create_document(text);
    if (!parsed) return nullptr;
    auto* const device = parsed->find<IPort>("Device");
    auto asked = std::make_unique<asked_port>(camera, until);
    if (device == nullptr || device->bind(asked.get(), 0)) return nullptr;
    std::unique_ptr<camera_nodes> made{new camera_nodes{std::move(asked), std::move(parsed), reads_only}};
    made->find_nodes();
    return made;
}

camera_nodes::number camera_nodes::find_number(std::span<const std::string_view> names) const {
    for (const std::string_view name : names) {
        INode* const node = document->find_node(name);
        if (node == nullptr) continue;
        const auto implemented = node->is_implemented(direct);
        if (!implemented || !*implemented) continue;
        if (auto* const real = node_cast<IFloat>(node)) return {nullptr, real, 1};
        if (auto* const integer = node_cast<IInteger>(node)) return {integer, nullptr, 1};
    }
    return {};
}

void camera_nodes::find_nodes() {
    number& exposure = numbers[static_cast<std::size_t>(control::exposure)];
    exposure = find_number(exposure_names);
    if (exposure.real != nullptr) exposure.scale = microseconds_in(exposure.real->get_unit());
    if (exposure.integer != nullptr) {
        exposure.scale = microseconds_in(exposure.integer->get_unit());
        if (auto* const base = document->find<IFloat>("ExposureTimeBaseAbs"); base != nullptr && usable(*base)) {
            const auto microseconds = base->get_val(direct);
            if (microseconds && std::isfinite(*microseconds) && *microseconds > 0) exposure.scale = *microseconds;
        }
    }
    gain_selector = document->find<IEnumeration>("GainSelector");
    numbers[static_cast<std::size_t>(control::gain)] = find_number(gain_names);
    scale_raw_gain();
    numbers[static_cast<std::size_t>(control::iris)] = find_number(iris_names);
    numbers[static_cast<std::size_t>(control::focus)] = find_number(focus_names);
    rate = find_number(rate_names);
    rate_switch = document->find<IBoolean>("AcquisitionFrameRateEnable");

    ratio_selector = document->find<IEnumeration>("BalanceRatioSelector");
    if (ratio_selector == nullptr) return;
    ratio = find_number(ratio_names);
    if (ratio.integer != nullptr && !scale_raw_ratio()) ratio = {};
}

void camera_nodes::scale_raw_gain() {
    number& gain = numbers[static_cast<std::size_t>(control::gain)];
    if (gain.integer == nullptr || gain.integer->get_unit() == "dB") return;
    const auto range = range_of(control::gain);
    if (range && range->max - range->min > widest_gain) gain.scale = widest_gain / (range->max - range->min);
}

// Whole numbers that are proportional to gains, as those of sensors are: the least of them is the gain of 1 from here
// on. Green has to be among them, or nobody knows what it is worth.
bool camera_nodes::scale_raw_ratio() {
    if (only_reads || first_entry(*ratio_selector, std::to_array<std::string_view>({"Green"})) == nullptr) return false;
    ratio.scale = 1;
    const auto values = read_ratios();
    if (!values) return false;
    const double least = static_cast<double>(*std::ranges::min_element(*values));
    constexpr double coarsest = 16; // steps in a gain of 1, for channels within a few per cent
    if (least < coarsest) return false;
    ratio.scale = 1 / least;
    return true;
}

bool camera_nodes::has_colour() const {
    const auto* const formats = document->find<IEnumeration>("PixelFormat");
    if (formats == nullptr) return false;
    // Each costs a camera access or more; no camera has half as many formats.
    const auto entries = formats->get_entries();
    return std::ranges::any_of(entries.first(std::min<std::size_t>(entries.size(), 256)), [&](const IEnumEntry* entry) {
        const std::string_view name = entry->get_name();
        const auto begins = [name](std::string_view start) { return name.starts_with(start); };
        if (!begins("Bayer") && !begins("RGB") && !begins("BGR") && !begins("YUV") && !begins("YCbCr")) return false;
        // What a document computes takes its time without any answer of the camera.
        return !port->is_over() && entry->is_implemented(direct).value_or(false);
    });
}

camera_abilities camera_nodes::abilities() {
    camera_abilities found;
    found.exposure = !name_of(control::exposure).empty();
    found.gain = !name_of(control::gain).empty();
    found.iris = !name_of(control::iris).empty();
    found.focus = !name_of(control::focus).empty();
    found.colour = has_colour();
    found.balance_in_camera = has_balance();
    return found;
}

std::string_view camera_nodes::name_of(control which) const {
    const INode* const node = numbers[static_cast<std::size_t>(which)].node();
    return node != nullptr ? node->get_name() : std::string_view{};
}

template <class Function>
auto camera_nodes::with_gain_selected(control which, Function&& function) {
    IEnumEntry* overall = nullptr;
    if (which == control::gain && gain_selector != nullptr && usable(*gain_selector) && !only_reads)
        overall = first_entry(*gain_selector, overall_gains);
    const selection chosen{gain_selector, overall, gain_owed, port->until};
    return function(chosen.failure());
}

std::optional<double> camera_nodes::value_of(const number& from) {
    if (from.node() == nullptr || !usable(*from.node())) return {};
    if (from.real != nullptr) {
        const auto value = from.real->get_val(direct);
        if (!value || !std::isfinite(*value)) return {};
        return *value * from.scale;
    }
    const auto value = from.integer->get_val(direct);
    if (!value) return {};
    return static_cast<double>(*value) * from.scale;
}

std::error_code camera_nodes::write_to(const number& to, double value) {
    const double wanted = value / to.scale;
    return to.real != nullptr ? write_nearest(*to.real, wanted) : write_nearest(*to.integer, wanted);
}

std::optional<double> camera_nodes::read(control which) {
    const number& found = numbers[static_cast<std::size_t>(which)];
    return with_gain_selected(which, [&](const std::error_code& error) -> std::optional<double> {
        if (error) return {};
        return value_of(found);
    });
}

std::optional<camera_nodes::value_range> camera_nodes::range_of(control which) {
    const number& found = numbers[static_cast<std::size_t>(which)];
    return with_gain_selected(which, [&](const std::error_code& error) -> std::optional<value_range> {
        if (error || found.node() == nullptr || !usable(*found.node())) return {};
        const auto range =
            found.real != nullptr ? limits_of(*found.real, found.scale) : limits_of(*found.integer, found.scale);
        if (!range || !std::isfinite(range->min) || !std::isfinite(range->max) || !(range->min <= range->max))
            return {};
        return range;
    });
}

std::error_code camera_nodes::write(control which, double value) {
    const number& found = numbers[static_cast<std::size_t>(which)];
    if (found.node() == nullptr || only_reads) return make_error_code(genicam_errc::node_not_available);
    return with_gain_selected(which, [&](const std::error_code& error) {
        if (error) return error;
        return write_to(found, value);
    });
}

std::optional<camera_nodes::balance> camera_nodes::read_balance() {
    auto gains = read_ratios();
    if (!gains) return {};
    const float least = *std::ranges::min_element(*gains);
    for (float& gain : *gains) gain /= least;
    return gains;
}

std::optional<camera_nodes::balance> camera_nodes::read_ratios() {
    if (!has_balance() || only_reads) return {};
    constexpr auto colours = std::to_array<std::string_view>({"Red", "Green", "Blue"});
    balance gains{1, 1, 1}; // a camera without a gain of green has that of 1
    for (std::size_t i = 0; i < gains.size(); ++i) {
        IEnumEntry* const entry = first_entry(*ratio_selector, {&colours[i], 1});
        if (entry == nullptr) {
            if (i == 1) continue;
            return {};
        }
        const selection chosen{ratio_selector, entry, ratio_owed, port->until};
        if (chosen.failure()) return {};
        const auto value = value_of(ratio);
        if (!value || !(*value > 0)) return {};
        gains[i] = static_cast<float>(*value);
    }
    return gains;
}

std::error_code camera_nodes::write_balance(const balance& gains) {
    if (!has_balance() || only_reads) return make_error_code(genicam_errc::node_not_available);
    IEnumEntry* const green = first_entry(*ratio_selector, std::to_array<std::string_view>({"Green"}));
    const float one = green != nullptr ? 1.0F : gains[1];
    const auto write_one = [&](IEnumEntry* entry, float gain) -> std::error_code {
        if (entry == nullptr) return make_error_code(genicam_errc::no_such_entry);
        const selection chosen{ratio_selector, entry, ratio_owed, port->until};
        if (chosen.failure()) return chosen.failure();
        return write_to(ratio, static_cast<double>(gain));
    };
    if (const auto error =
            write_one(first_entry(*ratio_selector, std::to_array<std::string_view>({"Red"})), gains[0] / one))
        return error;
    if (green != nullptr) {
        if (const auto error = write_one(green, gains[1])) return error;
    }
    return write_one(first_entry(*ratio_selector, std::to_array<std::string_view>({"Blue"})), gains[2] / one);
}

std::optional<double> camera_nodes::frame_rate() {
    if (rate.real == nullptr || !usable(*rate.real)) return {};
    // While it is off the rate is what somebody asked for once, and not what the camera keeps to.
    if (rate_switch != nullptr && usable(*rate_switch) && !rate_switch->get_val(direct).value_or(true)) return {};
    const auto value = rate.real->get_val(direct);
    if (!value || !std::isfinite(*value) || !(*value > 0)) return {};
    return *value;
}

} // namespace image_features
