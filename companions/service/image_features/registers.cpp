#include "registers.h"

#include <auto_alg/temperature_table.h>

#include <algorithm>
#include <array>
#include <limits>

namespace image_features {

namespace {

using block = gds_producer::settings_block;
using temperature = auto_alg::temperature_table;
using enum value_type;

constexpr double widest = std::numeric_limits<float>::max();
constexpr double whole = 9e15; // what a double counts exactly
constexpr double most_pixels = 65535;
constexpr double weakest_gain = 1.0 / 64;
constexpr double strongest_gain = 4;    // of a white balance, where it is clamped when used
constexpr double hottest_light = 20000; // K; the gains hardly change any more

constexpr register_entry matrix_element(std::size_t i) {
    return {block::color_matrix + i * sizeof(float), float32, true, -8, 8};
}
constexpr register_entry read_only(std::size_t offset, value_type type) { return {offset, type, false}; }

constexpr auto of_the_block = std::to_array<register_entry>({
    {block::overlay, flag, true},
    {block::master_enable, flag, true},
    {block::brightness, int32, true, -255, 255},
    {block::gamma, float32, true, 0.1, 4},
    {block::saturation, float32, true, 0, 400},
    {block::hue, float32, true, -180, 180},
    {block::sharpness, int32, true, -32, 255},
    {block::denoise, int32, true, 0, 31},
    {block::color_matrix_enable, flag, true},
    matrix_element(0),
    matrix_element(1),
    matrix_element(2),
    matrix_element(3),
    matrix_element(4),
    matrix_element(5),
    matrix_element(6),
    matrix_element(7),
    matrix_element(8),
    {block::tonemapping_enable, flag, true},
    {block::tonemapping_intensity, float32, true, -8, 8},
    {block::tonemapping_brightness, float32, true, 0, 1},
    {block::auto_exposure, flag, true},
    {block::exposure_by_frame_rate, flag, true},
    {block::exposure_reference, uint32, true, 0, 255},
    read_only(block::exposure, float32),
    {block::exposure_min, float32, true, 0, widest, own_register::exposure_lowest, block::exposure_max},
    {block::exposure_max, float32, true, 0, widest, block::exposure_min, own_register::exposure_highest},
    {block::auto_gain, flag, true},
    read_only(block::gain, float32),
    {block::gain_min, float32, true, -widest, widest, own_register::gain_lowest, block::gain_max},
    {block::gain_max, float32, true, -widest, widest, block::gain_min, own_register::gain_highest},
    {block::auto_iris, flag, true},
    read_only(block::iris, int64),
    {block::iris_min, int64, true, -whole, whole, own_register::iris_lowest, block::iris_max},
    {block::iris_max, int64, true, -whole, whole, block::iris_min, own_register::iris_highest},
    {block::iris_separate, flag, true},
    {block::balance_red, float32, true, 0, strongest_gain},
    {block::balance_green, float32, true, 0, strongest_gain},
    {block::balance_blue, float32, true, 0, strongest_gain},
    read_only(block::focus_position, int64),
    {block::focus_region, flag, true},
    {block::region_set, flag, true},
    {block::region_left, int64, true, 0, most_pixels},
    {block::region_top, int64, true, 0, most_pixels},
    {block::region_width, int64, true, 0, most_pixels},
    {block::region_height, int64, true, 0, most_pixels},
    read_only(block::focus_running, flag),
    {block::balance_by_temperature, flag, true},
    {block::temperature_min, uint32, true, temperature::lowest, temperature::highest, std::nullopt,
     block::temperature_max},
    {block::temperature_max, uint32, true, temperature::lowest, temperature::highest, block::temperature_min},
    read_only(block::result_temperature, uint32),
});

// A light's temperature and its three gains, none of them 0: they are divided by each other.
constexpr auto lights = [] {
    constexpr std::size_t words = block::light_size / 4;
    std::array<register_entry, block::light_count * words> made{};
    for (std::size_t i = 0; i < made.size(); ++i) {
        const std::size_t at = block::temperature_lights + 4 * i;
        made[i] = i % words == 0 ? register_entry{at, uint32, true, 0, hottest_light}
                                 : register_entry{at, float32, true, weakest_gain, strongest_gain};
    }
    return made;
}();

constexpr auto of_the_service = std::to_array<register_entry>({
    {own_register::white_balance_mode, uint32, true, balance_off, balance_continuous},
    {own_register::focus_start, uint32, true, 0, 1},
    read_only(own_register::exposure_lowest, float32),
    read_only(own_register::exposure_highest, float32),
    read_only(own_register::gain_lowest, float32),
    read_only(own_register::gain_highest, float32),
    read_only(own_register::iris_lowest, int64),
    read_only(own_register::iris_highest, int64),
});

constexpr auto table = [] {
    std::array<register_entry, of_the_block.size() + lights.size() + of_the_service.size()> made{};
    const auto behind_block = std::ranges::copy(of_the_block, made.begin()).out;
    std::ranges::copy(of_the_service, std::ranges::copy(lights, behind_block).out);
    return made;
}();

static_assert(std::ranges::is_sorted(table, std::less_equal<>{}, &register_entry::offset));
static_assert(std::ranges::all_of(table, [](const register_entry& entry) {
    return entry.offset % width_of(entry.type) == 0 &&
           entry.offset + width_of(entry.type) <= (entry.offset < own_begin ? block::full_size : own_register::end);
}));

} // namespace

const register_entry* find_register(std::size_t offset) {
    const auto found = std::ranges::lower_bound(table, offset, {}, &register_entry::offset);
    return found != table.end() && found->offset == offset ? &*found : nullptr;
}

} // namespace image_features
