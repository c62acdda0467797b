// The one object that makes this library a GigE Vision producer; built by static initialisation.
#include "system_instance.h"

#include <gds_helper/log.h>
#include <gds_shared/product_constants.h>
#include <gentl_producer/Library.h>

namespace gevdrv::gentl {

namespace {

class system_factory final : public gds_producer::producer_system_factory_base {
public:
    system_factory() : producer_system_factory_base(gds_shared::gev_product) {
        using gds_helper::log::logger_id;
        GenTL::Producer::install_system_factory(this, gds_helper::log::get(logger_id::main),
                                                gds_helper::log::get(logger_id::gtlprod));
    }

protected:
    std::expected<std::shared_ptr<GenTL::Producer::ISystem>, GenTL::Error> create_system_() override {
        auto system = std::make_shared<system_instance>(transport_layer_info(), environment());
        if (GenTL::Error error = system->connect_to_service(); error.failed()) {
            return std::unexpected(std::move(error));
        }
        return system;
    }
};

system_factory the_factory;

} // namespace

} // namespace gevdrv::gentl
