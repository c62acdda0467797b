#include "two_hosts.h"

#include "test_system.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

namespace test_support {

namespace {

// A thread's namespace lives on in the descriptor.
int new_namespace(std::string& problem) {
    int end = -1;
    std::thread maker{[&] {
        if (unshare(CLONE_NEWNET) != 0) {
            problem = std::string{"no network namespaces here (root may make them): "} + std::strerror(errno);
            return;
        }
        end = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    }};
    maker.join();
    return end;
}

} // namespace

two_hosts::two_hosts() {
    camera_end = new_namespace(problem);
    consumer_end = new_namespace(problem);
    if (!ready()) return;
    const std::string far_end = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(consumer_end);
    bool done =
        run(camera_end, {"ip", "link", "add", "cable", "type", "veth", "peer", "name", "cable", "netns", far_end});
    for (const int end : {camera_end, consumer_end}) done = done && run(end, {"ip", "link", "set", "lo", "up"});
    for (int last = 10; last < 20; ++last) {
        done = done && run(camera_end, {"ip", "address", "add", net + std::to_string(last) + "/24", "dev", "cable"});
    }
    done = done && run(consumer_end, {"ip", "address", "add", std::string{net} + "1/24", "dev", "cable"});
    for (const int end : {camera_end, consumer_end}) done = done && run(end, {"ip", "link", "set", "cable", "up"});
    if (!done) problem = "'ip' cannot join two network namespaces here";
}

two_hosts::~two_hosts() {
    if (camera_end >= 0) close(camera_end);
    if (consumer_end >= 0) close(consumer_end);
    for (const int end : further_ends) close(end);
}

bool two_hosts::run(int end, const std::vector<std::string>& command) {
    return process{command, directory.path / "output", end}.wait() == 0;
}

int two_hosts::add_camera_side() {
    const int end = new_namespace(problem);
    if (end < 0) return -1;
    further_ends.push_back(end);
    const std::string there = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(end);
    const bool done = run(camera_end, {"ip", "link", "add", "link", "cable", "name", "further", "netns", there, "type",
                                       "macvlan", "mode", "bridge"}) &&
                      run(end, {"ip", "link", "set", "further", "name", "cable"}) &&
                      run(end, {"ip", "link", "set", "lo", "up"}) && run(end, {"ip", "link", "set", "cable", "up"});
    return done ? end : -1;
}

void two_hosts::set_mtu(int camera, int consumer) {
    EXPECT_TRUE(run(camera_end, {"ip", "link", "set", "cable", "mtu", std::to_string(camera)}));
    EXPECT_TRUE(run(consumer_end, {"ip", "link", "set", "cable", "mtu", std::to_string(consumer)}));
}

} // namespace test_support
