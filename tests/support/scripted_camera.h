// A camera that does what a test tells it, also what no camera should: late answers, wrong ids, answers twice or never.
#pragma once

#include <gige/gvcp.h>
#include <gige/udp_socket.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace test_support {

class scripted_camera {
public:
    struct request {
        gige::gvcp::command_header header;
        std::vector<std::byte> body;
        gige::endpoint from;
        [[nodiscard]] uint32_t word(std::size_t at) const { return gige::load32(&body.at(at)); }
        [[nodiscard]] bool is(gige::gvcp::command code, uint32_t address) const {
            return header.code == code && body.size() >= 4 && word(0) == address;
        }
    };
    // On the camera's thread, for every request. True: the script has dealt with it.
    using script_function = std::function<bool(scripted_camera&, const request&)>;

    explicit scripted_camera(uint32_t address, script_function script = {}) : scripted{std::move(script)} {
        set(gige::gvcp::reg::heartbeat_timeout, 3000);
        set(gige::gvcp::reg::control_capability, gige::gvcp::bits::can_write_mem);
        set(gige::gvcp::reg::current_address, address);
        set(gige::gvcp::reg::mac_low, address);
        auto opened = gige::udp_socket::open({address, gige::gvcp::port});
        EXPECT_TRUE(opened);
        socket = std::move(*opened);
        thread = std::thread{[this] { run(); }};
    }
    ~scripted_camera() {
        quit = true;
        ending.wake();
        thread.join();
    }

    void set(uint32_t address, uint32_t value) {
        const std::lock_guard guard{mutex};
        words[address] = value;
    }
    void set_text(uint32_t address, const std::string& text, std::size_t capacity) {
        std::vector<std::byte> bytes((capacity + 3) / 4 * 4);
        std::ranges::copy(std::as_bytes(std::span{text}), bytes.begin());
        for (uint32_t at = 0; at < bytes.size(); at += 4) set(address + at, gige::load32(&bytes[at]));
    }
    [[nodiscard]] uint32_t get(uint32_t address) const {
        const std::lock_guard guard{mutex};
        const auto found = words.find(address);
        return found == words.end() ? 0 : found->second;
    }
    [[nodiscard]] uint64_t count(gige::gvcp::command code, uint32_t address) const {
        const std::lock_guard guard{mutex};
        const auto found = counted.find({code, address});
        return found == counted.end() ? 0 : found->second;
    }
    void hand_control_to(gige::endpoint other) {
        const std::lock_guard guard{mutex};
        holder = other;
    }
    void take_control_away() {
        const std::lock_guard guard{mutex};
        holder.reset();
    }
    [[nodiscard]] std::optional<gige::endpoint> controller() const {
        const std::lock_guard guard{mutex};
        return holder;
    }

    // From the script.
    void answer(const request& to, gige::gvcp::status result, std::span<const std::byte> body,
                std::optional<uint16_t> id = {}, std::optional<gige::gvcp::command> code = {}) {
        std::vector<std::byte> datagram(gige::gvcp::header_size + body.size());
        const auto ack = code.value_or(static_cast<gige::gvcp::command>(static_cast<uint16_t>(to.header.code) + 1));
        gige::gvcp::store_ack(datagram.data(),
                              {result, ack, static_cast<uint16_t>(body.size()), id.value_or(to.header.request_id)});
        std::ranges::copy(body, datagram.begin() + gige::gvcp::header_size);
        EXPECT_FALSE(socket.send(to.from, datagram));
    }
    void answer_word(const request& to, uint32_t value, std::optional<uint16_t> id = {}) {
        std::array<std::byte, 4> body;
        gige::store32(body.data(), value);
        answer(to, gige::gvcp::status::success, body, id);
    }
    void refuse(const request& to, gige::gvcp::status why) { answer(to, why, {}); }
    void ask_for_patience(const request& to, uint16_t ms) {
        std::array<std::byte, 4> body{};
        gige::store16(&body[2], ms);
        answer(to, gige::gvcp::status::success, body, {}, gige::gvcp::command::pending_ack);
    }
    // What a well-behaved camera does.
    void serve(const request& to) {
        using enum gige::gvcp::command;
        if (to.header.code == discovery) {
            std::array<std::byte, gige::gvcp::discovery_size> body;
            for (uint32_t at = 0; at < body.size(); at += 4) gige::store32(&body[at], get(at));
            answer(to, gige::gvcp::status::success, body);
        } else if (to.header.code == read_reg) {
            answer_word(to, get(to.word(0)));
        } else if (to.header.code == read_mem) {
            const std::size_t size = to.word(4) & 0xFFFF;
            std::vector<std::byte> body(4 + size);
            gige::store32(body.data(), to.word(0));
            for (uint32_t at = 0; at < size; at += 4) gige::store32(&body[4 + at], get(to.word(0) + at));
            answer(to, gige::gvcp::status::success, body);
        } else if (to.header.code == write_reg || to.header.code == write_mem) {
            if (!may_write(to)) return refuse(to, gige::gvcp::status::access_denied);
            for (uint32_t at = 4; at < to.body.size(); at += 4) set(to.word(0) + at - 4, to.word(at));
            answer(to, gige::gvcp::status::success, std::array<std::byte, 4>{});
        }
    }

private:
    [[nodiscard]] bool may_write(const request& to) {
        const std::lock_guard guard{mutex};
        if (holder && *holder != to.from) return false;
        if (to.is(gige::gvcp::command::write_reg, gige::gvcp::reg::privilege)) {
            holder.reset();
            if (to.word(4) != 0) holder = to.from;
            return true;
        }
        return holder.has_value();
    }
    void run() {
        std::array<std::byte, gige::gvcp::max_datagram> buffer;
        while (!quit) {
            static_cast<void>(gige::wait_readable(std::array{ending.native(), socket.native()}, {}));
            gige::endpoint from;
            const auto size = socket.receive(buffer, from);
            const auto header = size ? gige::gvcp::parse_command(std::span{buffer}.first(*size)) : std::nullopt;
            if (quit || !header) continue;
            const auto body = std::span{buffer}.subspan(gige::gvcp::header_size, header->length);
            const request got{*header, {body.begin(), body.end()}, from};
            {
                const std::lock_guard guard{mutex};
                ++counted[{header->code, body.size() >= 4 ? got.word(0) : 0}];
            }
            if (!scripted || !scripted(*this, got)) serve(got);
        }
    }

    const script_function scripted;
    gige::udp_socket socket;
    gige::waker ending;
    std::atomic<bool> quit{};
    mutable std::mutex mutex; // guards what follows
    std::map<uint32_t, uint32_t> words;
    std::map<std::pair<gige::gvcp::command, uint32_t>, uint64_t> counted;
    std::optional<gige::endpoint> holder;
    std::thread thread;
};

} // namespace test_support
