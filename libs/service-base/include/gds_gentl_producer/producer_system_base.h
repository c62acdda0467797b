// The transport layer module when the real work is done by the local service.
#pragma once

#include <gds_gentl_producer/producer_system_factory_base.h>
#include <gentl_producer/SystemImpl.h>
#include <ipc_rpc/client_object_handle.h>
#include <ipc_rpc/notification_registry.h>
#include <ipc_rpc/rpc_client.h>

namespace gds_producer {

class producer_system_base : public GenTL::Producer::SystemImpl, public gds_helper::property_store_ro {
public:
    ~producer_system_base() override;

    // Once, after construction. The connection is never renewed: when it is lost, calls to the service fail and the
    // system stays usable for local reads.
    [[nodiscard]] GenTL::Error connect_to_service();

    GenTL::Error Read(uint64_t address, void* buffer, size_t* size) override;
    GenTL::Error Write(uint64_t address, const void* buffer, size_t* size) override;

    // The service's own configuration.
    std::error_code read_double(const std::string& key, double& value) const override;
    std::error_code read_int64(const std::string& key, int64_t& value) const override;
    std::error_code read_string(const std::string& key, std::string& value) const override;
    bool has_entry(const std::string& key) const override;

    [[nodiscard]] const producer_environment& environment() const noexcept { return env; }
    [[nodiscard]] ipc_rpc::notification_registry& notifications() noexcept { return registry; }

protected:
    producer_system_base(const GenTL::Producer::TransportLayerInfo& info, const producer_environment& shared);

    // Makes the interface module for an open interface of the service.
    virtual std::expected<std::shared_ptr<GenTL::Producer::IInterface>, GenTL::Error>
    make_interface_(const GenTL::Producer::InterfaceInfo& info, ipc_rpc::client_object_handle handle) = 0;
    // Functions that this client offers to the service; none here.
    virtual void fill_function_table_(ipc_rpc::object_function_table_root&) {}

    std::expected<std::vector<GenTL::Producer::InterfaceInfo>, GenTL::Error>
    query_interfaces_(uint64_t timeout) override;
    std::expected<std::shared_ptr<GenTL::Producer::IInterface>, GenTL::Error>
    create_interface_(const GenTL::Producer::InterfaceInfo& info) override;
    void build_register_map(GenTL::Producer::Util::GenApiInterfaceBuilder& builder) override;
    std::string replacement_document_() override;

private:
    void add_genicam_debug(GenTL::Producer::Util::GenApiInterfaceBuilder& builder);

    const producer_environment& env;
    // In this order, so that the connection ends before what its notifications reach.
    ipc_rpc::notification_registry registry;
    ipc_rpc::notification_registry::token interface_list_changed;
    ipc_rpc::client_object_handle service;
    ipc_rpc::client::client_instance connection;
};

} // namespace gds_producer
