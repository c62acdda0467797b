// Conversions that need no lines of samples between: whole vectors from pixel 0 on, the same values as by the steps of
// colour_rows-inl.h one after another. Each returns the pixel it came to, a whole number of groups.
#pragma once
#include "colour_rows-inl.h"

#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

// Bytes of each block of 16 bytes.
struct block_table {
    alignas(16) std::uint8_t at[16];
};

// Moves a chroma sample into the upper bytes of both pixels' words.
constexpr block_table chroma_to_words(int place) {
    block_table t{};
    for (int i = 0; i < 16; ++i) t.at[i] = static_cast<std::uint8_t>(i % 2 == 0 ? 0x80 : i / 4 * 4 + place);
    return t;
}
constexpr block_table chroma_at[4] = {chroma_to_words(0), chroma_to_words(1), chroma_to_words(2), chroma_to_words(3)};
constexpr block_table with_alpha = {{0, 1, 2, 0x80, 3, 4, 5, 0x80, 6, 7, 8, 0x80, 9, 10, 11, 0x80}};

HWY_INLINE v8 blocks(const block_table& t) { return hn::LoadDup128(d8(), t.at); }

// Pixels of 32 bits in order: the first half of the pixels that two vectors hold by blocks in turn, then the second.
HWY_INLINE void in_order(v8& a, v8& b) {
#if HWY_TARGET == HWY_AVX2
    const auto first = hn::ConcatLowerLower(d8(), b, a);
    b = hn::ConcatUpperUpper(d8(), b, a);
    a = first;
#else
    (void)a, (void)b;
#endif
}

// As pack_bytes, of two vectors of consecutive pixels.
HWY_INLINE v8 pack_in_order(v16i first, v16i second) {
#if HWY_TARGET == HWY_AVX2
    return v8{_mm256_permute4x64_epi64(pack_bytes(first, second).raw, 0xD8)};
#else
    return pack_bytes(first, second);
#endif
}

struct words_bgr {
    v16i b, g, r;
};

// Colours that are not clamped yet, of luma and of chroma that stands in the upper bytes of words.
class yuv_words {
public:
    HWY_INLINE words_bgr operator()(hn::Vec<d16> luma, v8 u_words, v8 v_words) const {
        const d16i tag;
        const auto set = [&](std::int32_t v) HWY_ATTR { return hn::Set(tag, static_cast<std::int16_t>(v)); };
        const auto y = hn::Add(hn::BitCast(tag, hn::ShiftLeft<6>(luma)), set(32));
        // A sample in the upper byte of a word is that sample times 256, around 0.
        const auto chroma = [&](v8 words) HWY_ATTR {
            const d16 wide;
            return hn::BitCast(tag, hn::Xor(hn::BitCast(wide, words), hn::Set(wide, std::uint16_t{0x8000})));
        };
        const auto u = chroma(u_words), v = chroma(v_words);
        const auto times = [&](v16i c, std::int32_t weight) HWY_ATTR { return hn::MulFixedPoint15(c, set(weight)); };
        return {hn::ShiftRight<6>(hn::Add(y, times(u, b_of_u))),
                hn::ShiftRight<6>(hn::Sub(hn::Sub(y, times(u, g_of_u)), times(v, g_of_v))),
                hn::ShiftRight<6>(hn::Add(y, times(v, r_of_v)))};
    }
};

// Packed YUV of two-pixel groups, a vector of words.
class groups_of_two {
public:
    static constexpr std::int32_t pixels = 2, reach = 0; // of a group; that are read behind the vector
    static constexpr std::int32_t bytes(std::int32_t x) { return 2 * x; }
    HWY_INLINE explicit groups_of_two(const yuv_group& group)
        : luma_first(group.y[0] == 0), u_at(blocks(chroma_at[group.u])), v_at(blocks(chroma_at[group.v])) {}
    HWY_INLINE words_bgr at(const std::uint8_t* p) const {
        const d16 wide;
        const auto in = hn::LoadU(d8(), p);
        const auto words = hn::BitCast(wide, in);
        const auto luma = luma_first ? hn::And(words, hn::Set(wide, std::uint16_t{0x00FF})) : hn::ShiftRight<8>(words);
        return colours(luma, hn::TableLookupBytesOr0(in, u_at), hn::TableLookupBytesOr0(in, v_at));
    }

private:
    yuv_words colours;
    bool luma_first;
    v8 u_at, v_at;
};

// Where the samples of eight pixels, two groups of four, lie in a block; for the lower or the upper bytes of words.
struct tables_of_four {
    block_table y, u, v;
};
constexpr tables_of_four tables_of(yuv_group g) {
    tables_of_four t{};
    const auto byte = [](int v) { return static_cast<std::uint8_t>(v); };
    for (int x = 0; x < 8; ++x) {
        const int group = x / 4 * 6;
        t.y.at[2 * x] = byte(group + g.y[x % 4]);
        t.u.at[2 * x + 1] = byte(group + g.u);
        t.v.at[2 * x + 1] = byte(group + g.v);
        t.y.at[2 * x + 1] = t.u.at[2 * x] = t.v.at[2 * x] = 0x80;
    }
    return t;
}
constexpr tables_of_four chroma_first_words = tables_of({4, 6, {1, 2, 4, 5}, 0, 3});
constexpr tables_of_four luma_first_words = tables_of({4, 6, {0, 1, 3, 4}, 2, 5});

class groups_of_four {
public:
    static constexpr std::int32_t pixels = 4, reach = 4;
    static constexpr std::int32_t bytes(std::int32_t x) { return x / 4 * 6; }
    HWY_INLINE explicit groups_of_four(const yuv_group& group) {
        const tables_of_four& t = group.u == 0 ? chroma_first_words : luma_first_words;
        y_at = blocks(t.y), u_at = blocks(t.u), v_at = blocks(t.v);
    }
    HWY_INLINE words_bgr at(const std::uint8_t* p) const {
        const auto in = load_groups(p, 12);
        return colours(hn::BitCast(d16(), hn::TableLookupBytesOr0(in, y_at)), hn::TableLookupBytesOr0(in, u_at),
                       hn::TableLookupBytesOr0(in, v_at));
    }

private:
    yuv_words colours;
    v8 y_at, u_at, v_at;
};

// put(from, to) for each vector of `step` pixels.
template <class Groups, std::int32_t step, class Put>
HWY_INLINE std::int32_t each_vector(const std::uint8_t* p, std::int32_t n, std::int32_t channels, std::uint8_t* out,
                                    const Put& put) {
    std::int32_t x = 0;
    for (; x + step + Groups::reach <= n; x += step) put(p + Groups::bytes(x), out + channels * x);
    if (x == n || n < step || n % Groups::pixels != 0) return x;
    // What is no whole vector: the last pixels once more, ending with the line.
    constexpr std::int32_t bytes = Groups::bytes(step);
    std::uint8_t last[bytes + Groups::bytes(Groups::reach)] = {};
    std::memcpy(last, p + Groups::bytes(n) - bytes, bytes);
    put(last, out + channels * (n - step));
    return n;
}

template <class Groups>
HWY_ATTR std::int32_t groups_to_bgr(const yuv_group& group, const std::uint8_t* p, std::int32_t n,
                                    std::int32_t channels, std::uint8_t* out) {
    const d16 wide;
    const Groups colours(group);
    const auto opaque = hn::Set(d16i(), std::int16_t{255});
    if (channels == 3)
        return each_vector<Groups, lanes8>(p, n, 3, out, [&](const std::uint8_t* from, std::uint8_t* to) HWY_ATTR {
            const auto first = colours.at(from), second = colours.at(from + Groups::bytes(lanes16));
            hn::StoreInterleaved3(pack_in_order(first.b, second.b), pack_in_order(first.g, second.g),
                                  pack_in_order(first.r, second.r), d8(), to);
        });
    return each_vector<Groups, lanes16>(p, n, 4, out, [&](const std::uint8_t* from, std::uint8_t* to) HWY_ATTR {
        const auto c = colours.at(from);
        const auto br = pack_bytes(c.b, c.r), ga = pack_bytes(c.g, opaque);
        const auto bg = hn::BitCast(wide, hn::InterleaveLower(d8(), br, ga));
        const auto ra = hn::BitCast(wide, hn::InterleaveUpper(d8(), br, ga));
        auto first = hn::BitCast(d8(), hn::InterleaveLower(wide, bg, ra));
        auto second = hn::BitCast(d8(), hn::InterleaveUpper(wide, bg, ra));
        in_order(first, second);
        hn::StoreU(first, d8(), to);
        hn::StoreU(second, d8(), to + lanes8);
    });
}

[[maybe_unused]] HWY_ATTR std::int32_t yuv_to_bgr_straight_v(const yuv_group& group, const std::uint8_t* p,
                                                             std::int32_t n, std::int32_t channels, std::uint8_t* out) {
    if (group.pixels == 4) return groups_to_bgr<groups_of_four>(group, p, n, channels, out);
    return group.pixels == 2 ? groups_to_bgr<groups_of_two>(group, p, n, channels, out) : 0;
}

// Which of 16 grey samples each byte of the result shows, block by block; twice, for vectors of two blocks.
struct grey_tables {
    alignas(32) std::uint8_t bgra[4][16];
    alignas(32) std::uint8_t bgr[6][16];
};
constexpr grey_tables grey_tables_of() {
    grey_tables t{};
    for (int block = 0; block < 4; ++block)
        for (int i = 0; i < 16; ++i)
            t.bgra[block][i] = static_cast<std::uint8_t>(i % 4 == 3 ? 0x80 : 4 * block + i / 4);
    for (int block = 0; block < 6; ++block)
        for (int i = 0; i < 16; ++i) t.bgr[block][i] = static_cast<std::uint8_t>((block % 3 * 16 + i) / 3);
    return t;
}
constexpr grey_tables grey_places = grey_tables_of();

[[maybe_unused]] HWY_ATTR std::int32_t grey_to_bgr_straight_v(const std::uint8_t* p, std::int32_t n,
                                                              std::int32_t channels, std::uint8_t* out) {
    std::int32_t x = 0;
    if (channels == 4) {
        const auto opaque = hn::BitCast(d8(), hn::Set(d32(), 0xFF000000U));
        for (; x + 16 <= n; x += 16) {
            const auto grey = hn::LoadDup128(d8(), p + x);
            for (std::int32_t i = 0; i < 64; i += lanes8) {
                const auto at = hn::LoadU(d8(), &grey_places.bgra[0][0] + i);
                hn::StoreU(hn::Or(hn::TableLookupBytesOr0(grey, at), opaque), d8(), out + 4 * x + i);
            }
        }
        return x;
    }
    for (; x + lanes8 <= n; x += lanes8) {
#if HWY_TARGET == HWY_AVX2
        // Bytes 0 to 31 show the first 16 samples, 32 to 63 some of both, 64 to 95 the last.
        const v8 parts[3] = {hn::LoadDup128(d8(), p + x), hn::LoadU(d8(), p + x), hn::LoadDup128(d8(), p + x + 16)};
#else
        const v8 all = hn::LoadU(d8(), p + x);
        const v8 parts[3] = {all, all, all};
#endif
        for (int i = 0; i < 3; ++i)
            hn::StoreU(hn::TableLookupBytes(parts[i], hn::LoadU(d8(), &grey_places.bgr[0][0] + i * lanes8)), d8(),
                       out + 3 * x + i * lanes8);
    }
    return x;
}

[[maybe_unused]] HWY_ATTR std::int32_t bgr_to_luma_straight_v(std::int32_t channels, const std::uint8_t* p,
                                                              std::int32_t n, std::uint8_t* out) {
    const d16 wide;
    const auto low = hn::Set(wide, std::uint16_t{0x00FF});
    const auto of_br = factors(luma_b, luma_r), of_ga = factors(luma_g, 0);
    const auto half = hn::Set(d32i(), 8192);
    const auto alpha = blocks(with_alpha);
    // Pixels of 32 bits to their luma.
    const auto luma = [&](v8 v) HWY_ATTR {
        const auto words = hn::BitCast(wide, v);
        const auto br = pair_sums(hn::BitCast(d16i(), hn::And(words, low)), of_br);
        const auto ga = pair_sums(hn::BitCast(d16i(), hn::ShiftRight<8>(words)), of_ga);
        return hn::ShiftRight<14>(hn::Add(hn::Add(br, ga), half));
    };
    const auto at = [&](std::int32_t x) HWY_ATTR {
        return channels == 4 ? luma(hn::LoadU(d8(), p + 4 * x))
                             : luma(hn::TableLookupBytesOr0(load_groups(p + 3 * x, 12), alpha));
    };
    constexpr std::int32_t step = lanes8 / 4;
    const std::int32_t end = channels == 3 ? n - 2 : n;
    std::int32_t x = 0;
    for (; x + lanes8 <= end; x += lanes8) {
        const auto lower = hn::ReorderDemote2To(d16i(), at(x), at(x + step));
        const auto upper = hn::ReorderDemote2To(d16i(), at(x + 2 * step), at(x + 3 * step));
        auto v = pack_bytes(lower, upper);
#if HWY_TARGET == HWY_AVX2
        alignas(32) static constexpr std::int32_t order[8] = {0, 4, 1, 5, 2, 6, 3, 7};
        v = hn::BitCast(d8(), hn::TableLookupLanes(hn::BitCast(d32i(), v), hn::SetTableIndices(d32i(), order)));
#endif
        hn::StoreU(v, d8(), out + x);
    }
    return x;
}

[[maybe_unused]] HWY_ATTR std::int32_t luma_straight_v(const yuv_group& group, const std::uint8_t* p, std::int32_t n,
                                                       std::uint8_t* out) {
    if (group.pixels != 2) return 0;
    std::int32_t x = 0;
    const auto from = [&](auto pick) HWY_ATTR {
        const auto at = [&](std::int32_t i) HWY_ATTR {
            hn::StoreU(pick(hn::LoadU(d8(), p + 2 * i + lanes8), hn::LoadU(d8(), p + 2 * i)), d8(), out + i);
        };
        for (; x + lanes8 <= n; x += lanes8) at(x);
        if (n < lanes8 || n % 2 != 0) return;
        at(n - lanes8); // the last pixels once more, ending with the line
        x = n;
    };
    if (group.y[0] == 0)
        from([](v8 b, v8 a) HWY_ATTR { return hn::ConcatEven(d8(), b, a); });
    else
        from([](v8 b, v8 a) HWY_ATTR { return hn::ConcatOdd(d8(), b, a); });
    return x;
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
