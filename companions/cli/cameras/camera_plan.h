// What one camera sends, and the settings that keep it to its share of a link.
#pragma once

#include "../consumer/feature_number.h"
#include "../consumer/setting.h"
#include "link_share.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace cli {

enum class pacing { any, limit, delay };

struct camera_plan {
    std::string id;
    stream_shape shape;
    std::string rate_source;        // a feature, or an option
    std::string packet_size_source; // why this size
    double own_link = 0;            // bytes per second
    bool own_link_known = false;    // false: taken to be as fast as the shared one
    uint64_t ticks_per_second = 0;  // of the packet delay
    bool has_limit = false, has_delay = false;
    number_range limit_takes, delay_takes;
    std::vector<std::string> notes;

    stream_cost cost;
    double share = 0; // bytes per second

    // Of choose_settings().
    std::vector<setting> settings; // empty: none is needed, or none is there
    double sends = 0;              // bytes per second at most; 0: not chosen
    bool paced = true;             // false: nothing keeps it to its share

    [[nodiscard]] nlohmann::json to_json() const;
    [[nodiscard]] std::string arithmetic() const; // lines for a person
    [[nodiscard]] double highest_frame_rate() const;
};

struct plan_wishes {
    double frame_rate = 0;    // 0: the camera's
    uint64_t packet_size = 0; // found on the path; 0: what the interface and the camera take
    uint64_t mtu = 0;         // of the interface; 0: unknown
    double link = 0;          // bytes per second
};

// From the features. Throws failure(cause::feature) when payload or frame rate are not to be had.
[[nodiscard]] camera_plan read_camera(const node_map& camera, const std::string& id, const plan_wishes& wishes);
// For the share that it has; `limited` false when no camera needs a limit.
void choose_settings(camera_plan& plan, const node_map& camera, bool limited, pacing by);

} // namespace cli
