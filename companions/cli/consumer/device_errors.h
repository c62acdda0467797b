// What an open device tells of its own end.
#pragma once

#include "gentl_library.h"

#include <optional>

namespace cli {

class device_errors {
public:
    device_errors(const gentl_library& library, std::shared_ptr<const tl_device> opened);
    ~device_errors();
    device_errors(const device_errors&) = delete;
    device_errors& operator=(const device_errors&) = delete;

    // Throws call_failed, explained as cause::lost with these words, when the device has told an error, and the call's
    // own reason when the connection has gone. Does not wait.
    void throw_if_lost(const std::string& words) const;

private:
    const gentl_library& lib;
    std::shared_ptr<const tl_device> device;
    GenTL::EVENT_HANDLE handle = nullptr; // null where the producer has no such event
};

} // namespace cli
