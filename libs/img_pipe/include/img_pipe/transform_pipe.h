// Converts an image into another format, or changes one in place, with colour and tone corrections on the way. Two
// tables say which conversions exist. The last choice and all temporary memory are kept: the same formats and sizes
// again cost one comparison and no allocation.
//
// A pipe is thread-bound. Errors are values: false means that nothing was done.
#pragma once
#include <img_pipe/filter_table.h>
#include <img_pipe/transform_params.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace img_pipe {

class transform_pipe;
class transform_state;

// What a caller hands along with one image; none is needed.
struct transform_scratch {
    bool second_pass = false; // this frame's tones are mapped already
    // What tone mapping measured on this frame, for a later pass over it with `tonemapping_fixed`.
    bool factors_set = false;
    tonemapping_stretch factors;
};

// Which parameters an entry of the table honours, by place in transform_plan::capabilities.
enum class capability : std::uint8_t {
    tonemapping, // of no entry: it is a pass of its own in front of those from mosaics and grey images
    white_balance,
    colour, // saturation, hue, colour matrix
    brightness,
    contrast,
    sharpness,
    denoise,
    gamma,
};

// What a table entry gives for a pair of formats; one of the two functions is set.
struct transform_plan {
    bool (*convert)(transform_pipe&, const img_descriptor& destination, const img_descriptor& source,
                    const transform_params&, transform_scratch*) = nullptr;
    bool (*convert_in_place)(transform_pipe&, const img_descriptor& image, const transform_params&,
                             transform_scratch*) = nullptr;
    std::uint8_t capabilities[8] = {};
    std::uint8_t misc[2] = {};      // of no meaning; 0
    std::uint64_t scratch_size = 0; // bytes of temporary images, for each piece worked on at a time
};

// Gamma tables for one value.
struct gamma_tables {
    float gamma_value = -1; // none built
    std::uint8_t bytes[256];
    std::uint16_t words[65536];
};

class transform_pipe {
public:
    transform_pipe();
    ~transform_pipe();
    transform_pipe(const transform_pipe&) = delete;
    transform_pipe& operator=(const transform_pipe&) = delete;

    // True if a function ran. The source is never written to. Views that are not valid (is_valid), of different sizes
    // or overlapping are refused; the same image twice is changed in place.
    bool transform(const img_descriptor& destination, const img_descriptor& source, const transform_params& params,
                   transform_scratch* scratch = nullptr);
    bool transform(const img_descriptor& destination, const img_descriptor& source);
    // Read-only views are refused. Neutral parameters leave the image alone.
    bool transform_in_place(const img_descriptor& image, const transform_params& params,
                            transform_scratch* scratch = nullptr);

    // Tables for `gamma`, rebuilt when it differs from the last; null when memory is out. Held within 0.01 to 100; what
    // is no number counts as 1.
    const gamma_tables* get_lut_context(float gamma);

    // How often the tables were searched, and temporary memory was taken: steady in a steady stream.
    std::uint64_t table_searches() const { return searches; }
    std::uint64_t allocations() const;
    std::uint32_t level() const; // processor mask of the last pass

    transform_state* state() { return own.get(); }

private:
    bool choose(const img_type& destination, const img_type& source, bool in_place);
    bool prepare(const transform_params& params);
    bool change(const img_descriptor& image, const transform_params& params, transform_scratch* scratch);

    std::unique_ptr<transform_state> own; // created on first need
    img_type stored_destination{}, stored_source{};
    transform_plan plan;
    const char* plan_name = ""; // the conversion's, for the profiler
    std::uint64_t searches = 0;
};

// Destinations that `source` can be converted to, in table order without repeats. With source 0 all that any source
// can, "BGR4", "RGB6", "Y800", "Y16 " first.
std::vector<std::uint32_t> find_transform_outputs(std::uint32_t source);

// The tables, for inspection. A row serves every pair of its sources and destinations; zeros end the lists.
struct conversion_row {
    std::uint32_t sources[8];
    std::uint32_t destinations[8];
    transform_plan (*make_plan)(const img_type& destination, const img_type& source);
    std::uint32_t flags;
    const char* function; // name of the conversion
};
constexpr std::uint32_t row_hidden = 1; // not in the list of reachable outputs
struct in_place_row {
    std::uint32_t formats[8];
    transform_plan (*make_plan)(const img_type& image);
    const char* function;
};
std::span<const conversion_row> conversion_table();
std::span<const in_place_row> in_place_table();
// Whether images of a format are changed in place at all.
bool changes_in_place(std::uint32_t format);

} // namespace img_pipe
