#include "device_record.h"

#include <algorithm>

namespace gvcp_master {

namespace reg = gige::gvcp::reg;

std::optional<device_record> parse_discovery(std::span<const std::byte> body) {
    if (body.size() < gige::gvcp::discovery_size) return {};
    const auto text = [&](uint32_t at, std::size_t capacity) {
        const auto field = body.subspan(at, capacity);
        const auto end = std::ranges::find(field, std::byte{0});
        return std::string{reinterpret_cast<const char*>(field.data()), static_cast<std::size_t>(end - field.begin())};
    };
    const auto word = [&](uint32_t at) { return gige::load32(&body[at]); };
    device_record device;
    device.mac = static_cast<uint64_t>(word(reg::mac_high) & 0xFFFF) << 32 | word(reg::mac_low);
    device.address = word(reg::current_address);
    device.mask = word(reg::current_mask);
    device.gateway = word(reg::current_gateway);
    device.version = word(reg::version);
    device.ip_config_supported = word(reg::ip_config_supported);
    device.ip_config_current = word(reg::ip_config_current);
    device.vendor = text(reg::vendor, 32);
    device.model = text(reg::model, 32);
    device.device_version = text(reg::device_version, 32);
    device.information = text(reg::information, 48);
    device.serial = text(reg::serial, 16);
    device.user_name = text(reg::user_name, 16);
    return device;
}

} // namespace gvcp_master
