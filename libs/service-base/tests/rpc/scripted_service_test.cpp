// The client against services that say nothing, the wrong thing, too much, or stop.
#include <impl/shared_memory_queue.h>
#include <platform.h>
#include <support/eventually.h>
#include <support/temporary_folder.h>
#include <support/unix_socket.h>

#include <ipc_rpc/catalogue.h>
#include <ipc_rpc/rpc_client.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <new>
#include <thread>

using namespace ipc_rpc;

namespace {

std::string announcement(const std::string& to_client, const std::string& from_client, std::uint8_t type = 1,
                         std::uint32_t size = 272) {
    std::string packet(272, '\0');
    packet[0] = static_cast<char>(type);
    std::memcpy(packet.data() + 4, &size, sizeof size);
    to_client.copy(packet.data() + 16, 127);
    from_client.copy(packet.data() + 144, 127);
    return packet;
}

void say(int peer, const std::string& text) {
    EXPECT_EQ(send(peer, text.data(), text.size(), MSG_NOSIGNAL), ssize_t(text.size()));
}

class Scripted : public testing::Test {
protected:
    Scripted() : listener(test_support::bound_socket(SOCK_SEQPACKET, folder + "/pipe")) {}
    ~Scripted() override {
        close(listener);
        if (service.joinable()) service.join();
    }
    // What the service does with its one client, on a thread.
    void serve(std::function<void(int)> act) {
        service = std::thread{[this, act = std::move(act)] {
            const int peer = accept(listener, nullptr, nullptr);
            act(peer);
            char byte = 0;
            while (recv(peer, &byte, 1, 0) > 0) {
            }
            close(peer);
        }};
    }
    auto connect() { return instance->connect("test", {"pipe", "test"}, {}, {}); }
    [[nodiscard]] std::string valid() const { return announcement(base + "_send", base + "_recv"); }

    const test_support::runtime_folder temporary;
    const std::string folder = temporary.path;
    int listener;
    std::thread service;
    const std::string base = platform::object_name("ipc_" + platform::unique_text());
    shared_memory_queue to_service{base + "_recv", {}};
    shared_memory_queue to_client{base + "_send", {}};
    std::optional<client::client_instance> instance{std::in_place};
};

} // namespace

TEST_F(Scripted, OnlyAWholeAnnouncementCounts) {
    std::thread{[] {}}.join(); // a sanitizer's own thread comes with the first one
    const size_t before = test_support::entries_of("/proc/self/task");
    serve([this](int peer) {
        say(peer, std::string(15, '\1'));
        say(peer, announcement(base + "_send", base + "_recv", 1, 273)); // more than has come
        say(peer, announcement(base + "_send", base + "_recv", 2));
        say(peer, announcement(base + "_send", base + "_recv", 4));
        say(peer, announcement(base + "_send", base + "_recv", 1, 271));
    });
    const auto connected = connect();
    ASSERT_FALSE(connected);
    EXPECT_EQ(connected.error(), std::errc::timed_out);
    service.join();
    // A thread that was joined stays in the list for a moment.
    EXPECT_TRUE(test_support::eventually([&] { return test_support::entries_of("/proc/self/task") <= before; }));
}

TEST_F(Scripted, AServiceThatHangsUpAtOnce) {
    serve([](int peer) { shutdown(peer, SHUT_RDWR); });
    EXPECT_EQ(connect().error(), make_error_code(status::connection_closed));
}

TEST_F(Scripted, QueuesThatDoNotExist) {
    serve([](int peer) { say(peer, announcement("/orv-no-such-queue", "/orv-no-such-queue")); });
    EXPECT_EQ(connect().error(), std::errc::no_such_file_or_directory);
}

TEST_F(Scripted, WhatComesAfterTheAnnouncementChangesNothing) {
    serve([this](int peer) {
        say(peer, announcement(base + "_send", base + "_recv", 7)); // and what came before neither
        say(peer, valid());
        char own[256];
        EXPECT_EQ(recv(peer, own, sizeof own, 0), 144);
        EXPECT_EQ(std::string(own, 4), std::string("\2\1\0\0", 4));
        EXPECT_STREQ(own + 16, "test");
        say(peer, announcement("/orv-no-such-queue", "/orv-no-such-queue"));
        say(peer, std::string(3000, 'x'));
        // One call is answered, over the first queues.
        auto received = to_service.receive();
        while (!std::holds_alternative<std::span<std::byte>>(received)) received = to_service.receive();
        const auto block = std::get<std::span<std::byte>>(received);
        ret_start_packet answer{make_header(rpc_packet_type::ret_start, 0, 24 + 12, 1), 12};
        auto reply = to_client.acquire_block();
        std::memset(reply.data(), 0, 64);
        std::memcpy(reply.data(), &answer, sizeof answer);
        reply[sizeof answer + 8] = std::byte{42};
        to_service.release_block(block);
        EXPECT_TRUE(to_client.send_block(reply));
    });
    const auto connected = connect();
    ASSERT_TRUE(connected) << connected.error().message();
    using ask = remote_function<"ask", std::uint32_t()>;
    EXPECT_EQ(client_object_handle::global(*connected).invoke<ask>(), 42U);
    instance.reset();
}

// Whoever waits for notifications has to know that none comes any more, though the service lives.
TEST_F(Scripted, AConnectionWithoutItsReceiveThreadIsLost) {
    serve([this](int peer) {
        say(peer, valid());
        while (!std::holds_alternative<std::monostate>(to_service.receive())) {
        }
    });
    std::promise<void> lost;
    int refusals = 2;
    const auto connected = instance->connect("test", {"pipe", "test"}, {}, [&](std::uint64_t number) {
        if (number != client::connection_lost || --refusals >= 0) throw std::bad_alloc{};
        lost.set_value();
    });
    ASSERT_TRUE(connected) << connected.error().message();
    EXPECT_TRUE(to_client.raise_notification(3));
    EXPECT_EQ(lost.get_future().wait_for(std::chrono::seconds{20}), std::future_status::ready);
    EXPECT_FALSE((*connected)->is_open());
    instance.reset();
}

// The peer of a connection is who made the listening socket: root, this user, or whom root has chosen.
TEST_F(Scripted, AServiceOfAnotherUserIsRefusedUnlessRootChoseIt) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to be several users";
    const auto outcome_of = [](auto&& act) {
        const pid_t child = fork();
        if (child == 0) _exit(act());
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    std::filesystem::permissions(folder, std::filesystem::perms{0777});
    std::filesystem::permissions(folder + "/pipe", std::filesystem::perms{0777});
    // The listener here is root's: every user trusts it. One of user 54321 is trusted by 54321 alone.
    const auto connect_as = [&](uid_t user) {
        if (setuid(user) != 0) return 99;
        const auto error = client::client_instance{}.connect("test", {"pipe", "test"}, {}, {}).error();
        return error == std::errc::permission_denied ? 1 : error == std::errc::timed_out ? 2 : 3;
    };
    EXPECT_EQ(outcome_of([&] { return connect_as(54322); }), 2);
    std::filesystem::remove(folder + "/pipe");
    close(listener);
    ASSERT_EQ(seteuid(54321), 0);
    listener = test_support::bound_socket(SOCK_SEQPACKET, folder + "/pipe");
    ASSERT_EQ(seteuid(0), 0);
    std::filesystem::permissions(folder + "/pipe", std::filesystem::perms{0777});
    EXPECT_EQ(outcome_of([&] { return connect_as(54321); }), 2);
    EXPECT_EQ(outcome_of([&] { return connect_as(54322); }), 1);
    // Root makes a folder below /run and gives it to the service's user: then everybody trusts that one there.
    const auto in_folder_of = [&](uid_t owner) {
        return outcome_of([&] {
            const std::string place = "/run/orv-gentl-gev";
            if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                mount("none", "/run", "tmpfs", 0, "mode=755") != 0) {
                return 97;
            }
            if (mkdir(place.c_str(), 0777) != 0 || chmod(place.c_str(), 0777) != 0) return 96;
            if (unsetenv("ORV_GENTL_RUNTIME_DIR") != 0 || seteuid(54321) != 0) return 95;
            const int fd = test_support::bound_socket(SOCK_SEQPACKET, place + "/pipe");
            if (seteuid(0) != 0 || chmod((place + "/pipe").c_str(), 0777) != 0) return 94;
            if (chown(place.c_str(), owner, 0) != 0) return 93;
            const int outcome = outcome_of([&] { return connect_as(54322); });
            close(fd);
            return outcome;
        });
    };
    const int trusted = in_folder_of(54321);
    if (trusted >= 90) GTEST_SKIP() << "no mount namespaces here";
    EXPECT_EQ(trusted, 2) << "the owner of the folder";
    EXPECT_EQ(in_folder_of(0), 1) << "somebody else in a folder of root's";
}

// The folder of last resort lies where everybody may write.
TEST(RuntimeFolder, IsRefusedWhenItIsNotOursAlone) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to be a user of its own";
    if (std::filesystem::exists("/run/orv-gentl-gev")) GTEST_SKIP() << "the installed service's folder comes first";
    struct row {
        const char* name;
        int (*prepare)(const std::string&);
        bool accepted;
    };
    const row rows[]{
        {"made anew", [](const std::string&) { return 0; }, true},
        {"open to others",
         [](const std::string& path) { return mkdir(path.c_str(), 0700) | chmod(path.c_str(), 0755); }, false},
        {"a link", [](const std::string& path) { return symlink("/tmp", path.c_str()); }, false},
        {"a file", [](const std::string& path) { return mknod(path.c_str(), S_IFREG | 0600, 0); }, false},
        {"another's", [](const std::string& path) { return mkdir(path.c_str(), 0700) | chown(path.c_str(), 1, 1); },
         false},
    };
    const uid_t user = 100'000 + static_cast<uid_t>(getpid()); // whose folder no other test uses
    const std::string path = "/tmp/orv-gentl-gev-" + std::to_string(user);
    for (const row& given : rows) {
        SCOPED_TRACE(given.name);
        const bool another = std::string_view{given.name} == "another's";
        ASSERT_EQ(given.prepare(path), 0);
        if (!another) static_cast<void>(lchown(path.c_str(), user, user));
        const pid_t child = fork();
        if (child == 0) {
            unsetenv("ORV_GENTL_RUNTIME_DIR");
            unsetenv("XDG_RUNTIME_DIR");
            if (setgid(user) != 0 || setuid(user) != 0) _exit(99);
            _exit(platform::named_pipe_listener::listen("pipe", {}) ? 1 : 0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(WEXITSTATUS(status), given.accepted ? 1 : 0);
        std::filesystem::remove_all(path);
    }
}
