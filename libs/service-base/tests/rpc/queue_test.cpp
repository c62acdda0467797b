// The shared-memory queue, and what a peer may write into it.
#include <impl/shared_memory_queue.h>
#include <platform.h>

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <thread>

using namespace ipc_rpc;

namespace {

std::string own_name() { return platform::object_name("ipc_" + platform::unique_text()); }

struct queue_pair {
    std::string name = own_name();
    shared_memory_queue creator{name, {}};
    shared_memory_queue opener{name};
    // A hostile peer's view.
    platform::shared_mapping raw = platform::shared_mapping::open(name, shared_queue_size);
    shared_queue_header& header() { return *reinterpret_cast<shared_queue_header*>(raw.bytes().data()); }
};

} // namespace

TEST(Queue, NotificationsAreDeliveredOnce) {
    queue_pair pair;
    EXPECT_TRUE(pair.creator.raise_notification(511));
    EXPECT_TRUE(pair.creator.raise_notification(511));
    EXPECT_TRUE(pair.creator.raise_notification(0));
    EXPECT_TRUE(pair.creator.raise_notification(512)) << "ignored";
    const auto words = std::get<notification_words>(pair.opener.receive());
    EXPECT_EQ(words[7], uint64_t{1} << 63);
    EXPECT_EQ(words[0], 1U);
}

TEST(Queue, ShuttingOneSideWakesTheOther) {
    queue_pair pair;
    std::thread receiver{[&] { EXPECT_TRUE(std::holds_alternative<std::monostate>(pair.opener.receive())); }};
    std::vector<std::span<std::byte>> taken;
    for (unsigned i = 0; i < queue_block_count; ++i) taken.push_back(pair.opener.acquire_block());
    std::thread sender{[&] { EXPECT_TRUE(pair.opener.acquire_block().empty()); }};
    pair.creator.shut();
    receiver.join();
    sender.join();
    EXPECT_FALSE(pair.opener.send_block(taken[0]));
    EXPECT_FALSE(pair.opener.raise_notification(1));
}

TEST(Queue, AnOfferNeverWaits) {
    using offered = channel_interface::offered;
    queue_pair pair;
    const std::byte packet[] = {std::byte{7}, std::byte{8}};
    for (unsigned i = 0; i < queue_block_count; ++i) ASSERT_EQ(pair.opener.offer(packet), offered::sent);
    EXPECT_EQ(pair.opener.offer(packet), offered::would_wait);
    std::thread waiting{[&] { EXPECT_FALSE(pair.opener.acquire_block().empty()); }};
    // A thread that waits gives its processor up.
    const auto waits = [] {
        rusage usage{};
        getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_nvcsw;
    };
    const auto before = waits();
    for (int i = 0; i < 20; ++i) EXPECT_EQ(pair.opener.offer(packet), offered::would_wait);
    EXPECT_LT(waits() - before, 20);

    const auto received = pair.creator.receive();
    const auto& got = std::get<std::span<std::byte>>(received);
    EXPECT_EQ(std::memcmp(got.data(), packet, sizeof packet), 0);
    pair.creator.release_block(got);
    waiting.join();
    pair.creator.release_block(std::get<std::span<std::byte>>(pair.creator.receive()));
    EXPECT_EQ(pair.opener.offer(packet), offered::sent);
    pair.creator.shut();
    EXPECT_EQ(pair.opener.offer(packet), offered::closed);
}

TEST(Queue, APeerShowsLifeByWhatItTakesAndFrees) {
    queue_pair pair;
    auto& queue = pair.opener;
    EXPECT_TRUE(queue.peer_shows_life());
    EXPECT_FALSE(queue.peer_shows_life());
    EXPECT_FALSE(queue.peer_shows_life()) << "however often it is asked";
    static_cast<void>(pair.creator.receive()); // the notification of the first asking
    EXPECT_TRUE(queue.peer_shows_life());
    EXPECT_FALSE(queue.peer_shows_life());
    // A peer that is kept busy by packets does not come to the notifications.
    ASSERT_TRUE(queue.send_block(queue.acquire_block()));
    pair.creator.release_block(std::get<std::span<std::byte>>(pair.creator.receive()));
    EXPECT_TRUE(queue.peer_shows_life());
    EXPECT_FALSE(queue.peer_shows_life());
    static_cast<void>(pair.creator.receive());
    pair.creator.shut();
    EXPECT_FALSE(queue.peer_shows_life());
}

TEST(Queue, BadIndexesNeitherCrashNorPoison) {
    queue_pair pair;
    // An entry beyond the blocks gives a block of no length; index fields beyond the ring are masked.
    pair.header().sent_ring[0] = 0xFFFFFFFF;
    pair.header().sent_write = 1;
    EXPECT_TRUE(std::get<std::span<std::byte>>(pair.creator.receive()).empty());
    pair.header().sent_read = 0xFFFFFFE1;
    auto block = pair.opener.acquire_block();
    ASSERT_FALSE(block.empty());
    ASSERT_TRUE(pair.opener.send_block(block));
    EXPECT_FALSE(std::get<std::span<std::byte>>(pair.creator.receive()).empty());
    pair.header().free_ring[pair.header().free_read & 31] = 4711;
    EXPECT_TRUE(pair.opener.acquire_block().empty());
    EXPECT_FALSE(pair.opener.acquire_block().empty());
}

TEST(Queue, AnObjectTooSmallIsRefused) {
    const std::string name = own_name();
    const auto small = platform::shared_mapping::create(name, 4096, {});
    EXPECT_THROW(shared_memory_queue{name}, std::system_error);
    EXPECT_THROW(shared_memory_queue{"/no-such-queue"}, std::system_error);
}

TEST(SharedMapping, IsItsOwnersAloneWhenDescriptorsAreUsedUp) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to give objects away";
    const pid_t child = fork();
    if (child == 0) {
        // One descriptor is left, for the object itself.
        const int next = dup(STDERR_FILENO);
        close(next);
        const rlimit few{static_cast<rlim_t>(next) + 1, static_cast<rlim_t>(next) + 1};
        if (setrlimit(RLIMIT_NOFILE, &few) != 0) _exit(1);
        const std::string name = own_name();
        const auto mapping = platform::shared_mapping::create(name, 4096, {.group = 54322, .owner = 54321});
        struct stat info {};
        if (stat(("/dev/shm" + name).c_str(), &info) != 0) _exit(2);
        if (info.st_uid != 54321) _exit(3);
        if ((info.st_mode & 0777) != 0600) _exit(4);
        _exit(shm_unlink(name.c_str()));
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}
