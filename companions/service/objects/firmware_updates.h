// Firmware updates under way: they belong to the service, and outlive the client that asked for one.
#pragma once

#include "address_turns.h"

#include "../gvcp/discovery.h"
#include "../gvcp/firmware_upload.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

namespace service {

// Thread-safe. Nobody is told with the mutex held.
class firmware_updates final {
public:
    // `told` is called on an update's thread with each state of a camera. Discovery and addresses must outlive the
    // object.
    using state_function = std::function<void(const std::string& interface_name, uint64_t mac, const std::string&)>;
    firmware_updates(gvcp_master::discovery& finder, address_turns& addresses, std::stop_token stop,
                     state_function told);
    ~firmware_updates(); // waits for the updates; they end soon after a stop was requested

    static constexpr std::size_t most_at_once = 4; // each holds its image
    static constexpr std::size_t most_remembered = 512;

    // Returns when the camera is held and the package fits it; the update then runs by itself, and until its end the
    // camera is given no address. gigecam_errc::busy while one runs for this camera or it is given one, parsing_failed
    // for a bad package, invalid_parameter for one that is not for this camera, the camera's own error when somebody
    // else holds it, std::errc::host_unreachable where it cannot be reached. The state says more, but while one runs,
    // whose state it stays.
    [[nodiscard]] std::error_code start(const std::string& interface_name, const std::string& device_id,
                                        const gvcp_master::discovery::found_device& camera,
                                        std::span<const std::byte> package);

    // "Uploading: 42 %", "Installing: 10 %", "Restarting", "Finished: ...", "Failed: ..." or "Refused: ...", each of
    // the latest update of the device that had this id then; nothing when there was none, or too many others since. A
    // camera that restarts is not listed for a while.
    [[nodiscard]] std::optional<std::string> state(const std::string& interface_name, const std::string& device_id);
    // What is over is nobody's answer any more: an upload to this device was refused without being looked at.
    void forget(const std::string& interface_name, const std::string& device_id);

private:
    struct update {
        std::string interface_name;
        std::string device_id;
        std::string state;
        bool running = false;
        uint64_t number = 0;                     // counted from the first one asked for
        std::optional<address_turns::stay> stay; // while it runs
        std::thread thread;
    };
    // With the camera's place taken. May throw.
    [[nodiscard]] std::error_code start_held(const gvcp_master::discovery::found_device& camera,
                                             std::span<const std::byte> package);
    // What became of an image that the camera was told to install, from what it says itself.
    [[nodiscard]] std::string await_restart(const gvcp_master::discovery::found_device& before,
                                            const gvcp_master::firmware_package& package,
                                            gvcp_master::install_command install);
    void tell(uint64_t mac, const std::string& text);
    // The last word on an update, and the camera's place is free. Without memory it is another word.
    void end(uint64_t mac, std::string_view text) noexcept;

    gvcp_master::discovery& finder;
    address_turns& addresses;
    const std::stop_token stop;
    const state_function told;
    std::mutex mutex; // guards what follows; before that of the addresses
    std::map<uint64_t, update> updates;
    uint64_t asked_for = 0;
};

} // namespace service
