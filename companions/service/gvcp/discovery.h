// Keeps the list of network interfaces and of the cameras behind each.
#pragma once

#include "device_record.h"

#include <gige/network.h>
#include <gige/udp_socket.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace gvcp_master {

class discovery {
public:
    struct options {
        bool networks = true;                     // look on every interface but loopback
        bool loopback = false;                    // look on the loopback interface
        std::vector<uint32_t> addresses{};        // cameras asked directly, wherever they are routed to
        std::chrono::milliseconds interval{1000}; // between scans
        std::chrono::milliseconds window{300};    // in which answers count for a scan
        unsigned misses = 3;                      // scans without an answer until a camera is off the list
    };
    struct found_interface {
        gige::network_interface network;
        std::vector<device_record> devices; // by MAC
        friend bool operator==(const found_interface&, const found_interface&) = default;
    };
    struct notifications {
        std::function<void()> interfaces_changed;
        std::function<void(const std::string& interface_name)> devices_changed;
    };

    // The notifications are called on the scanning thread, after the list has changed, and must not destroy the object.
    discovery(options chosen, notifications told);
    ~discovery();
    discovery(const discovery&) = delete;
    discovery& operator=(const discovery&) = delete;

    [[nodiscard]] std::vector<found_interface> list() const;
    // Waits for a scan that begins after the call; false when it did not end within `timeout`.
    [[nodiscard]] bool scan(std::chrono::milliseconds timeout);

private:
    struct heard {
        device_record record;
        unsigned misses{};
    };
    struct entry {
        gige::network_interface network;
        std::vector<heard> devices;
    };
    struct probe {
        gige::udp_socket socket;
        std::size_t interface_index{}; // npos: by the answer's address
    };

    void run();
    void scan_once();
    [[nodiscard]] std::vector<probe> send_probes(const std::vector<gige::network_interface>& interfaces);
    void collect(std::vector<probe>& probes, std::vector<entry>& fresh);
    void merge(std::vector<entry> fresh);
    void place(const device_record& device, std::size_t index, std::vector<entry>& fresh) const;

    const options chosen;
    const notifications told;
    uint16_t last_id = 0;
    gige::waker wakeup;

    mutable std::mutex mutex;
    std::condition_variable scanned;
    std::vector<entry> entries;
    uint64_t scans_started = 0;
    uint64_t scans_done = 0;
    bool asked = false;
    bool quit = false;
    std::thread thread;
};

} // namespace gvcp_master
