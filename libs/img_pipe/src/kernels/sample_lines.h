// From any packing of samples to any other, line by line through a line buffer in the cache, corrected on the way. The
// level's line functions come as `Rows`: load, store, correct. In place (source and destination the same view) is fine.
#pragma once
#include "byte_curve.h"
#include "plain/correct_rows.h"
#include "plain/sample_rows.h"

namespace img_pipe {
namespace {

// One past what line `y` of the strip may write: a line that ends inside a byte leaves that byte to the next one.
[[maybe_unused]] const std::uint8_t* line_end(const img_descriptor& view, std::int32_t y, std::int32_t bytes) {
    return view.plane_data[0].data + static_cast<std::ptrdiff_t>(view.plane_data[0].stride) * y + bytes;
}

[[maybe_unused]] std::int32_t line_bytes(sample_layout layout, std::int32_t width) {
    std::int64_t bits = 12;
    if (layout.pack == packing::plain8) bits = 8;
    if (layout.pack == packing::plain16) bits = 16;
    if (layout.pack == packing::real) bits = 32;
    if (layout.pack == packing::p10 || layout.pack == packing::mipi10) bits = 10;
    return static_cast<std::int32_t>(bits * width / 8);
}

[[maybe_unused]] std::uint8_t* line_of(const img_descriptor& view, std::int32_t y, int plane = 0) {
    return view.plane_data[plane].data + static_cast<std::ptrdiff_t>(view.plane_data[plane].stride) * y;
}

// One past what may be read for line `y` of the strip. Where a line ends inside a group of samples, the missing bits
// are not those of the next line. In place, lines outside the strip may be changing.
[[maybe_unused]] const std::uint8_t* read_end(const kernel_call& call, sample_layout in, std::int32_t y) {
    const std::int32_t bytes = line_bytes(in, call.src.width);
    if (call.src.width % group_of(in.pack) != 0) return line_end(call.src, y, bytes);
    const bool in_place = call.src.plane_data[0].data == call.dst.plane_data[0].data;
    return in_place ? line_end(call.src, call.src.height - 1, bytes) : call.data_end;
}

[[maybe_unused]] bool holds_words(const std::uint8_t* p) {
    return reinterpret_cast<std::uintptr_t>(p) % alignof(std::uint16_t) == 0;
}

// What becomes of each byte, by the four sites of a cell: corrections of bytes need no arithmetic of samples.
template <class Rows>
class byte_curves {
public:
    void fill(const sample_params& samples) {
        alignas(64) std::uint16_t memory[2 * line_pad + 256];
        std::uint16_t* line = memory + line_pad;
        std::uint8_t table[256];
        for (int site = 0; site < 4; ++site) {
            same_as[site] = site;
            for (int other = 0; other < site && same_as[site] == site; ++other)
                if (samples.gain[site] == samples.gain[other]) same_as[site] = other;
            if (same_as[site] != site) continue;
            sample_params alike = samples;
            for (float& gain : alike.gain) gain = samples.gain[site];
            for (int v = 0; v < 256; ++v) line[v] = static_cast<std::uint16_t>(v * 257);
            Rows::correct(alike, 0, 256, line);
            for (int v = 0; v < 256; ++v) table[v] = static_cast<std::uint8_t>(line[v] >> 8U);
            fit_curve(table, curves[site]);
        }
    }
    void apply(const std::uint8_t* in, std::int32_t y, std::int32_t width, std::uint8_t* out) const {
        const int site = (y & 1) * 2;
        Rows::map_sites(curves[same_as[site]], curves[same_as[site + 1]], in, width, out);
    }
    // The even and the odd columns of a line of `width`, apart, in place.
    void apply_to_halves(std::int32_t y, std::int32_t width, std::uint8_t* even, std::uint8_t* odd) const {
        const int site = (y & 1) * 2;
        const byte_curve &of_even = curves[same_as[site]], &of_odd = curves[same_as[site + 1]];
        if (!of_even.unchanged) Rows::map_sites(of_even, of_even, even, (width + 1) / 2, even);
        if (!of_odd.unchanged) Rows::map_sites(of_odd, of_odd, odd, width / 2, odd);
    }

private:
    byte_curve curves[4];
    int same_as[4];
};

template <class Rows>
void sample_lines(const kernel_call& call) {
    const sample_layout in = layout_of(call.src.format), out = layout_of(call.dst.format);
    const auto* samples = static_cast<const sample_params*>(call.params);
    const bool in_place = call.src.plane_data[0].data == call.dst.plane_data[0].data;
    const std::int32_t width = call.src.width, out_bytes = line_bytes(out, width);
    std::byte* at = call.scratch;
    std::uint16_t* line = take_ring(at, width, 1).line(0);
    const bool by_curve = samples != nullptr && in.pack == packing::plain8 && out.pack == packing::plain8;
    byte_curves<Rows> curves;
    if (by_curve) curves.fill(*samples);
    const bool packed_alike = samples != nullptr && (samples->table == nullptr || samples->curve != nullptr) &&
                              in.pack == out.pack && in.shift == out.shift && group_of(in.pack) > 1;
    const bool as_they_are = samples == nullptr && !in_place;
    for (std::int32_t y = 0; y < call.src.height; ++y) {
        const std::uint8_t* from = line_of(call.src, y);
        std::uint8_t* to = line_of(call.dst, y);
        const std::uint8_t* end = read_end(call, in, y);
        if (by_curve && call.data_end - from >= width) {
            curves.apply(from, call.first_line + y, width, to);
            continue;
        }
        // Words in the form of a line buffer need no other.
        if (as_they_are && out.pack == packing::plain16 && out.shift == 0 && holds_words(to)) {
            Rows::load(in, from, end, width, reinterpret_cast<std::uint16_t*>(to));
            continue;
        }
        if (as_they_are && in.pack == packing::plain16 && in.shift == 0 && holds_words(from) &&
            end - from >= 2 * width) {
            Rows::store(out, to, line_end(call.dst, y, out_bytes), width, reinterpret_cast<const std::uint16_t*>(from));
            continue;
        }
        if (samples != nullptr && in_place && in.pack == packing::plain16 && in.shift == 0 && out.shift == 0 &&
            holds_words(to)) {
            Rows::correct(*samples, call.first_line + y, width, reinterpret_cast<std::uint16_t*>(to));
            continue;
        }
        if (packed_alike) {
            Rows::correct_packed(in, *samples, call.first_line + y, width,
                                 {from, end, to, line_end(call.dst, y, out_bytes)}, line);
            continue;
        }
        Rows::load(in, from, end, width, line);
        if (samples != nullptr) Rows::correct(*samples, call.first_line + y, width, line);
        Rows::store(out, to, line_end(call.dst, y, out_bytes), width, line);
    }
}

template <class Rows>
kernel_fn find_sample_lines_of(std::uint32_t destination, std::uint32_t source) {
    const sample_layout in = layout_of(source), out = layout_of(destination);
    const auto able = [](packing pack) { return pack != packing::none && pack != packing::real; };
    return able(in.pack) && able(out.pack) ? &sample_lines<Rows> : nullptr;
}

} // namespace
} // namespace img_pipe
