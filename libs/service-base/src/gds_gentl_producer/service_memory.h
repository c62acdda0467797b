// Access to the part of a module's register space that the service answers.
#pragma once

#include <gds_gentl_producer/error_translation.h>
#include <ipc_rpc/catalogue.h>
#include <ipc_rpc/rpc_packet.h>

#include <algorithm>
#include <cstring>
#include <span>

namespace gds_producer {

inline constexpr uint64_t service_timeout_ms = 3000;

// Asked before the bytes are copied into a call: a consumer's size may be any number.
inline bool exceeds_a_call(size_t bytes) { return bytes > ipc_rpc::max_param_block; }

// `local` is the module's own map: only an address that it does not know goes to the service.
template <class Local>
GenTL::Error read_through_service(Local&& local, const ipc_rpc::client_object_handle& service, uint64_t address,
                                  void* buffer, size_t* size) {
    const size_t asked = *size;
    GenTL::Error error = local();
    if (error.code != GenTL::GC_ERR_INVALID_ADDRESS) return error;
    const auto bytes =
        service.invoke<ipc_rpc::catalogue::genicam_read_mem>(address, uint64_t{asked}, 0U, service_timeout_ms);
    if (!bytes) return to_gentl_error(bytes.error(), "genicam_read_mem");
    *size = std::min(asked, bytes->size());
    if (*size != 0) std::memcpy(buffer, bytes->data(), *size);
    return GenTL::success();
}

template <class Local>
GenTL::Error write_through_service(Local&& local, const ipc_rpc::client_object_handle& service, uint64_t address,
                                   const void* buffer, size_t* size) {
    const size_t asked = *size;
    GenTL::Error error = local();
    if (error.code != GenTL::GC_ERR_INVALID_ADDRESS) return error;
    if (exceeds_a_call(asked)) {
        return to_gentl_error(make_error_code(ipc_rpc::status::param_block_too_large), "genicam_write_mem");
    }
    const std::span bytes{static_cast<const std::byte*>(buffer), asked};
    const auto written = service.invoke<ipc_rpc::catalogue::genicam_write_mem>(address, bytes, 0U, service_timeout_ms);
    if (!written) return to_gentl_error(written.error(), "genicam_write_mem");
    *size = std::min<size_t>(asked, *written);
    return GenTL::success();
}

} // namespace gds_producer
