#include "gentl_library.h"

#include <fmt/format.h>

namespace cli {

using namespace GenTL;

namespace {

// What a code says of the cause by itself. A lost device answers each call with the first number of the custom ones,
// a connection to the service that has gone with an input error.
cause cause_of(GC_ERROR code) { return code == GC_ERR_CUSTOM_ID || code == GC_ERR_IO ? cause::lost : cause::failed; }

} // namespace

call_failed::call_failed(std::string function, GC_ERROR error_code, const std::string& text)
    : failure(cause_of(error_code), fmt::format("{} failed with {}: {}", function, error_code, text)),
      call(std::move(function)),
      code(error_code),
      reason(text) {}

call_failed::call_failed(cause why, const std::string& what, const std::string& remedy, const call_failed& of)
    : failure(why, what, remedy), call(of.call), code(of.code), reason(of.reason) {}

call_failed call_failed::explained(cause why, const std::string& words, const std::string& remedy) const {
    return {why, fmt::format("{}\n{}", words, what()), remedy, *this};
}

gentl_library::gentl_library(const std::string& path) {
    auto loaded = shared_library::load(path);
    if (!loaded) throw failure(cause::no_library, fmt::format("Cannot load '{}': {}", path, loaded.error()));
    file = std::move(*loaded);
    const auto find = [&]<class F>(F& function, const char* name) {
        function = reinterpret_cast<F>(file.find(name));
        if (function == nullptr) throw failure(cause::no_library, fmt::format("'{}' has no function {}", path, name));
    };
#define X(name) find(name, #name);
    ORV_GENTL_FUNCTIONS(X)
#undef X
    check("GCInitLib", GCInitLib());
}

gentl_library::~gentl_library() { GCCloseLib(); }

std::string gentl_library::last_error(GC_ERROR code) const {
    GC_ERROR recorded = 0;
    char text[1024] = {};
    size_t size = sizeof text;
    if (GCGetLastError(&recorded, text, &size) != GC_ERR_SUCCESS || recorded != code) return "no text";
    return text;
}

void gentl_library::check(const char* call, GC_ERROR code) const {
    if (code != GC_ERR_SUCCESS) throw call_failed(call, code, last_error(code));
}

std::shared_ptr<const tl_system> open_system(std::shared_ptr<const gentl_library> lib) {
    TL_HANDLE handle = nullptr;
    lib->check("TLOpen", lib->TLOpen(&handle));
    const auto close = lib->TLClose;
    return std::make_shared<tl_system>(std::move(lib), handle, close);
}

std::vector<interface_entry> list_interfaces(const tl_system& system) {
    const gentl_library& lib = *system.parent;
    bool8_t changed = 0;
    lib.check("TLUpdateInterfaceList", lib.TLUpdateInterfaceList(system.get(), &changed, 1000));
    uint32_t count = 0;
    lib.check("TLGetNumInterfaces", lib.TLGetNumInterfaces(system.get(), &count));
    std::vector<interface_entry> entries;
    for (uint32_t i = 0; i < count; ++i) {
        interface_entry entry;
        entry.id = ask_text(lib, "TLGetInterfaceID", [&](INFO_DATATYPE*, void* text, size_t* size) {
            return lib.TLGetInterfaceID(system.get(), i, static_cast<char*>(text), size);
        });
        entry.display_name = ask_text(lib, "TLGetInterfaceInfo", [&](INFO_DATATYPE* type, void* text, size_t* size) {
            return lib.TLGetInterfaceInfo(system.get(), entry.id.c_str(), INTERFACE_INFO_DISPLAYNAME, type, text, size);
        });
        entries.push_back(std::move(entry));
    }
    return entries;
}

std::shared_ptr<const tl_interface> open_interface(std::shared_ptr<const tl_system> system, const std::string& id) {
    const gentl_library& lib = *system->parent;
    IF_HANDLE handle = nullptr;
    lib.check("TLOpenInterface", lib.TLOpenInterface(system->get(), id.c_str(), &handle));
    return std::make_shared<tl_interface>(std::move(system), handle, lib.IFClose);
}

std::vector<device_entry> list_devices(const gentl_library& lib, const tl_interface& interface,
                                       const std::string& interface_id, uint64_t timeout) {
    bool8_t changed = 0;
    lib.check("IFUpdateDeviceList", lib.IFUpdateDeviceList(interface.get(), &changed, timeout));
    uint32_t count = 0;
    lib.check("IFGetNumDevices", lib.IFGetNumDevices(interface.get(), &count));
    std::vector<device_entry> entries;
    for (uint32_t i = 0; i < count; ++i) {
        device_entry entry;
        entry.interface_id = interface_id;
        entry.id = ask_text(lib, "IFGetDeviceID", [&](INFO_DATATYPE*, void* text, size_t* size) {
            return lib.IFGetDeviceID(interface.get(), i, static_cast<char*>(text), size);
        });
        // What a device does not have is an empty text, not the end of the list.
        const auto text = [&](DEVICE_INFO_CMD command) -> std::string {
            try {
                return ask_text(lib, "IFGetDeviceInfo", [&](INFO_DATATYPE* type, void* buffer, size_t* size) {
                    return lib.IFGetDeviceInfo(interface.get(), entry.id.c_str(), command, type, buffer, size);
                });
            } catch (const call_failed& missing) {
                if (missing.why() == cause::lost) throw;
                return {};
            }
        };
        entry.vendor = text(DEVICE_INFO_VENDOR);
        entry.model = text(DEVICE_INFO_MODEL);
        entry.serial = text(DEVICE_INFO_SERIAL_NUMBER);
        entry.user_name = text(DEVICE_INFO_USER_DEFINED_NAME);
        entry.version = text(DEVICE_INFO_VERSION);
        entry.display_name = text(DEVICE_INFO_DISPLAYNAME);
        entry.access_status =
            ask_value<int32_t>(lib, "IFGetDeviceInfo", [&](INFO_DATATYPE* type, void* buffer, size_t* size) {
                return lib.IFGetDeviceInfo(interface.get(), entry.id.c_str(), DEVICE_INFO_ACCESS_STATUS, type, buffer,
                                           size);
            });
        entries.push_back(std::move(entry));
    }
    return entries;
}

std::shared_ptr<const tl_device> open_device(const gentl_library& lib, std::shared_ptr<const tl_interface> interface,
                                             const std::string& id, DEVICE_ACCESS_FLAGS flags) {
    DEV_HANDLE handle = nullptr;
    lib.check("IFOpenDevice", lib.IFOpenDevice(interface->get(), id.c_str(), flags, &handle));
    return std::make_shared<tl_device>(std::move(interface), handle, lib.DevClose);
}

const char* access_status_text(int32_t status) {
    switch (status) {
    case DEVICE_ACCESS_STATUS_READWRITE:
        return "free";
    case DEVICE_ACCESS_STATUS_READONLY:
        return "read only";
    case DEVICE_ACCESS_STATUS_NOACCESS:
        return "no access";
    case DEVICE_ACCESS_STATUS_BUSY:
        return "in use";
    case DEVICE_ACCESS_STATUS_OPEN_READWRITE:
        return "open";
    case DEVICE_ACCESS_STATUS_OPEN_READONLY:
        return "open, read only";
    default:
        return "unknown";
    }
}

} // namespace cli
