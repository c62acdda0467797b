#include "camera_dump.h"

#include "../output/output.h"

#include <gige/gvcp.h>

#include <fmt/format.h>

#include <array>

namespace cli {

namespace {

namespace reg = gige::gvcp::reg;

struct text_register {
    const char* name;
    uint32_t address;
    size_t length;
};
constexpr text_register texts[] = {
    {"manufacturer", reg::vendor, 32},           {"model", reg::model, 32},
    {"device version", reg::device_version, 32}, {"information", reg::information, 48},
    {"serial number", reg::serial, 16},          {"user-defined name", reg::user_name, 16},
    {"first URL", reg::first_url, 512},          {"second URL", reg::second_url, 512},
};

struct word_register {
    const char* name;
    uint32_t address;
};
constexpr word_register words[] = {
    {"version", reg::version},
    {"device mode", reg::device_mode},
    {"MAC address, high", reg::mac_high},
    {"MAC address, low", reg::mac_low},
    {"IP configuration supported", reg::ip_config_supported},
    {"IP configuration", reg::ip_config_current},
    {"address", reg::current_address},
    {"mask", reg::current_mask},
    {"gateway", reg::current_gateway},
    {"network interfaces", reg::interface_count},
    {"persistent address", reg::persistent_address},
    {"persistent mask", reg::persistent_mask},
    {"persistent gateway", reg::persistent_gateway},
    {"message channels", reg::message_channel_count},
    {"stream channels", reg::stream_channel_count},
    {"stream capability", reg::stream_capability},
    {"stream configuration", reg::stream_configuration},
    {"control capability", reg::control_capability},
    {"heartbeat time-out, ms", reg::heartbeat_timeout},
    {"tick frequency, high", reg::tick_frequency_high},
    {"tick frequency, low", reg::tick_frequency_low},
    {"discovery delay", reg::discovery_delay},
    {"control configuration", reg::control_configuration},
    {"privilege", reg::privilege},
    {"message port", reg::message_port},
    {"message address", reg::message_address},
    {"message time-out, ms", reg::message_timeout},
    {"message retries", reg::message_retries},
    {"message source port", reg::message_source_port},
    {"stream port", reg::stream_port},
    {"stream packet size", reg::stream_packet_size},
    {"stream packet delay", reg::stream_packet_delay},
    {"stream address", reg::stream_address},
    {"stream source port", reg::stream_source_port},
    {"stream channel capability", reg::stream_channel_capability},
    {"stream channel configuration", reg::stream_channel_configuration},
};

bool read(const gentl_library& lib, void* port, uint32_t address, std::span<std::byte> into) {
    size_t size = into.size();
    return lib.GCReadPort(port, address, into.data(), &size) == GenTL::GC_ERR_SUCCESS && size == into.size();
}

} // namespace

std::string bootstrap_registers(const gentl_library& lib, void* port) {
    std::string lines;
    for (const auto& [name, address, length] : texts) {
        std::vector<std::byte> bytes(length);
        const bool readable = read(lib, port, address, bytes);
        std::string text{reinterpret_cast<const char*>(bytes.data()), bytes.size()};
        text = text.substr(0, text.find('\0'));
        lines += fmt::format("0x{:04X}  {:<30} {}\n", address, name, readable ? '"' + text + '"' : "not readable");
    }
    for (const auto& [name, address] : words) {
        std::array<std::byte, 4> bytes{};
        const bool readable = read(lib, port, address, bytes);
        const std::string value = readable ? fmt::format("0x{:08X}", gige::load32(bytes.data())) : "not readable";
        lines += fmt::format("0x{:04X}  {:<30} {}\n", address, name, value);
    }
    return lines;
}

void dump_camera(const gentl_library& lib, const tl_device& device, const std::string& folder,
                 std::vector<named_content>& files, std::vector<std::pair<std::string, std::string>>& missing) {
    void* const port = remote_port(lib, device);
    files.push_back({folder + "/registers.txt", bootstrap_registers(lib, port)});
    try {
        const port_document document = read_document(lib, port);
        files.push_back({folder + "/document.xml", document.text});
        const node_map nodes{lib, port};
        nlohmann::json all = nlohmann::json::array();
        if (auto* root = nodes.document().get_root_category(); root != nullptr)
            for (GenICam::INode* feature : root->get_all_features()) all.push_back(describe(*feature));
        files.push_back({folder + "/features.json", json_text({{"url", document.url}, {"features", all}}) + '\n'});
    } catch (const std::exception& reason) {
        missing.emplace_back(folder + "/features.json", reason.what());
    }
}

} // namespace cli
