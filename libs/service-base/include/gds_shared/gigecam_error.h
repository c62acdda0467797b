// What a camera, its driver or the way to it can answer: a std::error_code of the category "GigECam Error".
#pragma once

#include <gentl_producer/Error.h>

#include <cstdint>
#include <system_error>

namespace gds_shared {

// Values from 0x80008000 on are GigE Vision status values with 0x8000 in front.
enum class gigecam_errc : int {
    success = 0,
    pending = 0x501,
    timeout = static_cast<int>(0x80000001U),
    parsing_failed = static_cast<int>(0x80000002U),
    device_lost = static_cast<int>(0x80000003U),
    option_not_available = static_cast<int>(0x80000004U),
    socket_error = static_cast<int>(0x80000005U),
    parsing_ack_packet_failed = static_cast<int>(0x80000006U),
    generic_error = static_cast<int>(0x8000000FU),
    not_implemented = static_cast<int>(0x80008001U),
    invalid_parameter = static_cast<int>(0x80008002U),
    invalid_address = static_cast<int>(0x80008003U),
    write_protect = static_cast<int>(0x80008004U),
    bad_alignment = static_cast<int>(0x80008005U),
    access_denied = static_cast<int>(0x80008006U),
    busy = static_cast<int>(0x80008007U),
    device_unreachable = static_cast<int>(0x80008101U),
};

[[nodiscard]] const std::error_category& gigecam_error_category() noexcept;

[[nodiscard]] inline std::error_code make_error_code(gigecam_errc value) noexcept {
    return {static_cast<int>(value), gigecam_error_category()};
}

// For codes of this category only.
[[nodiscard]] GenTL::Error gigecam_to_gentl_error(const std::error_code& code);

} // namespace gds_shared

template <>
struct std::is_error_code_enum<gds_shared::gigecam_errc> : std::true_type {};
