// Errors of the GenICam engine: a std::error_code of the category "GenICam Error", or a value.
#pragma once

#include <cstdint>
#include <expected>
#include <system_error>

namespace GenICam {

// The values are those of the interface; the texts stand in genicam_error_category::message().
enum class genicam_errc : int {
    success = 0,
    generic_error = static_cast<int>(0x80000001u),
    timeout = static_cast<int>(0x80000002u),
    device_lost = static_cast<int>(0x80000003u),
    not_implemented = static_cast<int>(0x80000004u),
    access_denied = static_cast<int>(0x80000005u),
    out_of_memory = static_cast<int>(0x80000006u),
    resource_exhausted = static_cast<int>(0x80000007u),
    no_data = static_cast<int>(0x80000008u),
    buffer_too_small = static_cast<int>(0x80000010u),
    invalid_parameter = static_cast<int>(0x80000011u),
    invalid_address = static_cast<int>(0x80000012u),
    bad_alignment = static_cast<int>(0x80000013u),
    not_in_cache = static_cast<int>(0x80000101u),
    index_out_of_range = static_cast<int>(0x80000102u),
    bad_formula = static_cast<int>(0x80000103u),
    // Also what an access answers that runs in a circle or deeper than any sound document goes.
    invalid_document = static_cast<int>(0x80000104u),
    value_out_of_range = static_cast<int>(0x80000110u),
    node_not_implemented = static_cast<int>(0x80000111u),
    node_locked = static_cast<int>(0x80000112u),
    node_not_available = static_cast<int>(0x80000113u),
    not_in_value_set = static_cast<int>(0x80000114u),
    not_on_increment = static_cast<int>(0x80000115u),
    port_not_bound = static_cast<int>(0x80000116u),
    no_such_entry = static_cast<int>(0x80000117u),
};

class genicam_error_category final : public std::error_category {
public:
    [[nodiscard]] const char* name() const noexcept override;
    // Empty for a value that is none of genicam_errc.
    [[nodiscard]] std::string message(int value) const override;
    [[nodiscard]] std::error_condition default_error_condition(int value) const noexcept override;
};

// The one instance.
[[nodiscard]] const std::error_category& genicam_category() noexcept;

[[nodiscard]] inline std::error_code make_error_code(genicam_errc value) noexcept {
    return {static_cast<int>(value), genicam_category()};
}

template <class T>
using result = std::expected<T, std::error_code>;

[[nodiscard]] inline std::unexpected<std::error_code> fail(genicam_errc value) noexcept {
    return std::unexpected<std::error_code>{make_error_code(value)};
}
[[nodiscard]] inline std::unexpected<std::error_code> fail(std::error_code code) noexcept {
    return std::unexpected<std::error_code>{code};
}

} // namespace GenICam

template <>
struct std::is_error_code_enum<GenICam::genicam_errc> : std::true_type {};
