// An access beyond the end of a file that was mapped raises SIGBUS. The handler puts empty memory of this process's own
// in the region's place, so the access is repeated and finds zeros, and notes that the region is broken. It uses system
// calls and lock-free atomics only.
#include "bus_guard.h"

#include <platform.h>

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>

namespace service {

namespace {

// Per client two queues and four semaphores, per open device one block.
constexpr std::size_t most_regions = 8192;

struct guarded_region {
    std::atomic<std::uintptr_t> begin{0}; // 0: free
    std::atomic<std::uintptr_t> end{0};
    std::atomic<bool> broken{false};
};

std::array<guarded_region, most_regions> regions;

std::uintptr_t rounded_up(std::uintptr_t address) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    return (address + page - 1) / page * page;
}

class region_guard final : public ipc_rpc::platform::mapping_guard {
public:
    const std::atomic<bool>* add(std::span<std::byte> region) noexcept override {
        const auto begin = reinterpret_cast<std::uintptr_t>(region.data());
        for (guarded_region& entry : regions) {
            std::uintptr_t none = 0;
            // Taken first and given its end last: until then no address lies in it.
            if (entry.begin != 0 || !entry.begin.compare_exchange_strong(none, begin)) continue;
            entry.broken = false;
            entry.end = rounded_up(begin + region.size());
            return &entry.broken;
        }
        return nullptr;
    }
    void remove(std::span<std::byte> region) noexcept override {
        const auto begin = reinterpret_cast<std::uintptr_t>(region.data());
        for (guarded_region& entry : regions) {
            if (entry.begin != begin) continue;
            entry.end = 0;
            entry.begin = 0;
            return;
        }
    }
};

void on_bus_error(int, siginfo_t* info, void*) {
    const auto at = reinterpret_cast<std::uintptr_t>(info->si_addr);
    for (guarded_region& entry : regions) {
        const std::uintptr_t begin = entry.begin;
        const std::uintptr_t end = entry.end;
        if (begin == 0 || at < begin || at >= end) continue;
        entry.broken = true;
        void* replaced = mmap(reinterpret_cast<void*>(begin), end - begin, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
        if (replaced != MAP_FAILED) return;
    }
    // Not of a client's making, or beyond help: the access is repeated and ends the process as it would have.
    signal(SIGBUS, SIG_DFL);
}

} // namespace

void install_bus_guard() {
    static region_guard guard;
    struct sigaction action {};
    action.sa_sigaction = on_bus_error;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    if (sigaction(SIGBUS, &action, nullptr) != 0) throw std::system_error(errno, std::generic_category(), "sigaction");
    ipc_rpc::platform::install_mapping_guard(guard);
}

} // namespace service
