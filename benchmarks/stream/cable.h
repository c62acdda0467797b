// Two network namespaces, the camera's and the consumer's, joined by a veth pair whose consumer's end receives as a
// network card with a thread of its own does: the work that the kernel does there is done, and counted, at the
// receiver, and not in the sender's name as on loopback.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

class cable {
public:
    static constexpr uint32_t camera_address = 0xC612000A; // 198.18.0.10, of a network set aside for measurements
    static constexpr uint32_t consumer_address = 0xC6120001;

    // `gather_us`: how long the consumer's end waits for more before it works, as cards moderate their interrupts; with
    // 0 it works for each datagram as soon as it runs. Ends the program where namespaces are not to be had.
    cable(uint32_t mtu, uint32_t gather_us);
    ~cable();
    cable(const cable&) = delete;
    cable& operator=(const cable&) = delete;

    // Of the calling process, for good.
    void enter_camera_side() const;
    void enter_consumer_side() const;
    // CPU time of the kernel's thread that receives for the consumer's end.
    [[nodiscard]] double kernel_seconds() const;

private:
    int camera_side;
    int consumer_side;
    pid_t receiver = -1;
};

} // namespace bench
