// A device as its interface's features show it: without opening it, which one of another subnet does not allow.
#pragma once

#include "session.h"

#include <cstdint>
#include <optional>

namespace cli {

class interface_session final {
public:
    // The interface of the device that the user meant, with that device selected; throws when none or several fit.
    [[nodiscard]] static interface_session of_device(const common_options& options);
    interface_session(std::shared_ptr<const gentl_library> library, std::shared_ptr<const tl_interface> interface);

    // Makes the features speak of this device; false when the interface does not list it.
    [[nodiscard]] bool select(const std::string& device_id);
    // Throws call_failed with the producer's own words, which a failed feature access alone does not carry.
    void run(const std::string& command) const;
    void set(const std::string& feature, const std::string& value) const;
    void set_number(const std::string& feature, int64_t value) const;
    // Empty when it cannot be read.
    [[nodiscard]] std::string text(const std::string& feature) const;
    [[nodiscard]] int64_t number(const std::string& feature) const { return require_integer(*nodes, feature); }
    // What the features say of the selected device.
    [[nodiscard]] nlohmann::json address() const;
    void update_list() const;
    // Opens the selected device; for its own features.
    [[nodiscard]] std::shared_ptr<const tl_device> open(GenTL::DEVICE_ACCESS_FLAGS access) const {
        return open_device(*lib, owner, text("DeviceID"), access);
    }
    [[nodiscard]] const gentl_library& library() const noexcept { return *lib; }

    device_entry device; // of of_device

private:
    template <class F>
    void told(F&& access) const;

    std::shared_ptr<const gentl_library> lib;
    std::shared_ptr<const tl_interface> owner;
    std::unique_ptr<node_map> nodes;
};

// "a.b.c.d"; throws std::runtime_error.
[[nodiscard]] uint32_t parse_ip(const std::string& text);
[[nodiscard]] std::string ip_text(uint32_t address);

} // namespace cli
