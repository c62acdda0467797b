// A receiver on a clock of the test's own, and its log.
#pragma once

#include "datagrams.h"

#include "gevdrv_streamchannel/packet_recv/gvsp_recv_resend.h"
#include "gevdrv_streamchannel/packet_recv/gvsp_recv_simple.h"

#include <gds_helper/log.h>
#include <spdlog/sinks/sink.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace gev::streamchannel::test {

// What the GVSP logger writes during the life of this object, one message a line.
class log_capture {
public:
    log_capture() : sink(std::make_shared<collector>()), before(logger().level()) {
        logger().sinks().push_back(sink);
        logger().set_level(spdlog::level::info);
    }
    ~log_capture() {
        logger().set_level(before);
        std::erase(logger().sinks(), sink);
    }
    log_capture(const log_capture&) = delete;
    log_capture& operator=(const log_capture&) = delete;
    [[nodiscard]] size_t count(std::string_view text) const {
        return static_cast<size_t>(std::ranges::count_if(
            sink->lines, [&](const std::string& line) { return line.find(text) != std::string::npos; }));
    }

private:
    struct collector final : spdlog::sinks::sink {
        void log(const spdlog::details::log_msg& message) override {
            lines.emplace_back(message.payload.data(), message.payload.size());
        }
        void flush() override {}
        void set_pattern(const std::string&) override {}
        void set_formatter(std::unique_ptr<spdlog::formatter>) override {}
        std::vector<std::string> lines;
    };
    static spdlog::logger& logger() { return gds_helper::log::gvsp_logger(); }
    std::shared_ptr<collector> sink;
    spdlog::level::level_enum before;
};

template <class Receiver>
struct receiver_bench : testing::Test, surroundings {
    Receiver receiver{functions};
    uint64_t now = 1'000'000;
    uint64_t began = now;                // of the current stream
    std::vector<uint64_t> request_times; // since `began`

    receiver_bench() {
        functions.send_resend = [this](uint64_t block, uint32_t first, uint32_t last, bool extended) {
            requests.push_back({block, first, last, extended});
            request_times.push_back(now - began);
        };
        begin();
    }
    void begin(const shape& with = {}, const resend_parameters& parameters = {}) {
        start_over(with);
        request_times.clear();
        receiver.set_resend_params(parameters);
        receiver.setup(wire.packet_size(), wire.frame_size());
        began = now;
    }
    void feed_one(const datagram& data) { feed(receiver, now, data); }
    void send(uint64_t block, std::initializer_list<uint32_t> packets) {
        for (const uint32_t packet : packets) feed_one(packet_of(block, packet, wire));
    }
    void whole(uint64_t block, uint32_t lost = UINT32_MAX) {
        for (uint32_t packet = 0; packet <= wire.trailer(); ++packet) {
            if (packet != lost) send(block, {packet});
        }
    }
    void status(uint64_t block, uint32_t packet, uint32_t code) {
        feed_one(header(block, 3, packet, code, wire.extended));
    }
    // Lets time pass, deadline by deadline.
    void pass(uint64_t microseconds) {
        const uint64_t until = now + microseconds;
        for (int64_t wait = receiver.check_timers(now); wait > 0 && now + static_cast<uint64_t>(wait) <= until;) {
            now += static_cast<uint64_t>(wait);
            wait = receiver.check_timers(now);
        }
        now = until;
    }
    [[nodiscard]] counts statistics() const { return counts_of(receiver.get_statistics()); }
    [[nodiscard]] std::vector<uint32_t> flags() const {
        std::vector<uint32_t> all;
        for (const frame_info& frame : frames) all.push_back(frame.flags);
        return all;
    }
};

// The two receivers that assemble frames, by turns.
using both_receivers = testing::Types<impl::gvsp_recv_resend, impl::gvsp_recv_simple>;
struct receiver_names {
    template <class Receiver>
    static std::string GetName(int) {
        return std::is_same_v<Receiver, impl::gvsp_recv_resend> ? "resend" : "simple";
    }
};

} // namespace gev::streamchannel::test
