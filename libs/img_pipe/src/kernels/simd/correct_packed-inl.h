// Packed samples corrected on their way through registers.
#pragma once
#include "correct_rows-inl.h"
#include "sample_rows-inl.h"

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

// As the plain correct_packed. In place a store spoils the bytes behind its samples: they are read before it.
[[maybe_unused]] HWY_ATTR void correct_packed_v(sample_layout layout, const sample_params& p, std::int32_t y,
                                                std::int32_t width, const line_places& at, std::uint16_t* line) {
    constexpr std::int32_t n = vector_samples;
    with_packing(layout.pack, [&]<packing pack>(packed<pack> of) HWY_ATTR {
        constexpr std::ptrdiff_t step = of.bytes * (n / 8), reach = packed_reach<pack>;
        std::ptrdiff_t room = std::ptrdiff_t{width} * of.bytes / 8;
        if (at.from_end - at.from < room) room = at.from_end - at.from;
        if (at.to_end - at.to < room) room = at.to_end - at.to;
        const auto vectors = static_cast<std::int32_t>(room < reach ? 0 : (room - reach) / step + 1);
        const std::int32_t done = vectors * n;
        load_line_v(layout, at.from + vectors * step, at.from_end, width - done, line);
        if (vectors > 0)
            with_correction(p, [&]<class C>(of_type<C>) HWY_ATTR {
                const C c(p, y);
                auto next = load_packed(of, at.from);
                for (std::int32_t i = 0; i < vectors; ++i) {
                    const auto own = next;
                    if (i + 1 < vectors) next = load_packed(of, at.from + (i + 1) * step);
                    store_packed(of, c(own), at.to + i * step);
                }
            });
        correct_line_v(p, y, width - done, line);
        store_line_v(layout, at.to + vectors * step, at.to_end, width - done, line);
    });
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
