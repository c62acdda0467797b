// The receive thread on a real loopback socket, with the receivers that it has in service.
#include "receiver_fixture.h"

#include <gevdrv_streamchannel/stream_asio_thread.h>

#include <gige/udp_socket.h>
#include <support/eventually.h>

#include <gtest/gtest.h>
#include <spdlog/sinks/null_sink.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <new>
#include <utility>

using namespace gev::streamchannel;
using namespace gev::streamchannel::impl;
using namespace gev::streamchannel::test;

namespace {

const auto loopback = asio::ip::address_v4::loopback();

// The next reads fail, as the kernel's do, with one error and another by turns.
struct {
    std::atomic<int> times{0};
    std::atomic<int> error{0};
    std::atomic<int> other{0};
} failing_reads;
std::atomic<uint64_t> reads{0};

// When the receive thread's first sleep is to end, by the steady clock; 0: it has not slept.
std::atomic<int64_t> first_sleep_ends{0};
thread_local bool is_receive_thread = false;
std::atomic<uint64_t> pauses{0}; // of the receive thread, in which nothing wakes it

int64_t steady_us() { return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::microseconds{1}; }

// Memory is refused to every thread but those that may have some.
std::atomic<bool> memory_is_short{false};
thread_local bool may_allocate = false;
struct allowed {
    const bool before = std::exchange(may_allocate, true);
    ~allowed() { may_allocate = before; }
};

} // namespace

void* operator new(size_t size, std::align_val_t alignment) {
    void* memory = nullptr;
    const bool refused = memory_is_short && !may_allocate;
    if (refused || posix_memalign(&memory, static_cast<size_t>(alignment), size) != 0) throw std::bad_alloc{};
    return memory;
}
void* operator new(size_t size) { return operator new (size, std::align_val_t{alignof(std::max_align_t)}); }
// Not inlined, or the compiler takes the two for no pair.
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t, std::align_val_t) noexcept { std::free(memory); }

extern "C" int recvmmsg(int socket, mmsghdr* messages, unsigned count, int flags, timespec* timeout) {
    ++reads;
    if (failing_reads.times > 0) {
        errno = failing_reads.times-- % 2 != 0 ? failing_reads.error : failing_reads.other;
        return -1;
    }
    return static_cast<int>(syscall(SYS_recvmmsg, socket, messages, count, flags, timeout));
}

extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                      const timespec* end) {
    if (is_receive_thread) {
        int64_t none = 0;
        first_sleep_ends.compare_exchange_strong(none, end->tv_sec * 1'000'000 + end->tv_nsec / 1000);
    }
    static const auto real =
        reinterpret_cast<decltype(&pthread_cond_clockwait)>(dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
    return real(condition, mutex, clock, end);
}

extern "C" int nanosleep(const timespec* time, timespec* left) {
    if (is_receive_thread) ++pauses;
    return static_cast<int>(syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, time, left));
}

namespace {

class running_thread {
public:
    explicit running_thread(bool resends = false) {
        stream_functions functions;
        if (resends) {
            functions.send_resend = [this](uint64_t block, uint32_t first, uint32_t last, bool extended) {
                if (unsendable > 0 && unsendable-- > 0) throw std::bad_alloc{};
                const allowed tests_own;
                const std::lock_guard guard{mutex};
                requests.push_back({block, first, last, extended});
                changed.notify_all();
            };
        }
        functions.get_frame = [this] {
            const allowed tests_own;
            is_receive_thread = true;
            std::this_thread::sleep_for(work);
            work_ended = steady_us();
            const std::lock_guard guard{mutex};
            memory.emplace_back(1000);
            changed.notify_all();
            return frame_context{&memory.back(), memory.back().data(), 1000};
        };
        functions.deliver = [this](const frame_info& info, const frame_receive_stats&) {
            const allowed tests_own;
            const std::lock_guard guard{mutex};
            frames.push_back(info);
            changed.notify_all();
            if (fails_at_the_end && (info.flags & frame_flags::flushed) != 0) throw std::bad_alloc{};
        };
        sut.emplace(stream_asio_thread::create_params{.functions = std::move(functions),
                                                      .reception_ended = [this](const std::string& reason) {
                                                          const allowed tests_own;
                                                          const std::lock_guard guard{mutex};
                                                          ends.push_back(reason);
                                                          changed.notify_all();
                                                          if (fails_at_the_end) throw std::bad_alloc{};
                                                      }});
        const auto opened = sut->open_stream_socket(loopback, {loopback, remote.local().port});
        EXPECT_TRUE(opened);
        local_port = opened ? opened->port() : 0;
    }
    void send(const datagram& bytes) const { send_from(remote, bytes); }
    void send_from(const gige::udp_socket& sender, const datagram& bytes) const {
        EXPECT_FALSE(sender.send({INADDR_LOOPBACK, local_port}, bytes));
    }
    // The receiving one's descriptor.
    [[nodiscard]] int stream_socket() const {
        for (int descriptor = 0; descriptor < 1024; ++descriptor) {
            sockaddr_in address{};
            socklen_t length = sizeof address;
            if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
                address.sin_family == AF_INET && ntohs(address.sin_port) == local_port) {
                return descriptor;
            }
        }
        return -1;
    }
    template <class Condition>
    bool wait_until(Condition condition) {
        std::unique_lock held{mutex};
        return changed.wait_for(held, std::chrono::seconds{10}, condition);
    }
    bool wait_for_frames(size_t count) {
        return wait_until([&] { return frames.size() >= count; });
    }
    bool wait_for_request(const request& wanted) {
        return wait_until([&] { return std::ranges::find(requests, wanted) != requests.end(); });
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::vector<std::byte>> memory;
    std::vector<frame_info> frames;
    std::vector<request> requests;
    std::vector<std::string> ends;
    std::chrono::microseconds work{0}; // before a frame is there
    std::atomic<int64_t> work_ended{0};
    std::atomic<bool> fails_at_the_end{false}; // who is given frames back and told
    std::atomic<int> unsendable{0};            // requests to come that there is no memory for
    gige::udp_socket remote = *gige::udp_socket::open({INADDR_LOOPBACK, 0});
    uint16_t local_port = 0;
    std::optional<stream_asio_thread> sut; // goes first
};

// Frames of two payload packets of 100 bytes.
datagram packet(uint32_t block, uint32_t id) { return packet_of(block, id, {.count = 2}); }

} // namespace

TEST(StreamThread, OpensTheFirewallWithARegisterRead) {
    running_thread own;
    std::array<std::byte, 64> received;
    gige::endpoint from;
    ASSERT_EQ(own.remote.receive(received, from), 12U);
    EXPECT_TRUE(std::ranges::equal(std::span{received}.first(12),
                                   builder{}.u32(0x42010080).u32(0x000400FF).u32(0x00000A00).bytes));
}

TEST(StreamThread, CoalescedDatagramsCountOneByOne) {
    running_thread own;
    ASSERT_FALSE(own.sut->start(136, 200));
    const auto send_in_segments = [&](const datagram& bytes, int segment) {
        setsockopt(own.remote.native(), IPPROTO_UDP, UDP_SEGMENT, &segment, sizeof segment);
        own.send(bytes);
    };
    for (const uint32_t block : {1U, 2U}) {
        send_in_segments(packet(block, 0), 0);
        // Two payload packets of one size leave as one large send.
        datagram pair = packet(block, 1);
        const datagram second = packet(block, 2);
        pair.insert(pair.end(), second.begin(), second.end());
        send_in_segments(pair, 108);
        send_in_segments(packet(block, 3), 0);
    }
    ASSERT_TRUE(own.wait_for_frames(2));
    EXPECT_EQ(own.frames[0].flags, 0U);
    EXPECT_EQ(own.frames[0].context.data[150], pixel(1, 150));
    own.sut->stop();
}

TEST(StreamThread, FlushHandsBackAndWaitsAndNothingHangsAfterTheEnd) {
    running_thread own;
    ASSERT_FALSE(own.sut->start(136, 200));
    own.send(packet(1, 0));
    ASSERT_TRUE(own.wait_until([&] { return !own.memory.empty(); }));
    own.sut->flush();
    ASSERT_EQ(own.frames.size(), 1U);
    EXPECT_NE(own.frames[0].flags & frame_flags::flushed, 0U);
    EXPECT_TRUE(own.sut->get_resend_params());
    own.sut->stop();
    own.sut->flush();
    EXPECT_FALSE(own.sut->get_resend_params());
    own.sut->stop();
}

TEST(StreamThread, ATestPacketOfTheSizePasses) {
    running_thread own;
    own.send(std::vector<std::byte>(50));
    own.send(std::vector<std::byte>(1472));
    EXPECT_FALSE(own.sut->receive_packet_and_check_size(1500)) << "the short one is skipped";
    EXPECT_TRUE(own.sut->receive_packet_and_check_size(1500)) << "nothing more waits";
    own.send(std::vector<std::byte>(0));
    EXPECT_FALSE(own.sut->drain_socket());
}

// Or the work would be late by its own length, and the thread by both.
TEST(StreamThread, ASleepIsCountedFromTheReadWhateverTheWorkTakes) {
    running_thread own;
    own.work = std::chrono::microseconds{10 * pacing::longest_sleep};
    first_sleep_ends = 0;
    ASSERT_FALSE(own.sut->start(136, 200));
    own.send(packet(1, 0));
    ASSERT_TRUE(own.wait_until([&] { return !own.memory.empty(); }));
    const int64_t work_ended = own.work_ended;
    for (const uint32_t id : {1U, 2U, 3U}) own.send(packet(1, id));
    ASSERT_TRUE(own.wait_for_frames(1));
    own.sut->stop();
    EXPECT_GT(first_sleep_ends, 0) << "it slept";
    EXPECT_LT(first_sleep_ends, work_ended) << "and not a moment longer";
}

// The one timer follows the earliest deadline, and strikes with no packet to wake the thread.
TEST(StreamThread, TheTimerStrikesForWhatIsDueFirst) {
    using namespace std::chrono_literals;
    running_thread own{true};
    ASSERT_FALSE(own.sut->start(136, 200));
    resend_parameters slow;
    slow.time_per_frame = 3'600'000'000;
    own.sut->set_resend_params(slow);
    ASSERT_TRUE(own.sut->get_resend_params()); // and so they are set
    own.send(packet(1, 0));                    // arms the timer for the end of a frame that takes an hour
    // The leader was seen when its buffer was taken, and the timer armed when the next question is answered.
    ASSERT_TRUE(own.wait_until([&] { return !own.memory.empty(); }));
    resend_parameters fast;
    fast.time_per_frame = 20'000;
    fast.max_retries = 255; // this thread may be late with its answers
    own.sut->set_resend_params(fast);
    ASSERT_TRUE(own.sut->get_resend_params());
    own.send(packet(1, 2));
    EXPECT_TRUE(own.wait_for_request({1, 1, 1})) << "the gap's deadline comes before the frame's";
    own.send(packet(1, 1));
    EXPECT_TRUE(own.wait_for_request({1, 3, 3})) << "nothing more comes: the tail's turn";
    own.send(packet(1, 3));
    ASSERT_TRUE(own.wait_for_frames(1));
    EXPECT_EQ(own.frames[0].flags, 0U);
    own.sut->stop();
    EXPECT_TRUE(own.ends.empty()) << "who stops it needs no word";
}

// Nor do its words about each frame and request, in a log that needs none.
TEST(StreamThread, AStreamThatHasBegunNeedsNoMoreMemory) {
    const allowed tests_own;
    auto& log = gds_helper::log::gvsp_logger(); // the library has made it long before
    const auto level = log.level();
    log.sinks().push_back(std::make_shared<spdlog::sinks::null_sink_mt>());
    for (const auto with : {level, spdlog::level::info}) {
        log.set_level(with);
        running_thread own{true};
        own.unsendable = 1;
        // Asked for after 20 ms, and given time for whatever keeps this thread from its sending.
        own.sut->set_resend_params({.time_per_frame = 5'000'000, .resend_delay_factor = 0.004F});
        memory_is_short = true;
        EXPECT_FALSE(own.sut->start(136, 200));
        for (uint32_t frame = 1; frame <= 3; ++frame) {
            own.send(packet(frame, 0));
            own.send(packet(frame, 2));
            EXPECT_TRUE(own.wait_for_request({frame, 1, 1})) << "by the timer, and again";
            own.send(packet(frame, 1));
            own.send(packet(frame, 3));
            EXPECT_TRUE(own.wait_for_frames(frame));
        }
        memory_is_short = false;
        own.sut->stop();
        EXPECT_TRUE(own.ends.empty()) << own.ends.front();
    }
    log.set_level(level);
    log.sinks().pop_back();
}

TEST(StreamThread, ReadErrorsPassAlsoWhenMemoryIsShort) {
    const allowed tests_own;
    static_cast<void>(gds_helper::log::gvsp_logger()); // the library has made it long before
    for (const bool logged : {false, true}) {
        std::optional<log_capture> log;
        if (logged) log.emplace();
        running_thread own;
        ASSERT_FALSE(own.sut->start(136, 200));
        failing_reads.error = failing_reads.other = ENOBUFS;
        memory_is_short = true;
        failing_reads.times = 2;
        for (uint32_t id = 0; id < 4; ++id) own.send(packet(1, id));
        EXPECT_TRUE(own.wait_for_frames(1)) << logged;
        memory_is_short = false;
        own.sut->stop();
        EXPECT_TRUE(own.ends.empty()) << logged;
    }
}

// The socket is gone, and there is no memory to give the frame back or to tell of it.
TEST(StreamThread, AnEndThatCannotBeToldIsTheStreamsAlone) {
    running_thread own;
    own.fails_at_the_end = true;
    ASSERT_FALSE(own.sut->start(136, 200));
    own.send(packet(1, 0));
    ASSERT_TRUE(own.wait_until([&] { return !own.memory.empty(); }));
    failing_reads.error = failing_reads.other = EBADF;
    failing_reads.times = 1;
    own.send(packet(1, 1));
    ASSERT_TRUE(own.wait_until([&] { return !own.ends.empty(); }));
    EXPECT_EQ(own.frames.size(), 1U);
    own.sut->stop();
}

TEST(StreamThread, ReadErrorsPassAndAreToldOnceEach) {
    const int errors[] = {ENOBUFS, EPROTO, ENETDOWN, ECONNREFUSED};
    for (const int error : errors) {
        const log_capture log;
        running_thread own;
        ASSERT_FALSE(own.sut->start(136, 200));
        failing_reads.error = error;
        failing_reads.other = errors[0];
        failing_reads.times = 40;
        own.send(packet(1, 0));
        own.send(packet(1, 1));
        own.send(packet(1, 2));
        own.send(packet(1, 3));
        EXPECT_TRUE(own.wait_for_frames(1)) << error;
        EXPECT_EQ(failing_reads.times, 0);
        own.sut->stop();
        EXPECT_TRUE(own.ends.empty());
        EXPECT_EQ(log.count("reading failed due to"), error == errors[0] ? 1U : 2U);
    }
}

// A socket that is gone is the end: the frame under way goes back, those who wait are let go, and it is told. Also when
// somebody else took the descriptor, which wakes nobody; what it has become is not the stream's to close.
TEST(StreamThread, TheEndOfTheSocketIsTold) {
    for (const bool taken : {false, true}) {
        running_thread own;
        ASSERT_FALSE(own.sut->start(136, 200));
        own.send(packet(1, 0));
        ASSERT_TRUE(own.wait_until([&] { return !own.memory.empty(); }));
        const int descriptor = taken ? own.stream_socket() : -1;
        if (taken) {
            const int other = open("/dev/null", O_RDONLY | O_CLOEXEC);
            ASSERT_EQ(dup2(other, descriptor), descriptor);
            close(other);
        } else {
            failing_reads.error = failing_reads.other = EBADF;
            failing_reads.times = 1;
            own.send(packet(1, 1));
        }
        ASSERT_TRUE(own.wait_until([&] { return !own.ends.empty(); }));
        EXPECT_EQ(own.ends.size(), 1U);
        ASSERT_EQ(own.frames.size(), 1U);
        EXPECT_NE(own.frames[0].flags & frame_flags::flushed, 0U);
        own.sut->flush();
        EXPECT_FALSE(own.sut->get_resend_params());
        own.sut->stop();
        if (taken) {
            EXPECT_EQ(close(descriptor), 0) << "closed a stranger's descriptor";
        }
    }
}

// Somebody shut the socket down: it is readable for ever, and the camera's datagrams come all the same.
TEST(StreamThread, AShutDownSocketKeepsNoProcessorBusy) {
    using namespace std::chrono;
    running_thread own;
    ASSERT_FALSE(own.sut->start(136, 200));
    ::shutdown(own.stream_socket(), SHUT_RDWR);
    const auto began = steady_clock::now();
    const uint64_t before = reads;
    std::this_thread::sleep_for(100ms);
    const uint64_t made = reads - before;
    EXPECT_LE(made, static_cast<uint64_t>((steady_clock::now() - began) / 1ms) + 10) << "at most one a millisecond";
    own.send(packet(1, 0));
    own.send(packet(1, 1));
    own.send(packet(1, 2));
    own.send(packet(1, 3));
    EXPECT_TRUE(own.wait_for_frames(1));
    own.sut->stop();
    EXPECT_TRUE(own.ends.empty());
}

// The reads that come whether or not anything can be read: a frame that ends meanwhile must not wait for a pause.
TEST(StreamThread, AReadUnaskedThatBringsNothingIsNoReasonToPause) {
    running_thread own;
    const uint64_t paused = pauses;
    ASSERT_FALSE(own.sut->start(136, 200));
    for (uint32_t id = 0; id < 4; ++id) own.send(packet(1, id));
    ASSERT_TRUE(own.wait_for_frames(1));
    const uint64_t before = reads; // one more at most belongs to the frame
    ASSERT_TRUE(test_support::eventually([&] { return reads >= before + 2; }));
    own.sut->stop();
    EXPECT_EQ(pauses, paused);
}
