#include <gentl_producer/HandleMap.h>
#include <gentl_producer/InfoAnswer.h>
#include <gentl_producer/Library.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace GenTL::Producer {

namespace {

// Constant-initialised: valid before any static initialiser of another file, such as the factory's, runs.
ISystemFactory* g_pSystemFactory = nullptr;
constinit std::atomic<int32_t> init_count{0};
constinit std::atomic<uint32_t> trace_mask_value{0};
constinit std::atomic<bool> tolerate_few_buffers_value{false};
constinit bool exclusive_mode = false; // by init_mutex

// init_mutex guards exclusive_mode and the read-then-change of init_count, module_mutex guards open_systems and
// own_file. GCCloseLib nests module_mutex in init_mutex.
constinit std::mutex init_mutex;
constinit std::mutex module_mutex;
constinit std::vector<std::shared_ptr<ISystem>>* open_systems = nullptr;
// While a system is open its threads run in this library: a consumer that unloads it without closing, as the process
// ends for instance, must not pull the code away under them.
constinit void* own_file = nullptr;
// Whose systems those are, and whose locks; 0 until the first initialisation.
constinit std::atomic<int64_t> owner{0};
constinit std::atomic<bool> parent_left_some{false}; // objects of the parent's, which live for ever here

// Never destroyed, and asked by every call: a consumer's exit handlers and threads outlive the static objects.
constinit std::atomic<uint32_t> calls_in_progress{0};
constinit std::atomic<bool> has_ended{false};

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

// A call announces itself before it looks, the end is announced before the calls are counted: one of both sees the
// other.
call_in_progress::call_in_progress() noexcept : allowed((++calls_in_progress, !has_ended)) {}
call_in_progress::~call_in_progress() { --calls_in_progress; }

bool end_library() noexcept {
    has_ended = true;
    return calls_in_progress == 0 && open_systems == nullptr && !parent_left_some;
}

bool modules_are_parents() noexcept {
    const int64_t process = owner;
    return process != 0 && process != this_process();
}

namespace {

// With init_mutex held. A parent's modules stay the parent's until a system is opened here.
void initialize() {
    if (owner == 0) owner = this_process();
    ++init_count;
}

} // namespace

Error init_library() {
    const std::lock_guard guard{init_mutex};
    if (init_count >= 1) return {GC_ERR_RESOURCE_IN_USE, "GCInitLib called twice"};
    if (g_pSystemFactory == nullptr) return {GC_ERR_ERROR, "Internal Error: g_pSystemFactory == nullptr"};
    initialize();
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
    initialize();
    tolerate_few_buffers_value = false;
    return success();
}

namespace {

// A reference of the dynamic loader's to this library, let go of at the end. The loader has a lock of its own, held
// while it runs the destructors of a library that calls us from there: so a hold is made before our locks are taken,
// and let go of once they are free.
struct library_hold {
    library_hold() = default;
    explicit library_hold(void* file) noexcept : held(file) {}
    ~library_hold() { release_library(held); }
    library_hold(const library_hold&) = delete;
    library_hold& operator=(const library_hold&) = delete;
    void* held = nullptr;
};

// With module_mutex held. The library's hold on itself goes to the caller.
void forget_open_systems(library_hold& hold) {
    delete std::exchange(open_systems, nullptr);
    hold.held = std::exchange(own_file, nullptr);
}

// With module_mutex held.
void leave_to_parent() {
    if (!modules_are_parents()) return;
    if (std::exchange(open_systems, nullptr) != nullptr) parent_left_some = true; // nor is the file let go of
    own_file = nullptr;
    owner = this_process();
}

} // namespace

Error close_library() {
    library_hold hold; // outlives the locks
    const bool is_parents = modules_are_parents();
    const auto guard = is_parents ? std::unique_lock{init_mutex, std::try_to_lock} : std::unique_lock{init_mutex};
    if (init_count == 0) return Error{GC_ERR_NOT_INITIALIZED};
    if (init_count.fetch_sub(1) != 1) return success();
    exclusive_mode = false;
    if (is_parents) return success();
    {
        const std::lock_guard module_guard{module_mutex};
        if (open_systems != nullptr) {
            for (const auto& system : *open_systems) remove_handle(system.get());
            // One by one in the order of opening. Closed here, because a call under way on another thread may put off
            // the destructor: when this returns no stream writes to the consumer's memory.
            for (auto& system : *open_systems) {
                system->Close();
                system.reset();
            }
            forget_open_systems(hold);
        }
    }
    g_pSystemFactory->on_library_closed();
    return success();
}

Error open_system(void** phTL) {
    // Before module_mutex: GCCloseLib takes the two the other way round.
    const bool exclusive = is_exclusive_open();
    library_hold hold{hold_library()}; // outlives the lock
    const std::lock_guard guard{module_mutex};
    if (!is_initialized()) return Error{GC_ERR_NOT_INITIALIZED}; // closed by another thread meanwhile
    leave_to_parent();
    if (exclusive && open_systems != nullptr) return {GC_ERR_RESOURCE_IN_USE, "Module already opened"};
    auto created = g_pSystemFactory->create_system();
    if (!created) return std::move(created.error());
    // A failing first enumeration leaves an empty list; the consumer asks again anyway.
    static_cast<void>((*created)->UpdateInterfaceList(nullptr, 0).failed());
    auto first = open_systems == nullptr ? std::make_unique<std::vector<std::shared_ptr<ISystem>>>() : nullptr;
    auto& systems = first ? *first : *open_systems;
    systems.reserve(systems.size() + 1);
    *phTL = add_handle("system", *created, HandleKind::System);
    // Nothing fails from here on.
    systems.push_back(std::move(*created));
    if (first) {
        open_systems = first.release();
        own_file = std::exchange(hold.held, nullptr);
    }
    return success();
}

Error close_system(const std::shared_ptr<ISystem>& system) {
    if (modules_are_parents()) return success();
    system->Close();
    library_hold hold; // outlives the lock
    const std::lock_guard guard{module_mutex};
    remove_handle(system.get());
    if (open_systems == nullptr) return success();
    std::erase(*open_systems, system);
    if (open_systems->empty()) forget_open_systems(hold);
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
