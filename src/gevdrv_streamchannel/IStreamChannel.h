// One stream channel of one camera.
#pragma once

#include "packet_recv/gvsp_recv_interface.h"

#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <system_error>

namespace gev::streamchannel {

struct channel_start_params {
    std::function<void(const frame_info&, const frame_receive_stats&)> deliver;
    std::function<frame_context()> get_frame;
    // Channel index, block id, first packet, last packet, extended ids. Empty: the device cannot resend.
    std::function<void(uint32_t, uint64_t, uint32_t, uint32_t, bool)> send_resend;
    // On the receive thread, at most once: no frame will come any more, though nobody disconnected. May be empty.
    std::function<void(const std::string& reason)> reception_ended;
    uint32_t payload_size = 0;         // bytes per frame
    uint32_t fixed_packet_size = 0;    // not 0: this size, untested
    int32_t preferred_packet_size = 0; // not 0: tried first
};

// Thread-bound: callers serialise. Every operation but the first two and the last answers 0x80000004 of the GigECam
// category while the channel is not connected.
class IStreamChannel {
public:
    virtual ~IStreamChannel() = default;
    [[nodiscard]] virtual std::error_code connect(const channel_start_params& params) = 0;
    virtual void disconnect() = 0; // throws nothing, also without memory
    // Returns when every open block was handed back, flagged as flushed.
    virtual std::error_code flush() = 0;
    virtual std::error_code reset_receiver() = 0;
    // Selector 0: the packet size chosen by the last connect, also while not connected. Any other: 0.
    [[nodiscard]] virtual std::expected<uint64_t, std::error_code> query_packet_size(uint32_t selector) = 0;
    virtual std::error_code set_resend_params(const resend_parameters& parameters) = 0;
    [[nodiscard]] virtual std::expected<std::optional<resend_parameters>, std::error_code> get_resend_params() = 0;
    [[nodiscard]] virtual bool is_connected() const = 0;
};

} // namespace gev::streamchannel
