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

// Begin and size are one word: the handler may look at an entry while another thread gives it away, and must never
// take the begin of one region and the end of another for one.
struct guarded_region {
    std::atomic<std::uintptr_t> place{0}; // begin, a multiple of least_page, plus the size in such pages; 0: free
    std::atomic<bool> broken{false};
};

constexpr std::uintptr_t least_page = 4096;

std::array<guarded_region, most_regions> regions;

std::uintptr_t rounded_up(std::uintptr_t address) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    return (address + page - 1) / page * page;
}

std::uintptr_t begin_of(std::uintptr_t place) { return place / least_page * least_page; }

class region_guard final : public ipc_rpc::platform::mapping_guard {
public:
    const std::atomic<bool>* add(std::span<std::byte> region) noexcept override {
        const auto begin = reinterpret_cast<std::uintptr_t>(region.data());
        const std::uintptr_t pages = (rounded_up(begin + region.size()) - begin) / least_page;
        if (pages >= least_page) return nullptr;
        for (guarded_region& entry : regions) {
            std::uintptr_t none = 0;
            if (entry.place != 0 || !entry.place.compare_exchange_strong(none, begin + pages)) continue;
            entry.broken = false; // nobody has access to the region yet
            return &entry.broken;
        }
        return nullptr;
    }
    void remove(std::span<std::byte> region) noexcept override {
        const auto begin = reinterpret_cast<std::uintptr_t>(region.data());
        for (guarded_region& entry : regions) {
            if (begin_of(entry.place) != begin) continue;
            entry.place = 0;
            return;
        }
    }
};

void on_bus_error(int, siginfo_t* info, void*) {
    // One that was sent has no address.
    const auto at = info->si_code > 0 ? reinterpret_cast<std::uintptr_t>(info->si_addr) : 0;
    for (guarded_region& entry : regions) {
        const std::uintptr_t place = entry.place;
        const std::uintptr_t begin = begin_of(place);
        const std::uintptr_t size = (place - begin) * least_page;
        if (at < begin || at - begin >= size) continue;
        entry.broken = true;
        // NOLINTNEXTLINE(performance-no-int-to-ptr): a place, as the fault gave it
        void* replaced = mmap(reinterpret_cast<void*>(begin), size, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
        if (replaced != MAP_FAILED) return;
    }
    // Not of a client's making, or beyond help: the access is repeated and ends the process as it would have. A signal
    // that somebody sent is not repeated by itself.
    signal(SIGBUS, SIG_DFL);
    if (info->si_code <= 0) raise(SIGBUS);
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
