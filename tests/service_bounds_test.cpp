// The service's real process at its bounds: descriptors run out, one user takes all it can get, documents and answers
// are large, cameras never come to an end.
#include "support/built.h"
#include "support/process_status.h"
#include "support/raw_client.h"
#include "support/scripted_camera.h"
#include "support/test_system.h"

#include <camera_sim/zip_writer.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <list>

using namespace test_support;

namespace {

// What the process may open from here on, until this goes.
class descriptor_limit final {
public:
    descriptor_limit(int process, rlim_t most) : pid(process) {
        EXPECT_EQ(prlimit(pid, RLIMIT_NOFILE, nullptr, &before), 0);
        const rlimit now{most, before.rlim_max};
        EXPECT_EQ(prlimit(pid, RLIMIT_NOFILE, &now, nullptr), 0);
    }
    ~descriptor_limit() { EXPECT_EQ(prlimit(pid, RLIMIT_NOFILE, &before, nullptr), 0); }
    descriptor_limit(const descriptor_limit&) = delete;
    descriptor_limit& operator=(const descriptor_limit&) = delete;

private:
    const int pid;
    rlimit before{};
};

constexpr uint64_t rpc_exhausted = 43;
constexpr uint32_t document_address = 0x100000;

// Plays the camera at index 0, which the service is told to ask; its document is this text, zipped.
std::unique_ptr<scripted_camera> zipping_camera(test_system& own, const std::string& text) {
    auto camera = std::make_unique<scripted_camera>(*gige::parse_address(own.camera_address(0)));
    const auto archive = camera_sim::zip_one_file("camera.xml", std::as_bytes(std::span{text}));
    camera->set_text(document_address, {reinterpret_cast<const char*>(archive.data()), archive.size()}, archive.size());
    camera->set_text(gige::gvcp::reg::first_url,
                     fmt::format("local:camera.zip;{:X};{:X}", document_address, archive.size()), 512);
    own.add_camera(0);
    return camera;
}

} // namespace

TEST(ServiceBounds, WithoutDescriptorsNoInterfaceIsTakenForGone) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer looks at each new type through a pipe";
#endif
    test_system own{{"--log-level", "2", "--scan-interval", "50"}};
    own.start_camera(small({"--frame-rate", "50"}));
    own.start_camera(small());
    own.start_logged_service();
    open_camera camera;
    const auto open_second = [&]() -> int {
        try {
            const open_camera second{camera, test_system::serial(1)};
            return GenTL::GC_ERR_SUCCESS;
        } catch (const cli::call_failed& failure) {
            return failure.code;
        } catch (const std::runtime_error&) { // not found yet
            return GenTL::GC_ERR_NOT_AVAILABLE;
        }
    };
    ASSERT_TRUE(eventually([&] { return open_second() == GenTL::GC_ERR_SUCCESS; }));
    camera.start();
    ASSERT_TRUE(camera.next_frame(5000));
    {
        const descriptor_limit none{own.service().pid(), 3};
        int refused = GenTL::GC_ERR_SUCCESS; // off the list for a moment, on a busy machine
        EXPECT_TRUE(eventually([&] { return (refused = open_second()) != GenTL::GC_ERR_NOT_AVAILABLE; }));
        EXPECT_EQ(refused, GenTL::GC_ERR_RESOURCE_EXHAUSTED);
        ASSERT_TRUE(eventually([&] { return holds(own.logged(), "The list of interfaces cannot be had"); }));
        for (int i = 0; i < 50; ++i) ASSERT_TRUE(camera.next_frame(5000)); // a second, and many searches
    }
    ASSERT_TRUE(eventually([&] { return holds(own.logged(), "There is a list of interfaces again"); }));
    camera.stop(); // over the control channel
    EXPECT_FALSE(holds(own.logged(), "is gone")) << own.logged();
    EXPECT_FALSE(holds(own.logged(), "is lost")) << own.logged();
}

TEST(ServiceBounds, ConnectionsOfOneUserShareItsOpenCameras) {
    test_system own{{"--log-level", "4"}};
    own.start_camera(small());
    {
        const descriptor_limit fewer_than_they_take{getpid(), 200};
        own.start_service(); // may open as few, and has to ask for more
    }
    std::list<raw_client> clients;
    std::vector<int> opened;
    for (int i = 0; i < 3; ++i) {
        auto& client = clients.emplace_back(own.folder(), "raw");
        opened.push_back(0);
        while (client.open_camera(1) != 0) ++opened.back();
    }
    EXPECT_EQ(opened, (std::vector{64, 64, 0}));
    clients.pop_front();
    EXPECT_TRUE(eventually([&] { return clients.back().open_camera(1) != 0; }));
}

TEST(ServiceBounds, ConnectionsOfOneUserShareItsRoomForDocuments) {
    test_system own{{"--log-level", "4", "--no-image-features"}};
    const auto camera = zipping_camera(own, std::string(60U << 20, ' '));
    own.start_service();
    std::list<raw_client> clients;
    std::vector<uint64_t> errors;
    const auto ask = [&](raw_client& client) {
        const uint64_t device = client.open_camera(1);
        EXPECT_NE(device, 0U);
        const auto answer = client.call(device, "get_url_info_list");
        return answer ? answer->error() : 1;
    };
    for (const int cameras : {3, 1, 1, 1, 1}) {
        auto& client = clients.emplace_back(own.folder(), "raw");
        for (int i = 0; i < cameras; ++i) errors.push_back(ask(client));
    }
    // 256 MiB for all of them, each of which keeps it once.
    EXPECT_EQ(errors, (std::vector<uint64_t>{0, 0, 0, 0, 0, 0, rpc_exhausted}));
    if (!built::sanitized) {
        EXPECT_LT(status_kib(own.service().pid(), "VmRSS:"), 150 << 10) << "they are one document";
    }
    clients.pop_front();
    EXPECT_TRUE(eventually([&] { return ask(clients.back()) == 0; }));
}

TEST(ServiceBounds, ADocumentThatInflatesToMoreThanAReadTookBeforeOpensTheCamera) {
    std::string text =
        R"(<RegisterDescription ModelName="M" VendorName="V" StandardNameSpace="None" SchemaMajorVersion="1"
SchemaMinorVersion="1" SchemaSubMinorVersion="0" MajorVersion="1" MinorVersion="0" SubMinorVersion="0" ToolTip="t"
ProductGuid="11111111-2222-3333-4444-555555555555" VersionGuid="11111111-2222-3333-4444-666666666666">
<Integer Name="Answer"><Value>42</Value></Integer><Port Name="Device"/></RegisterDescription>)";
    text += std::string(17U << 20, ' ');
    test_system own{{"--log-level", "4"}};
    const auto scripted = zipping_camera(own, text);
    scripted->set_text(gige::gvcp::reg::serial, test_system::serial(0), 16);
    own.start_service();
    open_camera camera;
    EXPECT_EQ(camera.integer("Answer"), 42);
}

TEST(ServiceBounds, ALargeReadKeepsLargeAnswersBackAndNoRegister) {
    test_system own{{"--log-level", "4", "--no-image-features"}};
    const auto camera = zipping_camera(own, std::string(1U << 20, ' '));
    own.start_service();
    raw_client client{own.folder(), "raw"};
    const uint64_t device = client.open_camera(1);
    ASSERT_NE(device, 0U);
    const auto reading = [](uint64_t size) {
        return wire_bytes{}.put(uint64_t{0}).put(size).put(uint32_t{0}).put(uint64_t{10'000}).str();
    };
    const auto error_of = [&](const std::string& function, const std::string& parameters) {
        const auto answer = client.call(device, function, parameters);
        return answer ? answer->error() : 1;
    };
    ASSERT_TRUE(client.send_call(device, "read_mem", reading(100U << 20))); // takes the client's room
    EXPECT_TRUE(eventually([&] { return camera->count(gige::gvcp::command::read_mem, 0) != 0; }));
    EXPECT_EQ(error_of("read_mem", reading(4)), 0U);
    EXPECT_EQ(error_of("read_mem", reading(64U << 10)), 0U);
    EXPECT_EQ(error_of("read_mem", reading((64U << 10) + 1)), rpc_exhausted);
    EXPECT_EQ(error_of("get_remote_device_original_genicam", {}), rpc_exhausted);
    EXPECT_TRUE(client.close_object(device));
    EXPECT_TRUE(client.next_reply()) << "the large one, ended by that";
}

// All threads of a client wait for a camera that says nothing; its close comes behind them.
TEST(ServiceBounds, ClosingADeviceEndsTheCallsThatHoldItBack) {
    test_system own{{"--log-level", "4"}};
    own.start_camera(small());
    own.start_service();
    raw_client client{own.folder(), "raw"};
    const uint64_t device = client.open_camera(2);
    ASSERT_NE(device, 0U);
    own.camera(0).signal(SIGSTOP);
    const auto minute = wire_bytes{}.put(uint64_t{0}).put(uint64_t{4}).put(uint32_t{0}).put(uint64_t{60'000}).str();
    for (int i = 0; i < 8; ++i) ASSERT_TRUE(client.send_call(device, "read_mem", minute));
    EXPECT_TRUE(client.close_object(device));
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(client.next_reply()) << i;
    own.camera(0).signal(SIGCONT);
}

// A camera that asks for a minute's patience with each request.
TEST(ServiceBounds, WhoEndsWhileItOpensACameraIsLetGo) {
    test_system own{{"--log-level", "2"}};
    std::atomic<bool> asked = false;
    scripted_camera camera{*gige::parse_address(own.camera_address(0)), [&](scripted_camera& self, const auto& got) {
                               if (got.header.code != gige::gvcp::command::write_reg) return false;
                               self.ask_for_patience(got, 60'000);
                               asked = true;
                               return true;
                           }};
    own.add_camera(0);
    own.start_logged_service();
    const pid_t client = fork();
    if (client == 0) {
        raw_client impatient{own.folder(), "impatient"};
        static_cast<void>(impatient.open_camera(2));
        _exit(0);
    }
    EXPECT_TRUE(eventually([&] { return asked.load(); }));
    kill(client, SIGKILL);
    waitpid(client, nullptr, 0);
    EXPECT_TRUE(eventually([&] { return holds(own.logged(), "Client 'impatient' left."); }));
}

// Another user's, because root may have any number of threads.
TEST(ServiceBounds, ItsEndNeedsNoThread) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer looks for leaks with a thread of its own";
#endif
    if (geteuid() != 0) GTEST_SKIP() << "needs root to start it as another user";
    constexpr uid_t user = 54321;
    const test_system own;
    ASSERT_EQ(chown(own.folder().c_str(), user, user), 0);
    process service{{"/usr/bin/setpriv", "--reuid=54321", "--regid=54321", "--clear-groups",
                     built::program("orv-gentl-gev-service"), "--no-networks"},
                    own.folder() / "output"};
    if (!service.wait_for_output("ready")) GTEST_SKIP() << "another user cannot start it here: " << service.output();
    process limiting{{"/usr/bin/setpriv", "--reuid=54321", "--regid=54321", "--clear-groups", "/usr/bin/prlimit",
                      "--pid", std::to_string(service.pid()), "--nproc=1:1"},
                     own.folder() / "limiting"};
    ASSERT_EQ(limiting.wait(), 0);
    service.signal(SIGTERM);
    EXPECT_EQ(service.wait(), 0);
}
