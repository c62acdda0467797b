#include "exercise.h"

#include <img_pipe/filter_table.h>
#include <img_pipe/overlay.h>
#include <img_pipe/transform_pipe.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace fuzz {

namespace {

using namespace img_pipe;

void require(bool held, const char* what) {
    if (held) return;
    std::fprintf(stderr, "violated: %s\n", what);
    std::abort();
}

// The input from its beginning; zeros once it has ended.
class reader {
public:
    explicit reader(std::span<const std::byte> bytes) : rest(bytes) {}
    template <class T>
    T take() {
        T value{};
        const std::size_t size = std::min(sizeof value, rest.size());
        if (size != 0) std::memcpy(&value, rest.data(), size);
        rest = rest.subspan(size);
        return value;
    }
    std::span<const std::byte> left() const { return rest; }

private:
    std::span<const std::byte> rest;
};

// An image in a heap block of its exact size, whose borders the address sanitizer watches; what is between the lines is
// watched here.
class picture {
public:
    picture(std::uint32_t format, std::int32_t width, std::int32_t height, std::int32_t pad) {
        const format_description d(format);
        std::size_t size = 0;
        const auto lines = [&](std::int32_t plane) { return height / d.planes[plane].vertical_subsampling; };
        for (std::int32_t i = 0; i < d.plane_count; ++i)
            size += static_cast<std::size_t>((line_stride(format, width, i) + pad) * lines(i));
        bytes = std::vector<std::uint8_t>(std::max<std::size_t>(size, 1), 0xEE);
        bytes.shrink_to_fit();
        view = {format, width, height, static_cast<std::uint32_t>(size), 0, {}};
        std::uint8_t* at = bytes.data();
        for (std::int32_t i = 0; i < d.plane_count; ++i) {
            view.plane_data[i] = {at, line_stride(format, width, i) + pad};
            for (std::int32_t y = 0; y < lines(i); ++y)
                owned.emplace_back(at - bytes.data() + view.plane_data[i].stride * y, line_stride(format, width, i));
            at += view.plane_data[i].stride * lines(i);
        }
    }
    void fill(std::span<const std::byte> with) {
        std::size_t next = 0;
        std::uint32_t mixed = 1;
        for (const auto& [begin, count] : owned)
            for (std::ptrdiff_t i = begin; i < begin + count; ++i) {
                mixed = mixed * 1664525 + 1013904223; // no two lines alike however short the input
                const auto given = with.empty() ? 0U : std::to_integer<unsigned>(with[next++ % with.size()]);
                bytes[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(given + (mixed >> 28));
            }
    }
    bool frame_untouched() const {
        std::vector<std::uint8_t> seen = bytes;
        for (const auto& [begin, count] : owned) std::fill_n(seen.begin() + begin, count, std::uint8_t{0xEE});
        return std::ranges::all_of(seen, [](std::uint8_t b) { return b == 0xEE; });
    }
    std::vector<std::uint8_t> bytes;
    img_descriptor view{};

private:
    std::vector<std::pair<std::ptrdiff_t, std::ptrdiff_t>> owned; // first byte and number of each line's
};

transform_params params_from(reader& in) {
    transform_params p;
    const auto which = in.take<std::uint16_t>();
    const auto on = [&](unsigned bit) { return (which >> bit & 1) != 0; };
    if (on(0)) {
        p.wb_enable = true;
        for (float& gain : p.wb_gain) gain = in.take<float>();
    }
    if (on(1)) p.saturation = in.take<float>();
    if (on(2)) p.hue = in.take<float>();
    if (on(3)) p.contrast = in.take<std::int32_t>();
    if (on(4)) p.brightness = in.take<std::int32_t>();
    if (on(5)) p.sharpness = in.take<std::int32_t>();
    if (on(6)) p.denoise = in.take<std::int32_t>();
    if (on(7)) p.gamma = in.take<float>();
    if (on(8)) {
        p.color_matrix_enable = true;
        for (float& m : p.color_matrix) m = in.take<float>();
    }
    if (on(9)) {
        p.tonemapping_enable = true;
        p.tonemapping_fixed = on(10);
        p.tonemapping_intensity = in.take<float>();
        p.tonemapping_global_brightness = in.take<float>();
        const float scale = in.take<float>(), offset = in.take<float>(), exponent = in.take<float>(),
                    mean = in.take<float>();
        p.tonemapping_factors = {scale, offset, exponent, mean};
    }
    p.force_parameter_route = on(11);
    for (unsigned i = 0; i < 3; ++i) p.route_flags[i] = on(12 + i) ? 1 : 0;
    p.copy_if_no_transform = on(15);
    return p;
}

// A fault that a view shows by itself: its block is never smaller than what it claims.
void spoil(img_descriptor& view, unsigned kind, unsigned value) {
    image_plane& plane = view.plane_data[value % 4];
    switch (kind % 9) {
    case 0:
        view.width = 0;
        break;
    case 1:
        view.height = -static_cast<std::int32_t>(value);
        break;
    case 2:
        plane.stride = -plane.stride;
        break;
    case 3:
        plane.stride = static_cast<std::int32_t>(value) - 1;
        break;
    case 4:
        plane.data = nullptr;
        break;
    case 5:
        view.data_size -= std::min(view.data_size, value + 1);
        break;
    case 6:
        view.format = value % 2 == 0 ? 0 : format_at(value);
        break;
    case 7:
        view.width = 0x7FFFFFFF - static_cast<std::int32_t>(value);
        view.height = static_cast<std::int32_t>(value) << 23;
        break;
    default:
        plane.stride = 0x7FFFFFFF;
    }
}

std::vector<std::uint32_t> levels_here() {
#ifdef MODULE_avx2
    (void)load_filter_library(MODULE_avx2, 0);
#endif
    std::vector<std::uint32_t> masks;
    for (const filter_module& module : get_filter_table(cpu_mask())) masks.push_back(module.required_cpu);
    return masks;
}

struct pair {
    std::uint32_t from, to;
};
std::vector<pair> all_pairs() {
    std::vector<pair> all;
    for (const conversion_row& row : conversion_table())
        for (const std::uint32_t from : row.sources)
            for (const std::uint32_t to : row.destinations)
                if (from != 0 && to != 0) all.push_back({from, to});
    for (const in_place_row& row : in_place_table())
        for (const std::uint32_t id : row.formats)
            if (id != 0) all.push_back({id, id});
    return all;
}

} // namespace

void exercise_transform(std::span<const std::byte> input) {
    static const std::vector<pair> pairs = all_pairs();
    static const std::vector<std::uint32_t> masks = levels_here();
    reader in(input);
    const pair formats = pairs[in.take<std::uint16_t>() % pairs.size()];
    const auto choices = in.take<std::uint8_t>();
    const std::int32_t width = 1 + in.take<std::uint8_t>() % 96;
    const auto lines = in.take<std::uint8_t>();
    const std::int32_t height = 1 + lines % 40 + ((lines & 0x80) != 0 ? 128 : 0);
    const auto pads = in.take<std::uint8_t>();
    const auto fault = in.take<std::uint8_t>(), fault_value = in.take<std::uint8_t>();
    const bool in_place = (choices & 1) != 0, twice = (choices & 2) != 0, faulty = (choices & 4) != 0,
               half = (choices & 8) != 0;
    transform_params params = params_from(in);
    params.max_concurrency = 1 + (choices >> 4) % 3;
    const std::string_view text{reinterpret_cast<const char*>(in.left().data()),
                                std::min<std::size_t>(in.left().size(), 9)};

    std::vector<std::uint8_t> first;
    bool first_ran = false;
    for (const std::uint32_t mask : masks) {
        params.optimization_level = mask;
        picture source(formats.from, width, height, pads & 15);
        source.fill(in.left());
        const int part = half && format_description(formats.from).is_polarization != 0 ? 2 : 1;
        picture other(formats.to, std::max(1, width / part), std::max(1, height / part), pads >> 4);
        const bool same = in_place || (twice && formats.from == formats.to);
        picture& result = same ? source : other;
        img_descriptor from = source.view, to = result.view;
        if (faulty) spoil(fault % 2 == 0 ? from : to, fault / 2, fault_value);
        const std::vector<std::uint8_t> before = source.bytes;
        transform_pipe pipe;
        bool ran = false;
        for (int frame = 0; frame < 2; ++frame) {
            ran = in_place ? pipe.transform_in_place(to, params) : pipe.transform(to, from, params);
            if (same) break; // the second change is one of another image
        }
        // A spoilt view may still be one, with its lines elsewhere in the block.
        require(result.frame_untouched() || faulty, "bytes between the lines");
        require(same || source.bytes == before, "the source is left alone");
        if (mask == masks.front()) {
            first = result.bytes;
            first_ran = ran;
        }
        require(ran == first_ran && result.bytes == first, "levels agree");
        draw_overlay_text(to, fault_value % 8, text);
        require(result.frame_untouched() || faulty, "bytes around a text");
    }
}

} // namespace fuzz
