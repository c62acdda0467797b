// What happens to a block, told in the log.
#pragma once

#include <gds_helper/log.h>

#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace gev::streamchannel::impl {

using gds_helper::log::gvsp_logger;

// At info level, behind the block's mark. Allocates nothing: a stream goes on when memory runs out.
template <class Block, class... Args>
void log_block(int64_t t, const Block& block, fmt::format_string<Args...> text, Args&&... args) {
    if (!gvsp_logger().should_log(spdlog::level::info)) return;
    std::array<char, 256> words; // more than the longest text
    const auto end = fmt::format_to_n(words.data(), words.size(), text, std::forward<Args>(args)...).out;
    gvsp_logger().info("now={:15} [{:8}] @t+={:7}{}", t, block.block_id, t - block.start_time,
                       std::string_view{words.data(), static_cast<size_t>(end - words.data())});
}

} // namespace gev::streamchannel::impl
