#include <gds_gentl_producer/frame_processing.h>

#include <auto_alg/frame_pass.h>
#include <img_pipe/format.h>
#include <ipc_rpc/catalogue.h>

#include <algorithm>
#include <limits>

namespace gds_producer {

namespace {

// A message without an answer, that finds its place in the queue or is dropped: the next result follows soon.
class auto_values_sender final : public auto_alg::IAutoValuesSender {
public:
    explicit auto_values_sender(const ipc_rpc::client_object_handle& lease) : channel(lease) {}
    void send_write_auto_values_cmd() override {
        static_cast<void>(channel.invoke<ipc_rpc::catalogue::send_write_auto_values_cmd>());
    }

private:
    const ipc_rpc::client_object_handle& channel;
};

img_pipe::img_descriptor view_of(const GenTL::Producer::Buffer& buffer) {
    constexpr size_t most_pixels = std::numeric_limits<std::int32_t>::max();
    constexpr size_t most_bytes = std::numeric_limits<std::uint32_t>::max();
    if (buffer.width > most_pixels || buffer.height > most_pixels) return {};
    return img_pipe::make_view(buffer.base, static_cast<std::uint32_t>(std::min(buffer.size, most_bytes)),
                               img_pipe::fcc_from_pfnc(buffer.pixel_format), static_cast<std::int32_t>(buffer.width),
                               static_cast<std::int32_t>(buffer.height));
}

} // namespace

bool frame_processing::is_due() const {
    return settings.flag(settings_block::master_enable) &&
           (auto_alg::auto_function_is_on(settings) || auto_alg::transform_is_on(settings));
}

void frame_processing::process_image(const GenTL::Producer::Buffer& buffer, uint64_t now_ns,
                                     const ipc_rpc::client_object_handle& lease) {
    const img_pipe::img_descriptor view = view_of(buffer);
    if (view.format == 0) return;
    if (auto_alg::auto_function_is_on(settings)) {
        auto_values_sender sender{lease};
        // Every frame would be a pass if none had a time.
        const uint64_t time_ns = buffer.timestamp != 0 ? buffer.timestamp : now_ns;
        auto_alg::run_auto_pass(settings, automatic, view, buffer.frame_id, time_ns, sender);
    }
    // What cannot be transformed is delivered as it came.
    if (auto_alg::transform_is_on(settings))
        static_cast<void>(pipe.transform_in_place(view, auto_alg::transform_params_of(settings)));
}

} // namespace gds_producer
