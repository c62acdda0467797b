// From the settings block to the parameters of a frame's passes, and from a pass's results back to the block.
#pragma once
#include <auto_alg/auto_pass.h>
#include <auto_alg/settings_block.h>
#include <img_pipe/transform_params.h>

#include <array>

namespace auto_alg {

// Asks the service to write the block's results to the camera. Called on the delivering thread, so it must not wait.
class IAutoValuesSender {
public:
    virtual ~IAutoValuesSender() = default;
    virtual void send_write_auto_values_cmd() = 0;
};

// A frame that comes while no function is on, after one that was measured: whatever was begun then is over, and the
// next request begins anew.
void end_auto_passes(const settings_block& block, auto_alg_state& state);

// Whether the block asks for an automatic function, or for one that changes pixels. Both are without the master enable.
bool auto_function_is_on(const settings_block& block);
bool transform_is_on(const settings_block& block);

// One consistent set of values for a frame, each read once; numbers that are none become harmless ones.
auto_pass_params auto_params_of(const settings_block& block, std::uint64_t block_id, std::uint64_t time_ns);
img_pipe::transform_params transform_params_of(const settings_block& block);

// The table of the lights in a block, made anew when these change.
class block_temperatures final {
public:
    // Null where the white balance is not by temperature. Holds until the next call.
    const temperature_table* table_of(const settings_block& block);

private:
    std::array<calibrated_light, settings_block::light_count> lights{};
    temperature_table table{};
    bool made = false;
};

// One frame: parameters from the block, the pass, its results into the block, and one call of the sender when any
// changed. `table` may be null.
auto_pass_result run_auto_pass(const settings_block& block, auto_alg_state& state,
                               const img_pipe::img_descriptor& image, std::uint64_t block_id, std::uint64_t time_ns,
                               IAutoValuesSender& sender, const temperature_table* table = nullptr);

} // namespace auto_alg
