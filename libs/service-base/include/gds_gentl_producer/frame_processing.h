// What happens to a frame between its last packet and the consumer: automatic functions measure it, and a transform
// changes its pixels, as the settings say.
#pragma once

#include <auto_alg/auto_pass.h>
#include <gds_gentl_producer/settings_block.h>
#include <gentl_producer/Buffer.h>
#include <img_pipe/transform_pipe.h>
#include <ipc_rpc/client_object_handle.h>

#include <cstdint>

namespace gds_producer {

// Of one stream; its state follows the stream's frames. One thread at a time, the one that delivers.
class frame_processing final {
public:
    explicit frame_processing(settings_block chosen) : settings(chosen) {}

    // A few reads of the block; while false a frame costs nothing more.
    [[nodiscard]] bool is_due() const;
    // The buffer's fields are written and its memory is nobody else's. Results go to the service over the stream's
    // lease, without waiting for it. Frames of unknown formats, or larger than their buffer, are left as they are.
    void process_image(const GenTL::Producer::Buffer& buffer, uint64_t now_ns,
                       const ipc_rpc::client_object_handle& lease);

private:
    const settings_block settings;
    img_pipe::transform_pipe pipe;
    auto_alg::auto_alg_state automatic;
};

} // namespace gds_producer
