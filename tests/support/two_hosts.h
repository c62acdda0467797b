// Two network namespaces, "camera" and "consumer", joined by a cable (a veth pair) and by nothing else: no other
// interface, no route. They end with the object, or with the process.
#pragma once

#include "temporary_folder.h"

#include <string>
#include <vector>

namespace test_support {

class two_hosts {
public:
    // The host's addresses: cameras have 198.18.0.10 and up to .19, the consumer has 198.18.0.1 (addresses that are set
    // aside for measurements).
    static constexpr const char* net = "198.18.0.";

    two_hosts();
    ~two_hosts();
    two_hosts(const two_hosts&) = delete;
    two_hosts& operator=(const two_hosts&) = delete;

    // Why there are none: namespaces or `ip` are not to be had here.
    [[nodiscard]] bool ready() const noexcept { return problem.empty(); }
    [[nodiscard]] const std::string& why_not() const noexcept { return problem; }

    [[nodiscard]] int camera_side() const noexcept { return camera_end; }
    [[nodiscard]] int consumer_side() const noexcept { return consumer_end; }
    // A further host at the cameras' end of the cable, with an interface "cable" of its own that is up and has no
    // address; -1 when there is none to be had.
    [[nodiscard]] int add_camera_side();
    void set_mtu(int camera, int consumer);
    // A command at one end; false when it fails.
    [[nodiscard]] bool run(int end, const std::vector<std::string>& command);

private:
    temporary_folder directory;
    std::string problem;
    int camera_end = -1;
    int consumer_end = -1;
    std::vector<int> further_ends;
};

} // namespace test_support
