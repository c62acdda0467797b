// Clients that cheat, break off and hoard, against the service's real process: it goes on, others are served, and what
// the client held is free again.
#include "support/built.h"
#include "support/process_status.h"
#include "support/raw_client.h"
#include "support/scripted_camera.h"
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <list>
#include <set>
#include <thread>

using namespace test_support;
using namespace std::chrono_literals;

namespace {

constexpr uint64_t rpc_exhausted = 43;

class Hostile : public testing::Test {
protected:
    void start(std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"--log-level", "0"});
        own = std::make_unique<test_system>(std::move(options));
    }
    void start_with_camera() {
        start();
        own->start_camera();
        own->start_service();
    }
    void start_service_alone(std::vector<std::string> options = {}) {
        start(std::move(options));
        own->start_service();
    }
    std::unique_ptr<raw_client> connect() { return std::make_unique<raw_client>(own->folder(), "raw"); }
    // A bystander that is served.
    void expect_served() {
        auto other = connect();
        EXPECT_NE(other->object(0, "create_service_instance"), 0U);
        EXPECT_TRUE(own->service().running());
    }
    bool camera_is_free() {
        return eventually([&] {
            auto other = connect();
            return other->open_camera(3) != 0;
        });
    }
    [[nodiscard]] int pid() { return own->service().pid(); }
    [[nodiscard]] std::set<std::string> names() {
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator{"/dev/shm"}) {
            const std::string name = entry.path().filename();
            if (name.find("_" + std::to_string(pid()) + "_") != std::string::npos ||
                name.find("-" + std::to_string(pid()) + "_") != std::string::npos) {
                found.insert(name);
            }
        }
        return found;
    }
    static void expect_removed(const std::set<std::string>& left) {
        for (const std::string& name : left) EXPECT_FALSE(std::filesystem::exists("/dev/shm/" + name)) << name;
    }
    [[nodiscard]] size_t threads() { return entries_of("/proc/" + std::to_string(pid()) + "/task"); }

    std::unique_ptr<test_system> own;
};

} // namespace

TEST_F(Hostile, MemoryTakenAwayEndsThatClientAlone) {
    start_service_alone();
    for (int part = 0; part < raw_client::parts; ++part) {
        SCOPED_TRACE(part);
        auto client = connect();
        const uint64_t service = client->object(0, "create_service_instance");
        client->prepare_call(service, "enum_interfaces");
        ASSERT_EQ(ftruncate(client->descriptor(static_cast<raw_client::part>(part)), 0), 0);
        if (part != raw_client::send_queue && part != raw_client::send_sent) client->send_prepared();
        EXPECT_TRUE(client->dropped());
        expect_served();
    }
}

TEST_F(Hostile, WhatNoClientSendsEndsItsConnection) {
    start_service_alone();
    const std::string header = wire_bytes{}.put(uint32_t{4}).put(uint32_t{96}).put(uint64_t{9}).str();
    const auto with = [&](size_t at, uint32_t value) {
        std::string packet = header;
        std::memcpy(packet.data() + at, &value, sizeof value);
        return packet;
    };
    for (const std::string& packet : {with(4, 4097), with(4, 15), with(0, 1), with(0, 2), with(0, 0), with(0, 9)}) {
        auto client = connect();
        ASSERT_TRUE(client->send_packet(packet));
        EXPECT_TRUE(client->dropped());
    }
    for (const bool announced : {false, true}) {
        raw_client client{own->folder()};
        if (announced) client.announce();
        client.send_control(std::string(100, 'x'));
        EXPECT_TRUE(client.dropped());
    }
    expect_served();
}

struct ending {
    const char* name;
    void (*act)(raw_client& client);
    bool drops; // the service ends it by itself
};

class Gone : public Hostile, public testing::WithParamInterface<ending> {};

TEST_P(Gone, LeavesTheCameraFree) {
    start_with_camera();
    auto client = connect();
    ASSERT_NE(client->open_camera(3), 0U);
    GetParam().act(*client);
    if (GetParam().drops) {
        EXPECT_TRUE(client->dropped());
    } else {
        client->close_socket();
    }
    EXPECT_TRUE(camera_is_free());
}

INSTANTIATE_TEST_SUITE_P(
    Ways, Gone,
    testing::Values(ending{"closed_flag", [](raw_client& c) { c.write_closed(raw_client::send_queue); }, true},
                    ending{"closed_flags_then_end",
                           [](raw_client& c) {
                               c.write_closed(raw_client::receive_queue);
                               c.write_closed(raw_client::send_queue);
                           },
                           false},
                    ending{"huge_semaphore",
                           [](raw_client& c) { c.write_semaphore(raw_client::send_sent, 0x7FFFFFFF); }, true},
                    ending{"semaphores_that_wake_nobody",
                           [](raw_client& c) {
                               for (const auto part : {raw_client::send_sent, raw_client::send_free,
                                                       raw_client::receive_sent, raw_client::receive_free}) {
                                   c.write_semaphore(part, 0);
                               }
                           },
                           false},
                    ending{"answers_not_taken",
                           [](raw_client& c) {
                               for (int i = 0; i < 30; ++i)
                                   static_cast<void>(c.send_call(0, "create_service_instance"));
                           },
                           false}),
    [](const auto& row) { return std::string{row.param.name}; });

TEST_F(Hostile, AForkedChildWithTheSocketKeepsNothing) {
    start_with_camera();
    int pipes[2];
    ASSERT_EQ(pipe2(pipes, O_CLOEXEC), 0);
    const pid_t parent = fork();
    if (parent == 0) {
        auto client = connect();
        const bool opened = client->open_camera(3) != 0;
        const pid_t heir = fork();
        if (heir == 0) {
            for (;;) pause();
        }
        if (write(pipes[1], opened ? &heir : &parent, sizeof heir) != sizeof heir) _exit(1);
        _exit(0);
    }
    pid_t heir = 0;
    ASSERT_EQ(read(pipes[0], &heir, sizeof heir), static_cast<ssize_t>(sizeof heir));
    waitpid(parent, nullptr, 0);
    ASSERT_GT(heir, 0) << "the camera could not be opened";
    EXPECT_TRUE(camera_is_free());
    kill(heir, SIGKILL);
    close(pipes[0]);
    close(pipes[1]);
}

TEST_F(Hostile, ArrivingBytesAreBounded) {
    start_service_alone();
    auto client = connect();
    const uint64_t service = client->object(0, "create_service_instance");
    // 200 MiB may be on their way; beyond that a call is answered instead of kept.
    constexpr uint64_t size = 8U << 20;
    int refused = 0;
    for (int i = 0; i < 60; ++i) {
        ASSERT_TRUE(client->start_call(service, "genicam_write_mem", "x", size));
        if (i < 25) continue;
        const auto answer = client->next_reply();
        refused += answer && answer->type == 8 && answer->status == rpc_exhausted ? 1 : 0;
    }
    EXPECT_EQ(refused, 35);
    // All connections of one user together: 400 MiB.
    auto second = connect();
    auto third = connect();
    for (int i = 0; i < 25; ++i) {
        ASSERT_TRUE(second->start_call(0, "create_service_instance", "x", size));
    }
    ASSERT_TRUE(second->call(0, "none")); // they have arrived
    ASSERT_TRUE(third->start_call(0, "create_service_instance", "x", size));
    const auto answer = third->next_reply();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->type, 8);
    EXPECT_EQ(answer->status, rpc_exhausted);
    client.reset();
    second.reset();
    // What they held is free for the next.
    EXPECT_TRUE(eventually([&] {
        static_cast<void>(third->start_call(0, "create_service_instance", "x", size));
        static_cast<void>(third->send_call(0, "none"));
        const auto first = third->next_reply();
        const bool kept = first && first->status == 5;
        if (!kept) static_cast<void>(third->next_reply());
        return kept;
    }));
}

TEST_F(Hostile, WaitingCallsAreBounded) {
    start_service_alone();
    auto client = connect();
    const uint64_t service = client->object(0, "create_service_instance");
    // Nobody takes the answers: 16 fill the queue, four more the threads; all that follows waits.
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(client->send_call(service, "enum_interfaces"));
    const long before = status_kib(pid(), "VmHWM:");
    const std::string parameters =
        wire_bytes{}.put(uint64_t{0}).put(uint32_t{6U << 20}).str() + std::string((6U << 20) + 12, 'x');
    for (int i = 0; i < 60 && client->send_call(service, "genicam_write_mem", parameters, 1); ++i) {
    }
    for (int i = 0; i < 5000 && client->send_call(service, "genicam_read_mem", std::string(2000, 'y'), 1); ++i) {
    }
    if (!built::sanitized) {
        EXPECT_LT(status_kib(pid(), "VmHWM:") - before, 260 * 1024) << "200 MiB is the bound";
    }
    expect_served();
    client.reset();
    expect_served();
}

TEST_F(Hostile, WhoDoesNotAnnounceCostsLittleAndNotForLong) {
    start_service_alone();
    const size_t threads_before = threads();
    std::list<raw_client> silent;
    // 48 connections are one user's share.
    for (int i = 0; i < 48; ++i) silent.emplace_back(own->folder());
    bool refused = false;
    try {
        const raw_client one_more{own->folder()};
    } catch (const std::runtime_error&) {
        refused = true;
    }
    EXPECT_TRUE(refused || silent.front().dropped(0)) << "unless the first one's time is over";
    EXPECT_LE(threads(), threads_before) << "none of theirs; the one of the first search may have ended";
    for (const raw_client& client : silent) EXPECT_TRUE(client.dropped());
    EXPECT_TRUE(eventually([&] { return names().empty(); })) << testing::PrintToString(names());
    expect_served();
}

TEST_F(Hostile, NumbersAndObjectsAreBoundedAndComeBack) {
    start_with_camera();
    auto client = connect();
    std::set<uint64_t> numbers;
    const auto first = client->object(0, "create_service_instance");
    const auto second = client->object(0, "create_service_instance");
    for (const uint64_t service : {first, second}) {
        numbers.insert(client->call(service, "get_interface_list_notification_id")->value());
    }
    EXPECT_EQ(numbers.size(), 2U) << "two instances, two numbers";
    auto unclear = connect();
    for (const uint32_t access : {0U, 4U}) EXPECT_EQ(unclear->open_camera(access), 0U) << "there is no such access";
    const auto list = client->call(first, "enum_interfaces");
    const std::string id = list->bytes.substr(16, list->at<uint32_t>(12));
    const std::string parameters = wire_bytes{}.put_text(id).str();
    std::vector<uint64_t> interfaces;
    while (const uint64_t interface = client->object(first, "open_interface", parameters)) {
        interfaces.push_back(interface);
        const auto info = client->call(interface, "get_interface_service_info");
        numbers.insert(info->at<uint64_t>(8));
        numbers.insert(info->at<uint64_t>(16));
    }
    EXPECT_EQ(interfaces.size(), 254U) << "two numbers each of 511, and two are the instances'";
    EXPECT_EQ(numbers.size(), 510U);
    EXPECT_EQ(client->call(first, "open_interface", parameters)->error(), rpc_exhausted);
    for (uint64_t last = interfaces.back(), times = 0; times < 2; ++times) { // one number is left
        ASSERT_TRUE(client->close_object(last));
        last = client->object(first, "open_interface", parameters);
        EXPECT_NE(last, 0U);
    }

    auto hoarder = connect();
    size_t objects = 0;
    while (hoarder->object(0, "create_service_instance") != 0) ++objects;
    EXPECT_EQ(objects, 1024U);
    expect_served();
}

// Ended by the order of things, not by the time limit: then names would be left.
TEST_F(Hostile, TheEndWaitsForNoWebServerAndNoSearch) {
    // A camera whose document lies on a web server that takes connections and says nothing.
    start({"--document-http"});
    const uint32_t address = *gige::parse_address(own->camera_address(0));
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in place{AF_INET, 0, {htonl(address)}, {}};
    ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
    ASSERT_EQ(listen(server, 4), 0);
    socklen_t size = sizeof place;
    ASSERT_EQ(getsockname(server, reinterpret_cast<sockaddr*>(&place), &size), 0);
    scripted_camera camera{address};
    camera.set_text(gige::gvcp::reg::first_url,
                    "http://" + gige::to_string(gige::endpoint{address, ntohs(place.sin_port)}) + "/cam.xml", 512);
    own->add_camera(0);
    own->start_service();
    auto client = connect();
    const uint64_t device = client->open_camera(2);
    ASSERT_NE(device, 0U);
    ASSERT_TRUE(client->send_call(device, "get_url_info_list"));
    const int asked = accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
    ASSERT_GE(asked, 0);
    const auto left = names();
    EXPECT_FALSE(left.empty());
    own->service().signal(SIGTERM);
    EXPECT_TRUE(eventually([&] { return !own->service().running(); }));
    EXPECT_EQ(own->service().wait(), 0);
    expect_removed(left);
    close(asked);
    close(server);

    // The signal is there before the service: it is blocked, and stays so over the start of the program.
    int output[2];
    ASSERT_EQ(pipe2(output, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        sigset_t end;
        sigemptyset(&end);
        sigaddset(&end, SIGTERM);
        sigprocmask(SIG_BLOCK, &end, nullptr);
        raise(SIGTERM);
        dup2(output[1], STDOUT_FILENO);
        execl(built::program("orv-gentl-gev-service").c_str(), "orv-gentl-gev-service", "--no-networks", nullptr);
        _exit(99);
    }
    close(output[1]);
    char said = 0;
    EXPECT_EQ(read(output[0], &said, 1), 0) << "it was ready for nobody";
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    close(output[0]);
}

TEST_F(Hostile, AKilledServiceLeavesNamesAndTheNextOneRemovesThem) {
    start_with_camera();
    raw_client silent{own->folder()};
    auto client = connect();
    ASSERT_NE(client->open_camera(2), 0U);
    const auto left = names();
    ASSERT_GE(left.size(), 7U) << "two queues with their semaphores, and a settings block";
    own->service().signal(SIGKILL);
    own->service().wait();
    const auto doctor = own->run_consumer({"doctor"});
    // Any service that starts on this machine meanwhile removes them too.
    if (std::filesystem::exists("/dev/shm/" + *left.rbegin())) {
        EXPECT_NE(doctor.output.find(*left.rbegin()), std::string::npos) << doctor.output;
    }
    own->start_service();
    expect_removed(left);
    expect_served();
}

TEST_F(Hostile, EverySignalEndsItWhateverItsClientsDo) {
    for (const int number : {SIGTERM, SIGHUP, SIGINT}) {
        SCOPED_TRACE(number);
        start_with_camera();
        raw_client silent{own->folder()};
        auto stuck = connect();
        for (int i = 0; i < 30; ++i) ASSERT_TRUE(stuck->send_call(0, "create_service_instance"));
        auto client = connect();
        const uint64_t device = client->open_camera(2);
        ASSERT_NE(device, 0U);
        own->camera(0).signal(SIGSTOP);
        // A minute's patience with a camera that will not answer.
        for (int i = 0; i < 4; ++i) {
            ASSERT_TRUE(client->send_call(
                device, "read_mem",
                wire_bytes{}.put(uint64_t{0}).put(uint64_t{4}).put(uint32_t{0}).put(uint64_t{60'000}).str()));
        }
        const auto left = names();
        own->service().signal(number);
        EXPECT_TRUE(eventually([&] { return !own->service().running(); }));
        EXPECT_EQ(own->service().wait(), 0);
        expect_removed(left);
        own->camera(0).signal(SIGCONT);
    }
}

// A camera that does not come is waited for, seconds long: until its client has gone, or the service ends.
TEST_F(Hostile, NobodyWaitsForACameraThatDoesNotComeWhenNobodyWantsIt) {
    start();
    own->add_camera(0);
    own->start_logged_service();
    const auto ear = gige::udp_socket::open({0x7FFFFFFF, gige::gvcp::port}, gige::udp_socket::sharing::shared);
    ASSERT_TRUE(ear);
    for (const bool whole_service : {false, true}) {
        auto client = connect();
        const uint64_t service = client->object(0, "create_service_instance");
        const uint64_t interface = client->object(service, "open_interface", wire_bytes{}.put_text("lo").str());
        ASSERT_NE(interface, 0U);
        const auto nobody = static_cast<uint32_t>(getpid()) << 1 | (whole_service ? 1U : 0U); // a MAC
        ASSERT_TRUE(client->send_call(interface, "send_force_ip",
                                      wire_bytes{}
                                          .put(uint64_t{nobody})
                                          .put(*gige::parse_address(own->camera_address(9)))
                                          .put(uint32_t{0xFF000000})
                                          .put(uint32_t{0})
                                          .str()));
        std::array<std::byte, 600> datagram{};
        gige::endpoint from;
        EXPECT_TRUE(eventually([&] { // other tests' are heard, too
            return ear->receive(datagram, from) && gige::load16(&datagram[2]) == 0x0004 &&
                   gige::load32(&datagram[12]) == nobody;
        }));
        const auto left = names();
        if (whole_service) {
            own->service().signal(SIGTERM);
            EXPECT_EQ(own->service().wait(), 0);
            expect_removed(left);
        } else {
            client->close_socket();
        }
        char said[64];
        std::snprintf(said, sizeof said, "Camera %012X did not come to ", nobody);
        ASSERT_TRUE(eventually([&] { return own->logged().find(said) != std::string::npos; })) << said;
        const std::string log = own->logged();
        const auto line = log.substr(log.find(said));
        EXPECT_NE(line.substr(0, line.find('\n')).find(": Operation canceled"), std::string::npos) << line;
    }
}

TEST_F(Hostile, ABusErrorThatIsNoClientsEndsIt) {
    start_service_alone();
    own->service().signal(SIGBUS);
    EXPECT_TRUE(eventually([&] { return !own->service().running(); }));
}

// As another user, who is in the group; the exit code of `act`.
template <class Act>
int as_user(uid_t user, gid_t group, Act&& act) {
    const pid_t child = fork();
    if (child == 0) {
        if (setgroups(0, nullptr) != 0 || setgid(group) != 0 || setuid(user) != 0) _exit(99);
        try {
            _exit(act());
        } catch (const std::exception&) {
            _exit(98);
        }
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Hostile, TwoUsersOfAGroupAreKeptApart) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to be several users";
    constexpr uid_t one = 54321, other = 54322;
    const group* found = getgrnam("games");
    if (found == nullptr) GTEST_SKIP() << "there is no group 'games'";
    const gid_t gid = found->gr_gid;
    start({"--group", "games"});
    std::filesystem::permissions(own->folder(), std::filesystem::perms{0755});
    own->start_service();
    struct stat info {};
    for (const auto& entry : std::filesystem::directory_iterator{own->folder()}) {
        if (!entry.is_socket()) continue;
        ASSERT_EQ(stat(entry.path().c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777U, 0660U);
        EXPECT_EQ(info.st_gid, gid);
    }
    EXPECT_EQ(as_user(54323, 54323,
                      [&] {
                          raw_client{own->folder()};
                          return 0;
                      }),
              98)
        << "not in the group";

    raw_client root{own->folder(), "root"};
    // The first user's queues are its own alone, and the second's attempts at the first's fail.
    EXPECT_EQ(as_user(one, gid,
                      [&] {
                          raw_client mine{own->folder(), "mine"};
                          for (int part = 0; part < raw_client::parts; ++part) {
                              struct stat owned {};
                              if (fstat(mine.descriptor(static_cast<raw_client::part>(part)), &owned) != 0) return 1;
                              if (owned.st_uid != one || (owned.st_mode & 0777) != 0600) return 2;
                          }
                          const std::string foreign = root.name(raw_client::send_queue);
                          if (shm_open(foreign.c_str(), O_RDWR, 0) >= 0 || errno != EACCES) return 3;
                          // Its share is used up without touching another's.
                          std::list<raw_client> more;
                          for (int i = 0; i < 47; ++i) more.emplace_back(own->folder()).announce();
                          try {
                              raw_client one_more{own->folder()};
                              return 4;
                          } catch (const std::runtime_error&) {
                          }
                          const int truncated = ftruncate(mine.descriptor(raw_client::send_queue), 0);
                          return truncated == 0 && mine.dropped() ? 0 : 5;
                      }),
              0);
    EXPECT_EQ(as_user(other, gid,
                      [&] {
                          raw_client mine{own->folder(), "mine"};
                          return mine.object(0, "create_service_instance") != 0 ? 0 : 1;
                      }),
              0);
    expect_served();
    // In all there are 64.
    std::list<raw_client> all;
    EXPECT_TRUE(eventually([&] {
        try {
            while (all.size() < 48) all.emplace_back(own->folder()).announce();
            return true;
        } catch (const std::runtime_error&) {
            return all.size() == 47; // with the one above
        }
    }));
    EXPECT_TRUE(eventually([&] {
        return as_user(one, gid, [&] {
                   std::list<raw_client> more;
                   try {
                       while (more.size() < 20) more.emplace_back(own->folder()).announce();
                   } catch (const std::runtime_error&) {
                   }
                   return static_cast<int>(more.size());
               }) == 16;
    }));
}
