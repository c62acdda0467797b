// Tone mapping of grey images and mosaics, in place or to another image of the same phase. A sample is mapped by the
// luminance of the 2 x 2 cell that begins with it: the mean of one red, one green and one blue sample. Cells that stick
// out of the image are mirrored at its edge, which keeps the colours. A grey sample is its own luminance.
//
// Each line's luminances are found before its first sample is written, so in place only the lines around a strip are
// needed from elsewhere. The level's line functions come as `Rows`.
#pragma once
#include "plain/tone_rows.h"
#include "sample_lines.h"

#include <cstring>

namespace img_pipe {
namespace {

enum class tones : std::uint8_t { none, bytes, words, floats };

struct tone_layout {
    tones kind;
    phase mosaic;
    sample_layout samples; // of words
};

[[maybe_unused]] tone_layout tone_layout_of(std::uint32_t id) {
    static constexpr std::uint32_t floats[] = {fcc("BGf0"), fcc("GBf0"), fcc("BAf0"), fcc("RGf0")};
    for (std::int8_t i = 0; i < 4; ++i)
        if (floats[i] == id) return {tones::floats, static_cast<phase>(i), {}};
    if (id == fcc("MONf")) return {tones::floats, phase::grey, {}};
    const sample_layout s = layout_of(id);
    const bool companded = id == fcc("PWL1") || id == fcc("PWL2") || id == fcc("PWL3");
    if (s.pack == packing::none || companded || (s.mosaic == phase::grey && (id & 0xFF) != 'Y'))
        return {tones::none, phase::grey, s};
    return {s.pack == packing::plain8 ? tones::bytes : tones::words, s.mosaic, s};
}

template <class Rows>
class tone_mapping {
public:
    static void bytes(const kernel_call& call) { tone_mapping(call).map_bytes(); }
    static void words(const kernel_call& call) { tone_mapping(call).map_words(); }
    static void floats(const kernel_call& call) { tone_mapping(call).map_floats(); }

private:
    explicit tone_mapping(const kernel_call& c)
        : call(c),
          in(tone_layout_of(c.src.format)),
          out(tone_layout_of(c.dst.format)),
          params(*static_cast<const tonemapping_params*>(c.params)),
          width(c.src.width),
          in_place(c.src.plane_data[0].data == c.dst.plane_data[0].data) {}

    bool green_first(std::int32_t y) const {
        return (in.mosaic == phase::gb || in.mosaic == phase::gr) != (((call.first_line + y) & 1) != 0);
    }

    // The original line y of the strip; -1 and the strip's height are those around it.
    const std::uint8_t* original(std::int32_t y) const {
        const bool outside = y < 0 || y >= call.src.height;
        if (!in_place || !outside) return line_of(call.src, y);
        return reinterpret_cast<const std::uint8_t*>(call.halo) + (y < 0 ? 0 : call.halo_pitch);
    }

    // The line below line y of the strip, mirrored at the image's end.
    std::int32_t below(std::int32_t y) const {
        return mirror(call.first_line + y + 1, call.image_height) - call.first_line;
    }

    void map_bytes() {
        std::byte* at = call.scratch;
        std::uint16_t* const index = take_ring(at, width, 1).line(0);
        auto* const kept = reinterpret_cast<std::uint8_t*>(take_ring(at, width, 1).line(0)); // the line before
        const auto line_bytes = static_cast<std::size_t>(width);
        if (in.mosaic == phase::grey) return map_grey_bytes();
        for (std::int32_t y = 0; y < call.src.height; ++y) {
            const std::uint8_t* const own = line_of(call.src, y);
            std::uint8_t* const to = line_of(call.dst, y);
            const std::int32_t next = below(y);
            const bool changed = in_place && next == y - 1 && next >= 0;
            const cell_lines<std::uint8_t> cells{own, changed ? kept : original(next), green_first(y)};
            // Only the image's last line looks back.
            if (in_place && call.first_line + y == call.image_height - 2) std::memcpy(kept, own, line_bytes);
            Rows::index_bytes(cells, 0, width, index);
            Rows::look_up(params.byte_table, index, width, to);
        }
    }

    void map_grey_bytes() {
        std::uint8_t table[256];
        for (std::int32_t v = 0; v < 256; ++v) table[v] = params.byte_table[256 * v + v];
        byte_curve curve;
        fit_curve(table, curve);
        for (std::int32_t y = 0; y < call.src.height; ++y)
            Rows::map_sites(curve, curve, line_of(call.src, y), width, line_of(call.dst, y));
    }

    void map_words() {
        const std::int32_t in_bytes = line_bytes(in.samples, width), out_bytes = line_bytes(out.samples, width);
        std::byte* at = call.scratch;
        row_ring ring = take_ring(at, width, 3);
        std::uint16_t* const index = take_ring(at, width, 1).line(0);
        auto* const adaptation = reinterpret_cast<float*>(take_ring(at, width, 2).line(0));
        std::uint16_t *before = ring.line(0), *own = ring.line(1), *next = ring.line(2);
        const auto load = [&](std::int32_t y, std::uint16_t* line) {
            const std::uint8_t* const from = original(y);
            Rows::load(in.samples, from, from + in_bytes, width, line);
            mirror_ends(line, width, 1);
        };
        load(0, own);
        const bool grey = in.mosaic == phase::grey;
        for (std::int32_t y = 0; y < call.src.height; ++y) {
            const std::uint16_t* found = own;
            if (!grey) {
                const std::int32_t wanted = below(y);
                std::uint16_t* const into = wanted < y ? before : next;
                const bool have = wanted == y || (wanted < y && y > 0);
                if (!have) load(wanted, into);
                Rows::index_words({own, wanted == y ? own : into, green_first(y)}, 0, width, index);
                found = index;
            } else if (y + 1 < call.src.height) {
                load(y + 1, next);
            }
            const float* const table = params.adaptation_scaled;
            for (std::int32_t x = 0; x < width; ++x) adaptation[x] = table[found[x]];
            // The original stays: the image's last line looks back at it.
            Rows::map_words(params, own, adaptation, 0, width, index);
            Rows::store(out.samples, line_of(call.dst, y), line_end(call.dst, y, out_bytes), width, index);
            std::uint16_t* const oldest = before;
            before = own;
            own = next;
            next = oldest;
        }
    }

    // Floats come by themselves, a sample at a time: cameras send none.
    void map_floats() {
        std::byte* at = call.scratch;
        auto take = [&] { return reinterpret_cast<float*>(take_ring(at, width, 2).line(0)); };
        float *before = take(), *own = take(), *next = take(), *const result = take();
        const auto bytes = static_cast<std::size_t>(width) * sizeof(float);
        std::memcpy(own, original(0), bytes);
        for (std::int32_t y = 0; y < call.src.height; ++y) {
            const std::int32_t wanted = below(y);
            float* const into = wanted < y ? before : next;
            const bool have = wanted == y || (wanted < y && y > 0);
            if (!have) std::memcpy(into, original(wanted), bytes);
            const float* const under = wanted == y ? own : into;
            for (std::int32_t x = 0; x < width; ++x) {
                const std::int32_t right = mirror(x + 1, width);
                float l = own[x];
                if (in.mosaic != phase::grey) l = (l + own[right] + under[x] + under[right]) / 4.0F;
                l = l > 0.0F ? l < 1.0F ? l : 1.0F : 0.0F; // no number counts as 0
                const float p = own[x] > 0.0F ? own[x] : 0.0F;
                const float r =
                    p / (p + params.adaptation[static_cast<std::int32_t>(l * 65535.0F)]) * params.scale + params.offset;
                result[x] = r > 0.0F ? r < 1.0F ? r : 1.0F : 0.0F;
            }
            std::memcpy(line_of(call.dst, y), result, bytes);
            float* const oldest = before;
            before = own;
            own = next;
            next = oldest;
        }
    }

    const kernel_call& call;
    tone_layout in, out;
    const tonemapping_params& params;
    std::int32_t width;
    bool in_place;
};

// Packed samples may be mapped to the 16-bit format of their phase.
template <class Rows>
kernel_fn find_tonemapping_of(std::uint32_t destination, std::uint32_t source) {
    const tone_layout from = tone_layout_of(source), to = tone_layout_of(destination);
    const bool widened = from.kind == tones::words && to.kind == tones::words && from.mosaic == to.mosaic &&
                         to.samples.pack == packing::plain16 && to.samples.shift == 0;
    if (destination != source && !widened) return nullptr;
    switch (from.kind) {
    case tones::bytes:
        return &tone_mapping<Rows>::bytes;
    case tones::words:
        return &tone_mapping<Rows>::words;
    case tones::floats:
        return &tone_mapping<Rows>::floats;
    default:
        return nullptr;
    }
}

} // namespace
} // namespace img_pipe
