// A camera whose frames are of a form that is not known here would seem to send nothing, or nothing whole.
#pragma once

#include "gvsp_packet.h"

#include <gds_helper/log.h>

#include <string_view>

namespace gev::streamchannel::impl {

// Says so, once a stream.
class unsupported_frames {
public:
    void setup() noexcept { told = false; }
    void look_at(const gvsp_parsed_packet& invalid) {
        if (told || invalid.error_text == nullptr) return;
        const std::string_view text = invalid.error_text;
        if (text != "Leader payload-type unknown" && text != "Leader payload_type unknown") return;
        told = true;
        gds_helper::log::gvsp_logger().warn("The camera sends frames of a payload type that is not supported: {}.",
                                            text);
    }

private:
    bool told = false;
};

} // namespace gev::streamchannel::impl
