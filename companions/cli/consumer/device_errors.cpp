#include "device_errors.h"

namespace cli {

using namespace GenTL;

device_errors::device_errors(const gentl_library& library, std::shared_ptr<const tl_device> opened)
    : lib(library), device(std::move(opened)) {
    if (lib.GCRegisterEvent(device->get(), EVENT_ERROR, &handle) != GC_ERR_SUCCESS) handle = nullptr;
}

device_errors::~device_errors() {
    if (handle != nullptr) static_cast<void>(lib.GCUnregisterEvent(device->get(), EVENT_ERROR));
}

void device_errors::throw_if_lost(const std::string& words) const {
    if (handle == nullptr) return;
    struct {
        int32_t id;
        char text[256];
    } record{};
    size_t size = sizeof record;
    const GC_ERROR code = lib.EventGetData(handle, &record, &size, 0);
    if (code == GC_ERR_TIMEOUT) return;
    // The event's queue goes with the connection: then only the next call knows the reason.
    lib.check("EventGetData", code);
    throw call_failed("EventGetData", record.id, record.text).explained(cause::lost, words);
}

} // namespace cli
