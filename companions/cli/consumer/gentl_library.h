// A GenTL producer loaded from its file, and the consumer's side of the C interface: every call checked, every handle
// closed. Failures are exceptions here: each carries the call, its code and the producer's own words.
#pragma once

#include "../failure/failure.h"
#include "../posix/shared_library.h"

#include <gentl/GenTL.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace cli {

class call_failed final : public failure {
public:
    call_failed(std::string function, GenTL::GC_ERROR error_code, const std::string& text);
    // The same failure by one who knows more of it: `words` come before the call, its code and the producer's text.
    [[nodiscard]] call_failed explained(cause why, const std::string& words, const std::string& remedy = {}) const;
    // Of a call that needs the camera for itself: somebody else has it.
    [[nodiscard]] bool is_held() const noexcept {
        return code == GenTL::GC_ERR_ACCESS_DENIED || code == GenTL::GC_ERR_BUSY;
    }
    const std::string call;
    const GenTL::GC_ERROR code;
    const std::string reason; // the producer's own text

private:
    call_failed(cause why, const std::string& what, const std::string& remedy, const call_failed& of);
};

// clang-format off
#define ORV_GENTL_FUNCTIONS(X)                                                                                         \
    X(GCInitLib)                                                                                                       \
    X(GCCloseLib)                                                                                                      \
    X(GCGetInfo)                                                                                                       \
    X(GCGetLastError) X(GCReadPort) X(GCWritePort) X(GCGetNumPortURLs) X(GCGetPortURLInfo) X(GCRegisterEvent)          \
        X(GCUnregisterEvent) X(EventGetData) X(EventGetDataInfo) X(EventGetInfo) X(EventKill) X(TLOpen) X(TLClose)     \
            X(TLGetNumInterfaces) X(TLGetInterfaceID) X(TLGetInterfaceInfo) X(TLOpenInterface)                         \
                X(TLUpdateInterfaceList) X(IFClose) X(IFGetNumDevices) X(IFGetDeviceID) X(IFUpdateDeviceList)          \
                    X(IFGetDeviceInfo) X(IFOpenDevice) X(DevGetPort) X(DevGetNumDataStreams) X(DevGetDataStreamID)     \
                        X(DevOpenDataStream) X(DevGetInfo) X(DevClose) X(DSAllocAndAnnounceBuffer) X(DSFlushQueue)     \
                            X(DSStartAcquisition) X(DSStopAcquisition) X(DSGetInfo) X(DSClose) X(DSRevokeBuffer)       \
                                X(DSAnnounceBuffer) X(DSQueueBuffer) X(DSGetBufferInfo) X(DSGetBufferChunkData)
// clang-format on

// The loaded file with its functions, initialised. Not copyable; the last owner closes and unloads.
class gentl_library final {
public:
    explicit gentl_library(const std::string& path);
    ~gentl_library();
    gentl_library(const gentl_library&) = delete;
    gentl_library& operator=(const gentl_library&) = delete;

    // Throws call_failed with the producer's last error when the code is a failure.
    void check(const char* call, GenTL::GC_ERROR code) const;
    [[nodiscard]] std::string last_error(GenTL::GC_ERROR code) const;

#define X(name) decltype(&GenTL::name) name = nullptr;
    ORV_GENTL_FUNCTIONS(X)
#undef X

private:
    shared_library file;
};

// An info answer of fixed size, and a text of any.
template <class T, class Ask>
T ask_value(const gentl_library& lib, const char* call, Ask&& ask) {
    GenTL::INFO_DATATYPE type = 0;
    T value{};
    size_t size = sizeof value;
    lib.check(call, ask(&type, &value, &size));
    return value;
}
template <class Ask>
std::string ask_text(const gentl_library& lib, const char* call, Ask&& ask) {
    GenTL::INFO_DATATYPE type = 0;
    size_t size = 0;
    lib.check(call, ask(&type, nullptr, &size));
    std::string text(size, '\0');
    lib.check(call, ask(&type, text.data(), &size));
    text.resize(text.find('\0') == text.npos ? text.size() : text.find('\0'));
    return text;
}

// Owns one open handle and keeps its parent open.
template <class Parent>
class owned_handle {
public:
    owned_handle(std::shared_ptr<const Parent> owner, void* opened, GenTL::GC_ERROR (*closer)(void*))
        : parent(std::move(owner)), handle(opened), close(closer) {}
    ~owned_handle() { close(handle); }
    owned_handle(const owned_handle&) = delete;
    owned_handle& operator=(const owned_handle&) = delete;
    [[nodiscard]] void* get() const noexcept { return handle; }

    const std::shared_ptr<const Parent> parent;

private:
    void* handle;
    GenTL::GC_ERROR (*close)(void*);
};

using tl_system = owned_handle<gentl_library>;
using tl_interface = owned_handle<tl_system>;
using tl_device = owned_handle<tl_interface>;
using tl_stream = owned_handle<tl_device>;

struct interface_entry {
    std::string id;
    std::string display_name;
};
struct device_entry {
    std::string interface_id;
    std::string id, vendor, model, serial, user_name, version, display_name;
    int32_t access_status = 0;
    // Of add_places; empty where the producer does not tell.
    std::string address, mask, mac, reachable;
    std::string holder; // of list: who controls it, where that is known
};

[[nodiscard]] std::shared_ptr<const tl_system> open_system(std::shared_ptr<const gentl_library> lib);
[[nodiscard]] std::vector<interface_entry> list_interfaces(const tl_system& system);
[[nodiscard]] std::shared_ptr<const tl_interface> open_interface(std::shared_ptr<const tl_system> system,
                                                                 const std::string& id);
// Updates the list first. Time-out in milliseconds.
[[nodiscard]] std::vector<device_entry> list_devices(const gentl_library& lib, const tl_interface& interface,
                                                     const std::string& interface_id, uint64_t timeout);
[[nodiscard]] std::shared_ptr<const tl_device> open_device(const gentl_library& lib,
                                                           std::shared_ptr<const tl_interface> interface,
                                                           const std::string& id, GenTL::DEVICE_ACCESS_FLAGS flags);

[[nodiscard]] const char* access_status_text(int32_t status);

} // namespace cli
