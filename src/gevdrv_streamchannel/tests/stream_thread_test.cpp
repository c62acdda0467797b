// The receive thread on a real loopback socket, with the receivers that it has in service.
#include "datagram_bytes.h"
#include "resend_bench.h"

#include <gevdrv_streamchannel/stream_asio_thread.h>

#include <gige/udp_socket.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>

using namespace gev::streamchannel;
using namespace gev::streamchannel::impl;
using namespace datagrams;

namespace {

const auto loopback = asio::ip::address_v4::loopback();

// The next reads fail, as the kernel's do, with one error and another by turns.
struct {
    std::atomic<int> times{0};
    std::atomic<int> error{0};
    std::atomic<int> other{0};
} failing_reads;

} // namespace

extern "C" int recvmmsg(int socket, mmsghdr* messages, unsigned count, int flags, timespec* timeout) {
    if (failing_reads.times > 0) {
        errno = failing_reads.times-- % 2 != 0 ? failing_reads.error : failing_reads.other;
        return -1;
    }
    return static_cast<int>(syscall(SYS_recvmmsg, socket, messages, count, flags, timeout));
}

namespace {

struct resend {
    uint64_t block;
    uint32_t first, last;
    bool operator==(const resend&) const = default;
};

class ThreadBench {
public:
    explicit ThreadBench(bool resends = false) {
        stream_functions functions;
        if (resends) {
            functions.send_resend = [this](uint64_t block, uint32_t first, uint32_t last, bool) {
                const std::lock_guard guard{mutex};
                requests.push_back({block, first, last});
                changed.notify_all();
            };
        }
        functions.get_frame = [this] {
            const std::lock_guard guard{mutex};
            memory.emplace_back(1000);
            changed.notify_all();
            return frame_context{&memory.back(), memory.back().data(), 1000};
        };
        functions.deliver = [this](const frame_info& info, const frame_receive_stats&) {
            const std::lock_guard guard{mutex};
            frames.push_back(info);
            changed.notify_all();
        };
        sut.emplace(stream_asio_thread::create_params{.functions = std::move(functions),
                                                      .reception_ended = [this](const std::string& reason) {
                                                          const std::lock_guard guard{mutex};
                                                          ends.push_back(reason);
                                                          changed.notify_all();
                                                      }});
        remote = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(remote, reinterpret_cast<sockaddr*>(&address), sizeof address);
        socklen_t length = sizeof address;
        getsockname(remote, reinterpret_cast<sockaddr*>(&address), &length);
        const auto opened = sut->open_stream_socket(loopback, {loopback, ntohs(address.sin_port)});
        EXPECT_TRUE(opened);
        local_port = opened ? opened->port() : 0;
    }
    ~ThreadBench() {
        sut.reset();
        close(remote);
    }
    void send(const std::vector<std::byte>& bytes, int segment = 0) const { send_from(remote, bytes, segment); }
    void send_from(int sender, const std::vector<std::byte>& bytes, int segment = 0) const {
        if (segment != 0) setsockopt(sender, IPPROTO_UDP, UDP_SEGMENT, &segment, sizeof segment);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        to.sin_port = htons(local_port);
        EXPECT_EQ(sendto(sender, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to),
                  static_cast<ssize_t>(bytes.size()));
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
    bool wait_for_request(const resend& wanted) {
        return wait_until([&] { return std::ranges::find(requests, wanted) != requests.end(); });
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::vector<std::byte>> memory;
    std::vector<frame_info> frames;
    std::vector<resend> requests;
    std::vector<std::string> ends;
    std::optional<stream_asio_thread> sut;
    int remote = -1;
    uint16_t local_port = 0;
};

std::vector<std::byte> payload(uint32_t block, uint32_t packet) {
    return standard(0, block, 3, packet).fill(100, 1).bytes;
}
std::vector<std::byte> trailer(uint32_t block) { return standard(0, block, 2, 3).u16(0).u16(1).u32(0).bytes; }

} // namespace

TEST(StreamThread, OpensTheFirewallWithARegisterRead) {
    ThreadBench bench;
    unsigned char received[64];
    const auto size = recv(bench.remote, received, sizeof received, 0);
    const unsigned char expected[] = {0x42, 1, 0, 0x80, 0, 4, 0, 0xFF, 0, 0, 0x0A, 0};
    ASSERT_EQ(size, 12);
    EXPECT_EQ(std::memcmp(received, expected, 12), 0);
}

TEST(StreamThread, CoalescedDatagramsCountOneByOne) {
    ThreadBench bench;
    ASSERT_FALSE(bench.sut->start(136, 200));
    for (const uint32_t block : {1U, 2U}) {
        bench.send(standard_leader(block).bytes);
        // Two payload packets of one size leave as one large send.
        auto pair = standard(0, block, 3, 1).fill(100, 1).bytes;
        const auto second = standard(0, block, 3, 2).fill(100, 2).bytes;
        pair.insert(pair.end(), second.begin(), second.end());
        bench.send(pair, 108);
        bench.send(trailer(block));
        const int none = 0;
        setsockopt(bench.remote, IPPROTO_UDP, UDP_SEGMENT, &none, sizeof none);
    }
    ASSERT_TRUE(bench.wait_for_frames(2));
    EXPECT_EQ(bench.frames[0].flags, 0U);
    EXPECT_EQ(bench.frames[0].context.data[150], std::byte{2});
    bench.sut->stop();
}

TEST(StreamThread, FlushHandsBackAndWaits) {
    ThreadBench bench;
    ASSERT_FALSE(bench.sut->start(136, 200));
    bench.send(standard_leader(1).bytes);
    for (int i = 0; i < 1000 && bench.frames.empty(); ++i) bench.sut->flush();
    ASSERT_TRUE(bench.wait_for_frames(1));
    EXPECT_NE(bench.frames[0].flags & frame_flags::flushed, 0U);
    bench.sut->stop();
}

TEST(StreamThread, NothingHangsAfterTheEnd) {
    ThreadBench bench;
    ASSERT_FALSE(bench.sut->start(136, 200));
    EXPECT_TRUE(bench.sut->get_resend_params());
    bench.sut->stop();
    bench.sut->flush();
    EXPECT_FALSE(bench.sut->get_resend_params());
    EXPECT_FALSE(bench.sut->operation_10(0));
    bench.sut->stop();
}

TEST(StreamThread, ATestPacketOfTheSizePasses) {
    ThreadBench bench;
    bench.send(std::vector<std::byte>(50));
    bench.send(std::vector<std::byte>(1472));
    EXPECT_FALSE(bench.sut->receive_packet_and_check_size(1500)) << "the short one is skipped";
    EXPECT_TRUE(bench.sut->receive_packet_and_check_size(1500)) << "nothing more waits";
    bench.send(std::vector<std::byte>(0));
    EXPECT_FALSE(bench.sut->drain_socket());
}

TEST(StreamThread, AStrangersPacketsAreNoneOfTheStream) {
    ThreadBench bench;
    ASSERT_FALSE(bench.sut->start(136, 200));
    const int stranger = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in elsewhere{};
    elsewhere.sin_family = AF_INET;
    elsewhere.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
    ASSERT_EQ(bind(stranger, reinterpret_cast<sockaddr*>(&elsewhere), sizeof elsewhere), 0);
    bench.send(standard_leader(1).bytes);
    bench.send(standard(0, 1, 3, 1).fill(100, 1).bytes);
    bench.send(standard(0, 1, 3, 2).fill(100, 1).bytes);
    bench.send_from(stranger, standard(0, 1, 3, 1).fill(100, 9).bytes);
    bench.send(trailer(1));
    ASSERT_TRUE(bench.wait_for_frames(1));
    EXPECT_EQ(bench.frames[0].flags, 0U);
    EXPECT_EQ(bench.frames[0].context.data[50], std::byte{1});
    bench.sut->stop();
    close(stranger);
}

// The one timer follows the earliest deadline, and strikes with no packet to wake the thread.
TEST(StreamThread, TheTimerStrikesForWhatIsDueFirst) {
    using namespace std::chrono_literals;
    ThreadBench bench{true};
    ASSERT_FALSE(bench.sut->start(136, 200));
    resend_parameters slow;
    slow.time_per_frame = 3'600'000'000;
    bench.sut->set_resend_params(slow);
    ASSERT_TRUE(bench.sut->get_resend_params()); // and so they are set
    bench.send(standard_leader(1).bytes);        // arms the timer for the end of a frame that takes an hour
    // The leader was seen when its buffer was taken, and the timer armed when the next question is answered.
    ASSERT_TRUE(bench.wait_until([&] { return !bench.memory.empty(); }));
    resend_parameters fast;
    fast.time_per_frame = 20'000;
    fast.max_retries = 255; // this thread may be late with its answers
    bench.sut->set_resend_params(fast);
    ASSERT_TRUE(bench.sut->get_resend_params());
    bench.send(payload(1, 2));
    EXPECT_TRUE(bench.wait_for_request({1, 1, 1})) << "the gap's deadline comes before the frame's";
    bench.send(payload(1, 1));
    EXPECT_TRUE(bench.wait_for_request({1, 3, 3})) << "nothing more comes: the tail's turn";
    bench.send(trailer(1));
    ASSERT_TRUE(bench.wait_for_frames(1));
    EXPECT_EQ(bench.frames[0].flags, 0U);
    bench.sut->stop();
    EXPECT_TRUE(bench.ends.empty()) << "who stops it needs no word";
}

TEST(StreamThread, ReadErrorsPassAndAreToldOnceEach) {
    const int errors[] = {ENOBUFS, EPROTO, ENETDOWN, ECONNREFUSED};
    for (const int error : errors) {
        const test::log_capture log;
        ThreadBench bench;
        ASSERT_FALSE(bench.sut->start(136, 200));
        failing_reads.error = error;
        failing_reads.other = errors[0];
        failing_reads.times = 40;
        bench.send(standard_leader(1).bytes);
        bench.send(payload(1, 1));
        bench.send(payload(1, 2));
        bench.send(trailer(1));
        EXPECT_TRUE(bench.wait_for_frames(1)) << error;
        EXPECT_EQ(failing_reads.times, 0);
        bench.sut->stop();
        EXPECT_TRUE(bench.ends.empty());
        EXPECT_EQ(log.count("reading failed due to"), error == errors[0] ? 1U : 2U);
    }
}

// A socket that is gone is the end: the frame under way goes back, those who wait are let go, and it is told. Also when
// somebody else took the descriptor, which wakes nobody; what it has become is not the stream's to close.
TEST(StreamThread, TheEndOfTheSocketIsTold) {
    for (const bool taken : {false, true}) {
        ThreadBench bench;
        ASSERT_FALSE(bench.sut->start(136, 200));
        bench.send(standard_leader(1).bytes);
        ASSERT_TRUE(bench.wait_until([&] { return !bench.memory.empty(); }));
        const int descriptor = taken ? bench.stream_socket() : -1;
        if (taken) {
            const int other = open("/dev/null", O_RDONLY | O_CLOEXEC);
            ASSERT_EQ(dup2(other, descriptor), descriptor);
            close(other);
        } else {
            failing_reads.error = failing_reads.other = EBADF;
            failing_reads.times = 1;
            bench.send(payload(1, 1));
        }
        ASSERT_TRUE(bench.wait_until([&] { return !bench.ends.empty(); }));
        EXPECT_EQ(bench.ends.size(), 1U);
        ASSERT_EQ(bench.frames.size(), 1U);
        EXPECT_NE(bench.frames[0].flags & frame_flags::flushed, 0U);
        bench.sut->flush();
        EXPECT_FALSE(bench.sut->get_resend_params());
        bench.sut->stop();
        if (taken) {
            EXPECT_EQ(close(descriptor), 0) << "closed a stranger's descriptor";
        }
    }
}
