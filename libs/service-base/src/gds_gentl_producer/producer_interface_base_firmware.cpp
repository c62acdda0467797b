// The features with which a consumer hands a firmware package to the service. The service does the update.
#include <gds_gentl_producer/error_translation.h>
#include <gds_gentl_producer/file_dialog.h>
#include <gds_gentl_producer/producer_interface_base.h>
#include <ipc_rpc/catalogue.h>
#include <ipc_rpc/rpc_packet.h>
#include <ipc_rpc/status.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>

namespace gds_producer {

using namespace GenTL;
using namespace GenTL::Producer;
namespace catalogue = ipc_rpc::catalogue;

namespace {

Error no_device() { return {GC_ERR_INVALID_INDEX, "No device selected to upload firmware package to."}; }

// Only regular files: a pipe or a device could keep the reader for ever.
bool is_file(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::is_regular_file(path, ignored);
}

std::optional<ipc_rpc::byte_vector> read_file(const std::string& path) {
    std::error_code failed;
    const auto size = std::filesystem::file_size(path, failed);
    if (failed || !is_file(path)) return {};
    std::ifstream file{path, std::ios::binary};
    ipc_rpc::byte_vector bytes(size);
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size));
    if (!file || file.gcount() != static_cast<std::streamsize>(size)) return {};
    return bytes;
}

} // namespace

Error producer_interface_base::set_firmware_package(std::string path) {
    // An empty path takes the choice back; it is also what a consumer writes who restores what he once read.
    if (!path.empty() && !is_file(path)) return {GC_ERR_INVALID_PARAMETER, "Failed to open passed in file '{}'", path};
    const std::lock_guard guard{firmware_mutex};
    firmware_package_path = std::move(path);
    return success();
}

Error producer_interface_base::upload_firmware() {
    std::string path;
    {
        const std::lock_guard guard{firmware_mutex};
        path = firmware_package_path;
    }
    if (path.empty()) return {GC_ERR_INVALID_PARAMETER, "No firmware package to upload specified."};
    const auto device = selected_device_info();
    if (!device) return no_device();
    // Not read at all: the memory for it may not be there, and it would not get through.
    std::error_code unreadable;
    if (std::filesystem::file_size(path, unreadable) > ipc_rpc::max_param_block && !unreadable)
        return to_gentl_error(make_error_code(ipc_rpc::status::param_block_too_large), "firmware_package_upload");
    auto package = read_file(path);
    if (!package) return {GC_ERR_INVALID_PARAMETER, "Could not open package file '{}'.", path};

    struct on_its_way {
        explicit on_its_way(std::atomic<int>& of) : count(of) { ++count; }
        ~on_its_way() { --count; }
        on_its_way(const on_its_way&) = delete;
        on_its_way& operator=(const on_its_way&) = delete;
        std::atomic<int>& count;
    };
    const on_its_way locked{firmware_uploads};
    const auto accepted =
        service_handle().invoke<catalogue::firmware_package_upload>(device->id, *package, std::string{}, 0U);
    return accepted ? success() : to_gentl_error(accepted.error(), "firmware_package_upload");
}

std::expected<std::string, Error> producer_interface_base::firmware_progress() {
    const auto device = selected_device_info();
    if (!device) return std::unexpected(no_device());
    auto text = service_handle().invoke<catalogue::firmware_package_upload_state>(device->id);
    return text ? std::move(*text) : std::string{};
}

void producer_interface_base::build_genicam_document_firmwareupdate(Util::GenApiInterfaceBuilder& builder) {
    const auto describe = [](auto& node, const char* display_name, const char* tool_tip) {
        node.display_name = display_name;
        node.tool_tip = tool_tip;
    };
    describe(builder.add_rw_string(
                 "FirmwareUpdatePackageFile", 1024,
                 [this]() -> std::expected<std::string, Error> {
                     const std::lock_guard guard{firmware_mutex};
                     return firmware_package_path;
                 },
                 [this](std::string path) { return set_firmware_package(std::move(path)); }),
             "Firmware Update Package File", "Path to firmware package to use when uploading firmware");
    describe(builder.add_command("FirmwareUpdatePackageSelectFile",
                                 [this] {
                                     std::string start;
                                     {
                                         const std::lock_guard guard{firmware_mutex};
                                         start = firmware_package_path;
                                     }
                                     auto chosen = show_file_open_dialog({{"Firmware Package", "*.fwpack"}}, start);
                                     if (!chosen) return std::move(chosen.error());
                                     return *chosen ? set_firmware_package(std::move(**chosen)) : success();
                                 }),
             "Firmware Update Package Select File", "Show FileOpen dialog to select firmware package");
    describe(builder.add_command(
                 "FirmwareUpdateUpload", [this] { return upload_firmware(); }, "FirmwareUpdate_UploadRegister"),
             "Firmware Update Upload", "Uploads the selected firmware package");
    builder.add_lock("FirmwareUpdateUpload", "FirmwareUpdate_UploadLockedRegister",
                     [this]() -> std::expected<bool, Error> { return firmware_uploads.load() != 0; });
    describe(
        builder.add_ro_string(
            "FirmwareUpdateProgress", 256, [this] { return firmware_progress(); }, "FirmwareUpdate_ProgressRegister"),
        "Firmware Update Progress", "Current state of the firmware update for the selected device");
    describe(builder.add_category("FirmwareUpdate", {"FirmwareUpdatePackageFile", "FirmwareUpdatePackageSelectFile",
                                                     "FirmwareUpdateUpload", "FirmwareUpdateProgress"}),
             "Firmware Update", "Firmware Update Category");
    describe(builder.add_category("FirmwareUpdateControl", {"FirmwareUpdate"}), "Firmware Update Control",
             "Firmware Update Control Category");
    builder.select("DeviceSelector", {"FirmwareUpdateProgress"});
}

} // namespace gds_producer
