// The data stream of a service-backed camera: delivery path, statistics, settings and their features.
#pragma once

#include <gds_gentl_producer/async_deliver_queue.h>
#include <gds_gentl_producer/delivery_statistics.h>
#include <gds_gentl_producer/frame_processing.h>
#include <gds_gentl_producer/producer_device_base.h>
#include <gds_gentl_producer/status_text.h>
#include <gentl_producer/DataStreamImpl.h>
#include <img_pipe/profiler.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace gds_producer {

class producer_device_data_stream : public GenTL::Producer::DataStreamImpl {
protected:
    // The device must have its settings block.
    producer_device_data_stream(producer_device_base& parent, std::string id);

    // Opens the way to the camera's data with the lease of its channel; closing hands back every buffer in Filling.
    // What an opening that failed or threw has begun is closed. Closing throws nothing, also without memory.
    virtual GenTL::Error open_stream(const ipc_rpc::client_object_handle& lease) = 0;
    virtual GenTL::Error stream_opened() { return GenTL::success(); }
    virtual void close_stream() = 0;
    virtual void flush_stream() = 0;

    GenTL::Error start_acquisition_() override;
    void stop_acquisition_(bool kill) override;
    void flush_filling_buffers_() override;
    uint64_t num_transmission_drop() override { return packet_loss_frames; }
    std::expected<std::shared_ptr<GenTL::Producer::Buffer>, GenTL::Error> create_buffer_(void* base, size_t size,
                                                                                         void* user_ptr) override;
    void build_register_map(GenTL::Producer::Util::GenApiInterfaceBuilder& builder) final;

    // The stream's features: settings that belong to the device and outlive its streams, then the stream's counters.
    virtual void add_DeviceInstance_genicam_items(GenTL::Producer::Util::GenApiInterfaceBuilder& builder);
    virtual void
    add_DeviceDataStream_and_DeviceInstance_genicam_items(GenTL::Producer::Util::GenApiInterfaceBuilder& builder);
    [[nodiscard]] virtual producer_device_base& get_device() noexcept { return device; }
    [[nodiscard]] const settings_block& stream_settings() const noexcept { return settings; }

    // On the receive thread: a frame whose buffer fields are written.
    void push_async_deliver(GenTL::Producer::Buffer& buffer);
    void discard_buffer(GenTL::Producer::Buffer& buffer);
    void add_packet_loss(uint64_t frames) noexcept { packet_loss_frames += frames; }

    // What the overlay shows, in the frame's row and in one of its own; cleared at each start.
    status_text overlay_status_text;
    status_text stream_status_text;

private:
    GenTL::Error start_stream();
    void update_and_deliver_buffer(GenTL::Producer::Buffer& buffer);
    void work_on(GenTL::Producer::Buffer& buffer);
    void tell_that_processing_failed(const char* why); // once for each acquisition
    // True when the statistics' interval struck.
    bool process(GenTL::Producer::Buffer& buffer);
    void process_profiled(GenTL::Producer::Buffer& buffer, bool to_log, bool to_image);
    void requeue(void* frame);

    producer_device_base& device;
    const settings_block settings;
    ipc_rpc::client_object_handle lease; // while streaming
    bool queue_mode_dedicated = false;
    async_deliver_queue mailbox;
    frame_processing processing; // on the receive thread or the mailbox's, by queue_mode_dedicated
    std::atomic<uint64_t> packet_loss_frames{0};
    std::atomic<uint64_t> transform_queue_drops{0};
    delivery_statistics delivered;
    // The delivering thread's, while it runs.
    std::unique_ptr<img_pipe::profiler> profiler; // while a switch of it is on
    std::vector<std::string> profile_lines;       // of the last interval, for the image
    bool processing_failed = false;               // and said
};

} // namespace gds_producer
