#include <gds_shared/gigecam_error.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace gds_shared {

namespace {

struct row {
    std::uint32_t value;
    std::string_view message;
    GenTL::GC_ERROR code;
    std::string_view status_name;
};

using namespace GenTL;

// The two rows of 0x80008005 and 0x80008006 translate under each other's neighbour's name. Intended: consumers have
// always seen them so.
constexpr std::array rows{
    row{0, "Success", GC_ERR_SUCCESS, ""},
    row{0x501, "Pending", GC_ERR_SUCCESS, ""},
    row{0x80000001, "Timeout", GC_ERR_TIMEOUT, "GC_ERR_TIMEOUT"},
    row{0x80000002, "ERR_PARSING_FAILED", GC_ERR_ERROR, "ERR_PARSING_FAILED"},
    row{0x80000003, "Device lost", GC_ERR_CUSTOM_ID, "ERR_DEVICE_LOST"},
    row{0x80000004, "Option not available", GC_ERR_ERROR, "ERR_OPTION_NOT_AVAILABLE"},
    row{0x80000005, "Socket error", GC_ERR_ERROR, "ERR_SOCKET_ERROR"},
    row{0x80000006, "Parsing ack packet failed", GC_ERR_ERROR, "ERR_PARSING_ACK_PACKET_FAILED"},
    row{0x8000000F, "ERR_GENERIC_ERROR", GC_ERR_ERROR, "ERR_GENERIC_ERROR"},
    row{0x80008001, "Feature not implemented", GC_ERR_NOT_IMPLEMENTED, "ERR_NOT_IMPLEMENTED"},
    row{0x80008002, "Invalid parameter", GC_ERR_INVALID_PARAMETER, "ERR_INVALID_PARAMETER"},
    row{0x80008003, "Invalid address", GC_ERR_INVALID_ADDRESS, "ERR_INVALID_ADDRESS"},
    row{0x80008004, "ERR_GEV_STATUS_WRITE_PROTECT", GC_ERR_ERROR, "ERR_GEV_STATUS_WRITE_PROTECT"},
    row{0x80008005, "ERR_BAD_ALIGNMENT", GC_ERR_ACCESS_DENIED, "ERR_ACCESS_DENIED"},
    row{0x80008006, "Access denied", GC_ERR_ACCESS_DENIED, "ERR_GEV_STATUS_WRITE_PROTECT"},
    row{0x80008007, "ERR_GEV_STATUS_BUSY", GC_ERR_BUSY, "ERR_GEV_STATUS_BUSY"},
    row{0x80008008, "ERR_GEV_STATUS_LOCAL_PROBLEM", GC_ERR_ERROR, "ERR_GEV_STATUS_LOCAL_PROBLEM"},
    row{0x80008009, "ERR_GEV_STATUS_MSG_MISMATCH", GC_ERR_ERROR, "ERR_GEV_STATUS_MSG_MISMATCH"},
    row{0x8000800A, "ERR_GEV_STATUS_INVALID_PROTOCOL", GC_ERR_ERROR, "ERR_GEV_STATUS_INVALID_PROTOCOL"},
    row{0x8000800B, "ERR_GEV_STATUS_NO_MSG", GC_ERR_ERROR, "ERR_GEV_STATUS_NO_MSG"},
    row{0x8000800C, "ERR_GEV_STATUS_PACKET_UNAVAILABLE", GC_ERR_ERROR, "ERR_GEV_STATUS_PACKET_UNAVAILABLE"},
    row{0x8000800D, "ERR_GEV_STATUS_DATA_OVERRUN", GC_ERR_ERROR, "ERR_GEV_STATUS_DATA_OVERRUN"},
    row{0x8000800E, "ERR_GEV_STATUS_INVALID_HEADER", GC_ERR_ERROR, "ERR_GEV_STATUS_INVALID_HEADER"},
    row{0x80008010, "ERR_GEV_STATUS_PACKET_NOT_YET_AVAILABLE", GC_ERR_ERROR, "ERR_GEV_STATUS_PACKET_NOT_YET_AVAILABLE"},
    row{0x80008011, "ERR_GEV_STATUS_PACKET_AND_PREV_REMOVED_FROM_MEMORY", GC_ERR_ERROR,
        "ERR_GEV_STATUS_PACKET_AND_PREV_REMOVED_FROM_MEMORY"},
    row{0x80008012, "ERR_GEV_STATUS_PACKET_REMOVED_FROM_MEMORY", GC_ERR_ERROR,
        "ERR_GEV_STATUS_PACKET_REMOVED_FROM_MEMORY"},
    row{0x80008013, "ERR_GEV_STATUS_NO_REF_TIME", GC_ERR_ERROR, "ERR_GEV_STATUS_NO_REF_TIME"},
    row{0x80008014, "ERR_GEV_STATUS_PACKET_TEMPORARILY_UNAVAILABLE", GC_ERR_ERROR,
        "ERR_GEV_STATUS_PACKET_TEMPORARILY_UNAVAILABLE"},
    row{0x80008015, "ERR_GEV_STATUS_OVERFLOW", GC_ERR_ERROR, "ERR_GEV_STATUS_OVERFLOW"},
    row{0x80008016, "ERR_GEV_STATUS_ACTION_LATE", GC_ERR_ERROR, "ERR_GEV_STATUS_ACTION_LATE"},
    row{0x80008101, "ERR_DRV_DEVICE_UNREACHABLE", GC_ERR_ERROR, "ERR_DRV_DEVICE_UNREACHABLE"},
    row{0x80008FFF, "ERR_GEV_STATUS_GENERIC_ERROR", GC_ERR_ERROR, "ERR_GEV_STATUS_GENERIC_ERROR"},
};

const row* find(int value) {
    const auto found = std::ranges::find(rows, static_cast<std::uint32_t>(value), &row::value);
    return found == rows.end() ? nullptr : &*found;
}

class category final : public std::error_category {
public:
    [[nodiscard]] const char* name() const noexcept override { return "GigECam Error"; }
    [[nodiscard]] std::string message(int value) const override {
        const row* known = find(value);
        return std::string{known == nullptr ? "Unknown error" : known->message};
    }
    [[nodiscard]] std::error_condition default_error_condition(int value) const noexcept override {
        if (value == static_cast<int>(gigecam_errc::timeout)) return std::errc::timed_out;
        return std::errc::invalid_argument;
    }
};

} // namespace

const std::error_category& gigecam_error_category() noexcept {
    static const category instance;
    return instance;
}

Error gigecam_to_gentl_error(const std::error_code& code) {
    const row* known = find(code.value());
    if (known == nullptr) return {GC_ERR_ERROR, "gevdrv-status: {}", static_cast<std::uint32_t>(code.value())};
    if (known->code == GC_ERR_SUCCESS) return success();
    return {known->code, "gevdrv-status: {}", known->status_name};
}

} // namespace gds_shared
