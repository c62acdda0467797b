#include <gentl_producer/HandleMap.h>
#include <gentl_producer/InfoAnswer.h>
#include <gentl_producer/Library.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

namespace GenTL::Producer {

namespace {

// Constant-initialised: valid before any static initialiser of another file, such as the factory's, runs.
ISystemFactory* g_pSystemFactory = nullptr;
constinit std::atomic<int32_t> init_count{0};
constinit std::atomic<uint32_t> trace_mask_value{0};
constinit std::atomic<bool> tolerate_few_buffers_value{false};
constinit bool exclusive_mode = false; // by init_mutex

// init_mutex guards exclusive_mode and the read-then-change of init_count, module_mutex guards open_systems.
// GCCloseLib nests module_mutex in init_mutex, TLOpen takes init_mutex briefly under module_mutex: a consumer that
// closes the library while it opens a system is outside the standard. Nothing waits under either lock.
constinit std::mutex init_mutex;
constinit std::mutex module_mutex;
constinit std::vector<std::shared_ptr<ISystem>>* open_systems = nullptr;

struct loggers {
    std::shared_ptr<spdlog::logger> for_warnings;
    std::shared_ptr<spdlog::logger> for_api;
};

loggers& installed_loggers() {
    static loggers instance;
    return instance;
}

} // namespace

void install_system_factory(ISystemFactory* factory, std::shared_ptr<spdlog::logger> default_logger,
                            std::shared_ptr<spdlog::logger> api_logger) {
    g_pSystemFactory = factory;
    installed_loggers() = {std::move(default_logger), std::move(api_logger)};
}

ISystemFactory* system_factory() noexcept { return g_pSystemFactory; }

void set_trace_mask(uint32_t mask) noexcept { trace_mask_value = mask; }
uint32_t trace_mask() noexcept { return trace_mask_value.load(std::memory_order_relaxed); }

spdlog::logger* trace_logger(uint32_t bit, spdlog::level::level_enum level) noexcept {
    if ((bit & trace_mask()) == 0) return nullptr;
    auto* logger = installed_loggers().for_api.get();
    return logger != nullptr && logger->should_log(level) ? logger : nullptr;
}

spdlog::logger* default_logger() noexcept { return installed_loggers().for_warnings.get(); }

bool is_initialized() noexcept { return init_count.load(std::memory_order_acquire) > 0; }

bool is_exclusive_open() {
    const std::lock_guard guard{init_mutex};
    return init_count >= 1 && exclusive_mode;
}

bool tolerate_few_buffers() noexcept { return tolerate_few_buffers_value; }

Error init_library() {
    const std::lock_guard guard{init_mutex};
    if (init_count >= 1) return {GC_ERR_RESOURCE_IN_USE, "GCInitLib called twice"};
    if (g_pSystemFactory == nullptr) return {GC_ERR_ERROR, "Internal Error: g_pSystemFactory == nullptr"};
    ++init_count;
    exclusive_mode = true;
    tolerate_few_buffers_value = true;
    return success();
}

Error init_library_shared() {
    const std::lock_guard guard{init_mutex};
    if (exclusive_mode) {
        return {GC_ERR_RESOURCE_IN_USE, "GCInitLib has been called, initialized in exclusive mode"};
    }
    if (g_pSystemFactory == nullptr) return {GC_ERR_ERROR, "Internal Error: g_pSystemFactory == nullptr"};
    ++init_count;
    tolerate_few_buffers_value = false;
    return success();
}

Error close_library() {
    const std::lock_guard guard{init_mutex};
    if (init_count == 0) return Error{GC_ERR_NOT_INITIALIZED};
    if (init_count.fetch_sub(1) != 1) return success();
    exclusive_mode = false;
    {
        const std::lock_guard module_guard{module_mutex};
        if (open_systems != nullptr) {
            for (const auto& system : *open_systems) remove_handle(system.get());
            // One by one in the order of opening; objects still open are torn down by their destructors alone.
            for (auto& system : *open_systems) system.reset();
            delete open_systems;
            open_systems = nullptr;
        }
    }
    g_pSystemFactory->on_library_closed();
    return success();
}

Error open_system(void** phTL) {
    const std::lock_guard guard{module_mutex};
    if (open_systems == nullptr) open_systems = new std::vector<std::shared_ptr<ISystem>>;
    if (is_exclusive_open() && !open_systems->empty()) return {GC_ERR_RESOURCE_IN_USE, "Module already opened"};
    auto created = g_pSystemFactory->create_system();
    if (!created) return std::move(created.error());
    const auto& system = open_systems->emplace_back(std::move(*created));
    // A failing first enumeration leaves an empty list; the consumer asks again anyway.
    static_cast<void>(system->UpdateInterfaceList(nullptr, 0).failed());
    *phTL = add_handle("system", system, HandleKind::System);
    return success();
}

Error close_system(const std::shared_ptr<ISystem>& system) {
    system->Close();
    const std::lock_guard guard{module_mutex};
    if (open_systems != nullptr) std::erase(*open_systems, system);
    remove_handle(system.get());
    return success();
}

Error answer_transport_layer_info(const TransportLayerInfo& info, TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                  void* pBuffer, size_t* piSize) {
    const auto text = [&](std::string_view value) { return answer_string(piType, pBuffer, piSize, value); };
    switch (iInfoCmd) {
    case TL_INFO_ID:
        return text(info.id_prefix + "@" + library_path());
    case TL_INFO_VENDOR:
        return text(info.vendor);
    case TL_INFO_MODEL:
        return text(info.model);
    case TL_INFO_VERSION:
        return text(info.version);
    case TL_INFO_TLTYPE:
        return text(info.tl_type);
    case TL_INFO_NAME: {
        const std::string path = library_path();
        return text(std::string_view{path}.substr(path.find_last_of("\\/") + 1));
    }
    case TL_INFO_PATHNAME:
        return text(library_path());
    case TL_INFO_DISPLAYNAME:
        return text(info.display_name);
    case TL_INFO_CHAR_ENCODING:
        return answer_int32(piType, pBuffer, piSize, TL_CHAR_ENCODING_UTF8);
    case TL_INFO_GENTL_VER_MAJOR:
        return answer_uint32(piType, pBuffer, piSize, 1);
    case TL_INFO_GENTL_VER_MINOR:
        return answer_uint32(piType, pBuffer, piSize, 5);
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

} // namespace GenTL::Producer
