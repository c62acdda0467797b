// A camera that streams for nobody but its figures, or, where somebody else has it, what can be read of it.
#pragma once

#include "../consumer/feature_number.h"
#include "../consumer/session.h"

#include <atomic>
#include <optional>
#include <string>
#include <thread>

namespace cli {

class camera_watch final {
public:
    enum class state { streaming, held, lost };
    struct figures { // since the start
        uint64_t frames = 0, incomplete = 0, bytes = 0, lost = 0;
        int64_t resend_packets = 0;
    };

    // Opens the camera and starts it; one that is in use is opened read only. Throws what neither can.
    camera_watch(const found_devices& found, const device_entry& chosen,
                 const std::shared_ptr<const tl_interface>& interface, GenTL::DEVICE_ACCESS_FLAGS access);
    ~camera_watch(); // as stop(), whose reason is lost
    camera_watch(const camera_watch&) = delete;
    camera_watch& operator=(const camera_watch&) = delete;

    // All of these by one thread.
    void look(); // asks the camera; notices that it has gone
    void stop(); // the camera too; throws the first reason
    [[nodiscard]] const std::string& id() const noexcept { return name; }
    [[nodiscard]] state is() const noexcept { return now; }
    [[nodiscard]] const std::string& reason() const noexcept { return why; } // why it is held or lost
    [[nodiscard]] figures counted() const;
    [[nodiscard]] std::optional<double> temperature() const noexcept { return celsius; }
    // What the camera says of itself, for one that does not stream here.
    [[nodiscard]] std::optional<double> frame_rate_set() const noexcept { return rate_set; }

private:
    void start();
    void receive();

    std::shared_ptr<const gentl_library> library;
    const gentl_library& lib;
    const std::string name;
    std::shared_ptr<const tl_device> device;
    std::unique_ptr<node_map> remote, stream_nodes;
    std::shared_ptr<const tl_stream> stream; // null: held
    GenTL::EVENT_HANDLE new_buffer = nullptr;
    bool acquiring = false, started = false;
    state now = state::streaming;
    std::string why;
    std::optional<double> celsius, rate_set;
    uint64_t lost_frames = 0; // as last read
    int64_t resends = 0;

    std::atomic<bool> ending{};
    std::atomic<uint64_t> frames{}, incomplete{}, bytes{}; // written by the receiver
    std::atomic<GenTL::GC_ERROR> receive_error{GenTL::GC_ERR_SUCCESS};
    std::thread receiver;
};

} // namespace cli
