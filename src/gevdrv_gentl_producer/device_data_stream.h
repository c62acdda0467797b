// The stream of a GigE Vision camera: its stream channel, and from received frames to buffer fields.
#pragma once

#include "device_instance.h"

#include <gds_gentl_producer/producer_device_data_stream.h>
#include <gevdrv_streamchannel/IStreamChannel.h>

#include <atomic>
#include <memory>

namespace gevdrv::gentl {

class device_data_stream final : public gds_producer::producer_device_data_stream {
public:
    device_data_stream(device_instance& parent, std::string id);
    ~device_data_stream() override;

protected:
    size_t payload_size() override;
    GenTL::Error open_stream(const ipc_rpc::client_object_handle& channel_lease) override;
    void close_stream() override;
    void flush_stream() override;
    void add_DeviceInstance_genicam_items(GenTL::Producer::Util::GenApiInterfaceBuilder& builder) override;
    void add_DeviceDataStream_and_DeviceInstance_genicam_items(
        GenTL::Producer::Util::GenApiInterfaceBuilder& builder) override;

private:
    [[nodiscard]] gev::streamchannel::frame_context next_frame();
    void deliver(const gev::streamchannel::frame_info& info, const gev::streamchannel::frame_receive_stats& stats);
    void read_tick_period();
    void read_automatic_time();
    void apply_resend_settings();
    // A value of the camera's document, past its cache: the consumer changes it behind our back.
    [[nodiscard]] std::expected<int64_t, std::error_code> read_payload_size() const;

    device_instance& remote_device;
    std::unique_ptr<gev::streamchannel::IStreamChannel> stream_channel;
    resend_settings& resend;      // the device's
    double tick_period_ns = 1.0;  // written before the receive thread starts
    uint64_t skipped_frames = 0;  // the receive thread's, as of the last frame
    bool resends_shown = false;   // the receive thread's: the overlay's text is that of resend_packets_requested
    uint64_t unsent_requests = 0; // the receive thread's, for resends that the service had no room for
    // Written by the receive thread with each frame.
    std::atomic<uint64_t> resend_packets_requested{0};
    std::atomic<uint64_t> packets_expected{0}, packets_received{0}, packets_late{0};
    uint32_t packet_size_chosen = 0;
};

} // namespace gevdrv::gentl
