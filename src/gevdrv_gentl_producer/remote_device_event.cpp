#include "remote_device_event.h"

#include <gds_helper/log.h>
#include <gentl_producer/InfoAnswer.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <cstring>

namespace gevdrv::gentl {

using namespace GenTL;
using namespace GenTL::Producer;
using gev::controlchannel::max_event_packet_size;

remote_device_event::remote_device_event()
    : EventImplBase2({EVENT_REMOTE_DEVICE, max_event_packet_size,
                      max_event_packet_size - gev::controlchannel::gvcp_header_size}) {}

void remote_device_event::fire(std::span<const std::byte> packet) {
    if (packet.size() > max_event_packet_size) {
        gds_helper::log::main_logger().warn("An event packet of {} bytes was dropped; the largest has {}.",
                                            packet.size(), max_event_packet_size);
        return;
    }
    record bytes{};
    std::ranges::copy(packet, bytes.begin());
    const std::lock_guard guard{mutex};
    queue.push_back(bytes);
    waiters.fired();
}

void remote_device_event::pop(void* pBuffer, size_t* piSize) {
    if (pBuffer != nullptr) std::memcpy(pBuffer, queue.front().data(), max_event_packet_size);
    *piSize = max_event_packet_size;
    queue.pop_front();
}

Error remote_device_event::get_data_info(const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd,
                                         INFO_DATATYPE* piType, void* pOutBuffer, size_t* piOutSize) {
    if (iInSize < facts.size_max) return {GC_ERR_INVALID_PARAMETER, "iInSize too small"};
    const auto event = gev::controlchannel::parse_single_event_cmd_packet(
        {static_cast<const std::byte*>(pInBuffer), max_event_packet_size});
    if (!event) return {GC_ERR_INVALID_PARAMETER, "Failed to parse EVENT_CMD/EVENTDATA_CMD"};
    switch (iInfoCmd) {
    case EVENT_DATA_ID:
        return answer_string(piType, pOutBuffer, piOutSize, fmt::format("{:X}", event->event_id));
    case EVENT_DATA_VALUE:
        return answer_buffer(piType, pOutBuffer, piOutSize, event->body);
    case EVENT_DATA_NUMID:
        return answer_uint64(piType, pOutBuffer, piOutSize, event->event_id);
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

} // namespace gevdrv::gentl
