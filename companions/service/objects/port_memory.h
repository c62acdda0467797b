// The local port of each session that has control of a camera, on disk for as long as it lasts. A camera knows its
// controller by address and port: a service that follows one that was killed takes the port up and has control at once.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace service {

// Thread-safe. Failures of the disk cost a heartbeat time-out after a crash, no more.
class port_memory final {
public:
    explicit port_memory(std::string existing_folder)
        : folder(std::move(existing_folder)) {} // empty: remembers nothing

    // 0 when nothing is noted.
    [[nodiscard]] uint16_t port_of(uint64_t mac) const;
    void note(uint64_t mac, uint16_t port, const void* session);
    // Unless the next session has noted its own: the end of one that gave control back may be late.
    void forget(uint64_t mac, const void* session) noexcept;

private:
    [[nodiscard]] std::string file_of(uint64_t mac) const;
    const std::string folder;
    std::mutex mutex;                         // guards what follows and, but for reading, the files
    std::map<uint64_t, const void*> noted_by; // compared, never used
};

} // namespace service
