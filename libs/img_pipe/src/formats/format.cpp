#include "format_table.h"
#include "pfnc_names.h"

#include <algorithm>
#include <limits>

namespace img_pipe {

namespace {

const format_entry* find_entry(std::uint32_t id) {
    const auto* found = std::ranges::find(format_entries, id, &format_entry::id);
    return found == std::end(format_entries) ? nullptr : found;
}

bool is_420(std::uint32_t id) { return id == fcc("I420") || id == fcc("YV12") || id == fcc("NV12"); }

void describe_planes(std::uint32_t id, format_description& d) {
    const auto same = [&](std::int32_t count, std::uint32_t plane, std::int32_t bits) {
        d.plane_count = count;
        for (std::int32_t i = 0; i < count; ++i) d.planes[i] = {plane, bits, 1, 1};
    };
    if (id == fcc("YU8p")) return same(3, fcc("Y800"), 8);
    if (id == fcc("YUGp")) return same(3, fcc("Y16 "), 16);
    if (id == fcc("YUfp")) return same(3, fcc("MONf"), 32);
    if (id == fcc("ADp1")) return same(4, fcc("RAW1"), 8);
    if (id == fcc("ADp2")) return same(4, fcc("RAW2"), 16);
    if (id == fcc("NV12")) {
        d.plane_count = 2;
        d.planes[0] = {fcc("Y800"), 8, 1, 1};
        d.planes[1] = {fcc("RAW2"), 16, 2, 2};
    } else if (is_420(id)) {
        d.plane_count = 3;
        d.planes[0] = {fcc("Y800"), 8, 1, 1};
        d.planes[1] = d.planes[2] = {fcc("Y800"), 8, 2, 2};
    } else {
        d.planes[0] = {id, d.bits_per_pixel, 1, 1};
    }
}

std::int64_t stride64(const format_description& d, std::int32_t width, std::int32_t plane) {
    if (d.plane_count < 2) return std::int64_t{d.bits_per_pixel} * width / 8;
    const plane_description& p = d.planes[plane];
    return std::int64_t{width} * p.bits / p.horizontal_subsampling / 8;
}

} // namespace

format_description::format_description(std::uint32_t format) {
    const format_entry* entry = find_entry(format);
    if (entry == nullptr) {
        describe_planes(format, *this); // one, whose lines are the image's
        return;
    }
    const auto has = [&](unsigned k) { return static_cast<std::uint8_t>((entry->kinds & k) != 0); };
    bits_per_pixel = entry->bits;
    pixel_group = entry->group;
    is_mono = has(kind::mono);
    is_yuv = has(kind::yuv);
    is_float = has(kind::fp);
    is_hsv = has(kind::hsv);
    is_polarization = has(kind::pol);
    is_pwl = has(kind::pwl);
    line_group = is_420(format) ? 2 : 1;
    describe_planes(format, *this);
}

std::uint32_t format_at(std::uint32_t place) {
    return place < std::size(format_entries) ? format_entries[place].id : 0;
}

std::uint32_t fcc_from_pfnc(std::uint32_t pixel_format) {
    const auto* found = std::ranges::find(pfnc_pairs, pixel_format, &pfnc_pair::pfnc);
    return found == std::end(pfnc_pairs) ? 0 : found->id;
}

std::uint32_t pfnc_from_fcc(std::uint32_t format) {
    const auto* found = std::ranges::find(pfnc_pairs, format, &pfnc_pair::id);
    return found == std::end(pfnc_pairs) ? 0 : found->pfnc;
}

std::string_view pfnc_name(std::uint32_t pixel_format) {
    const auto* found = std::ranges::lower_bound(pfnc_entries, pixel_format, {}, &pfnc_entry::value);
    return found == std::end(pfnc_entries) || found->value != pixel_format ? "UnknownPixelFormat" : found->name;
}

std::uint32_t pfnc_from_name(std::string_view name) {
    const auto* found = std::ranges::find(pfnc_entries, name, &pfnc_entry::name);
    return found == std::end(pfnc_entries) ? 0 : found->value;
}

std::uint32_t fcc_from_text(std::string_view text) {
    for (const format_entry& entry : format_entries) {
        std::uint32_t id = 0;
        for (std::size_t i = 0; i < 4; ++i)
            id |= static_cast<std::uint32_t>(i < text.size() ? static_cast<unsigned char>(text[i]) : ' ') << (8 * i);
        if ((text.size() <= 4 && id == entry.id) || entry.name == text) return entry.id;
    }
    if (text == "KRVFormat_I420Planar") return fcc("I420");
    if (text == "KRVFormat_YUY2Packed") return fcc("YUY2");
    return fcc_from_pfnc(pfnc_from_name(text));
}

std::string_view fcc_name(std::uint32_t format) {
    const format_entry* entry = find_entry(format);
    return entry == nullptr ? std::string_view{} : entry->name;
}

std::int32_t line_stride(std::uint32_t format, std::int32_t width, std::int32_t plane) {
    const format_description d(format);
    if (width < 1 || d.bits_per_pixel < 0 || plane < 0 || plane >= d.plane_count) return 0;
    const std::int64_t stride = stride64(d, width, plane);
    return stride > std::numeric_limits<std::int32_t>::max() ? 0 : static_cast<std::int32_t>(stride);
}

bool lines_end_on_bytes(std::uint32_t format, std::int32_t width) {
    const format_description d(format);
    return d.plane_count > 1 || std::int64_t{d.bits_per_pixel} * width % 8 == 0;
}

std::uint32_t image_size(std::uint32_t format, std::int32_t width, std::int32_t height) {
    const format_description d(format);
    if (width < 1 || height < 1 || d.bits_per_pixel < 0) return 0;
    constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
    std::uint64_t size = 0;
    if (is_420(format)) {
        const std::uint64_t luma = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
        size = luma + luma / 4 * 2;
        return size > most ? 0 : static_cast<std::uint32_t>(size);
    }
    for (std::int32_t plane = 0; plane < d.plane_count; ++plane) {
        const auto stride = static_cast<std::uint64_t>(stride64(d, width, plane));
        if (stride > most) return 0;
        size += stride * static_cast<std::uint64_t>(height / d.planes[plane].vertical_subsampling);
        if (size > most) return 0;
    }
    return static_cast<std::uint32_t>(size);
}

img_descriptor make_view(void* data, std::uint32_t data_size, std::uint32_t format, std::int32_t width,
                         std::int32_t height) {
    img_descriptor view{};
    const std::uint32_t size = image_size(format, width, height);
    if (data == nullptr || size == 0 || data_size < size) return view;
    const format_description d(format);
    view = {format, width, height, data_size, 0, {}};
    std::int64_t end = 0;
    for (std::int32_t plane = 0; plane < d.plane_count; ++plane) {
        const std::int32_t stride = line_stride(format, width, plane);
        view.plane_data[plane] = {static_cast<std::uint8_t*>(data) + end, stride};
        end += std::int64_t{stride} * (height / d.planes[plane].vertical_subsampling);
    }
    // An NV12 of odd width can have more than its size counts, which takes whole quarters of the pixels.
    if (end > std::int64_t{data_size}) return {};
    return view;
}

img_descriptor make_padded_view(void* data, std::uint32_t data_size, std::uint32_t format, std::int32_t width,
                                std::int32_t height, std::uint32_t padding) {
    const format_description d(format);
    if (data == nullptr || image_size(format, width, height) == 0 || d.plane_count != 1) return {};
    const std::int64_t line = (std::int64_t{d.bits_per_pixel} * width + 7) / 8;
    const std::int64_t stride = line + padding;
    if (stride > std::numeric_limits<std::int32_t>::max() || stride * (height - 1) + line > std::int64_t{data_size})
        return {};
    return {format,    width, height,
            data_size, 0,     {{static_cast<std::uint8_t*>(data), static_cast<std::int32_t>(stride)}}};
}

bool is_valid(const img_descriptor& view) {
    if (image_size(view.format, view.width, view.height) == 0) return false;
    const format_description d(view.format);
    for (std::int32_t plane = 0; plane < d.plane_count; ++plane) {
        const image_plane& p = view.plane_data[plane];
        const std::int32_t stride = line_stride(view.format, view.width, plane);
        if (p.data == nullptr || stride < 1 || p.stride < stride) return false;
        const std::int32_t lines = view.height / d.planes[plane].vertical_subsampling;
        const std::int64_t bytes = std::int64_t{p.stride} * (lines - 1) + stride;
        // All planes lie in the block that begins with the first. As numbers: they might be of different blocks.
        const auto first = reinterpret_cast<std::uintptr_t>(view.plane_data[0].data);
        const auto begin = reinterpret_cast<std::uintptr_t>(p.data);
        if (begin < first || begin - first > view.data_size) return false;
        if (bytes > std::int64_t{view.data_size} - static_cast<std::int64_t>(begin - first)) return false;
    }
    return true;
}

} // namespace img_pipe
