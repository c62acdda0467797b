#include <gds_gentl_producer/producer_device_data_stream.h>

#include <spdlog/logger.h>

#include <chrono>
#include <system_error>

namespace gds_producer {

using namespace GenTL;
using namespace GenTL::Producer;

namespace {

constexpr auto& logger = gds_helper::log::gvsp_logger;

// GigE Vision sends the id and length words of chunks in network byte order.
constexpr uint32_t big_endian_trailer = 1;

uint64_t steady_microseconds() {
    using namespace std::chrono;
    return static_cast<uint64_t>(duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count());
}

} // namespace

producer_device_data_stream::producer_device_data_stream(producer_device_base& parent, std::string id)
    : DataStreamImpl(parent, std::move(id)), device(parent), settings(parent.settings()), processing(settings) {}

std::expected<std::shared_ptr<Buffer>, Error> producer_device_data_stream::create_buffer_(void* base, size_t size,
                                                                                          void* user_ptr) {
    return make_chunk_buffer(big_endian_trailer, base, size, user_ptr);
}

Error producer_device_data_stream::start_acquisition_() {
    packet_loss_frames = 0;
    transform_queue_drops = 0;
    delivered.reset();
    auto acquired = device.acquire_stream_channel();
    if (!acquired) return std::move(acquired.error());
    lease = std::move(*acquired);

    queue_mode_dedicated = settings.flag(settings_block::master_enable) &&
                           device.queue_mode() != transform_queue_mode::use_direct_transform;
    if (queue_mode_dedicated) {
        try {
            mailbox.start([this](void* frame) { update_and_deliver_buffer(*static_cast<Buffer*>(frame)); });
        } catch (const std::system_error& failure) {
            lease.reset();
            return {GC_ERR_RESOURCE_EXHAUSTED, "Failed to start the delivering thread: {}", failure.what()};
        }
    }
    Error error = open_stream(lease);
    if (!error.failed()) {
        device.set_streaming(true);
        error = stream_opened();
    }
    if (error.failed()) {
        give_up_filling(); // this thread holds the lock that the receive thread may ask for
        stop_acquisition_(true);
    }
    return error;
}

void producer_device_data_stream::stop_acquisition_(bool) {
    close_stream();
    requeue(mailbox.stop());
    lease.reset();
    device.set_streaming(false);
}

void producer_device_data_stream::flush_filling_buffers_() {
    flush_stream();
    requeue(mailbox.take());
}

void producer_device_data_stream::requeue(void* frame) {
    if (frame != nullptr) queue_buffer_from_filling_to_input(static_cast<Buffer*>(frame));
}

void producer_device_data_stream::discard_buffer(Buffer& buffer) {
    if (logger().should_log(spdlog::level::trace)) logger().trace("Discarding buffer={}.", fmt::ptr(&buffer));
    queue_buffer_from_filling_to_input(&buffer);
}

void producer_device_data_stream::push_async_deliver(Buffer& buffer) {
    if (buffer.fill_state == FillState::incomplete && settings.flag(settings_block::drop_incomplete_frames)) {
        ++packet_loss_frames;
        if (logger().should_log(spdlog::level::trace)) {
            logger().trace("Requeue buffer={} being incomplete (frame-id={} image_data_size={}, filled_bytes={}).",
                           fmt::ptr(&buffer), buffer.frame_id, buffer.data_size, buffer.size_filled);
        }
        queue_buffer_from_filling_to_input(&buffer);
        return;
    }
    if (!queue_mode_dedicated) {
        update_and_deliver_buffer(buffer);
        return;
    }
    const auto [stopped, returned] = mailbox.push_image_replace(&buffer);
    if (returned == nullptr) return;
    if (stopped) {
        logger().info("Forward push_image_replace discarded buffer={} due to stop flag set.", returned);
    } else {
        logger().info("Requeue push_image_replace discarded buffer={} due to transform-thread being slow.", returned);
        ++transform_queue_drops;
    }
    requeue(returned);
}

void producer_device_data_stream::update_and_deliver_buffer(Buffer& buffer) {
    const uint64_t began = steady_microseconds();
    uint64_t spent = 0;
    if (processing.is_due()) {
        processing.process_image(buffer, began * 1000, lease);
        spent = steady_microseconds() - began;
    }
    delivered.frame(began, spent);
    queue_buffer_from_filling_to_output(&buffer);
}

void producer_device_data_stream::build_register_map(Util::GenApiInterfaceBuilder& builder) {
    DataStreamImpl::build_register_map(builder);
    add_DeviceInstance_genicam_items(builder);
    add_DeviceDataStream_and_DeviceInstance_genicam_items(builder);
}

void producer_device_data_stream::add_DeviceInstance_genicam_items(Util::GenApiInterfaceBuilder& builder) {
    auto& drop_incomplete = builder.add_rw_boolean(
        "DropIncompleteFrames",
        [this]() -> std::expected<bool, Error> { return settings.flag(settings_block::drop_incomplete_frames); },
        [this](bool value) {
            settings.set_flag(settings_block::drop_incomplete_frames, value);
            return success();
        },
        "DropIncompleteFrames_Register");
    drop_incomplete.display_name = "Drop Incomplete Frames";
    drop_incomplete.tool_tip = "When enabled, incomplete frames are discarded immediately.";
    auto& control = builder.add_category("DataStreamControl", {"DropIncompleteFrames"});
    control.display_name = "Data Stream Control";
    control.tool_tip = "Data Stream Control Category";
}

void producer_device_data_stream::add_DeviceDataStream_and_DeviceInstance_genicam_items(
    Util::GenApiInterfaceBuilder& builder) {
    auto& drops = builder.add_ro_integer<uint64_t>(
        "TransformQueueDropCount", [this]() -> std::expected<uint64_t, Error> { return transform_queue_drops.load(); },
        "TransformQueueDropCount_Register");
    drops.display_name = "Transform Queue Drop Count";
    drops.tool_tip = "Count of frames dropped due to transform queue overrun.";

    auto& statistics =
        builder.add_category("StreamStatistics", {"StreamDeliveredFrameCount", "StreamLostFrameCount",
                                                  "StreamPacketLossFrameCount", "TransformQueueDropCount"});
    statistics.display_name = "Stream Statistics";
    statistics.tool_tip = "Category for stream channel statistics.";
}

} // namespace gds_producer
