// The receive thread: one UDP socket, one io_context, one receiver that no other thread touches.
#pragma once

#include "pacing.h"
#include "stream_channel_thread_itf.h"

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include <bitset>
#include <condition_variable>
#include <memory>
#include <memory_resource>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace gev::streamchannel::posix {
class datagram_reader;
}

namespace gev::streamchannel::impl {

// Thread-safe, but for the caller's operations, which are one thread's at a time.
class stream_asio_thread final : public stream_channel_thread_itf {
public:
    struct create_params {
        bool copy_packets = false;
        bool coalesce = true;       // joined datagrams where the kernel has them; false measures the way without
        bool predict = true;        // sleeps by the frames' progress; false measures a fixed pause in their place
        stream_functions functions; // without a resend sender the simple receiver serves
        // On the receive thread, at most once and as the last thing it does: nothing will be received any more, though
        // nobody called stop. May be empty.
        std::function<void(const std::string& reason)> reception_ended;
    };

    explicit stream_asio_thread(create_params params);
    ~stream_asio_thread() override;
    stream_asio_thread(const stream_asio_thread&) = delete;
    stream_asio_thread& operator=(const stream_asio_thread&) = delete;

    std::error_code drain_socket() override;
    std::error_code receive_packet_and_check_size(uint32_t expected_size) override;
    std::expected<asio::ip::udp::endpoint, std::error_code>
    open_stream_socket(const asio::ip::address_v4& local_address, const asio::ip::udp::endpoint& remote) override;
    std::error_code start(uint32_t packet_size, uint32_t payload_size) override;
    void stop() override;
    void flush() override;
    void reset_receiver() override;
    void set_resend_params(const resend_parameters& parameters) override;
    std::expected<std::optional<resend_parameters>, std::error_code> get_resend_params() override;

private:
    void thread_main();
    template <class Handler>
    [[nodiscard]] auto keep_memory(Handler handler);
    void wait_for_datagrams();
    void read_unasked();
    // Reads until `pacing` says to wait. `told`: by the system, that something can be read. False when reception is at
    // its end.
    [[nodiscard]] bool receive_batch(bool told);
    [[nodiscard]] pacing::decision process(size_t buffers);
    // So long from the last read on. False when other work came meanwhile.
    [[nodiscard]] bool sleep_after_read(std::chrono::microseconds time);
    // Hands work to the receive thread, also while it sleeps.
    template <class Work>
    void post(Work&& work);
    void wake();
    // False when nothing can be read from the socket any more.
    [[nodiscard]] bool survives(const std::error_code& read_error);
    void end_reception(std::string reason);
    void arm_timer(int64_t wait_us);
    // Runs `work` on the receive thread and waits for it. False when the thread ended first or the time ran out.
    bool run_and_wait(std::function<void()> work, std::optional<std::chrono::milliseconds> limit = std::nullopt);
    void dump_statistics(const frame_receive_stats& stats) const;

    const stream_functions functions;
    const std::function<void(const std::string&)> reception_ended;
    const bool coalesce;
    const bool predict;
    std::pmr::unsynchronized_pool_resource handler_memory; // so that waiting allocates nothing
    asio::io_context io;
    asio::ip::udp::socket socket;
    asio::steady_timer timer;
    asio::steady_timer unasked_timer;
    // The receive thread's.
    std::optional<std::chrono::steady_clock::time_point> armed_for;
    std::bitset<256> read_errors_told; // by error number, once each
    bool socket_is_gone = false;
    std::string end_reason;
    std::unique_ptr<gvsp_recv_interface> receiver; // while it runs
    std::unique_ptr<posix::datagram_reader> reader;
    std::optional<pacing> pace;
    uint64_t last_read = 0; // microseconds of the steady clock
    std::thread thread;

    std::mutex sleep_mutex; // guards work_came
    std::condition_variable woken;
    bool work_came = false;

    std::mutex state_mutex; // guards what follows
    std::condition_variable state_changed;
    bool thread_running = false;
};

} // namespace gev::streamchannel::impl
