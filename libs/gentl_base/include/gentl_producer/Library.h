// Library-wide state: the factory, the count of initialisations, open systems, tracing.
#pragma once

#include <gentl_producer/Modules.h>

#include <spdlog/common.h>

#include <cstdint>
#include <memory>
#include <string>

namespace spdlog {
class logger;
}

namespace GenTL::Producer {

// Called once, from the constructor of the concrete factory during static initialisation. Loggers may be null.
void install_system_factory(ISystemFactory* factory, std::shared_ptr<spdlog::logger> default_logger,
                            std::shared_ptr<spdlog::logger> api_logger);

// Bit 0: call tracing, bit 1: buffer tracing.
inline constexpr uint32_t trace_calls = 1;
inline constexpr uint32_t trace_buffers = 2;
void set_trace_mask(uint32_t mask) noexcept;
[[nodiscard]] uint32_t trace_mask() noexcept;

// The logger for traces of this kind, or null when they are off; costs one load and a test when off.
[[nodiscard]] spdlog::logger* trace_logger(uint32_t bit, spdlog::level::level_enum level) noexcept;
// The logger for the framework's warnings, or null.
[[nodiscard]] spdlog::logger* default_logger() noexcept;

// More successful initialisations than GCCloseLib calls. Lock-free.
[[nodiscard]] bool is_initialized() noexcept;
// Initialised by GCInitLib, not by GCInitLibShared.
[[nodiscard]] bool is_exclusive_open();
// Written by the last initialiser: consumers of GCInitLib may start with fewer buffers than announced as needed.
[[nodiscard]] bool tolerate_few_buffers() noexcept;

// Marks one exported call for as long as it lives: what the call uses is not destroyed under it. False when the library
// has ended; the call must touch nothing then.
class call_in_progress final {
public:
    call_in_progress() noexcept;
    ~call_in_progress();
    call_in_progress(const call_in_progress&) = delete;
    call_in_progress& operator=(const call_in_progress&) = delete;
    explicit operator bool() const noexcept { return allowed; }

private:
    const bool allowed;
};

// The calling process, which is another one in a child made by fork.
[[nodiscard]] int64_t this_process() noexcept;

// In a child made by fork, until it opens a system itself: the modules are those of the parent. Closing them leaves
// them alone, for their threads are not here, and locks that were held at the fork, and conditions that were waited
// for, are so for ever.
[[nodiscard]] bool modules_are_parents() noexcept;

// When the process ends or unloads the library. From now on no exported call does anything. True when the library's
// static objects may be destroyed: no call is under way and no system is open whose threads use them.
[[nodiscard]] bool end_library() noexcept;

[[nodiscard]] Error init_library();
[[nodiscard]] Error init_library_shared();
[[nodiscard]] Error close_library();

[[nodiscard]] Error open_system(void** phTL);
[[nodiscard]] Error close_system(const std::shared_ptr<ISystem>& system);

[[nodiscard]] ISystemFactory* system_factory() noexcept;

// One answer for GCGetInfo and TLGetInfo.
[[nodiscard]] Error answer_transport_layer_info(const TransportLayerInfo& info, TL_INFO_CMD iInfoCmd,
                                                INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);

// Full path of the file that this code was loaded from, always the same; empty where the system does not tell.
[[nodiscard]] std::string library_path();
// Keeps that file loaded until it is given back; null when it cannot be held.
[[nodiscard]] void* hold_library() noexcept;
void release_library(void* held) noexcept;

} // namespace GenTL::Producer
