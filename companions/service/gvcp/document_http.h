// Documents that a camera serves itself, over HTTP.
#pragma once

#include "control_channel.h"

#include <expected>
#include <stop_token>
#include <string>
#include <string_view>
#include <system_error>

namespace gvcp_master {

// GET over plain HTTP, no redirects, no names: the host of the URL must be `only_host`, as numbers. The whole exchange
// is over within `timeout`, and with std::errc::operation_canceled when it is stopped. At most
// GenICam::largest_document bytes. Reentrant.
[[nodiscard]] std::expected<std::string, std::error_code> fetch_http(std::string_view url, uint32_t only_host,
                                                                     milliseconds timeout, std::stop_token stop = {});

} // namespace gvcp_master
