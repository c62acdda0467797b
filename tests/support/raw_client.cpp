#include "raw_client.h"

#include <gds_shared/product_constants.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <stdexcept>
#include <utility>

namespace test_support {

namespace {

constexpr size_t queue_size = 0x11000;
constexpr size_t first_block = 4096;
constexpr size_t block_size = 4096;

timespec in(int milliseconds) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long nanoseconds = now.tv_nsec + milliseconds % 1000 * 1'000'000L;
    return {now.tv_sec + milliseconds / 1000 + nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
}

bool wait(sem_t* semaphore, int milliseconds) {
    const timespec limit = in(milliseconds);
    return sem_clockwait(semaphore, CLOCK_MONOTONIC, &limit) == 0;
}

std::string head(uint8_t type, uint32_t flags, size_t size, uint64_t id) {
    return wire_bytes{}.put(flags << 8 | type).put(static_cast<uint32_t>(size)).put(id).str();
}

} // namespace

raw_client::raw_client(const std::filesystem::path& folder) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = folder / gds_shared::service_pipe_name(gds_shared::gev_product);
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    socket = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(socket);
        throw std::runtime_error("no connection");
    }
    char packet[4096];
    pollfd entry{socket, POLLIN, 0};
    if (poll(&entry, 1, 10'000) != 1 || recv(socket, packet, sizeof packet, 0) != 272 || packet[0] != 1) {
        close(socket);
        throw std::runtime_error("no announcement");
    }
    names[receive_queue] = packet + 16;
    names[send_queue] = packet + 144;
}

raw_client::~raw_client() {
    close_socket();
    for (uint8_t* map : maps) {
        if (map != nullptr) munmap(map, queue_size);
    }
    for (sem_t* semaphore : semaphores) {
        if (semaphore != nullptr) sem_close(semaphore);
    }
    for (const int file : files) {
        if (file >= 0) close(file);
    }
}

void raw_client::announce(const std::string& name) {
    std::string packet = wire_bytes{}.put(uint32_t{0x102}).put(uint32_t{144}).put(uint64_t{0}).str() + name;
    packet.resize(144);
    send_control(packet);
}

void raw_client::open_queues() {
    for (const part queue : {send_queue, receive_queue}) {
        files[queue] = shm_open(names[queue].c_str(), O_RDWR | O_CLOEXEC, 0);
        void* map = mmap(nullptr, queue_size, PROT_READ | PROT_WRITE, MAP_SHARED, files[queue], 0);
        if (map == MAP_FAILED) throw std::runtime_error("no queue " + names[queue]);
        maps[queue] = static_cast<uint8_t*>(map);
        const part sent = queue == send_queue ? send_sent : receive_sent;
        const part free = queue == send_queue ? send_free : receive_free;
        names[sent] = reinterpret_cast<const char*>(maps[queue] + 1);
        names[free] = reinterpret_cast<const char*>(maps[queue] + 268);
        for (const part semaphore : {sent, free}) {
            files[semaphore] = shm_open(("/sem." + names[semaphore].substr(1)).c_str(), O_RDWR | O_CLOEXEC, 0);
            semaphores[semaphore] = sem_open(names[semaphore].c_str(), 0);
            if (semaphores[semaphore] == SEM_FAILED) throw std::runtime_error("no semaphore");
        }
    }
}

std::optional<uint32_t> raw_client::take_block() {
    if (prepared) return std::exchange(prepared, std::nullopt);
    if (!wait(semaphores[send_free], 1000)) return std::nullopt;
    const uint32_t read = at<uint32_t>(send_queue, 396).load() & 31;
    const uint32_t block = at<uint32_t>(send_queue, 404 + 4 * read).load();
    at<uint32_t>(send_queue, 396).store((read + 1) & 31);
    return block;
}

void raw_client::push_block(uint32_t block) {
    const uint32_t write = at<uint32_t>(send_queue, 136).load() & 31;
    at<uint32_t>(send_queue, 140 + 4 * write).store(block);
    at<uint32_t>(send_queue, 136).store((write + 1) & 31);
    sem_post(semaphores[send_sent]);
}

bool raw_client::send_packet(const std::string& packet) {
    const auto block = take_block();
    if (!block) return false;
    std::memcpy(maps[send_queue] + first_block + *block * block_size, packet.data(), packet.size());
    push_block(*block);
    return true;
}

void raw_client::prepare_call(uint64_t handle, const std::string& function) {
    prepared = take_block();
    if (!prepared) throw std::runtime_error("no free block");
    const std::string packet = call_start(handle, function, {}, 0, 0);
    std::memcpy(maps[send_queue] + first_block + *prepared * block_size, packet.data(), packet.size());
}

void raw_client::send_prepared() { push_block(*std::exchange(prepared, std::nullopt)); }

std::string raw_client::call_start(uint64_t handle, const std::string& function, const std::string& chunk,
                                   uint64_t size, uint32_t flags) {
    std::string packet = head(4, flags, 96 + chunk.size(), ++last_id) + wire_bytes{}.put(size).put(handle).str();
    packet += function.substr(0, 63);
    packet.resize(96);
    return packet + chunk;
}

bool raw_client::start_call(uint64_t handle, const std::string& function, const std::string& chunk, uint64_t size,
                            uint32_t flags) {
    return send_packet(call_start(handle, function, chunk, size, flags));
}

bool raw_client::send_call(uint64_t handle, const std::string& function, const std::string& parameters,
                           uint32_t flags) {
    if (!start_call(handle, function, parameters.substr(0, 4000), parameters.size(), flags)) return false;
    for (size_t sent = 4000; sent < parameters.size(); sent += 4072) {
        const std::string chunk = parameters.substr(sent, 4072);
        if (!send_packet(head(5, flags, 24 + chunk.size(), last_id) + wire_bytes{}.put(uint64_t{sent}).str() + chunk)) {
            return false;
        }
    }
    return true;
}

bool raw_client::close_object(uint64_t handle) {
    return send_packet(head(3, 0, 24, ++last_id) + wire_bytes{}.put(handle).str()) && next_reply().has_value();
}

std::optional<raw_client::reply> raw_client::next_reply() {
    std::optional<reply> got;
    size_t whole = 0;
    do {
        if (!wait(semaphores[receive_sent], 10'000)) return std::nullopt;
        const uint32_t read = at<uint32_t>(receive_queue, 132).load() & 31;
        if (read == at<uint32_t>(receive_queue, 136).load()) {
            if (byte_at(receive_queue, 0) != 0) return std::nullopt;
            continue; // a notification
        }
        const uint32_t block = at<uint32_t>(receive_queue, 140 + 4 * read).load();
        at<uint32_t>(receive_queue, 132).store((read + 1) & 31);
        const char* packet = reinterpret_cast<const char*>(maps[receive_queue] + first_block + block * block_size);
        uint32_t size = 0;
        std::memcpy(&size, packet + 4, sizeof size);
        const std::string chunk{packet + 24, size - 24};
        if (packet[0] == 7 && got) {
            got->bytes += chunk;
        } else {
            got = reply{static_cast<uint8_t>(packet[0]), 0, chunk};
            std::memcpy(&got->status, packet + 16, sizeof got->status);
            whole = packet[0] == 6 ? got->status : 0; // the lower half of the result's size
        }
        const uint32_t write = at<uint32_t>(receive_queue, 400).load() & 31;
        at<uint32_t>(receive_queue, 404 + 4 * write).store(block);
        at<uint32_t>(receive_queue, 400).store((write + 1) & 31);
        sem_post(semaphores[receive_free]);
    } while (!got || got->bytes.size() < whole);
    return got;
}

std::optional<raw_client::reply> raw_client::call(uint64_t handle, const std::string& function,
                                                  const std::string& parameters) {
    if (!send_call(handle, function, parameters)) return std::nullopt;
    return next_reply();
}

uint64_t raw_client::object(uint64_t handle, const std::string& function, const std::string& parameters) {
    const auto answer = call(handle, function, parameters);
    return answer && answer->type == 6 && answer->error() == 0 ? answer->value() : 0;
}

uint64_t raw_client::open_camera(uint32_t access) {
    const uint64_t service = object(0, "create_service_instance");
    const auto list = call(service, "enum_interfaces");
    if (!list || list->at<uint32_t>(8) == 0) return 0;
    for (uint64_t offset = 12, left = list->at<uint32_t>(8); left != 0; --left) {
        std::string texts[3];
        for (std::string& text : texts) {
            text = list->bytes.substr(offset + 4, list->at<uint32_t>(offset));
            offset += 4 + text.size();
        }
        offset += 224;
        const uint64_t interface = object(service, "open_interface", wire_bytes{}.put_text(texts[0]).str());
        const auto devices = call(interface, "enum_devices");
        if (!devices || devices->at<uint32_t>(8) == 0) continue;
        const std::string id = devices->bytes.substr(16, devices->at<uint32_t>(12));
        return object(interface, "open_device", wire_bytes{}.put_text(id).put(access).str());
    }
    return 0;
}

bool raw_client::dropped(int milliseconds) const {
    char byte = 0;
    pollfd entry{socket, POLLIN, 0};
    return poll(&entry, 1, milliseconds) == 1 && recv(socket, &byte, 1, MSG_DONTWAIT) <= 0;
}

void raw_client::send_control(const std::string& message) const {
    static_cast<void>(send(socket, message.data(), message.size(), MSG_NOSIGNAL));
}

void raw_client::close_socket() {
    if (socket >= 0) close(std::exchange(socket, -1));
}

void raw_client::write_semaphore(part semaphore, uint64_t value) const {
    std::atomic_ref{*reinterpret_cast<uint64_t*>(semaphores[semaphore])}.store(value);
}

} // namespace test_support
