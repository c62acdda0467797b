// The frame around every exported function: trace on entry, initialisation and handle check, one virtual call, trace
// on exit, last error of the calling thread.
//
// Argument texts are built only after a tracer was found; output values are read only after success.
#pragma once

#include "EnumText.h"

#include <gentl_producer/HandleMap.h>
#include <gentl_producer/Library.h>
#include <gentl_producer/Modules.h>

#include <fmt/core.h>
#include <spdlog/logger.h>

#include <concepts>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

namespace GenTL::Producer {

namespace Debug {

// An address, shown in hexadecimal.
struct dump_hex {
    uint64_t value;
};
// At most the first 16 bytes of a caller's memory.
struct dump_buffer {
    const void* data;
    size_t size;
};
[[nodiscard]] inline dump_buffer sized(const void* data, const size_t* size) {
    return {data, size == nullptr ? 0 : *size};
}
// An info answer, shown by its type.
struct dump_void_ptr {
    const void* data;
    const INFO_DATATYPE* type;
};

[[nodiscard]] std::string argument_text(std::string_view label, const void* pointer);
[[nodiscard]] std::string argument_text(std::string_view label, const char* text);
[[nodiscard]] std::string argument_text(std::string_view label, dump_hex address);
[[nodiscard]] std::string argument_text(std::string_view label, dump_buffer buffer);
[[nodiscard]] std::string argument_text(std::string_view label, dump_void_ptr answer);
template <std::integral T>
[[nodiscard]] std::string argument_text(std::string_view label, T value) {
    return fmt::format("{} = {}", label, value);
}
template <class T>
requires(!std::same_as<std::remove_cv_t<T>, char> || !std::is_const_v<T>) [[nodiscard]] std::string
    argument_text(std::string_view label, T* pointer) {
    return argument_text(label, static_cast<const void*>(pointer));
}
// What an out-pointer points to; pointers may legally be null in a size query.
template <class T>
[[nodiscard]] std::string target_text(std::string_view label, const T* pointer) {
    if (pointer == nullptr) return fmt::format("{} = <null>", label);
    return argument_text(label, *pointer);
}

template <class... Texts>
[[nodiscard]] std::string join(Texts&&... texts) {
    std::string joined;
    ((joined += joined.empty() ? "" : ", ", joined += texts), ...);
    return joined;
}

} // namespace Debug

// The labels are the source expressions, so these are macros.
#define ORV_ARG(expression) ::GenTL::Producer::Debug::argument_text(#expression, expression)
#define ORV_HEX(number) ::GenTL::Producer::Debug::argument_text(#number, ::GenTL::Producer::Debug::dump_hex{number})
#define ORV_OUT(pointer) ::GenTL::Producer::Debug::target_text("*" #pointer, pointer)
#define ORV_ENUM(type, value)                                                                                          \
    ::GenTL::Producer::Debug::enum_text(::GenTL::Producer::Debug::Enumeration::type, #value, value)
#define ORV_ARGS(...) [&]() -> std::string { return ::GenTL::Producer::Debug::join(__VA_ARGS__); }
#define ORV_HERE                                                                                                       \
    spdlog::source_loc { __FILE__, __LINE__, static_cast<const char*>(__func__) }

// The calling thread's last failure, kept until the next one. An empty text stands for the code's default text.
struct LastError {
    GC_ERROR code;
    char text[256];
};
[[nodiscard]] const LastError& last_error() noexcept;
void record_last_error(const Error& error) noexcept;

// A buffer is known to its stream only, so the pair is what a consumer's call names.
struct BufferOfStream {
    DS_HANDLE stream;
    BUFFER_HANDLE buffer;
};

// Checks that the library is initialised, then the handle; `held` keeps the target and those above it for the call.
[[nodiscard]] Error resolve_handle(void* hTL, held_object<ISystem>& held);
[[nodiscard]] Error resolve_handle(void* hIface, held_object<IInterface>& held);
[[nodiscard]] Error resolve_handle(void* hDevice, held_object<IDevice>& held);
[[nodiscard]] Error resolve_handle(void* hDataStream, held_object<IDataStream>& held);
[[nodiscard]] Error resolve_handle(BufferOfStream pair, held_object<IDataStream>& held);
[[nodiscard]] Error resolve_handle(void* hEvent, held_object<IEvent>& held);
[[nodiscard]] Error resolve_handle(void* hEventSrc, held_object<IEventSource>& held);
[[nodiscard]] Error resolve_handle(void* hPort, held_object<IPort>& held);

void trace_entry(spdlog::logger& logger, spdlog::source_loc where, std::string_view function, std::string_view args);
void trace_success(spdlog::logger& logger, spdlog::source_loc where, std::string_view function, std::string_view args);
void trace_failure(spdlog::logger& logger, spdlog::source_loc where, std::string_view function, const Error& error);

// Runs one exported function. `in` and `out` build argument texts, `body` gives the Error. A result of `quiet` is an
// expected way out and is traced only at trace level. Lack of memory is a result as well: what is thrown ends a
// consumer that is not of C++.
template <bool record = true, class In, class Body, class Out>
GC_ERROR exported_call(std::string_view function, spdlog::source_loc where, In&& in, Body&& body, Out&& out,
                       GC_ERROR quiet = GC_ERR_SUCCESS) {
    const call_in_progress mark;
    if (!mark) return GC_ERR_NOT_INITIALIZED;
    Error error;
    try {
        if (auto* logger = trace_logger(trace_calls, spdlog::level::trace)) trace_entry(*logger, where, function, in());
        error = body();
    } catch (const std::bad_alloc&) {
        error = Error{GC_ERR_OUT_OF_MEMORY};
    }
    const bool is_quiet = error.code == quiet && quiet != GC_ERR_SUCCESS;
    if (auto* logger = trace_logger(trace_calls, is_quiet ? spdlog::level::trace : spdlog::level::info)) {
        try {
            if (error.failed()) {
                trace_failure(*logger, where, function, error);
            } else if (logger->should_log(spdlog::level::trace)) {
                trace_success(*logger, where, function, out());
            }
        } catch (const std::bad_alloc&) { // the trace lacks a line
        }
    }
    if (record && error.failed()) record_last_error(error);
    return error.code;
}

// The consumer's flag is one byte and only ever raised.
template <class Update>
Error update_list(bool8_t* pbChanged, Update&& update) {
    bool changed = false;
    Error error = update(&changed);
    if (changed && pbChanged != nullptr) *pbChanged = 1;
    return error;
}

inline constexpr auto no_args = [] { return std::string{}; };

// The common case: resolve one handle, make one call on the object.
template <class Interface, class Handle, class In, class Call, class Out>
GC_ERROR handle_call(std::string_view function, spdlog::source_loc where, Handle handle, In&& in, Call&& call,
                     Out&& out, GC_ERROR quiet = GC_ERR_SUCCESS) {
    const call_in_progress mark;
    if (!mark) return GC_ERR_NOT_INITIALIZED;
    held_object<Interface> held; // released after the last error was recorded
    return exported_call(
        function, where, in,
        [&] {
            if (Error error = resolve_handle(handle, held); error.failed()) return error;
            return call(*held.object);
        },
        out, quiet);
}

} // namespace GenTL::Producer
