// EVENT_REMOTE_DEVICE: the camera's own events, each kept as the packet that came.
#pragma once

#include <gentl_producer/Events.h>
#include <gevdrv_channel_impl/event_packet_parser.h>

#include <array>
#include <list>
#include <span>

namespace gevdrv::gentl {

// GetData gives one packet in a buffer of 576 bytes, zeros behind it. GetDataInfo answers from such a buffer:
// EVENT_DATA_ID the id in upper-case hexadecimal digits, EVENT_DATA_NUMID the same as a number, EVENT_DATA_VALUE the
// packet's body, which is what the event port of the camera's document reads.
class remote_device_event final : public GenTL::Producer::EventImplBase2 {
public:
    remote_device_event();
    // From any thread. A packet too large for a consumer's buffer is dropped.
    void fire(std::span<const std::byte> packet);

private:
    using record = std::array<std::byte, gev::controlchannel::max_event_packet_size>;

    size_t queue_size() override { return queue.size(); }
    void clear_queue() override { queue.clear(); }
    void pop(void* pBuffer, size_t* piSize) override;
    GenTL::Error get_data_info(const void* pInBuffer, size_t iInSize, GenTL::EVENT_DATA_INFO_CMD iInfoCmd,
                               GenTL::INFO_DATATYPE* piType, void* pOutBuffer, size_t* piOutSize) override;

    std::list<record> queue;
};

} // namespace gevdrv::gentl
