// Steps that change colours, a vector at a time; the rest of a line by the plain steps.
#pragma once
#include "../plain/adjust_rows.h"
#include "colour_rows-inl.h"

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

template <class T>
HWY_ATTR void apply_matrix_v(const line_matrix& f, three<const T> in, std::int32_t x, std::int32_t n, three<T> out) {
    const hn::ScalableTag<float> df;
    const hn::Rebind<T, decltype(df)> narrow_tag;
    const auto lanes = static_cast<std::int32_t>(hn::Lanes(df));
    const auto zero = hn::Zero(df), most = hn::Set(df, static_cast<float>(static_cast<T>(~T{0})));
    for (; x + lanes <= n; x += lanes) {
        hn::Vec<decltype(df)> v[3];
        for (int j = 0; j < 3; ++j)
            v[j] = hn::ConvertTo(df, hn::PromoteTo(d32i(), hn::LoadU(narrow_tag, in.line[j] + x)));
        for (int i = 0; i < 3; ++i) {
            auto r = hn::Add(hn::Mul(v[0], hn::Set(df, f.m[i][0])), hn::Mul(v[1], hn::Set(df, f.m[i][1])));
            r = hn::Add(r, hn::Mul(v[2], hn::Set(df, f.m[i][2])));
            r = hn::Add(r, hn::Set(df, f.offset[i]));
            r = hn::Min(hn::Max(r, zero), most);
            hn::StoreU(hn::DemoteTo(narrow_tag, hn::NearestInt(r)), narrow_tag, out.line[i] + x);
        }
    }
    apply_matrix<T>(f, in, x, n, out);
}

[[maybe_unused]] HWY_ATTR void find_detail_v(const detail_amounts& d, const std::uint16_t* above,
                                             const std::uint16_t* middle, const std::uint16_t* below, std::int32_t x,
                                             std::int32_t n, std::uint16_t* plus, std::uint16_t* minus) {
    const d16 tag;
    const auto set = [&](std::uint16_t v) HWY_ATTR { return hn::Set(tag, v); };
    const auto reach = set(d.reach), gain = set(d.gain), ninth = set(7282), four = set(4);
    const auto least = set(detail_least), most = set(detail_most);
    const auto scaled = [&](hn::Vec<d16> a, hn::Vec<d16> b) HWY_ATTR {
        const auto v = hn::Min(hn::SaturatedSub(hn::SaturatedSub(a, b), least), most);
        return hn::MulHigh(hn::ShiftLeft<3>(v), gain);
    };
    for (; x + lanes16 <= n; x += lanes16) {
        const auto c = hn::LoadU(tag, middle + x);
        auto up = four, down = four, over = hn::Zero(tag), under = over;
        const auto edge = [&](const std::uint16_t* p, bool straight) HWY_ATTR {
            const auto v = hn::LoadU(tag, p);
            const auto more = hn::SaturatedSub(v, c), fewer = hn::SaturatedSub(c, v);
            up = hn::Add(up, hn::Min(more, hn::SaturatedSub(reach, more)));
            down = hn::Add(down, hn::Min(fewer, hn::SaturatedSub(reach, fewer)));
            over = hn::Add(over, straight ? hn::ShiftRight<3>(fewer) : hn::ShiftRight<4>(fewer));
            under = hn::Add(under, straight ? hn::ShiftRight<3>(more) : hn::ShiftRight<4>(more));
        };
        edge(above + x, true);
        edge(middle + x - 1, true);
        edge(middle + x + 1, true);
        edge(below + x, true);
        edge(above + x - 1, false);
        edge(above + x + 1, false);
        edge(below + x - 1, false);
        edge(below + x + 1, false);
        up = hn::MulHigh(up, ninth);
        down = hn::MulHigh(down, ninth);
        // At most 7083 each, and one of the two scaled ones is 0: no sum saturates below the difference's own limit.
        const auto add = scaled(over, under), take = scaled(under, over);
        const auto most_up = hn::SaturatedAdd(hn::SaturatedSub(up, down), d.soften ? take : add);
        const auto most_down = hn::SaturatedAdd(hn::SaturatedSub(down, up), d.soften ? add : take);
        hn::StoreU(hn::SaturatedSub(most_up, most_down), tag, plus + x);
        hn::StoreU(hn::SaturatedSub(most_down, most_up), tag, minus + x);
    }
    find_detail(d, above, middle, below, x, n, plus, minus);
}

[[maybe_unused]] HWY_ATTR void add_detail8_v(const std::uint16_t* plus, const std::uint16_t* minus,
                                             const std::uint8_t* in, std::int32_t x, std::int32_t n,
                                             std::uint8_t* out) {
    const d16 tag;
    const hn::Rebind<std::uint8_t, d16> half;
    const auto rounded = [&](const std::uint16_t* p) HWY_ATTR {
        const auto v = hn::LoadU(tag, p);
        return hn::ShiftRight<8>(hn::Add(hn::Sub(v, hn::ShiftRight<8>(v)), hn::Set(tag, std::uint16_t{128})));
    };
    for (; x + lanes16 <= n; x += lanes16) {
        const auto v = hn::Add(hn::PromoteTo(tag, hn::LoadU(half, in + x)), rounded(plus + x));
        const auto r = hn::Min(hn::SaturatedSub(v, rounded(minus + x)), hn::Set(tag, std::uint16_t{255}));
        hn::StoreU(hn::TruncateTo(half, r), half, out + x);
    }
    add_detail8(plus, minus, in, x, n, out);
}

[[maybe_unused]] HWY_ATTR void add_detail16_v(const std::uint16_t* plus, const std::uint16_t* minus,
                                              const std::uint16_t* in, std::int32_t x, std::int32_t n,
                                              std::uint16_t* out) {
    const d16 tag;
    for (; x + lanes16 <= n; x += lanes16)
        hn::StoreU(hn::SaturatedSub(hn::SaturatedAdd(hn::LoadU(tag, in + x), hn::LoadU(tag, plus + x)),
                                    hn::LoadU(tag, minus + x)),
                   tag, out + x);
    add_detail16(plus, minus, in, x, n, out);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
