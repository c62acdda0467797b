// What happens to a block, told in the log.
#pragma once

#include <gds_helper/log.h>

#include <fmt/format.h>

#include <cstdint>
#include <utility>

namespace gev::streamchannel::impl {

using gds_helper::log::gvsp_logger;

// At info level, behind the block's mark.
template <class Block, class... Args>
void log_block(int64_t t, const Block& block, fmt::format_string<Args...> text, Args&&... args) {
    if (!gvsp_logger().should_log(spdlog::level::info)) return;
    gvsp_logger().info("now={:15} [{:8}] @t+={:7}{}", t, block.block_id, t - block.start_time,
                       fmt::format(text, std::forward<Args>(args)...));
}

} // namespace gev::streamchannel::impl
