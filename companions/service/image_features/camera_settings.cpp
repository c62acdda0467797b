#include "camera_settings.h"

#include <gds_shared/gigecam_error.h>
#include <platform.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace image_features {

using block_t = gds_producer::settings_block;
using gds_shared::gigecam_errc;

namespace {

constexpr std::size_t block_bytes = 4096;

double value_at(block_t where, std::size_t at, value_type type) {
    switch (type) {
    case value_type::flag:
        return where.flag(at) ? 1 : 0;
    case value_type::uint32:
        return where.load<uint32_t>(at);
    case value_type::int32:
        return where.load<int32_t>(at);
    case value_type::int64:
        return static_cast<double>(where.load<int64_t>(at));
    case value_type::float32:
        return where.load<float>(at);
    }
    return 0;
}

template <class T>
T from_bytes(std::span<const std::byte> bytes) {
    T value{};
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

template <class T>
void to_bytes(T value, std::span<std::byte> bytes) {
    std::memcpy(bytes.data(), &value, sizeof value);
}

} // namespace

struct camera_settings::memory {
    std::string name;
    ipc_rpc::platform::shared_mapping mapping;
};

camera_settings::camera_settings(std::optional<uint32_t> group, std::optional<uint32_t> user)
    : mapped([&] {
          std::string name = ipc_rpc::platform::object_name("settings-" + ipc_rpc::platform::unique_text());
          auto made = ipc_rpc::platform::shared_mapping::create(name, block_bytes, {group, user});
          return std::make_unique<memory>(memory{std::move(name), std::move(made)});
      }()),
      shared(mapped->mapping.bytes()) {
    set_all_neutral();
}

camera_settings::~camera_settings() = default;

void camera_settings::set_all_neutral() {
    shared.set_neutral();
    owned.store(own_register::exposure_highest - own_begin, 1e9F);
    owned.store(own_register::gain_highest - own_begin, 100.0F);
    exposure_known = gain_known = iris_known = false;
}

void camera_settings::reset() {
    const std::lock_guard guard{mutex};
    set_all_neutral();
    controlled = true;
}

const std::string& camera_settings::name() const noexcept { return mapped->name; }
bool camera_settings::is_broken() const noexcept { return mapped->mapping.is_broken(); }

std::pair<block_t, std::size_t> camera_settings::place(std::size_t offset) const {
    if (offset < own_begin) return {shared, offset};
    return {owned, offset - own_begin};
}

double camera_settings::value_of(const register_entry& entry) const {
    const auto [where, at] = place(entry.offset);
    return value_at(where, at, entry.type);
}

std::error_code camera_settings::read(uint64_t address, std::span<std::byte> to) const {
    const register_entry* const entry = find_register(address - first_address);
    if (entry == nullptr || to.size() != width_of(entry->type)) return make_error_code(gigecam_errc::invalid_address);
    if (entry->offset == own_register::white_balance_mode) {
        take_finished();
        const uint32_t mode = shared.flag(block_t::white_balance_once)   ? balance_once
                              : shared.flag(block_t::auto_white_balance) ? balance_continuous
                                                                         : balance_off;
        to_bytes(mode, to);
        return {};
    }
    if (entry->offset == own_register::focus_start) {
        take_finished();
        to_bytes(uint32_t{shared.flag(block_t::focus_request)}, to);
        return {};
    }
    const auto [where, at] = place(entry->offset);
    switch (entry->type) {
    case value_type::flag:
        to_bytes(uint32_t{where.flag(at)}, to);
        break;
    case value_type::int64:
        to_bytes(where.load<int64_t>(at), to);
        break;
    case value_type::uint32:
    case value_type::int32:
    case value_type::float32:
        to_bytes(where.load<uint32_t>(at), to);
        break;
    }
    return {};
}

bool camera_settings::takes(const register_entry& entry, double value) const {
    // Limits are kept in the register's own precision.
    const auto rounded = [&](double limit) {
        return entry.type == value_type::float32 ? static_cast<double>(static_cast<float>(limit)) : limit;
    };
    if (!(value >= rounded(entry.min) && value <= rounded(entry.max))) return false; // what is no number, too
    if (entry.not_below && value < value_of(*find_register(*entry.not_below))) return false;
    return !(entry.not_above && value > value_of(*find_register(*entry.not_above)));
}

std::error_code camera_settings::write(uint64_t address, std::span<const std::byte> from) {
    const register_entry* const entry = find_register(address - first_address);
    if (entry == nullptr || from.size() != width_of(entry->type)) return make_error_code(gigecam_errc::invalid_address);
    if (!entry->writable) return make_error_code(gigecam_errc::write_protect);
    double value = 0;
    switch (entry->type) {
    case value_type::flag:
    case value_type::uint32:
        value = from_bytes<uint32_t>(from);
        break;
    case value_type::int32:
        value = from_bytes<int32_t>(from);
        break;
    case value_type::int64:
        value = static_cast<double>(from_bytes<int64_t>(from));
        break;
    case value_type::float32:
        value = static_cast<double>(from_bytes<float>(from));
        break;
    }
    const std::lock_guard guard{mutex};
    if (!takes(*entry, value)) return make_error_code(gigecam_errc::invalid_parameter);
    if (value != 0) forget_results_of(entry->offset);
    if (entry->offset == own_register::white_balance_mode) {
        // Off in between, so that no frame finds both.
        shared.set_flag(block_t::auto_white_balance, false);
        shared.set_flag(block_t::white_balance_once, false);
        shared.set_flag(block_t::white_balance_finished, false);
        const auto mode = from_bytes<uint32_t>(from);
        if (mode == balance_once) shared.set_flag(block_t::white_balance_once, true);
        if (mode == balance_continuous) shared.set_flag(block_t::auto_white_balance, true);
        return {};
    }
    if (entry->offset == own_register::focus_start) {
        if (value != 0) shared.set_flag(block_t::focus_finished, false);
        shared.set_flag(block_t::focus_request, value != 0);
        return {};
    }
    const auto at = entry->offset;
    // A gain set by hand has the last word: an older result that differs would be brought back by the next one.
    if (at == block_t::balance_red || at == block_t::balance_green || at == block_t::balance_blue)
        shared.store(at - block_t::balance_red + block_t::result_balance_red, from_bytes<uint32_t>(from));
    if (entry->type == value_type::int64)
        shared.store(at, from_bytes<int64_t>(from));
    else
        shared.store(at, from_bytes<uint32_t>(from));
    return {};
}

void camera_settings::forget_results_of(std::size_t offset) const {
    const bool all = offset == block_t::master_enable && !shared.flag(block_t::master_enable);
    const auto begins = [&](block_t::offset flag) { return all || (offset == flag && !shared.flag(flag)); };
    const auto forget = [this]<class T>(T, block_t::offset result, block_t::offset current) {
        shared.store(result, shared.load<T>(current));
    };
    if (begins(block_t::auto_exposure)) forget(float{}, block_t::result_exposure, block_t::exposure);
    if (begins(block_t::auto_gain)) forget(float{}, block_t::result_gain, block_t::gain);
    if (begins(block_t::auto_iris)) forget(int64_t{}, block_t::result_iris, block_t::iris);
    if (all || offset == own_register::focus_start) forget(int64_t{}, block_t::result_focus, block_t::focus_position);
    if (all || offset == own_register::white_balance_mode) {
        forget(float{}, block_t::result_balance_red, block_t::balance_red);
        forget(float{}, block_t::result_balance_green, block_t::balance_green);
        forget(float{}, block_t::result_balance_blue, block_t::balance_blue);
    }
}

template <class T>
void camera_settings::set_range(std::size_t lowest_at, std::size_t min_at, bool& known, T lowest, T highest) {
    if (!(lowest <= highest)) return;
    const std::lock_guard guard{mutex};
    const std::size_t max_at = min_at + sizeof(T);
    const T min = shared.load<T>(min_at);
    const T max = shared.load<T>(max_at);
    const bool sound = known && min <= max;
    const bool follows_lowest = !sound || min == owned.load<T>(lowest_at - own_begin);
    const bool follows_highest = !sound || max == owned.load<T>(lowest_at - own_begin + sizeof(T));
    owned.store(lowest_at - own_begin, lowest);
    owned.store(lowest_at - own_begin + sizeof(T), highest);
    shared.store(min_at, follows_lowest ? lowest : std::clamp(min, lowest, highest));
    shared.store(max_at, follows_highest ? highest : std::clamp(max, lowest, highest));
    known = true;
}

void camera_settings::set_exposure_range(float lowest, float highest) {
    set_range(own_register::exposure_lowest, block_t::exposure_min, exposure_known, lowest, highest);
}
void camera_settings::set_gain_range(float lowest, float highest) {
    set_range(own_register::gain_lowest, block_t::gain_min, gain_known, lowest, highest);
}
void camera_settings::set_iris_range(int64_t lowest, int64_t highest) {
    set_range(own_register::iris_lowest, block_t::iris_min, iris_known, lowest, highest);
}

bool camera_settings::automatic_function_is_on() const {
    if (!shared.flag(block_t::master_enable)) return false;
    return std::ranges::any_of(std::initializer_list<block_t::offset>{block_t::auto_exposure, block_t::auto_gain,
                                                                      block_t::auto_iris, block_t::auto_white_balance,
                                                                      block_t::white_balance_once,
                                                                      block_t::focus_request},
                               [this](block_t::offset at) { return shared.flag(at); });
}

void camera_settings::take_finished() const {
    const std::lock_guard guard{mutex}; // or a request that comes meanwhile is taken for the finished one
    if (shared.flag(block_t::white_balance_finished)) shared.set_flag(block_t::white_balance_once, false);
    if (shared.flag(block_t::focus_finished)) shared.set_flag(block_t::focus_request, false);
}

std::shared_ptr<camera_settings> settings_registry::get(uint64_t mac, std::optional<uint32_t> group,
                                                        std::optional<uint32_t> user, std::error_code& error) {
    const std::lock_guard guard{mutex};
    std::erase_if(known, [](const auto& entry) { return entry.second.expired(); });
    auto& entry = known[{mac, user}];
    if (auto live = entry.lock(); live && !live->is_broken()) return live;
    try {
        auto made = std::make_shared<camera_settings>(group, user);
        entry = made;
        return made;
    } catch (const std::system_error& failure) {
        error = failure.code();
        return nullptr;
    }
}

} // namespace image_features
