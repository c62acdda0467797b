#include "frame_copy.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

// The sanitizers do not see such stores, so their builds copy as usual.
#if defined(__SSE2__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define ORV_STREAMING_STORES 1
#include <emmintrin.h>
#endif

namespace gev::streamchannel::impl {

namespace {

#ifdef ORV_STREAMING_STORES

void copy_past_caches(std::byte* to, const std::byte* from, size_t count) noexcept {
    constexpr size_t line = 64;
    // Only whole lines are worth it; a part of one would be read back to be completed.
    const size_t head = std::min<size_t>(-reinterpret_cast<uintptr_t>(to) % line, count);
    std::memcpy(to, from, head);
    to += head;
    from += head;
    count -= head;
    for (; count >= line; count -= line, to += line, from += line) {
        const auto* source = reinterpret_cast<const __m128i*>(from);
        auto* target = reinterpret_cast<__m128i*>(to);
        const __m128i first = _mm_loadu_si128(source);
        const __m128i second = _mm_loadu_si128(source + 1);
        const __m128i third = _mm_loadu_si128(source + 2);
        const __m128i fourth = _mm_loadu_si128(source + 3);
        _mm_stream_si128(target, first);
        _mm_stream_si128(target + 1, second);
        _mm_stream_si128(target + 2, third);
        _mm_stream_si128(target + 3, fourth);
    }
    std::memcpy(to, from, count);
}

#else

void copy_past_caches(std::byte* to, const std::byte* from, size_t count) noexcept { std::memcpy(to, from, count); }

#endif

} // namespace

void copy_to_frame(std::byte* to, const std::byte* from, size_t count, size_t frame_size) noexcept {
    if (count == 0) return;
    if (frame_size >= large_frame) {
        copy_past_caches(to, from, count);
    } else {
        std::memcpy(to, from, count);
    }
}

void finish_copies() noexcept {
#ifdef ORV_STREAMING_STORES
    _mm_sfence();
#endif
}

placed_bytes place_payload(const frame_context& frame, const block_geometry& geometry, uint32_t packet_id,
                           const gvsp_parsed_packet::payload_body& payload) noexcept {
    if (frame.size == 0 || packet_id == 0) return {};
    const uint64_t per_packet = geometry.payload_per_packet;
    const uint64_t offset = (uint64_t{packet_id} - 1) * per_packet;
    if (offset > frame.size) return {};
    const uint64_t count = std::min({payload.data_size, per_packet, frame.size - offset});
    copy_to_frame(frame.data + offset, payload.data, count, frame.size);
    return {count, offset + count};
}

bool is_placed(const frame_context& frame, const block_geometry& geometry, uint32_t packet_id,
               const gvsp_parsed_packet::payload_body& payload, uint64_t most) noexcept {
    if (frame.size == 0 || packet_id == 0) return true;
    const uint64_t offset = (uint64_t{packet_id} - 1) * geometry.payload_per_packet;
    if (offset > frame.size) return true;
    const uint64_t count = std::min({payload.data_size, most, frame.size - offset});
    return std::memcmp(frame.data + offset, payload.data, count) == 0;
}

} // namespace gev::streamchannel::impl
