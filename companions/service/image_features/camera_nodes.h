// The camera's own features that the automatic functions steer, whatever the maker calls them, in the units of the
// settings block.
#pragma once

#include "feature_document.h"

#include <GenICam/IGenICamDoc.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace image_features {

// A selector's entry that is to be put back once the camera answers again.
struct owed_entry {
    GenICam::IEnumeration* selector = nullptr; // null: nothing is owed
    GenICam::IEnumEntry* chosen = nullptr;     // by us; another one is somebody else's choice and stays
    GenICam::IEnumEntry* former = nullptr;
};

// Every access goes to the camera: others write to it, too. Blocks for as long as the camera takes. Thread-bound.
class camera_nodes final {
public:
    enum class control : uint8_t { exposure, gain, iris, focus }; // us, dB, the camera's own two

    struct value_range {
        double min, max;
        double increment; // 0: none
    };
    using balance = std::array<float, 3>; // R, G, B, the least of them 1

    using clock = std::chrono::steady_clock;
    // Null for what is no document, or one without the port "Device". The port must outlive the object. A reader writes
    // nothing, selectors included. From `until` on the camera counts as silent: what a document makes of one value is
    // bounded in steps, each of which may be an answer that takes its time.
    [[nodiscard]] static std::unique_ptr<camera_nodes> create(std::string_view document, GenICam::IDevicePort& port,
                                                              bool reads_only,
                                                              clock::time_point until = clock::time_point::max());
    ~camera_nodes();

    // A camera that has not answered once is not asked for the next dozen values, too: others wait for their turn. It
    // is silent then, and nothing is written or read until it is to be asked again, which may take as long as it does.
    void ask_again();
    // As create has looked: for a camera that was silent then, on the object that knows which selectors are to go back.
    void look_again(clock::time_point until);
    [[nodiscard]] bool is_silent() const;

    // Empty when the camera has none, or none now.
    [[nodiscard]] std::string_view name_of(control which) const;
    [[nodiscard]] std::optional<double> read(control which);
    [[nodiscard]] std::optional<value_range> range_of(control which);
    // The nearest that the camera takes. node_locked and node_not_available say "not now", all else is a refusal.
    [[nodiscard]] std::error_code write(control which, double value);

    [[nodiscard]] bool has_balance() const { return ratio.node() != nullptr; }
    [[nodiscard]] std::optional<balance> read_balance();
    [[nodiscard]] std::error_code write_balance(const balance& gains);

    [[nodiscard]] std::optional<double> frame_rate(); // Hz; empty where nothing keeps the camera at one
    [[nodiscard]] camera_abilities abilities();

private:
    struct number {
        GenICam::IInteger* integer = nullptr;
        GenICam::IFloat* real = nullptr;
        double scale = 1; // the block's unit in one of the node's
        [[nodiscard]] GenICam::INode* node() const;
    };
    class asked_port;
    camera_nodes(std::unique_ptr<asked_port> asked, std::unique_ptr<GenICam::IGenICamDoc> parsed, bool reader);
    void find_nodes();
    void scale_raw_gain();
    [[nodiscard]] bool scale_raw_ratio();
    [[nodiscard]] static std::optional<double> value_of(const number& from);
    [[nodiscard]] static std::error_code write_to(const number& to, double value);
    [[nodiscard]] std::optional<balance> read_ratios(); // as the camera has them
    [[nodiscard]] number find_number(std::span<const std::string_view> names) const;
    [[nodiscard]] bool has_colour() const;
    template <class Function>
    auto with_gain_selected(control which, Function&& function);

    const std::unique_ptr<asked_port> port;
    std::unique_ptr<GenICam::IGenICamDoc> document;
    const bool only_reads;
    number numbers[4];
    number rate;
    GenICam::IBoolean* rate_switch = nullptr;
    GenICam::IEnumeration* gain_selector = nullptr;
    GenICam::IEnumeration* ratio_selector = nullptr;
    owed_entry gain_owed, ratio_owed;
    number ratio;
};

} // namespace image_features
