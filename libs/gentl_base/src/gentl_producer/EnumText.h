// Published enumerator names, for call traces.
#pragma once

#include <gentl/GenTL.h>

#include <string>
#include <string_view>

namespace GenTL::Producer::Debug {

enum class Enumeration {
    ACQ_QUEUE_TYPE,
    ACQ_START_FLAGS,
    ACQ_STOP_FLAGS,
    BUFFER_INFO_CMD,
    DEVICE_ACCESS_FLAGS,
    DEVICE_ACCESS_STATUS,
    DEVICE_INFO_CMD,
    EVENT_DATA_INFO_CMD,
    EVENT_INFO_CMD,
    EVENT_TYPE,
    GC_ERROR,
    INFO_DATATYPE,
    INTERFACE_INFO_CMD,
    PORT_INFO_CMD,
    STREAM_INFO_CMD,
    TL_INFO_CMD,
    URL_INFO_CMD,
    BUFFER_PART_INFO_CMD
};

// "label = NAME", or the number in decimal for a value without a name.
[[nodiscard]] std::string enum_text(Enumeration enumeration, std::string_view label, int32_t value);

} // namespace GenTL::Producer::Debug
