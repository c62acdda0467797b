// Batched, non-blocking reception on a UDP socket. Another platform's build gives this class the same face.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <system_error>

namespace gev::streamchannel::posix {

// One datagram into the buffer, cut off at its end. No value (0 and an error would_block) when none waits.
[[nodiscard]] std::error_code receive_now(int socket, std::span<std::byte> buffer, size_t& received) noexcept;

// Asks for the size, by force where the process may exceed the system's limit. The size in force is returned.
[[nodiscard]] size_t set_receive_buffer(int socket, int bytes, std::error_code& error) noexcept;

// Reads up to `batch` datagrams with one system call into buffers of its own. With receive offload the kernel joins
// datagrams of one sender; they are handed out one by one, as if each had come alone.
// Behind each datagram at least `margin` bytes of the buffer are readable. Thread-bound; allocates in the constructor.
class datagram_reader final {
public:
    datagram_reader(int socket, size_t batch, size_t datagram_size, size_t margin, bool coalesce = true);
    ~datagram_reader();
    datagram_reader(const datagram_reader&) = delete;
    datagram_reader& operator=(const datagram_reader&) = delete;

    // The number of buffers filled; 0 with no error when nothing waits.
    [[nodiscard]] size_t read(std::error_code& error) noexcept;
    // The datagrams of the last read, in order of arrival.
    template <class Handler>
    void for_each(size_t count, Handler&& handler) {
        for (size_t i = 0; i < count; ++i) {
            std::span<const std::byte> rest = filled(i);
            const size_t segment = segment_size(i);
            while (segment != 0 && rest.size() > segment) {
                handler(rest.first(segment));
                rest = rest.subspan(segment);
            }
            handler(rest);
        }
    }

private:
    [[nodiscard]] std::span<const std::byte> filled(size_t index) const noexcept;
    // 0 for a datagram that came alone.
    [[nodiscard]] size_t segment_size(size_t index) const noexcept;

    struct batch_state;
    std::unique_ptr<batch_state> state;
    int descriptor;
    bool coalescing = false;
};

} // namespace gev::streamchannel::posix
