#include "transform_state.h"

#include <img_pipe/filter_table.h>
#include <img_pipe/profiler.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace img_pipe {

namespace {

// Wider images than any sensor's are refused: temporary lines stay within 32 bits.
constexpr std::int32_t widest = 1 << 20;

bool holds(std::span<const std::uint32_t> list, std::uint32_t id) {
    return id != 0 && std::ranges::find(list, id) != list.end();
}

template <class F>
void for_each_plane(const img_descriptor& view, const F& f) {
    const format_description d(view.format);
    for (std::int32_t plane = 0; plane < d.plane_count; ++plane) {
        const image_plane& p = view.plane_data[plane];
        const std::int32_t lines = view.height / d.planes[plane].vertical_subsampling;
        const std::ptrdiff_t bytes = static_cast<std::ptrdiff_t>(p.stride) * std::max(lines - 1, 0) +
                                     line_stride(view.format, view.width, plane);
        f(reinterpret_cast<std::uintptr_t>(p.data),
          reinterpret_cast<std::uintptr_t>(p.data) + static_cast<std::uintptr_t>(bytes));
    }
}

bool overlap(const img_descriptor& a, const img_descriptor& b) {
    bool found = false;
    for_each_plane(a, [&](std::uintptr_t begin, std::uintptr_t end) {
        for_each_plane(b, [&](std::uintptr_t other, std::uintptr_t other_end) {
            found = found || (begin < other_end && other < end);
        });
    });
    return found;
}

bool serves(const img_descriptor& view) { return is_valid(view) && view.width <= widest; }

// A polarisation image may become one with a pixel for each of its cells.
bool sizes_fit(const img_descriptor& to, const img_descriptor& from) {
    if (to.width == from.width && to.height == from.height) return true;
    return format_description(from.format).is_polarization != 0 && format_description(to.format).is_mono == 0 &&
           to.width == from.width / 2 && to.height == from.height / 2;
}

bool same_image(const img_descriptor& a, const img_descriptor& b) {
    return a.format == b.format && a.width == b.width && a.height == b.height &&
           a.plane_data[0].data == b.plane_data[0].data && a.plane_data[0].stride == b.plane_data[0].stride;
}

bool read_only(const img_descriptor& view) { return (view.flags & view_read_only) != 0; }

const in_place_row* in_place_row_of(std::uint32_t format) {
    const auto rows = in_place_table();
    const auto row = std::ranges::find_if(rows, [&](const in_place_row& r) { return holds(r.formats, format); });
    return row == rows.end() ? nullptr : &*row;
}

// Without a conversion: lines of equal images, else the bytes that both have.
void copy(const img_descriptor& to, const img_descriptor& from) {
    if (to.format == from.format && is_valid(to) && is_valid(from) && to.width == from.width &&
        to.height == from.height) {
        const format_description d(from.format);
        for (std::int32_t plane = 0; plane < d.plane_count; ++plane) {
            const image_plane &out = to.plane_data[plane], &in = from.plane_data[plane];
            const auto bytes = static_cast<std::size_t>(line_stride(from.format, from.width, plane));
            for (std::int32_t y = 0; y < from.height / d.planes[plane].vertical_subsampling; ++y)
                std::memmove(out.data + static_cast<std::ptrdiff_t>(out.stride) * y,
                             in.data + static_cast<std::ptrdiff_t>(in.stride) * y, bytes);
        }
        return;
    }
    if (to.plane_data[0].data == nullptr || from.plane_data[0].data == nullptr) return;
    std::memmove(to.plane_data[0].data, from.plane_data[0].data, std::min(to.data_size, from.data_size));
}

} // namespace

bool changes_in_place(std::uint32_t format) { return in_place_row_of(format) != nullptr; }

std::uint32_t optimization_mask(std::int64_t level) {
    switch (level) {
    case 1:
        return cpu::c;
    case 2:
        return built_in_level();
    case 3:
        return cpu_mask();
    default:
        return 0;
    }
}

transform_pipe::transform_pipe() = default;
transform_pipe::~transform_pipe() = default;

std::uint64_t transform_pipe::allocations() const { return own ? own->allocations() : 0; }
std::uint32_t transform_pipe::level() const { return own ? own->level() : 0; }

const gamma_tables* transform_pipe::get_lut_context(float gamma) {
    if (!own) own.reset(new (std::nothrow) transform_state);
    return own ? own->luts.gamma(gamma) : nullptr;
}

bool transform_pipe::choose(const img_type& destination, const img_type& source, bool in_place) {
    const bool stored = in_place ? plan.convert_in_place != nullptr : plan.convert != nullptr;
    if (stored && stored_destination == destination && stored_source == source) return true;
    ++searches;
    plan = {};
    if (in_place) {
        if (const in_place_row* row = in_place_row_of(source.format)) {
            plan = row->make_plan(source);
            plan_name = row->function;
        }
    } else {
        const auto rows = conversion_table();
        const auto row = std::ranges::find_if(rows, [&](const conversion_row& r) {
            return holds(r.sources, source.format) && holds(r.destinations, destination.format);
        });
        if (row != rows.end()) {
            plan = row->make_plan(destination, source);
            plan_name = row->function;
        }
    }
    const bool found = plan.convert != nullptr || plan.convert_in_place != nullptr;
    stored_destination = found ? destination : img_type{};
    stored_source = found ? source : img_type{};
    if (!found && own) own->release_memory();
    return found;
}

bool transform_pipe::prepare(const transform_params& params) {
    if (!own) own.reset(new (std::nothrow) transform_state);
    if (!own) return false;
    own->threads.set_concurrency(params.max_concurrency);
    own->set_level(params.optimization_level);
    return own->reserve(own->split(stored_source.height).pieces, plan.scratch_size, 0);
}

bool transform_pipe::transform(const img_descriptor& destination, const img_descriptor& source,
                               const transform_params& params, transform_scratch* scratch) {
    const profile_scope scope("img_pipe::transform_pipe");
    const bool same = same_image(destination, source);
    if (same && read_only(source)) return false;
    if (same && in_place_row_of(source.format) != nullptr) return change(destination, params, scratch);
    bool ran = false;
    const bool found = choose(type_of(destination), type_of(source), false);
    if (found) {
        if (!serves(destination) || !serves(source) || !sizes_fit(destination, source)) return false;
        // Blue-green-red to itself has no row in place, but its road runs on one image as on two.
        if (!same && overlap(destination, source)) return false;
        const profile_scope step(plan_name);
        ran = prepare(params) && plan.convert(*this, destination, source, params, scratch);
    }
    if (!found && params.copy_if_no_transform) copy(destination, source);
    return ran;
}

bool transform_pipe::transform(const img_descriptor& destination, const img_descriptor& source) {
    return transform(destination, source, transform_params{});
}

bool transform_pipe::transform_in_place(const img_descriptor& image, const transform_params& params,
                                        transform_scratch* scratch) {
    const profile_scope scope("img_pipe::transform_pipe");
    return change(image, params, scratch);
}

bool transform_pipe::change(const img_descriptor& image, const transform_params& params, transform_scratch* scratch) {
    if (!serves(image) || read_only(image)) return false;
    const img_type type = type_of(image);
    if (!choose(type, type, true)) return false;
    const profile_scope step(plan_name);
    return prepare(params) && plan.convert_in_place(*this, image, params, scratch);
}

} // namespace img_pipe
