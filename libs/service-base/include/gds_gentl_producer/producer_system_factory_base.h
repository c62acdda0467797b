// The factory that makes the transport layer module, and what one library load has of everything else.
#pragma once

#include <GenICam/log.h>
#include <gds_helper/log.h>
#include <gds_helper/property_store_chain.h>
#include <gds_shared/product_constants.h>
#include <gentl_producer/Modules.h>

#include <expected>
#include <memory>

namespace gds_producer {

// What the objects of one library load share; lives in the factory.
struct producer_environment {
    const gds_shared::product_constants& product;
    std::shared_ptr<gds_helper::property_store_chain> settings;
    std::shared_ptr<gds_helper::log::log_control> logging;
};

// One per library, made by static initialisation: nothing here talks to the service or starts a thread.
class producer_system_factory_base : public GenTL::Producer::ISystemFactory {
public:
    explicit producer_system_factory_base(const gds_shared::product_constants& product);
    ~producer_system_factory_base() override;

    [[nodiscard]] const GenTL::Producer::TransportLayerInfo& transport_layer_info() const override { return tl_info; }
    [[nodiscard]] std::expected<std::shared_ptr<GenTL::Producer::ISystem>, GenTL::Error> create_system() override {
        return create_system_();
    }
    void on_library_closed() override {}

protected:
    // Makes the system and connects it.
    virtual std::expected<std::shared_ptr<GenTL::Producer::ISystem>, GenTL::Error> create_system_() = 0;

    [[nodiscard]] const producer_environment& environment() const noexcept { return env; }

private:
    producer_environment env;
    GenTL::Producer::TransportLayerInfo tl_info;
    std::unique_ptr<GenICam::ILogSink> genicam_log;
};

} // namespace gds_producer
