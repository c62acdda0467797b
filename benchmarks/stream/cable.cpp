#include "cable.h"

#include "bench_stream.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

namespace bench {

namespace {

// It lives on in the descriptor.
int new_namespace() {
    int end = -1;
    std::thread{[&] {
        if (::unshare(CLONE_NEWNET) == 0) end = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    }}.join();
    if (end < 0) fail("no network namespaces here (root may make them)");
    return end;
}

void enter(int end) {
    if (::setns(end, CLONE_NEWNET) != 0) fail("no way into the network namespace");
}

void shell(int end, const std::string& script) {
    const int pid = ::fork();
    if (pid < 0) fail("no process");
    if (pid == 0) {
        enter(end);
        // The interface's settings are files, which show the namespace in which they are mounted.
        const bool own = ::unshare(CLONE_NEWNS) == 0 &&
                         ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         ::mount("sysfs", "/sys", "sysfs", 0, nullptr) == 0;
        if (own) ::execlp("sh", "sh", "-ec", script.c_str(), nullptr);
        ::_exit(127);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (status != 0) fail("two network namespaces cannot be joined here (iproute2 and ethtool are needed): " + script);
}

pid_t find_thread(const std::string& beginning) {
    for (const auto& entry : std::filesystem::directory_iterator{"/proc"}) {
        std::string name;
        if (std::ifstream file{entry.path() / "comm"}; !std::getline(file, name)) continue;
        if (name.starts_with(beginning)) return std::stoi(entry.path().filename());
    }
    return -1;
}

} // namespace

cable::cable(uint32_t mtu, uint32_t gather_us) : camera_side(new_namespace()), consumer_side(new_namespace()) {
    const std::string name = "c" + std::to_string(::getpid()); // the kernel names its thread after it, in 15 letters
    const std::string parent = "/proc/" + std::to_string(::getpid());
    const std::string up = "ip link set lo up; ip link set " + name + " mtu " + std::to_string(mtu) + " up";
    shell(camera_side, "ip link add " + name + " type veth peer name " + name + " netns " + parent + "/fd/" +
                           std::to_string(consumer_side) + "; ip address add " + gige::to_string(camera_address) +
                           "/24 dev " + name + "; ethtool -K " + name + " tso off; " + up);
    const std::string settings = "/sys/class/net/" + name + "/";
    // A veth's end has a receive queue of its own only while it may join, and takes from it only what the other end
    // could not have sent joined by itself (no TSO there). It is the socket that says whether datagrams are joined.
    shell(consumer_side, "ip address add " + gige::to_string(consumer_address) + "/24 dev " + name + "; ethtool -K " +
                             name + " gro on; " + up + "; echo 1 >" + settings + "threaded; echo " +
                             std::to_string(gather_us * 1000) + " >" + settings + "gro_flush_timeout; echo " +
                             (gather_us == 0 ? "0" : "1") + " >" + settings + "napi_defer_hard_irqs");
    receiver = find_thread("napi/" + name + "-");
    if (receiver < 0) fail("the interface has no thread of its own");
    // A card's work goes ahead of every process. The queue between the two ends holds 256 datagrams.
    const sched_param first{.sched_priority = 1};
    if (::sched_setscheduler(receiver, SCHED_FIFO, &first) != 0) fail("no precedence for the interface's thread");
}

cable::~cable() {
    ::close(camera_side);
    ::close(consumer_side);
}

void cable::enter_camera_side() const { enter(camera_side); }
void cable::enter_consumer_side() const { enter(consumer_side); }

double cable::kernel_seconds() const {
    uint64_t nanoseconds = 0;
    std::ifstream{"/proc/" + std::to_string(receiver) + "/schedstat"} >> nanoseconds;
    return static_cast<double>(nanoseconds) * 1e-9;
}

} // namespace bench
