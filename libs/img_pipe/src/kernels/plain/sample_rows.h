// Lines of samples in and out of the 16-bit line form of rows.h, sample by sample.
#pragma once
#include "correct_rows.h"

#include <cstring>

namespace img_pipe {
namespace {

// Bits [first, first + count) of the stream that starts at `p`, least significant bit of a byte first. Bytes from `end`
// on count as 0.
[[maybe_unused]] std::uint32_t stream_bits(const std::uint8_t* p, const std::uint8_t* end, std::size_t first,
                                           unsigned count) {
    std::uint32_t value = 0;
    const std::uint8_t* at = p + first / 8;
    for (unsigned i = 0; i < 3; ++i)
        if (at + i < end) value |= static_cast<std::uint32_t>(at[i]) << (8 * i);
    return value >> (first % 8) & ((1U << count) - 1);
}

[[maybe_unused]] std::uint32_t byte_at(const std::uint8_t* p, const std::uint8_t* end, std::size_t i) {
    return p + i < end ? p[i] : 0U;
}

// Sample x of a line at p, its bits at the top.
[[maybe_unused]] std::uint16_t load_sample(sample_layout layout, const std::uint8_t* p, const std::uint8_t* end,
                                           std::size_t x) {
    std::uint32_t v = 0;
    switch (layout.pack) {
    case packing::plain8:
        v = byte_at(p, end, x) * 257;
        break;
    case packing::plain16:
        v = (byte_at(p, end, 2 * x) | byte_at(p, end, 2 * x + 1) << 8) << layout.shift;
        break;
    case packing::p10:
        v = stream_bits(p, end, x * 10, 10) << 6;
        break;
    case packing::p12:
        v = stream_bits(p, end, x * 12, 12) << 4;
        break;
    case packing::packed12:
        v = byte_at(p, end, x / 2 * 3 + x % 2 * 2) << 8 | (byte_at(p, end, x / 2 * 3 + 1) >> (x % 2 * 4) & 15) << 4;
        break;
    case packing::mipi10:
        v = byte_at(p, end, x / 4 * 5 + x % 4) << 8 | (byte_at(p, end, x / 4 * 5 + 4) >> (x % 4 * 2) & 3) << 6;
        break;
    case packing::real:
        if (p + 4 * x + 4 <= end) {
            float value = 0;
            std::memcpy(&value, p + 4 * x, 4);
            value = value * 65535.0F;
            v = static_cast<std::uint32_t>(nearest(value > 0.0F ? value < 65535.0F ? value : 65535.0F : 0.0F));
        }
        break;
    case packing::mipi12:
        v = byte_at(p, end, x / 2 * 3 + x % 2) << 8 | (byte_at(p, end, x / 2 * 3 + 2) >> (x % 2 * 4) & 15) << 4;
        break;
    case packing::none:
        break;
    }
    return static_cast<std::uint16_t>(v);
}

// Puts sample x, given with its bits at the top; other samples' bits in shared bytes are kept. Nothing is written from
// `end` on.
[[maybe_unused]] void store_sample(sample_layout layout, std::uint8_t* p, const std::uint8_t* end, std::size_t x,
                                   std::uint16_t v) {
    const auto put = [&](std::size_t i, unsigned mask, unsigned bits) {
        if (p + i < end) p[i] = static_cast<std::uint8_t>((p[i] & ~mask) | (bits & mask));
    };
    const auto put_stream = [&](unsigned count, unsigned value) {
        const std::size_t first = x * count;
        const unsigned mask = ((1U << count) - 1) << first % 8, bits = value << first % 8;
        for (unsigned i = 0; i < 3; ++i)
            if ((mask >> (8 * i) & 0xFF) != 0) put(first / 8 + i, mask >> (8 * i) & 0xFF, bits >> (8 * i) & 0xFF);
    };
    const unsigned high = v >> 8U, low = v & 0xFFU;
    switch (layout.pack) {
    case packing::plain8:
        put(x, 0xFF, high);
        break;
    case packing::plain16:
        put(2 * x, 0xFF, static_cast<unsigned>(v >> layout.shift) & 0xFF);
        put(2 * x + 1, 0xFF, static_cast<unsigned>(v >> layout.shift) >> 8);
        break;
    case packing::p10:
        put_stream(10, v >> 6U);
        break;
    case packing::p12:
        put_stream(12, v >> 4U);
        break;
    case packing::packed12:
        put(x / 2 * 3 + x % 2 * 2, 0xFF, high);
        put(x / 2 * 3 + 1, 15U << (x % 2 * 4), low >> 4 << (x % 2 * 4));
        break;
    case packing::mipi10:
        put(x / 4 * 5 + x % 4, 0xFF, high);
        put(x / 4 * 5 + 4, 3U << (x % 4 * 2), low >> 6 << (x % 4 * 2));
        break;
    case packing::real:
        if (p + 4 * x + 4 <= end) {
            const float value = static_cast<float>(v) / 65535.0F;
            std::memcpy(p + 4 * x, &value, 4);
        }
        break;
    case packing::mipi12:
        put(x / 2 * 3 + x % 2, 0xFF, high);
        put(x / 2 * 3 + 2, 15U << (x % 2 * 4), low >> 4 << (x % 2 * 4));
        break;
    case packing::none:
        break;
    }
}

[[maybe_unused]] void load_line(sample_layout layout, const std::uint8_t* p, const std::uint8_t* end,
                                std::int32_t width, std::uint16_t* line) {
    for (std::int32_t x = 0; x < width; ++x) line[x] = load_sample(layout, p, end, static_cast<std::size_t>(x));
}

[[maybe_unused]] void store_line(sample_layout layout, std::uint8_t* p, const std::uint8_t* end, std::int32_t width,
                                 const std::uint16_t* line) {
    for (std::int32_t x = 0; x < width; ++x) store_sample(layout, p, end, static_cast<std::size_t>(x), line[x]);
}

// Where a line of packed samples is read and written; in place both are the same. Nothing from the ends on.
struct line_places {
    const std::uint8_t *from, *from_end;
    std::uint8_t* to;
    const std::uint8_t* to_end;
};

// Samples without a table from a layout to the same one; `line` is room for them.
[[maybe_unused]] void correct_packed(sample_layout layout, const sample_params& p, std::int32_t y, std::int32_t width,
                                     const line_places& at, std::uint16_t* line) {
    load_line(layout, at.from, at.from_end, width, line);
    correct_line(p, y, width, line);
    store_line(layout, at.to, at.to_end, width, line);
}

} // namespace
} // namespace img_pipe
