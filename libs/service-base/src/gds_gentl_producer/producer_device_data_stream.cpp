#include <gds_gentl_producer/producer_device_data_stream.h>

#include <spdlog/logger.h>

#include <array>
#include <chrono>
#include <exception>
#include <new>
#include <system_error>

namespace gds_producer {

using namespace GenTL;
using namespace GenTL::Producer;

namespace {

using gds_helper::log::gvsp_logger;

// GigE Vision sends the id and length words of chunks in network byte order.
constexpr uint32_t big_endian_trailer = 1;

// The thread's profiler for as long as this lives.
class profiled final {
public:
    explicit profiled(img_pipe::profiler* with) : before(img_pipe::profiler::set_current(with)) {}
    ~profiled() { img_pipe::profiler::set_current(before); }
    profiled(const profiled&) = delete;
    profiled& operator=(const profiled&) = delete;

private:
    img_pipe::profiler* before;
};

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
    Error error;
    try {
        error = start_stream();
    } catch (const std::bad_alloc&) {
        error = Error{GC_ERR_OUT_OF_MEMORY};
    }
    if (error.failed()) {
        give_up_filling(); // this thread holds the lock that the receive thread may ask for
        stop_acquisition_(true);
    }
    return error;
}

Error producer_device_data_stream::start_stream() {
    packet_loss_frames = 0;
    transform_queue_drops = 0;
    delivered.reset();
    overlay_status_text.clear();
    stream_status_text.clear();
    profiler.reset();
    profile_lines.clear();
    processing_failed = false;
    auto acquired = device.acquire_stream_channel();
    if (!acquired) return std::move(acquired.error());
    lease = std::move(*acquired);

    queue_mode_dedicated = settings.flag(settings_block::master_enable) &&
                           device.queue_mode() != transform_queue_mode::use_direct_transform;
    if (queue_mode_dedicated) {
        try {
            mailbox.start([this](void* frame) { update_and_deliver_buffer(*static_cast<Buffer*>(frame)); });
        } catch (const std::system_error& failure) {
            return {GC_ERR_RESOURCE_EXHAUSTED, "Failed to start the delivering thread: {}", failure.what()};
        }
    }
    if (Error error = open_stream(lease); error.failed()) return error;
    device.set_streaming(true);
    return stream_opened();
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
    if (gvsp_logger().should_log(spdlog::level::trace)) gvsp_logger().trace("Discarding buffer={}.", fmt::ptr(&buffer));
    queue_buffer_from_filling_to_input(&buffer);
}

void producer_device_data_stream::push_async_deliver(Buffer& buffer) {
    if (buffer.fill_state == FillState::incomplete && settings.flag(settings_block::drop_incomplete_frames)) {
        ++packet_loss_frames;
        if (gvsp_logger().should_log(spdlog::level::trace)) {
            gvsp_logger().trace("Requeue buffer={} being incomplete (frame-id={} image_data_size={}, filled_bytes={}).",
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
        gvsp_logger().info("Forward push_image_replace discarded buffer={} due to stop flag set.", returned);
    } else {
        gvsp_logger().info("Requeue push_image_replace discarded buffer={} due to transform-thread being slow.",
                           returned);
        ++transform_queue_drops;
    }
    requeue(returned);
}

void producer_device_data_stream::update_and_deliver_buffer(Buffer& buffer) {
    if (profiler || device.profiler_log() || device.profiler_overlay() || processing.is_due())
        work_on(buffer);
    else
        delivered.frame(steady_microseconds(), 0);
    queue_buffer_from_filling_to_output(&buffer);
}

void producer_device_data_stream::work_on(Buffer& buffer) {
    const bool to_log = device.profiler_log();
    const bool to_image = device.profiler_overlay();
    // A frame is worth more than what is to be done to it, and this thread has others to deliver.
    try {
        if (to_log || to_image) {
            process_profiled(buffer, to_log, to_image);
        } else {
            profiler.reset();
            static_cast<void>(process(buffer));
        }
    } catch (const std::exception& failure) {
        tell_that_processing_failed(failure.what());
    }
}

void producer_device_data_stream::tell_that_processing_failed(const char* why) {
    if (std::exchange(processing_failed, true)) return;
    stream_status_text.set("processing failed: {}", why);
    gvsp_logger().warn("Frames are delivered without processing: {}.", why);
}

bool producer_device_data_stream::process(Buffer& buffer) {
    const uint64_t began = steady_microseconds();
    uint64_t spent = 0;
    if (processing.is_due()) {
        overlay_figures figures;
        std::array<char, status_text::room> reception_text, stream_text;
        if (settings.flag(settings_block::overlay)) {
            figures.version = device.version_text();
            figures.packet_loss_frames = packet_loss_frames;
            figures.transform_queue_drops = transform_queue_drops;
            figures.underruns = underrun_count();
            const delivery_statistics::figures last = delivered.last();
            figures.frames_per_second = last.frames_per_second;
            figures.avg_transform_us = last.avg_transform_us;
            figures.reception_status = overlay_status_text.copy(reception_text);
            figures.stream_status = stream_status_text.copy(stream_text);
        }
        if (!processing.process_image(buffer, began * 1000, device.transform(), lease, figures))
            tell_that_processing_failed("the transform failed");
        spent = steady_microseconds() - began;
    }
    return delivered.frame(began, spent);
}

void producer_device_data_stream::process_profiled(Buffer& buffer, bool to_log, bool to_image) {
    if (!profiler) {
        profiler = std::make_unique<img_pipe::profiler>();
        profile_lines.clear();
    }
    bool struck = false;
    {
        const profiled by{profiler.get()};
        struck = process(buffer);
    }
    if (!to_image) profile_lines.clear();
    if (struck) {
        profile_lines.clear();
        for (const std::string& found : profiler->lines()) {
            std::string line = "prof: " + found;
            if (to_log) gvsp_logger().info("{}", line);
            if (to_image) profile_lines.push_back(std::move(line));
        }
        profiler->reset();
    }
    if (!profile_lines.empty()) draw_profile(image_in(buffer), profile_lines);
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
