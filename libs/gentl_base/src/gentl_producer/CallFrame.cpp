#include "CallFrame.h"

#include <spdlog/logger.h>

#include <algorithm>
#include <cstring>
#include <span>

namespace GenTL::Producer {

namespace {

thread_local LastError thread_last_error{};

template <class T>
Error resolve_one(void* handle, held_object<T>& held, const char* null_text, const char* unknown_text) {
    if (!is_initialized()) return Error{GC_ERR_NOT_INITIALIZED};
    if (handle == nullptr) return {GC_ERR_INVALID_HANDLE, std::string{null_text}};
    if (!resolve(handle, held)) return {GC_ERR_INVALID_HANDLE, std::string{unknown_text}};
    return success();
}

template <class T>
T read_as(const void* data) {
    T value;
    std::memcpy(&value, data, sizeof value);
    return value;
}

} // namespace

const LastError& last_error() noexcept { return thread_last_error; }

void record_last_error(const Error& error) noexcept {
    const size_t length = std::min(error.message.size(), sizeof thread_last_error.text - 1);
    thread_last_error.code = error.code;
    std::memcpy(thread_last_error.text, error.message.data(), length);
    thread_last_error.text[length] = '\0';
}

Error resolve_handle(void* hTL, held_object<ISystem>& held) {
    return resolve_one(hTL, held, "hTL == nullptr", "hTL is invalid");
}
Error resolve_handle(void* hIface, held_object<IInterface>& held) {
    return resolve_one(hIface, held, "hIface == nullptr", "Unknown hIface");
}
Error resolve_handle(void* hDevice, held_object<IDevice>& held) {
    return resolve_one(hDevice, held, "hDevice == nullptr", "Unknown hDevice");
}
Error resolve_handle(void* hDataStream, held_object<IDataStream>& held) {
    return resolve_one(hDataStream, held, "hDataStream == nullptr", "Unknown hDataStream");
}
Error resolve_handle(BufferOfStream pair, held_object<IDataStream>& held) {
    if (!is_initialized()) return Error{GC_ERR_NOT_INITIALIZED};
    if (pair.stream == nullptr) return {GC_ERR_INVALID_HANDLE, "hDataStream == nullptr"};
    if (pair.buffer == nullptr) return {GC_ERR_INVALID_HANDLE, "hBuffer == nullptr"};
    return resolve_handle(pair.stream, held);
}
Error resolve_handle(void* hEvent, held_object<IEvent>& held) {
    return resolve_one(hEvent, held, "hEvent == nullptr", "Unknown hEvent");
}
Error resolve_handle(void* hEventSrc, held_object<IEventSource>& held) {
    return resolve_one(hEventSrc, held, "hEventSrc == nullptr", "Unknown hEventSrc");
}
Error resolve_handle(void* hPort, held_object<IPort>& held) {
    return resolve_one(hPort, held, "hPort == nullptr", "Unknown hPort");
}

void trace_entry(spdlog::logger& logger, spdlog::source_loc where, std::string_view function, std::string_view args) {
    logger.log(where, spdlog::level::trace, ">> {}( {} );", function, args);
}

void trace_success(spdlog::logger& logger, spdlog::source_loc where, std::string_view function, std::string_view args) {
    logger.log(where, spdlog::level::trace, "<< {}( {} ) SUCCEEDED", function, args);
}

void trace_failure(spdlog::logger& logger, spdlog::source_loc where, std::string_view function, const Error& error) {
    logger.log(where, spdlog::level::info, "<< {}( ... ) FAILED with {}, message: '{}'", function,
               Debug::enum_text(Debug::Enumeration::GC_ERROR, "return", error.code), error.text());
}

namespace Debug {

std::string argument_text(std::string_view label, const void* pointer) {
    if (pointer == nullptr) return fmt::format("{} = <null>", label);
    return fmt::format("{} = {:#x}", label, reinterpret_cast<uintptr_t>(pointer));
}

std::string argument_text(std::string_view label, const char* text) {
    if (text == nullptr) return fmt::format("{} = <null>", label);
    return fmt::format("{} = \"{}\"", label, text);
}

std::string argument_text(std::string_view label, dump_hex address) {
    return fmt::format("{} = {:#x}", label, address.value);
}

std::string argument_text(std::string_view label, dump_buffer buffer) {
    if (buffer.data == nullptr) return fmt::format("{} = <null>", label);
    const std::span bytes{static_cast<const unsigned char*>(buffer.data), buffer.size};
    std::string text = fmt::format("{} = <", label);
    for (unsigned char byte : bytes.first(std::min<size_t>(bytes.size(), 16))) text += fmt::format("{:02x}", byte);
    if (bytes.size() > 16) text += "... ";
    text += "> Bytes";
    if (bytes.size() == 4) text += fmt::format(" (u32 0x{:x})", read_as<uint32_t>(buffer.data));
    if (bytes.size() == 8) text += fmt::format(" (u64 0x{:x})", read_as<uint64_t>(buffer.data));
    return text;
}

std::string argument_text(std::string_view label, dump_void_ptr answer) {
    const size_t open = label.find('(');
    const size_t comma = label.find(',', open == label.npos ? 0 : open);
    if (open != label.npos && comma != label.npos) label = label.substr(open + 1, comma - open - 1);
    const void* data = answer.data;
    if (answer.type == nullptr) return fmt::format("{} = <no type>", label);
    const INFO_DATATYPE type = *answer.type;
    const auto pointer = reinterpret_cast<uintptr_t>(data);
    switch (type) {
    case INFO_DATATYPE_UNKNOWN:
    case INFO_DATATYPE_STRINGLIST:
    case INFO_DATATYPE_BUFFER:
        return fmt::format("{} = {:#x}", label, pointer);
    case INFO_DATATYPE_STRING:
        if (data == nullptr) return fmt::format("(char*){} = <nullptr>", label);
        return fmt::format("(char*){} = \"{}\"", label, static_cast<const char*>(data));
    default:
        break;
    }
    if (data == nullptr) return fmt::format("{} = <null>", label);
    switch (type) {
    case INFO_DATATYPE_INT16:
        return fmt::format("*(int16_t*) {} = {}", label, read_as<int16_t>(data));
    case INFO_DATATYPE_UINT16:
        return fmt::format("*(uint16_t*) {} = {}", label, read_as<uint16_t>(data));
    case INFO_DATATYPE_INT32:
        return fmt::format("*(int32_t*) {} = {}", label, read_as<int32_t>(data));
    case INFO_DATATYPE_UINT32:
        return fmt::format("*(uint32_t*) {} = {}", label, read_as<uint32_t>(data));
    case INFO_DATATYPE_INT64:
        return fmt::format("*(int64_t*) {} = {}", label, read_as<int64_t>(data));
    case INFO_DATATYPE_UINT64:
        return fmt::format("*(uint64_t*) {} = {}", label, read_as<uint64_t>(data));
    case INFO_DATATYPE_FLOAT64:
        return fmt::format("*(double*) {} = {}", label, read_as<double>(data));
    case INFO_DATATYPE_PTR:
        return fmt::format("*(void**) {} = {}", label, read_as<const void*>(data));
    case INFO_DATATYPE_BOOL8:
        return fmt::format("*(bool*) {} = {}", label, read_as<bool8_t>(data) != 0);
    case INFO_DATATYPE_SIZET:
        return fmt::format("*(size_t*) {} = {}", label, read_as<size_t>(data));
    case INFO_DATATYPE_PTRDIFF:
        return fmt::format("*(ptrdiff_t*) {} = {}", label, read_as<ptrdiff_t>(data));
    case INFO_DATATYPE_KRV_SIZET3: {
        struct three {
            size_t values[3];
        };
        const auto triple = read_as<three>(data);
        return fmt::format("{} = [0]: {}, [1]: {} [2]: {}", label, triple.values[0], triple.values[1],
                           triple.values[2]);
    }
    default:
        return fmt::format("(unknown type id={}){} = {:#x}", type, label, pointer);
    }
}

} // namespace Debug

} // namespace GenTL::Producer
