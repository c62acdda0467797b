// The remote port of a GigE Vision camera, and its two other faces.
#pragma once

#include <GenICam/ports.h>
#include <gds_gentl_producer/producer_device_remote_port_base.h>
#include <gevdrv_streamchannel/IControlChannelPort.h>

#include <functional>
#include <optional>

namespace gevdrv::gentl {

// For the GenICam engine.
class device_port_proxy final : public GenICam::IDevicePort {
public:
    explicit device_port_proxy(gds_producer::producer_device_remote_port_base& target) : port(target) {}
    GenICam::result<size_t> read(int64_t address, std::span<std::byte> data, unsigned flags) override;
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned flags) override;

private:
    gds_producer::producer_device_remote_port_base& port;
};

// For the stream channel.
class controlchannel_proxy final : public gev::controlchannel::IControlChannelPort {
public:
    explicit controlchannel_proxy(gds_producer::producer_device_remote_port_base& target) : port(target) {}
    std::expected<uint32_t, std::error_code> read_reg(uint32_t address, uint32_t count, uint32_t timeout) override;
    std::error_code write_reg(uint32_t address, uint32_t value, uint32_t flags, uint32_t timeout) override;
    std::error_code read_mem(uint32_t address, std::span<std::byte> data, uint32_t flags, uint64_t timeout) override;
    std::error_code write_mem(uint32_t address, std::span<const std::byte> data, uint32_t flags,
                              uint64_t timeout) override;

private:
    gds_producer::producer_device_remote_port_base& port;
};

class device_remote_port final : public gds_producer::producer_device_remote_port_base {
public:
    // `on_acquisition` is told about writes of the consumer that start or stop the camera's acquisition.
    device_remote_port(std::string id, GenTL::Producer::PortInfo info, ipc_rpc::client_object_handle device,
                       std::function<void(bool)> on_acquisition);
    ~device_remote_port() override;

    // Reads and builds the camera's document.
    [[nodiscard]] GenTL::Error init();

    GenTL::Error Write(uint64_t address, const void* buffer, size_t* size) override;

    [[nodiscard]] controlchannel_proxy& control_channel() noexcept { return control_proxy; }
    [[nodiscard]] std::optional<uint64_t> acquisition_register() const noexcept { return acq_start_stop_register; }

private:
    [[nodiscard]] GenTL::Error load_document(uint32_t url_index);
    [[nodiscard]] GenTL::Error parse_acquisition_register();

    device_port_proxy port_proxy{*this};
    controlchannel_proxy control_proxy{*this};
    std::function<void(bool)> acquisition_changed;
    std::optional<uint64_t> acq_start_stop_register;
};

} // namespace gevdrv::gentl
