#include "frame.h"

#include <algorithm>

namespace camera_sim {

namespace gvsp = gige::gvsp;

namespace {

uint16_t payload_type_of(const frame& from) {
    if (from.chunk_length == 0) return gvsp::payload_type::image;
    return from.extended ? gvsp::payload_type::image | gvsp::payload_type::chunk_flag : from.chunk_payload_type;
}

std::size_t store_leader(std::byte* to, const frame& from) {
    gige::store16(to, 0);
    gige::store16(to + 2, payload_type_of(from));
    gige::store64(to + 4, from.timestamp);
    gige::store32(to + 12, from.pixel_format);
    gige::store32(to + 16, from.width);
    gige::store32(to + 20, from.height);
    gige::store32(to + 24, from.offset_x);
    gige::store32(to + 28, from.offset_y);
    gige::store16(to + 32, static_cast<uint16_t>(from.line_padding));
    gige::store16(to + 34, 0); // behind the picture
    return 36;
}

std::size_t store_trailer(std::byte* to, const frame& from) {
    const uint16_t type = payload_type_of(from);
    gige::store16(to, 0);
    gige::store16(to + 2, type);
    if (from.chunk_length == 0) {
        gige::store32(to + 4, from.height);
        return 8;
    }
    constexpr uint32_t layout_id = 1;
    if (from.extended) {
        gige::store32(to + 4, from.height);
        gige::store32(to + 8, from.chunk_length);
        gige::store32(to + 12, layout_id);
        return 16;
    }
    gige::store32(to + 4, from.chunk_length);
    if (type == gvsp::payload_type::chunk) return 8;
    gige::store32(to + 8, from.height);
    gige::store32(to + 12, layout_id);
    return 16;
}

} // namespace

void build_packet(packet& to, const frame& from, uint32_t id, bool resend) {
    const uint32_t trailer = from.trailer_id();
    const auto kind = id == 0 ? gvsp::format::leader : id >= trailer ? gvsp::format::trailer : gvsp::format::payload;
    std::size_t size = gvsp::store_header(to.head.data(), {from.extended, resend, from.block_id, id, kind, {}});
    to.pieces.body = {};
    if (kind == gvsp::format::leader) {
        size += store_leader(&to.head[size], from);
    } else if (kind == gvsp::format::trailer) {
        size += store_trailer(&to.head[size], from);
    } else {
        const auto each = gvsp::payload_per_packet(from.packet_size, from.extended);
        const auto first = (id - 1) * each;
        to.pieces.body = std::span{from.data}.subspan(first, std::min(each, from.data.size() - first));
    }
    to.pieces.head = std::span{to.head}.first(size);
}

void build_status(packet& to, bool extended, uint64_t block_id, uint32_t id, gige::gvcp::status result) {
    const auto size = gvsp::store_header(to.head.data(), {extended, true, block_id, id, gvsp::format::payload, result});
    to.pieces = {std::span{to.head}.first(size), {}};
}

std::shared_ptr<frame> frame_ring::take(std::size_t capacity) {
    const std::lock_guard guard{mutex};
    std::shared_ptr<frame> oldest;
    while (!frames.empty() && frames.size() >= capacity) {
        oldest = std::move(frames.front());
        frames.erase(frames.begin());
    }
    if (!oldest || oldest.use_count() != 1) return std::make_shared<frame>();
    oldest->sent_ids = 0;
    return oldest;
}

void frame_ring::put(std::shared_ptr<frame> filled) {
    const std::lock_guard guard{mutex};
    frames.push_back(std::move(filled));
}

void frame_ring::clear() {
    const std::lock_guard guard{mutex};
    frames.clear();
}

frame_ring::lookup frame_ring::find(uint64_t block_id, bool extended) const {
    using gige::gvcp::status;
    const std::lock_guard guard{mutex};
    const auto found =
        std::ranges::find_if(frames, [&](const auto& f) { return f->block_id == block_id && f->extended == extended; });
    if (found != frames.end()) return {*found, status::success};
    if (frames.empty() || frames.back()->extended != extended) return {nullptr, status::packet_unavailable};
    const uint64_t newest = frames.back()->block_id;
    const bool later = extended ? block_id > newest : static_cast<int16_t>(block_id - newest) > 0;
    return {nullptr, later ? status::packet_not_yet_available : status::packet_and_previous_removed};
}

} // namespace camera_sim
