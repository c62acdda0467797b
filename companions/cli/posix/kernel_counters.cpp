#include "kernel_counters.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <ranges>

namespace cli {

namespace {

// The next word, and the text behind it.
std::string_view next_word(std::string_view& rest) {
    const size_t begin = std::min(rest.find_first_not_of(" \t"), rest.size());
    rest.remove_prefix(begin);
    const std::string_view word = rest.substr(0, rest.find_first_of(" \t"));
    rest.remove_prefix(word.size());
    return word;
}

template <class T>
bool parse_number(std::string_view word, T& value, int base) {
    const auto [end, failed] = std::from_chars(word.data(), word.data() + word.size(), value, base);
    return failed == std::errc{} && end == word.data() + word.size();
}

std::string_view line_of(auto part) { return {part.begin(), part.end()}; }

// "0100007F:0F74": the address as its four bytes in memory, here of a little-endian machine.
bool read_endpoint(std::string_view word, uint32_t& address, uint16_t& port) {
    const size_t colon = word.find(':');
    if (colon == word.npos || !parse_number(word.substr(0, colon), address, 16) ||
        !parse_number(word.substr(colon + 1), port, 16))
        return false;
    if constexpr (std::endian::native == std::endian::little) address = __builtin_bswap32(address);
    return true;
}

} // namespace

std::vector<udp_socket_row> parse_udp_sockets(std::string_view text) {
    std::vector<udp_socket_row> rows;
    for (const auto part : text | std::views::split('\n')) {
        std::string_view rest = line_of(part);
        // sl, local, remote, state, tx_queue:rx_queue, tr:tm->when, retransmits, uid, timeout, inode, ref, pointer,
        // drops
        std::array<std::string_view, 13> words;
        for (std::string_view& word : words) word = next_word(rest);
        udp_socket_row row;
        const size_t colon = words[4].find(':');
        if (colon == words[4].npos || !read_endpoint(words[1], row.address, row.port) ||
            !parse_number(words[4].substr(colon + 1), row.waiting, 16) || !parse_number(words[7], row.user, 10) ||
            !parse_number(words[9], row.inode, 10) || !parse_number(words[12], row.drops, 10))
            continue;
        rows.push_back(row);
    }
    return rows;
}

const udp_socket_row* find_socket(const std::vector<udp_socket_row>& rows, uint32_t address, uint16_t port) {
    const auto bound = [&](uint32_t to) {
        return std::ranges::find_if(rows, [&](const auto& row) { return row.port == port && row.address == to; });
    };
    auto found = bound(address);
    if (found == rows.end()) found = bound(0);
    return found == rows.end() ? nullptr : &*found;
}

softnet_counts parse_softnet(std::string_view text) {
    softnet_counts sum;
    for (const auto part : text | std::views::split('\n')) {
        std::string_view rest = line_of(part);
        softnet_counts row;
        if (!parse_number(next_word(rest), row.processed, 16) || !parse_number(next_word(rest), row.dropped, 16) ||
            !parse_number(next_word(rest), row.squeezed, 16))
            continue;
        sum.processed += row.processed;
        sum.dropped += row.dropped;
        sum.squeezed += row.squeezed;
    }
    return sum;
}

std::optional<schedule_counts> parse_schedstat(std::string_view text) {
    schedule_counts counts;
    text = text.substr(0, text.find('\n'));
    if (!parse_number(next_word(text), counts.ran, 10) || !parse_number(next_word(text), counts.waited, 10))
        return std::nullopt;
    return counts;
}

// Drivers name theirs as they like; these parts occur in the kernel's own names and in those of common drivers.
bool tells_of_loss(std::string_view name) {
    if (!name.starts_with("rx") && name.find("_rx") == name.npos && name.find(".rx") == name.npos &&
        name.find("crc") == name.npos)
        return false;
    constexpr std::string_view parts[]{"drop",      "missed",   "no_buf", "fifo",      "over",  "crc",
                                       "frame_err", "discards", "nodesc", "no_dma_re", "error", "alloc_fail"};
    return std::ranges::any_of(parts, [&](std::string_view part) { return name.find(part) != name.npos; });
}

} // namespace cli
