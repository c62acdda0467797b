// The C library's named semaphore, at its layout and in its file, but with operations of our own: the C library's take
// flags for the kernel from memory that the peer can write, and end the process when the kernel refuses them.
//
// Since glibc 2.21, 64 bits: one word with the count in its lower and the number of waiters in its upper half, then
// the flag that the object is shared between processes.
#include "platform/named_semaphore.h"
#include "posix/file_descriptor.h"

#include <linux/futex.h>
#include <semaphore.h>
#include <sys/syscall.h>

#include <bit>
#include <ctime>

namespace ipc_rpc::platform {

namespace {

constexpr std::uint64_t one_waiter = std::uint64_t{1} << 32;
constexpr std::uint64_t count_mask = one_waiter - 1;
constexpr std::uint32_t shared_between_processes = 128;
// Of one change, before the peer is taken to do nothing but write the word. Threads of this host never fail so often.
constexpr int most_attempts = 10'000;
static_assert(std::endian::native == std::endian::little && sizeof(sem_t) == 32);

std::string file_name(const std::string& name) { return "/sem." + name.substr(1); }

long futex(std::uint64_t& word, int operation, std::uint32_t value, const timespec* time) noexcept {
    return syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), operation, value, time, nullptr, 0);
}

} // namespace

named_semaphore named_semaphore::create(const std::string& name, const object_access& access) {
    try {
        named_semaphore created{shared_mapping::create(file_name(name), sizeof(sem_t), access)};
        std::atomic_ref{(&created.word())[1]}.store(shared_between_processes);
        return created;
    } catch (const std::system_error& failure) {
        throw std::system_error(failure.code(), "Failed to create semaphore");
    }
}

named_semaphore named_semaphore::open(const std::string& name) {
    if (name.empty())
        throw std::system_error(std::make_error_code(std::errc::invalid_argument), "Failed to open semaphore");
    try {
        return named_semaphore{shared_mapping::open(file_name(name), sizeof(sem_t))};
    } catch (const std::system_error& failure) {
        throw std::system_error(failure.code(), "Failed to open semaphore");
    }
}

std::uint64_t& named_semaphore::word() const noexcept {
    return *reinterpret_cast<std::uint64_t*>(memory.bytes().data());
}

named_semaphore::outcome named_semaphore::try_take() noexcept {
    const std::atomic_ref state{word()};
    std::uint64_t now = state.load(std::memory_order_acquire);
    for (int attempts = 0; (now & count_mask) != 0 && !memory.is_broken(); ++attempts) {
        if ((now & count_mask) > most || attempts == most_attempts) return outcome::broken;
        if (state.compare_exchange_weak(now, now - 1, std::memory_order_acq_rel)) return outcome::taken;
    }
    return memory.is_broken() ? outcome::broken : outcome::nothing;
}

named_semaphore::outcome named_semaphore::wait(std::chrono::milliseconds time) noexcept {
    if (const outcome first = try_take(); first != outcome::nothing || time.count() <= 0) return first;
    const std::atomic_ref state{word()};
    state.fetch_add(one_waiter, std::memory_order_acq_rel);
    const timespec limit{static_cast<time_t>(time.count() / 1000), static_cast<long>(time.count() % 1000) * 1'000'000};
    futex(word(), FUTEX_WAIT, 0, &limit);
    state.fetch_sub(one_waiter, std::memory_order_acq_rel);
    return try_take();
}

void named_semaphore::post(unsigned count) noexcept {
    const std::atomic_ref state{word()};
    for (; count != 0; --count) {
        std::uint64_t now = state.load(std::memory_order_relaxed);
        for (int attempts = 0; attempts < most_attempts && (now & count_mask) < most; ++attempts)
            if (state.compare_exchange_weak(now, now + 1, std::memory_order_acq_rel)) break;
        if (now / one_waiter != 0) futex(word(), FUTEX_WAKE, 1, nullptr);
    }
}

} // namespace ipc_rpc::platform
