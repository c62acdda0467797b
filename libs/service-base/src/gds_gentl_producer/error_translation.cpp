#include <GenICam/error.h>
#include <gds_gentl_producer/error_translation.h>
#include <gds_shared/gigecam_error.h>
#include <ipc_rpc/status.h>

#include <array>

namespace gds_producer {

using namespace GenTL;

namespace {

GC_ERROR code_of_rpc(int value) {
    switch (static_cast<ipc_rpc::status>(value)) {
    case ipc_rpc::status::function_not_found:
        return GC_ERR_NOT_IMPLEMENTED;
    case ipc_rpc::status::object_not_found:
    case ipc_rpc::status::object_expired:
        return GC_ERR_INVALID_HANDLE;
    case ipc_rpc::status::bad_parameter:
    case ipc_rpc::status::bad_return_value:
    case ipc_rpc::status::bad_packet:
    case ipc_rpc::status::unknown_transaction:
    case ipc_rpc::status::connection_closed:
        return GC_ERR_IO;
    case ipc_rpc::status::param_block_too_large:
        return GC_ERR_INVALID_PARAMETER;
    case ipc_rpc::status::resource_exhausted:
        return GC_ERR_RESOURCE_EXHAUSTED;
    default:
        return GC_ERR_ERROR;
    }
}

GC_ERROR code_of_genicam(int value) {
    using GenICam::genicam_errc;
    switch (static_cast<genicam_errc>(value)) {
    case genicam_errc::timeout:
        return GC_ERR_TIMEOUT;
    case genicam_errc::device_lost:
        return GC_ERR_CUSTOM_ID;
    case genicam_errc::not_implemented:
    case genicam_errc::node_not_implemented:
        return GC_ERR_NOT_IMPLEMENTED;
    case genicam_errc::access_denied:
    case genicam_errc::node_locked:
        return GC_ERR_ACCESS_DENIED;
    case genicam_errc::node_not_available:
        return GC_ERR_NOT_AVAILABLE;
    case genicam_errc::out_of_memory:
        return GC_ERR_OUT_OF_MEMORY;
    case genicam_errc::resource_exhausted:
        return GC_ERR_RESOURCE_EXHAUSTED;
    case genicam_errc::no_data:
        return GC_ERR_NO_DATA;
    case genicam_errc::buffer_too_small:
        return GC_ERR_BUFFER_TOO_SMALL;
    case genicam_errc::invalid_parameter:
        return GC_ERR_INVALID_PARAMETER;
    case genicam_errc::invalid_address:
        return GC_ERR_INVALID_ADDRESS;
    default:
        return GC_ERR_ERROR;
    }
}

struct generic_row {
    std::errc condition;
    GC_ERROR code;
};
constexpr std::array generic_rows{
    generic_row{std::errc::timed_out, GC_ERR_TIMEOUT},
    generic_row{std::errc::permission_denied, GC_ERR_ACCESS_DENIED},
    generic_row{std::errc::operation_not_permitted, GC_ERR_ACCESS_DENIED},
    generic_row{std::errc::function_not_supported, GC_ERR_NOT_IMPLEMENTED},
    generic_row{std::errc::not_enough_memory, GC_ERR_OUT_OF_MEMORY},
    generic_row{std::errc::invalid_argument, GC_ERR_INVALID_PARAMETER},
    generic_row{std::errc::bad_address, GC_ERR_INVALID_ADDRESS},
    generic_row{std::errc::device_or_resource_busy, GC_ERR_BUSY},
    generic_row{std::errc::address_in_use, GC_ERR_RESOURCE_IN_USE},
    generic_row{std::errc::address_not_available, GC_ERR_NOT_AVAILABLE},
    generic_row{std::errc::host_unreachable, GC_ERR_NOT_AVAILABLE},
    generic_row{std::errc::network_unreachable, GC_ERR_NOT_AVAILABLE},
    generic_row{std::errc::no_such_device, GC_ERR_NOT_AVAILABLE},
    generic_row{std::errc::no_such_file_or_directory, GC_ERR_NOT_AVAILABLE},
    generic_row{std::errc::operation_canceled, GC_ERR_ABORT},
    generic_row{std::errc::connection_aborted, GC_ERR_IO},
    generic_row{std::errc::connection_reset, GC_ERR_IO},
    generic_row{std::errc::connection_refused, GC_ERR_IO},
    generic_row{std::errc::broken_pipe, GC_ERR_IO},
    generic_row{std::errc::io_error, GC_ERR_IO},
    generic_row{std::errc::no_buffer_space, GC_ERR_RESOURCE_EXHAUSTED},
    generic_row{std::errc::too_many_files_open, GC_ERR_RESOURCE_EXHAUSTED},
    generic_row{std::errc::too_many_files_open_in_system, GC_ERR_RESOURCE_EXHAUSTED},
    generic_row{std::errc::no_message_available, GC_ERR_NO_DATA},
};

GC_ERROR code_of_generic(const std::error_code& code) {
    for (const generic_row& row : generic_rows) {
        if (code == row.condition) return row.code;
    }
    return GC_ERR_ERROR;
}

} // namespace

Error to_gentl_error(const std::error_code& code, std::string_view doing) {
    if (!code) return success();
    if (code.category() == gds_shared::gigecam_error_category()) return gds_shared::gigecam_to_gentl_error(code);
    GC_ERROR gentl_code = GC_ERR_ERROR;
    if (code.category() == ipc_rpc::ipc_rpc_error_category()) {
        gentl_code = code_of_rpc(code.value());
    } else if (code.category() == GenICam::genicam_category()) {
        gentl_code = code_of_genicam(code.value());
    } else if (code.category() == std::generic_category() || code.category() == std::system_category()) {
        gentl_code = code_of_generic(code);
    }
    if (doing.empty()) return {gentl_code, code.message()};
    return {gentl_code, "{}: {}", doing, code.message()};
}

std::error_code to_genicam_error(const std::error_code& code) noexcept {
    using gds_shared::gigecam_errc;
    using GenICam::genicam_errc;
    if (!code || code.category() == GenICam::genicam_category()) return code;
    if (code.category() == gds_shared::gigecam_error_category()) {
        switch (static_cast<gigecam_errc>(code.value())) {
        case gigecam_errc::timeout:
            return genicam_errc::timeout;
        case gigecam_errc::device_lost:
            return genicam_errc::device_lost;
        case gigecam_errc::not_implemented:
            return genicam_errc::not_implemented;
        case gigecam_errc::invalid_parameter:
            return genicam_errc::invalid_parameter;
        case gigecam_errc::invalid_address:
            return genicam_errc::invalid_address;
        case gigecam_errc::bad_alignment:
            return genicam_errc::bad_alignment;
        case gigecam_errc::write_protect:
        case gigecam_errc::access_denied:
            return genicam_errc::access_denied;
        default:
            return genicam_errc::generic_error;
        }
    }
    if (code == std::errc::timed_out) return genicam_errc::timeout;
    if (code == std::errc::not_enough_memory) return genicam_errc::out_of_memory;
    return genicam_errc::generic_error;
}

} // namespace gds_producer
