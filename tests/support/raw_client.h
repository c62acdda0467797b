// A client of the service that is none of ours: it speaks the protocol by its numbers, and stops where it likes.
#pragma once

#include <semaphore.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

namespace test_support {

// A parameter or result block.
class wire_bytes final {
public:
    template <class T>
    wire_bytes& put(T value) {
        text.append(reinterpret_cast<const char*>(&value), sizeof value);
        return *this;
    }
    wire_bytes& put_text(const std::string& value) {
        put(static_cast<uint32_t>(value.size()));
        text += value;
        return *this;
    }
    [[nodiscard]] const std::string& str() const noexcept { return text; }

private:
    std::string text;
};

class raw_client final {
public:
    struct reply {
        uint8_t type;    // 6: a result, 8: an error
        uint32_t status; // of an error
        std::string bytes;

        template <class T>
        [[nodiscard]] T at(size_t offset) const {
            T value{};
            if (offset + sizeof value <= bytes.size()) std::memcpy(&value, bytes.data() + offset, sizeof value);
            return value;
        }
        // Of a result that is an error or a value.
        [[nodiscard]] uint64_t error() const { return at<uint64_t>(0); }
        [[nodiscard]] uint64_t value() const { return at<uint64_t>(8); }
    };
    enum part { send_queue, receive_queue, send_sent, send_free, receive_sent, receive_free, parts };

    // To the service of this version in the folder; throws when nobody lets it in.
    explicit raw_client(const std::filesystem::path& folder);
    // Announced, its queues open.
    raw_client(const std::filesystem::path& folder, const std::string& name) : raw_client(folder) {
        announce(name);
        open_queues();
    }
    ~raw_client();
    raw_client(const raw_client&) = delete;
    raw_client& operator=(const raw_client&) = delete;

    void announce(const std::string& name = "raw");
    void open_queues();

    // A call's first packet, with `size` as its full size; false when the service takes no more.
    bool start_call(uint64_t handle, const std::string& function, const std::string& chunk, uint64_t size,
                    uint32_t flags = 0);
    bool send_call(uint64_t handle, const std::string& function, const std::string& parameters = {},
                   uint32_t flags = 0);
    bool close_object(uint64_t handle);
    bool send_packet(const std::string& packet);
    std::optional<reply> next_reply();
    std::optional<reply> call(uint64_t handle, const std::string& function, const std::string& parameters = {});
    // The handle in the answer, 0 for none.
    uint64_t object(uint64_t handle, const std::string& function, const std::string& parameters = {});

    // The handle of the first camera that is listed, opened with this access; 0 when it is not to be had.
    uint64_t open_camera(uint32_t access);

    // The end of the connection came within this time.
    [[nodiscard]] bool dropped(int milliseconds = 10'000) const;
    void send_control(const std::string& message) const;
    void close_socket();

    // A call without parameters in a block that is kept back, to be sent without touching anything but the ring and its
    // semaphore.
    void prepare_call(uint64_t handle, const std::string& function);
    void send_prepared();

    [[nodiscard]] int descriptor(part which) const { return files[which]; }
    [[nodiscard]] const std::string& name(part which) const { return names[which]; }
    void write_closed(part queue) const { byte_at(queue, 0).store(1); }
    void write_semaphore(part semaphore, uint64_t value) const;
    template <class T>
    [[nodiscard]] std::atomic_ref<T> at(part queue, size_t offset) const {
        return std::atomic_ref{*reinterpret_cast<T*>(maps[queue] + offset)};
    }

private:
    [[nodiscard]] std::atomic_ref<uint8_t> byte_at(part queue, size_t offset) const {
        return at<uint8_t>(queue, offset);
    }
    std::string call_start(uint64_t handle, const std::string& function, const std::string& chunk, uint64_t size,
                           uint32_t flags);
    std::optional<uint32_t> take_block();
    void push_block(uint32_t block);

    int socket = -1;
    std::string names[parts];
    int files[parts]{-1, -1, -1, -1, -1, -1};
    uint8_t* maps[2]{};
    sem_t* semaphores[parts]{};
    uint64_t last_id = 0;
    std::optional<uint32_t> prepared;
};

} // namespace test_support
