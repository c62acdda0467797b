#include "wide_samples.h"

#include <gige/test_picture_format.h>
#include <img_pipe/format.h>

#include <array>
#include <string_view>

namespace cli {

namespace {

using gige::sample_packing;

// `count` bits, up to 16, from bit `first` on, the lowest bit of a byte first.
unsigned bits_at(std::span<const std::byte> data, size_t first, unsigned count) {
    unsigned value = 0;
    for (size_t i = 0; i < 3; ++i)
        if (first / 8 + i < data.size()) value |= std::to_integer<unsigned>(data[first / 8 + i]) << (8 * i);
    return value >> (first % 8) & ((1U << count) - 1);
}

// Two samples in three bytes: their high parts around the low ones.
unsigned legacy_sample(std::span<const std::byte> data, size_t i, unsigned bits) {
    const unsigned low = bits - 8;
    const size_t group = i / 2 * 24;
    return bits_at(data, group + i % 2 * 16, 8) << low | bits_at(data, group + 8 + i % 2 * 4, low);
}

struct field {
    unsigned place, bits;
};
constexpr std::array<field, 3> rgb565{{{0, 5}, {5, 6}, {11, 5}}};

unsigned widened(unsigned value, unsigned bits) {
    const unsigned top = (1U << bits) - 1;
    return bits > 8 ? value << (16 - bits) : (value * 65535 + top / 2) / top;
}

unsigned sample(const gige::picture_format& format, std::span<const std::byte> data, size_t i) {
    if (format.packing == sample_packing::rgb565) {
        const field& part = rgb565[i % 3];
        return widened(bits_at(data, i / 3 * 16 + part.place, part.bits), part.bits);
    }
    if (format.packing == sample_packing::legacy) return widened(legacy_sample(data, i, format.bits), format.bits);
    return widened(bits_at(data, i * format.container, format.bits), format.bits);
}

} // namespace

uint32_t wide_format(uint32_t pfnc) {
    using img_pipe::fcc;
    if (!gige::has_known_layout(pfnc)) return 0;
    const std::string_view samples = gige::find_picture_format(pfnc).samples;
    if (samples == "Y") return fcc("Y16 ");
    if (samples == "BG") return fcc("BG16");
    if (samples == "GB") return fcc("GB16");
    if (samples == "GR") return fcc("BA16");
    if (samples == "RG") return fcc("RG16");
    return samples.starts_with("RGB") || samples.starts_with("BGR") ? fcc("RGB6") : 0;
}

void wide_samples(uint32_t pfnc, std::span<const std::byte> data, size_t pixels, std::vector<std::byte>& out) {
    const gige::picture_format format = gige::find_picture_format(pfnc);
    const size_t each = format.samples.size() / format.pixels; // samples of a pixel
    const auto put = [&](size_t i, unsigned value) {
        out[2 * i] = static_cast<std::byte>(value);
        out[2 * i + 1] = static_cast<std::byte>(value >> 8);
    };
    if (each == 1) {
        out.resize(2 * pixels);
        for (size_t i = 0; i < pixels; ++i) put(i, sample(format, data, i));
        return;
    }
    out.resize(8 * pixels);
    for (size_t i = 0; i < pixels; ++i) {
        put(4 * i + 3, 0xFFFF);
        for (size_t k = 0; k < each; ++k)
            put(4 * i + std::string_view{"BGRA"}.find(format.samples[k]), sample(format, data, i * each + k));
    }
}

} // namespace cli
