// Who is being given an address: one request at a time for a camera, no address for two, and none to one that is used
// where it is.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <stop_token>
#include <vector>

namespace service {

// Thread-safe; a turn belongs to one thread.
class address_turns final {
public:
    // The right to give one camera an address. Cameras do not wait for one another.
    class turn final {
    public:
        // Waits until no other request is about this camera, or until stopped.
        turn(address_turns& all, uint64_t mac, const std::stop_token& stop);
        ~turn();
        turn(const turn&) = delete;
        turn& operator=(const turn&) = delete;
        [[nodiscard]] explicit operator bool() const noexcept { return had; } // false: stopped
        // Keeps the address for this camera until the turn ends, instead of the one before; false while another camera
        // is being given it.
        [[nodiscard]] bool take(uint32_t address);
        [[nodiscard]] std::vector<uint32_t> taken_by_others() const;

    private:
        address_turns& turns;
        const uint64_t camera;
        bool had = false;
    };
    // Is had while the camera is being used where it is, which whoever has a turn asks about before it moves the
    // camera: of a turn and a stay that begin at the same moment one succeeds.
    class stay final {
    public:
        stay(address_turns& all, uint64_t mac);
        ~stay();
        stay(const stay&) = delete;
        stay& operator=(const stay&) = delete;
        [[nodiscard]] explicit operator bool() const noexcept { return had; } // false: it is being given an address

    private:
        address_turns& turns;
        const uint64_t camera;
        bool had = false;
    };
    [[nodiscard]] bool has_to_stay(uint64_t mac);

private:
    std::mutex mutex; // guards what follows
    std::condition_variable_any changed;
    std::map<uint64_t, uint32_t> under_way; // by MAC: the address, 0 before one is chosen
    std::multiset<uint64_t> staying;        // by MAC
};

} // namespace service
