#include "device_instance.h"

#include "device_data_stream.h"

#include <gds_helper/log.h>
#include <gev_registers/registers.h>

#include <spdlog/logger.h>

namespace gevdrv::gentl {

using namespace GenTL;
using namespace GenTL::Producer;

device_instance::device_instance(gds_producer::producer_interface_base& parent, const DeviceInfo& info,
                                 DEVICE_ACCESS_FLAGS flags, ipc_rpc::client_object_handle device)
    : producer_device_base(parent, info, flags, std::move(device)),
      remote_event(*this, EVENT_REMOTE_DEVICE, [] { return std::make_shared<remote_device_event>(); }) {}

device_instance::~device_instance() { shut_down(); }

std::shared_ptr<gds_producer::producer_device_remote_port_base>
device_instance::open_remote_port(const std::string& display_name) {
    const DeviceInfo& info = device_info();
    PortInfo remote_info{info.vendor, info.model, info.tl_type, PortType::Device, info.version, "Device"};
    gev_port = std::make_shared<device_remote_port>(
        info.id, std::move(remote_info), service_handle(), [display_name](bool started) {
            gds_helper::log::get(gds_helper::log::logger_id::main)
                ->debug("{}: the consumer {} the acquisition.", display_name, started ? "starts" : "stops");
        });
    return gev_port;
}

Error device_instance::init_remote_port(gds_producer::producer_device_remote_port_base&) {
    if (Error error = gev_port->init(); error.failed()) return error;
    const auto capability = gev_port->read_reg(gev::reg::control_capability, 0, gev_port->default_timeout);
    resend_supported = capability && (*capability & gev::bits::can_resend) != 0;
    return success();
}

void device_instance::handle_event_message(const ipc_rpc::event_message& message) {
    deliver_event_packet(message.payload);
}

void device_instance::report_software_event(uint64_t event_id, uint64_t timestamp) {
    if (event_id > 0xFFFF) {
        gds_helper::log::main_logger().error("event_id > 0xFFFF. Invalid for GEV events.");
        return;
    }
    deliver_event_packet(gev::controlchannel::make_event_packet(static_cast<uint16_t>(event_id), timestamp));
}

void device_instance::deliver_event_packet(std::span<const std::byte> packet) {
    if (const auto event = remote_event.get()) event->fire(packet);
}

std::vector<std::string> device_instance::data_stream_ids_() { return {"Stream0"}; }

std::expected<std::shared_ptr<IDataStream>, Error> device_instance::create_data_stream_(const std::string& stream_id) {
    if (!settings()) return std::unexpected(Error{GC_ERR_IO, "Failed to fetch shared memory from service."});
    return std::make_shared<device_data_stream>(*this, stream_id);
}

} // namespace gevdrv::gentl
