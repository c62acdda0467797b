// Keeps the list of network interfaces and of the cameras behind each.
#pragma once

#include "device_record.h"

#include <gige/network.h>
#include <gige/udp_socket.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace gvcp_master {

// Thread-safe.
class discovery {
public:
    struct options {
        bool networks = true;                    // look on every interface but loopback
        bool loopback = false;                   // look on the loopback interface
        std::vector<uint32_t> addresses{};       // cameras asked directly, wherever they are routed to
        std::chrono::milliseconds interval{250}; // between scans; three of them and a window are less than a second
        std::chrono::milliseconds window{150};   // after which a scan is over; what answers later is taken, too
        // Scans without an answer until a camera is off the list, and the time that so many take when nobody asks for
        // more: cameras are not lost because somebody scans without a pause.
        unsigned misses = 3;
        // For which an interface that is missing in the system's list is taken to be there.
        std::chrono::milliseconds interface_patience{200};
    };
    // A camera, and whether anybody had control of it when it was asked last.
    struct found_device : device_record {
        bool controlled = false;
        bool answers = false;        // it was asked at its present address, and answered
        bool shares_address = false; // another camera on the interface has it, too: neither can be spoken to
        [[nodiscard]] bool is_reachable() const noexcept { return reachable && !shares_address; }
        friend bool operator==(const found_device&, const found_device&) = default;
    };
    struct found_interface {
        gige::network_interface network;
        std::vector<found_device> devices; // by MAC
        friend bool operator==(const found_interface&, const found_interface&) = default;
    };
    // Called on the scanning thread, after the list has changed; must not destroy the object.
    struct notifications {
        std::function<void()> interfaces_changed{};
        std::function<void(const std::string& interface_name)> devices_changed{};
        std::function<void(const std::string& interface_name)> interface_gone{};
        std::function<void(const std::string& text)> log{}; // with a lock held: must not call back
    };
    static constexpr std::size_t most_devices = 512; // of one interface; anybody on the network can invent more
    // Between two calls that tell of changed lists, however often they change; the last change is always told.
    static constexpr std::chrono::milliseconds between_changes{250};

    // Throws std::system_error when the system gives no socket.
    discovery(options chosen, notifications told);
    ~discovery();
    // Nothing is searched or told after it. Waits for what is being told, so that must not call it.
    void stop();
    discovery(const discovery&) = delete;
    discovery& operator=(const discovery&) = delete;

    [[nodiscard]] std::vector<found_interface> list() const;
    // Waits for a scan that begins after the call; false when it did not end within `timeout`, or before the wait was
    // stopped.
    [[nodiscard]] bool scan(std::chrono::milliseconds timeout, std::stop_token stop = {});
    // Waits until one scan has ended since the start, without asking for another one; false as above.
    [[nodiscard]] bool wait_for_first_scan(std::chrono::milliseconds timeout, std::stop_token stop = {});
    // A camera is about to be told so. One that is asked directly will be asked at the new address as well.
    void may_move(uint32_t from, uint32_t to);
    // Control was given back here: what the last scan saw of it is old.
    void control_given_back(uint64_t mac);

private:
    using clock = std::chrono::steady_clock;
    struct heard {
        found_device device;
        unsigned misses = 0;
        clock::time_point silent_since{}; // the start of the first scan that was missed
        clock::time_point there_since{};  // its first answer from its present address
        clock::time_point heard{};        // its latest
        uint16_t answered = 0;            // the scan's id; the first answer to a scan counts
        uint16_t asked = 0;               // id of the question for the privilege, 0 when it is answered
    };
    struct entry {
        gige::network_interface network;
        std::vector<heard> devices;
        bool changed = false; // since it was told last
        bool full = false;    // said once
        unsigned misses = 0;  // lists in a row that it was not in
        clock::time_point missing_since{};
    };

    void run();
    [[nodiscard]] bool search(); // once; false at the end
    void refresh_interfaces(clock::time_point began);
    void send_probes(clock::time_point began);
    void ask_privilege(heard& device);
    void receive_until(clock::time_point until, bool end_when_asked);
    void receive_all();
    void take_discovery(const device_record& device, unsigned interface_index, uint16_t id);
    void take_privilege(const gige::endpoint& from, uint16_t id, const gige::gvcp::ack_header& ack,
                        std::span<const std::byte> body);
    [[nodiscard]] bool has_to_tell() const; // under the mutex
    [[nodiscard]] entry* home_of(const device_record& device, unsigned interface_index);
    void drop_silent_ones();
    void mark_shared_addresses();
    void tell();
    void say(const std::string& text) const;
    [[nodiscard]] uint16_t next_id() noexcept;

    const options chosen;
    const notifications told;
    gige::udp_socket socket; // one for all interfaces, kept from scan to scan: cameras answer as late as they like
    gige::waker wakeup;
    uint16_t last_id = 0;
    std::deque<uint16_t> scan_ids; // of the latest scans
    clock::time_point may_tell{};  // the scanning thread's
    bool lacks_interfaces = false; // its, too: said once

    mutable std::mutex mutex; // guards what follows up to the thread
    std::condition_variable_any scanned;
    std::vector<entry> entries;           // changed by the scanning thread alone, but for `controlled` and `asked`
    std::vector<uint32_t> asked_directly; // as chosen, and where such cameras went
    std::vector<std::string> gone;        // their end is to be told
    std::vector<std::string> changed_with_them; // the change of their lists
    bool interfaces_changed = false;
    uint64_t scans_started = 0;
    uint64_t scans_done = 0;
    bool asked = false;
    bool quit = false;
    std::thread thread;
};

} // namespace gvcp_master
