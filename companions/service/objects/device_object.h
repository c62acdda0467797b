// One open camera of one client: control channel, document, events, settings block, the lease of its stream.
#pragma once

#include "message_box.h"
#include "service_core.h"

#include "../gvcp/device_control.h"
#include "../gvcp/device_document.h"
#include "../gvcp/message_receiver.h"
#include "../image_features/camera_features.h"

#include <gds_helper/line_budget.h>
#include <ipc_rpc/catalogue.h>

#include <atomic>
#include <expected>
#include <optional>
#include <system_error>

namespace service {

class stream_lease;

// Thread-safe. Lock order: document_turn, then mutex; neither is held while the camera or the client is asked, but
// document_turn while documents are.
class device_object final : public interface_user, public std::enable_shared_from_this<device_object> {
public:
    // Fails when `stop` is requested before it is open.
    [[nodiscard]] static std::expected<std::shared_ptr<device_object>, std::error_code>
    open(const std::shared_ptr<service_core>& core, std::shared_ptr<client_session> session,
         const gvcp_master::device_record& record, const std::string& interface_name, ipc_rpc::open_access access,
         const std::stop_token& stop);
    ~device_object();

    [[nodiscard]] ipc_rpc::device_service_info service_info() const;
    [[nodiscard]] std::expected<ipc_rpc::byte_vector, std::error_code> read_mem(uint64_t address, uint64_t size,
                                                                                uint64_t timeout);
    [[nodiscard]] std::expected<uint64_t, std::error_code> write_mem(uint64_t address, std::span<const std::byte> bytes,
                                                                     uint64_t timeout);
    // The same list each time: what is found at first stays on offer.
    [[nodiscard]] std::expected<std::vector<ipc_rpc::url_info>, std::error_code> url_list();
    [[nodiscard]] std::expected<std::string, std::error_code> original_document();
    [[nodiscard]] std::vector<ipc_rpc::event_message> take_events();
    [[nodiscard]] std::expected<std::shared_ptr<stream_lease>, std::error_code> acquire_stream();
    [[nodiscard]] std::expected<std::string, std::error_code> user_name();
    [[nodiscard]] const client_session& client() const noexcept { return *session; }
    [[nodiscard]] gvcp_master::device_control& control() noexcept { return *camera; }
    // The client has gone: whatever still waits for the camera ends. Does not wait.
    void abandon() noexcept { camera->cancel(); }
    void interface_gone() override { camera->give_up(); }
    // Asks for what the automatic functions have computed to be brought to the camera. Does not wait.
    void write_automatic_values() {
        if (features) features->write_results();
    }

private:
    device_object(std::shared_ptr<service_core> shared, std::shared_ptr<client_session> client,
                  const gvcp_master::device_record& found);
    [[nodiscard]] std::error_code init(ipc_rpc::open_access access, const std::stop_token& stop);
    void open_events(ipc_rpc::open_access access);
    [[nodiscard]] std::expected<std::vector<ipc_rpc::url_info>, std::error_code> find_documents();
    // Under an address of the service's; false when the client has no more room for documents.
    [[nodiscard]] bool offer(std::string text);
    void take_event(std::span<const std::byte> packet);
    void let_go(); // others may have the camera

    std::shared_ptr<service_core> core;
    std::shared_ptr<client_session> session;
    const gvcp_master::device_record record;
    const std::shared_ptr<gds_helper::log::line_budget> lines = gds_helper::log::counted_lines::current();
    std::atomic<bool> holds{false};
    std::shared_ptr<ipc_rpc::reserved_bytes> seat;
    std::shared_ptr<client_session::number> lost_number;
    std::unique_ptr<message_box> events;
    std::shared_ptr<image_features::camera_settings> settings;

    std::mutex document_turn; // held while documents are fetched; guards what follows
    std::vector<ipc_rpc::url_info> offered_urls;

    std::mutex mutex;                                  // guards what follows
    std::shared_ptr<const std::string> plain_document; // other than the camera's own as it lies in its registers
    std::weak_ptr<stream_lease> lease;

    // In this order: features and receiver use the control channel, all use the rest.
    std::unique_ptr<gvcp_master::device_control> camera;
    std::unique_ptr<image_features::camera_features> features; // none when they are switched off
    std::unique_ptr<gvcp_master::message_receiver> receiver;
};

// The right to the camera's stream channel; at most one at a time.
class stream_lease final {
public:
    explicit stream_lease(std::shared_ptr<device_object> owner) : device(std::move(owner)) {}

    [[nodiscard]] std::expected<ipc_rpc::stream_channel_info, std::error_code> channel_info(uint32_t stream_index);
    [[nodiscard]] std::expected<void, std::error_code> request_resend(uint32_t channel, uint64_t block_id,
                                                                      uint32_t first, uint32_t last, bool extended);
    void write_automatic_values() { device->write_automatic_values(); }
    // Its client gives it back: the next one may be had, though calls on it still run.
    void abandon() noexcept { given_back = true; }
    [[nodiscard]] bool is_held() const noexcept { return !given_back; }

private:
    std::shared_ptr<device_object> device;
    std::atomic<bool> given_back{false};
};

} // namespace service
