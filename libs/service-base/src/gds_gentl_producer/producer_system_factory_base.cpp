#include <GenICam/error.h>
#include <gds_gentl_producer/producer_system_factory_base.h>
#include <gds_shared/gigecam_error.h>
#include <gds_shared/log_init.h>
#include <gds_shared/prop_store_init.h>
#include <gentl_producer/Library.h>
#include <ipc_rpc/status.h>

#include <fmt/core.h>

#include <filesystem>

namespace gds_producer {

namespace {

// Messages of the GenICam engine go to the main logger.
class genicam_log_sink final : public GenICam::ILogSink {
public:
    [[nodiscard]] bool is_enabled(int level) const noexcept override { return logger->should_log(level_of(level)); }
    void write(int level, std::string_view text, const std::source_location& where) override {
        logger->log(spdlog::source_loc{where.file_name(), static_cast<int>(where.line()), where.function_name()},
                    level_of(level), "GenICam: {}", text);
    }

private:
    static spdlog::level::level_enum level_of(int level) {
        return level <= 1 ? spdlog::level::warn : spdlog::level::info;
    }
    std::shared_ptr<spdlog::logger> logger = gds_helper::log::get(gds_helper::log::logger_id::main);
};

} // namespace

producer_system_factory_base::producer_system_factory_base(const gds_shared::product_constants& product)
    : env{product, nullptr, nullptr},
      tl_info{std::string{product.producer_name}, std::string{product.vendor_name}, std::string{product.producer_name},
              std::string{product.version_text},  std::string{product.tl_type},     std::string{product.display_name}},
      genicam_log(std::make_unique<genicam_log_sink>()) {
    ipc_rpc::register_error_category(gds_shared::gigecam_error_category(), ipc_rpc::category_id_gigecam);
    ipc_rpc::register_error_category(GenICam::genicam_category(), ipc_rpc::category_id_genicam);

    gds_shared::settings_report report;
    env.settings = gds_shared::make_property_chain(
        product, std::filesystem::path{GenTL::Producer::library_path()}.parent_path(), report);

    uint32_t trace_mask = env.settings->has_entry("log_level_GenTLProd") ? GenTL::Producer::trace_calls : 0;
    if (gds_shared::apply_buffer_tracing_setting(*env.settings)) trace_mask = GenTL::Producer::trace_buffers;
    GenTL::Producer::set_trace_mask(trace_mask);

    env.logging = std::make_shared<gds_helper::log::log_control>(std::string{product.producer_name},
                                                                 std::string{product.service_short_name});
    env.logging->set_header(fmt::format("srv: {} {}", product.producer_name, product.version_text));
    gds_shared::log_init(*env.settings, *env.logging, false);
    // Now that there may be a log, which those of the stores themselves came too early for.
    for (const std::string& problem : report.problems) gds_helper::log::main_logger().warn("{}", problem);
    GenICam::set_log_sink(genicam_log.get());
}

producer_system_factory_base::~producer_system_factory_base() { GenICam::set_log_sink(nullptr); }

} // namespace gds_producer
