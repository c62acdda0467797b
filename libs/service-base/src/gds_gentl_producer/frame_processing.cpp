#include <gds_gentl_producer/frame_processing.h>

#include <auto_alg/frame_pass.h>
#include <img_pipe/format.h>
#include <img_pipe/profiler.h>
#include <ipc_rpc/catalogue.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace gds_producer {

namespace {

// A message without an answer, that finds its place in the queue or is dropped: the next frame asks again then, because
// no other result may follow.
class auto_values_sender final : public auto_alg::IAutoValuesSender {
public:
    auto_values_sender(const ipc_rpc::client_object_handle& lease, bool& dropped) : channel(lease), unsent(dropped) {}
    void send_write_auto_values_cmd() override {
        unsent = !channel.invoke<ipc_rpc::catalogue::send_write_auto_values_cmd>();
    }

private:
    const ipc_rpc::client_object_handle& channel;
    bool& unsent;
};

} // namespace

img_pipe::img_descriptor image_in(const GenTL::Producer::Buffer& buffer) {
    constexpr size_t most_pixels = std::numeric_limits<int32_t>::max();
    constexpr size_t most_bytes = std::numeric_limits<uint32_t>::max();
    if (buffer.width > most_pixels || buffer.height > most_pixels) return {};
    const auto bytes = static_cast<uint32_t>(std::min(buffer.size, most_bytes));
    const uint32_t format = img_pipe::fcc_from_pfnc(buffer.pixel_format);
    const auto width = static_cast<int32_t>(buffer.width);
    const auto height = static_cast<int32_t>(buffer.height);
    // No line but the first would be where a stride in bytes puts it: such a frame is delivered as it came.
    if (!img_pipe::lines_end_on_bytes(format, width)) return {};
    if (buffer.x_padding == 0) return img_pipe::make_view(buffer.base, bytes, format, width, height);
    return img_pipe::make_padded_view(buffer.base, bytes, format, width, height,
                                      static_cast<uint32_t>(std::min(buffer.x_padding, most_pixels)));
}

bool frame_processing::function_is_on() const {
    return auto_alg::auto_function_is_on(settings) || auto_alg::transform_is_on(settings);
}

bool frame_processing::process_image(const GenTL::Producer::Buffer& buffer, uint64_t now_ns,
                                     const transform_options& options, const ipc_rpc::client_object_handle& lease,
                                     overlay_figures& stream) {
    const bool master = settings.flag(settings_block::master_enable);
    stream.automatic = master && auto_alg::auto_function_is_on(settings);
    stream.transformed = master && auto_alg::transform_is_on(settings);
    if (std::exchange(measuring, stream.automatic) && !stream.automatic) auto_alg::end_auto_passes(settings, automatic);
    auto_values_sender sender{lease, unsent};
    if (unsent) sender.send_write_auto_values_cmd();
    const img_pipe::img_descriptor image = image_in(buffer);
    if (image.format == 0) return true;
    const img_pipe::profile_scope whole("gds_producer::process_image");
    // What is missing looks black and has sharp edges: such a frame would be overexposed for, or focussed on.
    if (stream.automatic && buffer.fill_state == GenTL::Producer::FillState::complete) {
        const img_pipe::profile_scope step("auto_alg::auto_pass");
        // Every frame would be a pass if none had a time.
        const uint64_t time_ns = buffer.timestamp != 0 ? buffer.timestamp : now_ns;
        auto_alg::run_auto_pass(settings, automatic, image, buffer.frame_id, time_ns, sender,
                                temperatures.table_of(settings));
    }
    // Before the transform, which treats the text like the image.
    if (settings.flag(settings_block::overlay)) {
        const img_pipe::profile_scope step("gds_producer::draw_overlay");
        draw_overlay(image, buffer, stream);
    }
    if (stream.transformed) {
        img_pipe::transform_params params = auto_alg::transform_params_of(settings);
        params.optimization_level = options.optimization_level;
        params.max_concurrency = options.max_concurrency;
        // What cannot be transformed is delivered as it came: a format that has no transform is, without a word.
        if (!pipe.transform_in_place(image, params)) return !img_pipe::changes_in_place(image.format);
    }
    return true;
}

} // namespace gds_producer
