// What happens to a frame between its last packet and the consumer: automatic functions measure it, the overlay is
// written into it, and a transform changes its pixels, as the settings say.
#pragma once

#include <auto_alg/auto_pass.h>
#include <auto_alg/frame_pass.h>
#include <gds_gentl_producer/settings_block.h>
#include <gds_gentl_producer/stream_overlay.h>
#include <gentl_producer/Buffer.h>
#include <img_pipe/transform_pipe.h>
#include <ipc_rpc/client_object_handle.h>

#include <cstdint>

namespace gds_producer {

// The image in a buffer whose fields are written. Empty for unknown formats, and where the buffer is too small for it.
[[nodiscard]] img_pipe::img_descriptor image_in(const GenTL::Producer::Buffer& buffer);

// How the device wants frames to be transformed; as in transform_params.
struct transform_options {
    uint32_t optimization_level = 0;
    uint32_t max_concurrency = 0;
};

// Of one stream; its state follows the stream's frames. One thread at a time, the one that delivers.
class frame_processing final {
public:
    explicit frame_processing(settings_block chosen) : settings(chosen) {}

    // A few reads of the block; while false a frame costs nothing more.
    [[nodiscard]] bool is_due() const {
        return settings.flag(settings_block::overlay) ||
               (settings.flag(settings_block::master_enable) && function_is_on()) || measuring || unsent;
    }
    // The buffer's fields are written and its memory is nobody else's. Results go to the service over the stream's
    // lease, without waiting for it. `stream` is what the overlay says of it, looked at while the overlay is on; what
    // it says of the processing is filled in here. Frames without an image are left as they are. Throws what the
    // standard library throws when memory is out; the frame is still one, and the next is worked on as if nothing had
    // been. False: the transform failed, as it does when memory is out.
    [[nodiscard]] bool process_image(const GenTL::Producer::Buffer& buffer, uint64_t now_ns,
                                     const transform_options& options, const ipc_rpc::client_object_handle& lease,
                                     overlay_figures& stream);

private:
    [[nodiscard]] bool function_is_on() const;

    const settings_block settings;
    img_pipe::transform_pipe pipe;
    auto_alg::auto_alg_state automatic;
    auto_alg::block_temperatures temperatures;
    bool unsent = false;    // the service has yet to be asked for the last results
    bool measuring = false; // a function was on with the last frame; the first frame without one ends what it began
};

} // namespace gds_producer
