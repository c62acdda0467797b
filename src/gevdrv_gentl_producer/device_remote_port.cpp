#include "device_remote_port.h"

#include <gds_gentl_producer/error_translation.h>

#include <pugixml.hpp>

#include <algorithm>
#include <charconv>
#include <string_view>

namespace gevdrv::gentl {

using namespace GenTL;

GenICam::result<size_t> device_port_proxy::read(int64_t address, std::span<std::byte> data, unsigned flags) {
    const auto count = port.read_mem(static_cast<uint64_t>(address), data, flags, port.default_timeout);
    if (!count) return std::unexpected(gds_producer::to_genicam_error(count.error()));
    return *count;
}

std::error_code device_port_proxy::write(int64_t address, std::span<const std::byte> data, unsigned flags) {
    const auto count = port.write_mem(static_cast<uint64_t>(address), data, flags, port.default_timeout);
    if (!count) return gds_producer::to_genicam_error(count.error());
    return *count == data.size() ? std::error_code{} : make_error_code(GenICam::genicam_errc::generic_error);
}

std::expected<uint32_t, std::error_code> controlchannel_proxy::read_reg(uint32_t address, uint32_t, uint32_t timeout) {
    return port.read_reg(address, 0, timeout);
}

std::error_code controlchannel_proxy::write_reg(uint32_t address, uint32_t value, uint32_t flags, uint32_t timeout) {
    return port.write_reg(address, value, flags, timeout);
}

std::error_code controlchannel_proxy::read_mem(uint32_t address, std::span<std::byte> data, uint32_t flags,
                                               uint64_t timeout) {
    const auto count = port.read_mem(address, data, flags, timeout);
    if (!count) return count.error();
    return *count == data.size() ? std::error_code{} : std::make_error_code(std::errc::io_error);
}

std::error_code controlchannel_proxy::write_mem(uint32_t address, std::span<const std::byte> data, uint32_t flags,
                                                uint64_t timeout) {
    const auto count = port.write_mem(address, data, flags, timeout);
    if (!count) return count.error();
    return *count == data.size() ? std::error_code{} : std::make_error_code(std::errc::io_error);
}

device_remote_port::device_remote_port(std::string id, Producer::PortInfo info,
                                       ipc_rpc::client_object_handle device_handle,
                                       std::function<void(bool)> on_acquisition)
    : producer_device_remote_port_base(std::move(id), std::move(info), std::move(device_handle)),
      acquisition_changed(std::move(on_acquisition)) {}

device_remote_port::~device_remote_port() { document.reset(); /* before the proxy that it is bound to */ }

Error device_remote_port::init() {
    uint32_t url_count = 0;
    if (Error error = GetNumURLs(&url_count); error.failed()) return error;
    Error error = load_document(0);
    // A camera has a second URL for when the first cannot be followed. The error of the first is the one to mend.
    for (uint32_t index = 1; error.failed() && index < url_count; ++index) {
        if (!load_document(index).failed()) error = success();
    }
    if (error.failed()) return error;
    auto* port = document->find<GenICam::IPort>("Device");
    if (port == nullptr) return {GC_ERR_ERROR, "Failed to find 'Device' port in GenICam document from the camera"};
    return gds_producer::to_gentl_error(port->bind(&port_proxy, 0), "Failed to bind the 'Device' port");
}

Error device_remote_port::load_document(uint32_t index) {
    auto text = read_document(index);
    if (!text) return std::move(text.error());
    document_text = std::move(*text);
    acq_start_stop_register.reset();
    return parse_acquisition_register();
}

Error device_remote_port::parse_acquisition_register() {
    pugi::xml_document xml;
    if (!xml.load_buffer(document_text.data(), document_text.size())) {
        return {GC_ERR_ERROR, "Failed to parse GenICam document"};
    }
    for (const std::string_view name :
         {"AcquisitionStartStopRegister_ForwardRegister", "AcquisitionStartStopRegister"}) {
        const auto found = xml.find_node(
            [&](const pugi::xml_node& node) { return std::string_view{node.attribute("Name").value()} == name; });
        if (!found) continue;
        std::string_view text = found.child("Address").text().get();
        text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
        if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
        uint64_t address = 0;
        std::from_chars(text.data(), text.data() + text.size(), address, 16);
        if (address != 0) acq_start_stop_register = address;
        break;
    }
    document = GenICam::create_document(std::move(xml));
    if (!document) return {GC_ERR_ERROR, "Failed to parse GenICam document"};
    return success();
}

Error device_remote_port::Write(uint64_t address, const void* buffer, size_t* size) {
    if (acquisition_changed && acq_start_stop_register == address && *size == 4) {
        const auto last_byte = static_cast<const std::byte*>(buffer)[3];
        if (last_byte == std::byte{1}) acquisition_changed(true);
        if (last_byte == std::byte{0}) acquisition_changed(false);
    }
    return producer_device_remote_port_base::Write(address, buffer, size);
}

} // namespace gevdrv::gentl
