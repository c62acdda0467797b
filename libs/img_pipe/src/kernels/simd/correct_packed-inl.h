// Packed samples corrected on their way through registers.
#pragma once
#include "correct_rows-inl.h"
#include "sample_rows-inl.h"

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

// A vector of packed samples where nothing behind its own bytes may be touched.
template <packing pack>
struct bounded_vector {
    static constexpr std::size_t bytes = packed<pack>::bytes * (vector_samples / 8);
    static HWY_INLINE hn::Vec<d16> load(const std::uint8_t* p) {
        std::uint8_t room[packed_reach<pack>] = {};
        std::memcpy(room, p, bytes);
        return load_packed(packed<pack>(), room);
    }
    static HWY_INLINE void store(hn::Vec<d16> v, std::uint8_t* p) {
        std::uint8_t room[packed_reach<pack>];
        store_packed(packed<pack>(), v, room);
        std::memcpy(p, room, bytes);
    }
};

// As the plain correct_packed. In place a store spoils the bytes behind its samples: they are read before it. The last
// vector of whole groups lies over the one before it where it must, and is read before that one is written.
[[maybe_unused]] HWY_ATTR void correct_packed_v(sample_layout layout, const sample_params& p, std::int32_t y,
                                                std::int32_t width, const line_places& at, std::uint16_t* line) {
    constexpr std::int32_t n = vector_samples;
    with_packing(layout.pack, [&]<packing pack>(packed<pack> of) HWY_ATTR {
        constexpr std::ptrdiff_t step = of.bytes * (n / 8), reach = packed_reach<pack>;
        std::ptrdiff_t room = std::ptrdiff_t{width} * of.bytes / 8;
        if (at.from_end - at.from < room) room = at.from_end - at.from;
        if (at.to_end - at.to < room) room = at.to_end - at.to;
        const auto groups = static_cast<std::int32_t>(room / of.bytes); // of eight samples
        const std::int32_t done = groups * 8 < n ? 0 : groups * 8;
        const std::ptrdiff_t rest = done / 8 * of.bytes;
        // All that a load or a store of the loop reaches is within the line.
        const std::ptrdiff_t loop_end = room < reach ? 0 : (room - reach) / step * step + step;
        if (done < width) load_line_v(layout, at.from + rest, at.from_end, width - done, line);
        if (done > 0)
            with_correction(p, [&]<class C>(of_type<C>) HWY_ATTR {
                const C c(p, y);
                const std::uint8_t* const end = at.from + rest - step;
                auto next =
                    c.halfway(c.begin(loop_end > 0 ? load_packed(of, at.from) : bounded_vector<pack>::load(end)));
                std::ptrdiff_t i = 0;
                for (; i + step < loop_end; i += step) {
                    const auto own = next;
                    next = c.halfway(c.begin(load_packed(of, at.from + i + step)));
                    store_packed(of, c.end(own), at.to + i);
                }
                if (loop_end > 0) {
                    const auto own = next;
                    if (rest > loop_end) next = c.halfway(c.begin(bounded_vector<pack>::load(end)));
                    store_packed(of, c.end(own), at.to + i);
                }
                if (rest > loop_end) bounded_vector<pack>::store(c.end(next), at.to + rest - step);
            });
        if (done == width) return;
        correct_line_v(p, y, width - done, line);
        store_line_v(layout, at.to + rest, at.to_end, width - done, line);
    });
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
