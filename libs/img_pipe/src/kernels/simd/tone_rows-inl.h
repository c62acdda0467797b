// Steps of tone mapping, a vector at a time; the rest of a line by the plain steps.
#pragma once
#include "../plain/tone_rows.h"
#include "correct_rows-inl.h"
#include "sample_rows-inl.h"

HWY_BEFORE_NAMESPACE();
namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

// A vector of 16-bit lanes holds the two samples of each lane; those at even and at odd places are worked on by
// themselves, the odd ones' neighbours being the even ones two bytes on.
[[maybe_unused]] HWY_ATTR void index_bytes_v(const cell_lines<std::uint8_t>& c, std::int32_t x, std::int32_t width,
                                             std::uint16_t* index) {
    const d16 tag;
    const auto n = static_cast<std::int32_t>(2 * hn::Lanes(tag));
    const auto low = hn::Set(tag, std::uint16_t{0xFF}), third = hn::Set(tag, std::uint16_t{21846});
    const auto words = [&](const std::uint8_t* p) HWY_ATTR { return hn::BitCast(tag, hn::LoadU(d8(), p)); };
    for (; x + n + 2 <= width; x += n) {
        const auto own = words(c.own + x), under = words(c.next + x);
        const auto even = hn::And(own, low), odd = hn::ShiftRight<8>(own);
        const auto after = hn::And(words(c.own + x + 2), low);
        const auto pair = hn::Add(even, odd), next_pair = hn::Add(odd, after);
        // Below an even green its own column, below the neighbour of an odd other colour the column two on.
        auto sum = pair, next_sum = next_pair;
        if (c.green_first) {
            sum = hn::Add(pair, hn::And(under, low));
            next_sum = hn::Add(next_pair, hn::And(words(c.next + x + 2), low));
        } else {
            const auto column = hn::ShiftRight<8>(under);
            sum = hn::Add(pair, column);
            next_sum = hn::Add(next_pair, column);
        }
        const auto first = hn::Or(hn::ShiftLeft<8>(hn::MulHigh(sum, third)), even);
        const auto second = hn::Or(hn::ShiftLeft<8>(hn::MulHigh(next_sum, third)), odd);
        hn::StoreInterleaved2(first, second, tag, index + x);
    }
    index_bytes(c, x, width, index);
}

// A third of a sum of three samples, rounded down: half a count more keeps the product off the whole numbers.
[[maybe_unused]] HWY_ATTR void index_words_v(const cell_lines<std::uint16_t>& c, std::int32_t x, std::int32_t width,
                                             std::uint16_t* index) {
    const hn::ScalableTag<float> df;
    const hn::Rebind<std::int32_t, decltype(df)> di;
    const hn::Rebind<std::uint16_t, decltype(df)> du;
    const auto n = static_cast<std::int32_t>(hn::Lanes(df));
    const auto third = hn::Set(df, 1.0F / 3.0F), half = hn::Set(df, 0.5F);
    const auto load = [&](const std::uint16_t* p) HWY_ATTR { return hn::PromoteTo(di, hn::LoadU(du, p)); };
    for (; x + n + 1 <= width; x += n) {
        const auto straight = load(c.next + x), aslant = load(c.next + x + 1);
        const auto under = c.green_first ? hn::OddEven(aslant, straight) : hn::OddEven(straight, aslant);
        const auto sum = hn::Add(hn::Add(load(c.own + x), load(c.own + x + 1)), under);
        const auto mean = hn::Mul(hn::Add(hn::ConvertTo(df, sum), half), third);
        hn::StoreU(hn::DemoteTo(du, hn::ConvertTo(di, mean)), du, index + x);
    }
    index_words(c, x, width, index);
}

[[maybe_unused]] HWY_ATTR void look_up_v(const std::uint8_t* table, const std::uint16_t* places, std::int32_t n,
                                         std::uint8_t* out) {
    std::int32_t x = 0;
    for (; x + 8 <= n; x += 8) look_up_eight(table, places + x, out + x);
    look_up(table, places + x, n - x, out + x);
}

[[maybe_unused]] HWY_ATTR void map_words_v(const tonemapping_params& params, const std::uint16_t* line,
                                           const float* adaptation, std::int32_t x, std::int32_t width,
                                           std::uint16_t* out) {
    const hn::ScalableTag<float> df;
    const hn::Rebind<std::int32_t, decltype(df)> di;
    const hn::Rebind<std::uint16_t, decltype(df)> du;
    const auto n = static_cast<std::int32_t>(hn::Lanes(df));
    const auto scale = hn::Set(df, params.scale * 65535.0F), offset = hn::Set(df, params.offset * 65535.0F);
    const auto zero = hn::Zero(df), most = hn::Set(df, 65535.0F);
    for (; x + n <= width; x += n) {
        const auto p = hn::ConvertTo(df, hn::PromoteTo(di, hn::LoadU(du, line + x)));
        const auto r = hn::Mul(hn::Div(p, hn::Add(p, hn::LoadU(df, adaptation + x))), scale);
        const auto bounded = hn::Min(hn::Max(hn::Add(r, offset), zero), most);
        hn::StoreU(hn::DemoteTo(du, hn::ConvertTo(di, bounded)), du, out + x);
    }
    map_words(params, line, adaptation, x, width, out);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
HWY_AFTER_NAMESPACE();
