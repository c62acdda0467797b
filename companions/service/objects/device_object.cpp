#include "device_object.h"

#include <gds_helper/log.h>
#include <gds_helper/printable.h>
#include <gds_shared/gigecam_error.h>
#include <genicam_gen/writer.h>
#include <ipc_rpc/limits.h>

#include <fmt/format.h>
#include <spdlog/logger.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace service {

namespace {

using gds_shared::gigecam_errc;

// Where a document stands that the camera itself keeps zipped or elsewhere, or without the software features. No camera
// has registers up there.
constexpr uint64_t plain_document_address = 0x1000000000000;
static_assert(plain_document_address + GenICam::largest_document < image_features::first_address);
constexpr uint64_t longest_timeout_ms = 60'000;
constexpr uint32_t user_name_bytes = 16;
constexpr gvcp_master::milliseconds release_time{1000};

gvcp_master::milliseconds bounded(uint64_t timeout) {
    return gvcp_master::milliseconds{std::min(timeout, longest_timeout_ms)};
}

using gds_helper::log::main_logger;

ipc_rpc::url_info to_url_info(const gvcp_master::document_url& url) {
    ipc_rpc::url_info info;
    info.versions.words = {url.schema_version[0], url.schema_version[1], url.file_version[0], url.file_version[1],
                           url.file_version[2]};
    info.url = url.url;
    return info;
}

} // namespace

device_object::device_object(std::shared_ptr<service_core> shared, std::shared_ptr<client_session> client,
                             const gvcp_master::device_record& found)
    : core(std::move(shared)), session(std::move(client)), record(found) {}

std::expected<std::shared_ptr<device_object>, std::error_code>
device_object::open(const std::shared_ptr<service_core>& core, std::shared_ptr<client_session> session,
                    const gvcp_master::device_record& record, const std::string& interface_name,
                    ipc_rpc::open_access access, const std::stop_token& stop) {
    std::shared_ptr<device_object> device{new device_object{core, std::move(session), record}};
    if (const std::error_code error = device->init(access, stop)) return std::unexpected(error);
    core->watch_end_of(interface_name, device);
    return device;
}

std::error_code device_object::init(ipc_rpc::open_access access, const std::stop_token& stop) {
    seat = session->take_device_seat();
    lost_number = session->allocate();
    if (auto number = session->allocate()) events = std::make_unique<message_box>(std::move(number));
    if (!seat || !lost_number || !events) return make_error_code(ipc_rpc::status::resource_exhausted);

    const bool reads_only = access == ipc_rpc::open_access::read_only;
    // Until whoever is about to move the camera can see that we hold it.
    std::optional<address_turns::stay> stay;
    if (!reads_only && !stay.emplace(core->addresses(), record.mac)) return make_error_code(gigecam_errc::busy);
    gvcp_master::device_control::options chosen;
    chosen.device = {record.address, gige::gvcp::port};
    chosen.mac = record.mac;
    chosen.local_address = record.local_address;
    chosen.access = static_cast<gvcp_master::access_mode>(access);
    chosen.heartbeat_timeout = core->settings().heartbeat_timeout;
    chosen.stop = core->stop_token();
    chosen.opening = stop;
    if (!reads_only && core->await_release(record.mac, release_time)) {
        chosen.port = core->ports().port_of(record.mac);
        chosen.patient = true; // whoever has it is not of this service, perhaps of one that was killed
    }
    chosen.lost = [this](std::error_code) {
        let_go();
        lost_number->raise();
        const gds_helper::log::counted_lines counted{lines};
        main_logger().warn("{} is lost.", gige::to_string(record.address));
    };
    auto opened = gvcp_master::device_control::open(std::move(chosen));
    if (!opened) {
        // The system's own of this condition is of another category.
        if (opened.error() == std::make_error_code(std::errc::host_unreachable))
            main_logger().warn("{} is another camera's address now, not {:012X}'s.", gige::to_string(record.address),
                               record.mac);
        return opened.error();
    }
    camera = std::move(*opened);
    const std::stop_callback on_stop{stop, [this] { camera->cancel(); }};
    if (!reads_only) {
        core->add_holder(record.mac, session.get());
        holds = true;
        if (camera->is_lost()) let_go(); // before we held it
        core->ports().note(record.mac, camera->local().port, this);
    }

    std::error_code no_memory;
    settings = core->camera_settings().get(record.mac, core->settings().group, session->owner(), no_memory);
    if (!settings)
        main_logger().error("No shared memory for the settings of {}: {}", gige::to_string(record.address),
                            no_memory.message());
    if (settings && !reads_only) settings->reset();
    if (settings && core->settings().image_features)
        features = std::make_unique<image_features::camera_features>(*camera, settings, lines);
    open_events(access);
    return stop.stop_requested() ? std::make_error_code(std::errc::operation_canceled) : std::error_code{};
}

void device_object::open_events(ipc_rpc::open_access access) {
    if (access == ipc_rpc::open_access::read_only) return;
    auto opened = gvcp_master::message_receiver::open(
        *camera, camera->local().address, [this](std::span<const std::byte> packet) { take_event(packet); });
    if (opened) receiver = std::move(*opened); // a camera without a message channel has no events
}

void device_object::take_event(std::span<const std::byte> packet) {
    ipc_rpc::event_message message;
    message.payload.assign(packet.begin(), packet.end());
    const gds_helper::log::counted_lines counted{lines};
    if (events->push(std::move(message)))
        main_logger().warn("Events of {} are dropped: {} wait for a client that does not fetch them.",
                           gige::to_string(record.address), ipc_rpc::limits::most_events);
}

void device_object::let_go() {
    if (holds.exchange(false)) core->remove_holder(record.mac, session.get());
}

device_object::~device_object() {
    receiver.reset();
    if (!camera) return;
    if (features) {
        camera->cancel(); // what is being written to it
        features.reset();
    }
    const bool gave_back = holds && !camera->is_lost();
    camera.reset(); // gives control back, before anybody is told so
    if (gave_back) core->ports().forget(record.mac, this);
    let_go();
}

ipc_rpc::device_service_info device_object::service_info() const {
    ipc_rpc::device_service_info info;
    info.device_lost_notification_id = lost_number->get();
    info.event_notification_id = events->notification();
    info.user_id_capacity = (camera->capability() & gige::gvcp::bits::has_user_name) != 0 ? user_name_bytes : 0;
    if (settings) info.shared_memory_name = settings->name();
    return info;
}

std::expected<ipc_rpc::byte_vector, std::error_code> device_object::read_mem(uint64_t address, uint64_t size,
                                                                             uint64_t timeout) {
    if (size > ipc_rpc::max_param_block) return std::unexpected(make_error_code(gigecam_errc::invalid_parameter));
    ipc_rpc::byte_vector bytes(size);
    if (image_features::is_software_address(address)) {
        const auto error = features ? features->read(address, bytes) : make_error_code(gigecam_errc::invalid_address);
        if (error) return std::unexpected(error);
        return bytes;
    }
    if (address >= plain_document_address) {
        const std::lock_guard guard{mutex};
        const uint64_t offset = address - plain_document_address;
        if (!plain_document || offset > plain_document->size() || size > plain_document->size() - offset) {
            return std::unexpected(make_error_code(gigecam_errc::invalid_address));
        }
        if (size != 0) std::memcpy(bytes.data(), plain_document->data() + offset, size);
        return bytes;
    }
    if (const auto error = camera->read_memory(address, bytes, bounded(timeout))) return std::unexpected(error);
    return bytes;
}

std::expected<uint64_t, std::error_code> device_object::write_mem(uint64_t address, std::span<const std::byte> bytes,
                                                                  uint64_t timeout) {
    if (image_features::is_software_address(address)) {
        const auto error = features ? features->write(address, bytes) : make_error_code(gigecam_errc::invalid_address);
        if (error) return std::unexpected(error);
        return bytes.size();
    }
    if (const auto error = camera->write_memory(address, bytes, bounded(timeout))) return std::unexpected(error);
    if (features) features->camera_written();
    return bytes.size();
}

std::expected<std::vector<ipc_rpc::url_info>, std::error_code> device_object::url_list() {
    const std::lock_guard turn{document_turn};
    if (offered_urls.empty()) {
        auto found = find_documents();
        if (!found) return found;
        offered_urls = std::move(*found);
    }
    return offered_urls;
}

bool device_object::offer(std::string text) {
    {
        const std::lock_guard guard{mutex};
        plain_document.reset(); // room for the one that takes its place
    }
    auto document = session->keep_document(core->shared_document(std::move(text)));
    const std::lock_guard guard{mutex};
    plain_document = std::move(document);
    return plain_document != nullptr;
}

std::expected<std::vector<ipc_rpc::url_info>, std::error_code> device_object::find_documents() {
    const auto urls = gvcp_master::read_url_list(*camera);
    if (!urls) return std::unexpected(urls.error());
    std::vector<ipc_rpc::url_info> list;
    std::error_code failed = std::make_error_code(std::errc::no_message_available);
    for (const auto& url : *urls) {
        // Such a one the client can read for itself.
        const bool readable = url.scheme == gvcp_master::url_scheme::local && !url.zipped();
        if (readable && (!features || !list.empty())) {
            list.push_back(to_url_info(url));
            continue;
        }
        if (!list.empty()) continue; // one document that can be read is enough
        auto text = gvcp_master::fetch_document(*camera, url, core->settings().documents);
        if (!text) {
            main_logger().warn("Document '{}' of {} cannot be had: {}", gds_helper::printable(url.url, 512),
                               gige::to_string(record.address), text.error().message());
            // The client would read for as long again. A request without an answer is no reason: the next may have one.
            const bool took_too_long = text.error() == std::make_error_code(std::errc::timed_out);
            if (readable && !took_too_long)
                list.push_back(to_url_info(url));
            else if (text.error() == std::errc::timed_out) // whichever it was
                failed = text.error();
            continue;
        }
        std::string stem{url.file_name()};
        stem = stem.substr(0, stem.rfind('.'));
        std::ranges::replace(stem, ';', '_'); // it parts a local URL's fields
        if (stem.empty()) stem = "document";
        if (auto merged = features ? features->prepare(*text) : std::nullopt) {
            *text = std::move(*merged);
            stem += fmt::format("_{:X}", genicam_gen::text_hash(*text)); // consumers keep documents by their name
        } else if (readable) {
            list.push_back(to_url_info(url));
            continue;
        }
        gvcp_master::document_url plain = url;
        plain.url = fmt::format("local:{}.xml;{:X};{:X}", stem, plain_document_address, text->size());
        if (offer(std::move(*text)))
            list.push_back(to_url_info(plain));
        else if (readable) {
            main_logger().warn("The document of {} is served without software features: the client has no room for it.",
                               gige::to_string(record.address));
            list.push_back(to_url_info(url));
        } else {
            return std::unexpected(make_error_code(ipc_rpc::status::resource_exhausted));
        }
    }
    if (list.empty()) return std::unexpected(failed);
    return list;
}

std::expected<std::string, std::error_code> device_object::original_document() {
    return gvcp_master::fetch_document(*camera, core->settings().documents);
}

std::vector<ipc_rpc::event_message> device_object::take_events() {
    auto taken = events->take();
    if (taken.dropped != 0)
        main_logger().warn("{} events of {} were dropped before the client fetched the rest.", taken.dropped,
                           gige::to_string(record.address));
    return std::move(taken.messages);
}

std::expected<std::string, std::error_code> device_object::user_name() {
    return camera->read_text(gige::gvcp::reg::user_name, user_name_bytes);
}

std::expected<std::shared_ptr<stream_lease>, std::error_code> device_object::acquire_stream() {
    const std::lock_guard guard{mutex};
    if (const auto last = lease.lock(); last && last->is_held())
        return std::unexpected(make_error_code(gigecam_errc::busy));
    auto created = std::make_shared<stream_lease>(shared_from_this());
    lease = created;
    return created;
}

std::expected<ipc_rpc::stream_channel_info, std::error_code> stream_lease::channel_info(uint32_t stream_index) {
    if (stream_index != 0) return std::unexpected(make_error_code(gigecam_errc::invalid_parameter));
    gvcp_master::device_control& camera = device->control();
    ipc_rpc::stream_channel_info info;
    info.channel_index = 0;
    info.interface_ip = camera.local().address;
    info.host_address = gige::to_string(camera.device().address);
    info.dest_port = camera.device().port;
    // Where the stream will come from, for those cameras that tell.
    const auto capability = camera.read_register(gige::gvcp::reg::stream_capability);
    if (capability && (*capability & gige::gvcp::bits::stream_source_port) != 0)
        info.source_port = camera.read_register(gige::gvcp::reg::stream_source_port).value_or(0) & 0xFFFF;
    const auto high = camera.read_register(gige::gvcp::reg::tick_frequency_high);
    const auto low = camera.read_register(gige::gvcp::reg::tick_frequency_low);
    if (high && low) info.timestamp_tick_frequency = uint64_t{*high} << 32 | *low;
    return info;
}

std::expected<void, std::error_code> stream_lease::request_resend(uint32_t channel, uint64_t block_id, uint32_t first,
                                                                  uint32_t last, bool extended) {
    if (const auto error = device->control().request_resend(channel, block_id, first, last, extended)) {
        return std::unexpected(error);
    }
    return {};
}

} // namespace service
