#include "stream_asio_thread.h"

#include "packet_recv/gvsp_recv_copy_packets.h"
#include "packet_recv/gvsp_recv_resend.h"
#include "packet_recv/gvsp_recv_simple.h"
#include "posix/datagram_reader.h"
#include "posix/source_filter.h"

#include <gds_helper/log.h>
#include <gds_helper/process.h>
#include <gds_shared/gigecam_error.h>

#include <asio/bind_allocator.hpp>
#include <asio/post.hpp>

#include <array>
#include <chrono>
#include <exception>
#include <limits>
#include <utility>

namespace gev::streamchannel::impl {

namespace {

using namespace std::chrono_literals;
using gds_shared::gigecam_errc;

constexpr const char* thread_name = "gev::streamchannel::impl::stream_asio_thread::thread_main";
constexpr int socket_receive_buffer = 0xA00000;
constexpr size_t receive_buffers = 64;
constexpr size_t buffer_margin = 100;
constexpr int most_rounds = 16;   // of reads before other work gets its turn
constexpr auto error_pause = 1ms; // so that an error that stays, or a wake for nothing, takes no processor
// Nobody is woken when somebody else in the process closes our descriptor: so it is read now and then, whatever comes.
constexpr auto unasked_read = 1s;
constexpr size_t test_buffer_size = 32000;
constexpr auto test_wait = 3'000'000ns;
constexpr auto test_poll = 750us;
constexpr int most_short_datagrams = 1000; // looked past at any time: a thread may sleep through the wait
constexpr uint32_t ip_udp_header = 28;
constexpr auto query_timeout = 2000ms;

using gds_helper::log::gvsp_logger;

uint64_t now_us() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count()) / 1000;
}

// What has nobody to be told of a failure, and must end neither reception nor the process.
template <class Work>
void unless_memory_is_short(Work&& work) noexcept {
    try {
        work();
    } catch (const std::exception&) {
    }
}

std::unique_ptr<gvsp_recv_interface> make_receiver(bool copy_packets, const stream_functions& functions) {
    if (copy_packets) return std::make_unique<gvsp_recv_copy_packets>(functions);
    if (functions.send_resend) return std::make_unique<gvsp_recv_resend>(functions);
    return std::make_unique<gvsp_recv_simple>(functions);
}

} // namespace

stream_asio_thread::stream_asio_thread(create_params params)
    : functions(std::move(params.functions)),
      reception_ended(std::move(params.reception_ended)),
      coalesce(params.coalesce),
      predict(params.predict),
      socket(io),
      timer(io),
      unasked_timer(io),
      receiver(make_receiver(params.copy_packets, functions)) {}

stream_asio_thread::~stream_asio_thread() { stop(); }

std::expected<asio::ip::udp::endpoint, std::error_code>
stream_asio_thread::open_stream_socket(const asio::ip::address_v4& local_address,
                                       const asio::ip::udp::endpoint& remote) {
    std::error_code error;
    socket.open(asio::ip::udp::v4(), error);
    if (error) return std::unexpected(error);
    const asio::ip::udp::endpoint local{local_address, 0};
    socket.bind(local, error);
    if (error) {
        gvsp_logger().error("Binding to {}:{} failed. err={}", local_address.to_string(), local.port(),
                            error.message());
        return std::unexpected(error);
    }
    // A stranger's packets could pass for the camera's, and a flood would take the room of the camera's.
    if (const std::error_code failed =
            posix::accept_only_from(socket.native_handle(), remote.address().to_v4().to_uint())) {
        gvsp_logger().debug("The stream socket takes datagrams from everybody. err={}", failed.message());
    }
    // A READREG of the privilege register: what leaves through a firewall lets the camera's stream in. The answer
    // comes back to this socket as no stream packet and falls through the parser.
    static constexpr std::array<unsigned char, 12> open_firewall{0x42, 0x01, 0x00, 0x80, 0x00, 0x04,
                                                                 0x00, 0xFF, 0x00, 0x00, 0x0A, 0x00};
    socket.send_to(asio::buffer(open_firewall), remote, 0, error);
    if (error) return std::unexpected(error);
    asio::ip::udp::endpoint bound = socket.local_endpoint(error);
    if (error) return std::unexpected(error);
    return bound;
}

std::error_code stream_asio_thread::drain_socket() {
    if (!socket.is_open()) return asio::error::bad_descriptor;
    std::array<std::byte, test_buffer_size> buffer;
    size_t received = 0;
    // Bounded: a flood must not keep the consumer here for ever.
    for (int i = 0; i < 1'000'000; ++i) {
        const std::error_code error = posix::receive_now(socket.native_handle(), buffer, received);
        if (error == std::errc::operation_would_block) return {};
        if (error == std::errc::connection_refused) continue; // of an earlier send, not of this socket
        if (error) return error;
    }
    return {};
}

std::error_code stream_asio_thread::receive_packet_and_check_size(uint32_t expected_size) {
    if (!socket.is_open()) return asio::error::bad_descriptor;
    std::array<std::byte, test_buffer_size> buffer;
    const auto deadline = std::chrono::steady_clock::now() + test_wait;
    for (int short_ones = 0;;) {
        size_t received = 0;
        const std::error_code error = posix::receive_now(socket.native_handle(), buffer, received);
        if (error == std::errc::operation_would_block) {
            if (std::chrono::steady_clock::now() >= deadline) return make_error_code(gigecam_errc::timeout);
            std::this_thread::sleep_for(test_poll);
            continue;
        }
        if (error) return error;
        if (gvsp_logger().should_log(spdlog::level::trace)) {
            gvsp_logger().trace("Streamchannel, received test packet with bytes#={}", received + ip_udp_header);
        }
        if (received + ip_udp_header >= expected_size) return {};
        // A flood of short datagrams is no reason to wait for longer.
        if (++short_ones >= most_short_datagrams && std::chrono::steady_clock::now() >= deadline)
            return make_error_code(gigecam_errc::timeout);
    }
}

std::error_code stream_asio_thread::start(uint32_t packet_size, uint32_t payload_size) {
    std::error_code error;
    const size_t in_force = posix::set_receive_buffer(socket.native_handle(), socket_receive_buffer, error);
    if (error) return error;
    if (in_force < static_cast<size_t>(socket_receive_buffer)) {
        gvsp_logger().debug("The system limits the socket's receive buffer to {} bytes.", in_force);
    }
    try {
        receiver->setup(packet_size, payload_size);
        pace.emplace(2 * in_force, packet_size);
        // All that the thread ever allocates, its timers' places included: here a failure has somebody to be told to.
        reader = std::make_unique<posix::datagram_reader>(socket.native_handle(), receive_buffers,
                                                          packet_size + buffer_margin, buffer_margin, coalesce);
        wait_for_datagrams();
        read_unasked();
        arm_timer(std::numeric_limits<int64_t>::max());
        thread_running = true;
        thread = std::thread{[this] { thread_main(); }};
    } catch (const std::system_error& failure) {
        thread_running = false;
        return failure.code();
    } catch (const std::bad_alloc&) {
        thread_running = false;
        return make_error_code(std::errc::not_enough_memory);
    }
    return {};
}

void stream_asio_thread::stop() {
    if (!thread.joinable()) return;
    io.stop();
    wake();
    thread.join();
}

void stream_asio_thread::thread_main() {
    gds_helper::set_thread_name(thread_name);
    if (!gds_helper::raise_thread_priority()) gvsp_logger().debug("The receive thread runs at normal priority.");
    gds_helper::sleep_precisely();
    try {
        io.run();
    } catch (const std::exception& failure) {
        try {
            end_reason = "no memory"; // short enough to need none
            end_reason = failure.what();
            gvsp_logger().error("{}, failed due to {}", thread_name, failure.what());
        } catch (const std::exception&) { // what was lacking is lacking for the words, too
        }
    }
    unless_memory_is_short([this] { receiver->flush(now_us()); });
    unless_memory_is_short([this] { dump_statistics(receiver->get_statistics()); });
    std::error_code ignored;
    if (socket_is_gone) {
        socket.release(ignored); // the number may be somebody else's by now
    } else {
        socket.close(ignored);
    }
    reader.reset();
    {
        const std::lock_guard guard{state_mutex};
        thread_running = false;
        state_changed.notify_all();
    }
    if (!end_reason.empty() && reception_ended) unless_memory_is_short([this] { reception_ended(end_reason); });
}

void stream_asio_thread::end_reception(std::string reason) {
    gvsp_logger().error("{}, failed due to {}", thread_name, reason);
    end_reason = std::move(reason);
    io.stop();
}

// For the operations that the receive thread starts again and again.
template <class Handler>
auto stream_asio_thread::keep_memory(Handler handler) {
    return asio::bind_allocator(std::pmr::polymorphic_allocator<>{&handler_memory}, std::move(handler));
}

void stream_asio_thread::wait_for_datagrams() {
    socket.async_wait(asio::ip::udp::socket::wait_read, keep_memory([this](const std::error_code& error) {
                          if (!error) {
                              if (receive_batch(true)) wait_for_datagrams();
                              return;
                          }
                          if (error != asio::error::operation_aborted) end_reception(error.message());
                      }));
}

void stream_asio_thread::read_unasked() {
    unasked_timer.expires_after(unasked_read);
    unasked_timer.async_wait(keep_memory([this](const std::error_code& error) {
        if (!error && receive_batch(false)) read_unasked();
    }));
}

bool stream_asio_thread::receive_batch(bool told) {
    for (int round = 0; round < most_rounds; ++round) {
        std::error_code error;
        const size_t count = reader->read(error);
        if (error && !survives(error)) {
            socket_is_gone = true;
            end_reception(error.message());
            return false;
        }
        // A socket that somebody shut down is always readable, while its datagrams may come all the same.
        if (told && count == 0 && round == 0 && !error) std::this_thread::sleep_for(error_pause);
        const pacing::decision decision = process(count);
        if (decision.next == pacing::action::wait) break;
        if (decision.next == pacing::action::sleep && !sleep_after_read(std::chrono::microseconds{decision.time}))
            break;
    }
    return true;
}

pacing::decision stream_asio_thread::process(size_t buffers) {
    const uint64_t now = now_us();
    int64_t wait = -1;
    size_t bytes = 0;
    reader->for_each(buffers, [&](std::span<const std::byte> datagram) {
        bytes += datagram.size();
        if (receiver->receive_packet(now, datagram)) wait = receiver->check_timers(now);
    });
    if (wait > 0) arm_timer(wait);
    last_read = now;
    frame_progress frame;
    if (predict) frame = receiver->progress();
    return pace->after({.now = now, .bytes = bytes, .full = buffers == receive_buffers, .frame = frame});
}

bool stream_asio_thread::sleep_after_read(std::chrono::microseconds time) {
    const std::chrono::steady_clock::time_point end{std::chrono::microseconds{last_read} + time};
    std::unique_lock held{sleep_mutex};
    return !woken.wait_until(held, end, [&] { return std::exchange(work_came, false); });
}

void stream_asio_thread::wake() {
    const std::lock_guard guard{sleep_mutex};
    work_came = true;
    woken.notify_one();
}

template <class Work>
void stream_asio_thread::post(Work&& work) {
    asio::post(io, std::forward<Work>(work));
    wake();
}

// An error says nothing about the datagrams behind it: a camera's or a stranger's ICMP message leaves one on the
// socket, and memory that the kernel lacks now it has again later.
bool stream_asio_thread::survives(const std::error_code& read_error) {
    if (read_error == std::errc::bad_file_descriptor || read_error == std::errc::not_a_socket) return false;
    const auto number = static_cast<size_t>(read_error.value()) % read_errors_told.size();
    if (!read_errors_told[number] && gvsp_logger().should_log(spdlog::level::warn)) {
        unless_memory_is_short([&] {
            gvsp_logger().warn("{}, reading failed due to {}", thread_name, read_error.message());
            read_errors_told.set(number);
        });
    }
    std::this_thread::sleep_for(error_pause);
    return true;
}

// A deadline that moved away leaves the timer as it is: it strikes early, finds nothing due and is armed anew. So the
// end deadline, which moves with each packet, costs no system call per packet.
void stream_asio_thread::arm_timer(int64_t wait_us) {
    const auto now = std::chrono::steady_clock::now();
    const int64_t room = (std::chrono::steady_clock::time_point::max() - now) / 1us;
    const auto due =
        wait_us >= room ? std::chrono::steady_clock::time_point::max() : now + std::chrono::microseconds{wait_us};
    if (armed_for && *armed_for <= due) return;
    armed_for = due;
    timer.expires_at(due);
    timer.async_wait(keep_memory([this](const std::error_code& error) {
        if (error) return;
        armed_for.reset();
        if (const int64_t next = receiver->check_timers(now_us()); next > 0) arm_timer(next);
    }));
}

bool stream_asio_thread::run_and_wait(std::function<void()> work, std::optional<std::chrono::milliseconds> limit) {
    // Shared with the handler, which may run after this has given up.
    const auto done = std::make_shared<bool>(false);
    std::unique_lock held{state_mutex};
    if (!thread_running) return false;
    post([this, done, work = std::move(work)] {
        work();
        const std::lock_guard guard{state_mutex};
        *done = true;
        state_changed.notify_all();
    });
    const auto over = [&] { return *done || !thread_running; };
    if (limit) {
        state_changed.wait_for(held, *limit, over);
    } else {
        state_changed.wait(held, over);
    }
    return *done;
}

void stream_asio_thread::flush() {
    run_and_wait([this] { receiver->flush(now_us()); });
}

void stream_asio_thread::reset_receiver() {
    post([this] { receiver->reset(); });
}

void stream_asio_thread::set_resend_params(const resend_parameters& parameters) {
    post([this, parameters] { receiver->set_resend_params(parameters); });
}

std::expected<std::optional<resend_parameters>, std::error_code> stream_asio_thread::get_resend_params() {
    const auto answer = std::make_shared<std::optional<resend_parameters>>();
    if (!run_and_wait([this, answer] { *answer = receiver->get_resend_params(); }, query_timeout)) {
        return std::unexpected(make_error_code(gigecam_errc::option_not_available));
    }
    return *answer;
}

void stream_asio_thread::dump_statistics(const frame_receive_stats& stats) const {
    gvsp_logger().info("[{:8}] delivered={} dropped(skipped/no frame)=({},{}).",
                       stats.complete_frames + stats.incomplete_frames + stats.skipped_frames + stats.no_buffer_frames,
                       stats.complete_frames + stats.incomplete_frames, stats.skipped_frames, stats.no_buffer_frames);
}

} // namespace gev::streamchannel::impl
