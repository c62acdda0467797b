// White balance from records: by steps on bytes, in one go on floats, by colour temperature on both.
#pragma once
#include "records.h"

namespace auto_alg {

struct balance_result {
    float gain[3]; // R, G, B
    bool done;     // nothing changed
};

// One step of the gains, in 1/64 from 1 to 255 / 64. The records have the current gains.
balance_result exec_auto_whitebalance_steps_on_pixels(std::span<const byte_record> records, const float (&gain)[3],
                                                      bool once);
// The gains that make the records grey. The records have the current gains.
balance_result exec_auto_whitebalance_on_float_pixels(std::span<const float_record> records, const float (&gain)[3]);

// The temperature within the limits at which most records are neutral, the lowest of several; -1 when none is neutral
// at any. The records have the current gains.
std::int32_t find_temperature(sample_array& samples, const white_balance_params& params);

struct temperature_state {
    std::int32_t current = -1; // none yet
    std::int32_t wb_scan_countdown = scan_passes;
};
// One pass by temperature. Once: done with the last of scan_passes; else where the temperature stays.
balance_result balance_by_temperature(sample_array& samples, const white_balance_params& params,
                                      temperature_state& state);

} // namespace auto_alg
