#include "service_memory.h"

#include <gds_gentl_producer/error_translation.h>
#include <gds_gentl_producer/producer_device_remote_port_base.h>
#include <gds_helper/log.h>
#include <ipc_rpc/catalogue.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <cstring>

namespace gds_producer {

using namespace GenTL;
namespace catalogue = ipc_rpc::catalogue;

producer_device_remote_port_base::producer_device_remote_port_base(std::string id, Producer::PortInfo info,
                                                                   ipc_rpc::client_object_handle device_handle)
    : PortImpl(std::move(id), std::move(info)), device(std::move(device_handle)) {}

std::expected<size_t, std::error_code> producer_device_remote_port_base::read_mem(uint64_t address,
                                                                                  std::span<std::byte> data,
                                                                                  uint32_t flags,
                                                                                  uint64_t timeout) const {
    const auto bytes = device.invoke<catalogue::read_mem>(address, uint64_t{data.size()}, flags, timeout);
    if (!bytes) return std::unexpected(bytes.error());
    const size_t count = std::min(bytes->size(), data.size());
    if (count != 0) std::memcpy(data.data(), bytes->data(), count);
    return count;
}

std::expected<size_t, std::error_code> producer_device_remote_port_base::write_mem(uint64_t address,
                                                                                   std::span<const std::byte> data,
                                                                                   uint32_t flags,
                                                                                   uint64_t timeout) const {
    if (exceeds_a_call(data.size())) return std::unexpected(make_error_code(ipc_rpc::status::param_block_too_large));
    const auto written = device.invoke<catalogue::write_mem>(address, data, flags, timeout);
    if (!written) return std::unexpected(written.error());
    return std::min<size_t>(*written, data.size());
}

std::expected<uint32_t, std::error_code> producer_device_remote_port_base::read_reg(uint32_t address, uint32_t flags,
                                                                                    uint64_t timeout) const {
    return device.invoke<catalogue::read_reg>(uint64_t{address}, flags, timeout);
}

std::error_code producer_device_remote_port_base::write_reg(uint32_t address, uint32_t value, uint32_t flags,
                                                            uint64_t timeout) const {
    const auto done = device.invoke<catalogue::write_reg>(uint64_t{address}, value, flags, timeout);
    return done ? std::error_code{} : done.error();
}

Error producer_device_remote_port_base::Read(uint64_t address, void* buffer, size_t* size) {
    const auto count = read_mem(address, {static_cast<std::byte*>(buffer), *size}, 0, default_timeout);
    if (!count) return to_gentl_error(count.error(), "read_mem");
    *size = *count;
    return success();
}

Error producer_device_remote_port_base::Write(uint64_t address, const void* buffer, size_t* size) {
    const auto count = write_mem(address, {static_cast<const std::byte*>(buffer), *size}, 0, default_timeout);
    if (!count) return to_gentl_error(count.error(), "write_mem");
    *size = *count;
    return success();
}

std::expected<std::vector<std::string>, Error> producer_device_remote_port_base::load_url_list_() {
    const auto listed = device.invoke<catalogue::get_url_info_list>();
    if (!listed) {
        gds_helper::log::get(gds_helper::log::logger_id::main)
            ->error("Failed to fetch urls from device. Message = {}.", listed.error().message());
        return std::unexpected(to_gentl_error(listed.error(), "get_url_info_list"));
    }
    std::vector<std::string> texts;
    url_versions.clear();
    for (const auto& info : *listed) {
        texts.push_back(info.url);
        url_versions.push_back(info.versions.words);
    }
    return texts;
}

// The service has looked into the document; the URL's own words come first.
void producer_device_remote_port_base::complete_url_record_(size_t index, Producer::UrlRecord& record) const {
    if (index >= url_versions.size()) return;
    const auto& words = url_versions[index];
    if (record.schema_major == 0 && record.schema_minor == 0) {
        record.schema_major = words[0];
        record.schema_minor = words[1];
    }
    if (record.file_major == 0 && record.file_minor == 0 && record.file_subminor == 0) {
        record.file_major = words[2];
        record.file_minor = words[3];
        record.file_subminor = words[4];
    }
}

} // namespace gds_producer
