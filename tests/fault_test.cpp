// Processes die in every order; no call may hang, and what is left must work.
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>

using namespace test_support;
using namespace GenTL;
using namespace std::chrono_literals;

namespace {

struct ErrorRecord {
    int32_t id;
    char text[256];
};

// A hang fails by name instead of running into the test's time limit.
template <class Work>
void must_end(const char* what, Work&& work) {
    auto done = std::async(std::launch::async, std::forward<Work>(work));
    if (done.wait_for(20s) != std::future_status::ready) {
        std::fprintf(stderr, "%s hangs\n", what);
        std::abort();
    }
    done.get();
}

// As of a camera that is gone.
void must_learn_of_the_loss(const open_camera& camera, EVENT_HANDLE error_event) {
    ErrorRecord record{};
    size_t size = sizeof record;
    must_end("the report of the loss",
             [&] { EXPECT_EQ(camera.lib->EventGetData(error_event, &record, &size, 15000), GC_ERR_SUCCESS); });
    EXPECT_EQ(record.id, GC_ERR_CUSTOM_ID);
    EXPECT_STREQ(record.text, "Device lost");
    INFO_DATATYPE type = 0;
    size = 0;
    EXPECT_EQ(camera.lib->DevGetInfo(camera.device->get(), DEVICE_INFO_ID, &type, nullptr, &size), GC_ERR_CUSTOM_ID);
}

// This process's, when it has one.
int only_datagram_socket() {
    int found = -1;
    for (const auto& entry : std::filesystem::directory_iterator{"/proc/self/fd"}) {
        const int descriptor = std::stoi(entry.path().filename());
        int type = 0;
        int domain = 0;
        socklen_t length = sizeof type;
        if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &length) != 0 || type != SOCK_DGRAM) continue;
        if (getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &length) != 0 || domain != AF_INET) continue;
        EXPECT_EQ(found, -1) << "which of them is it?";
        found = descriptor;
    }
    return found;
}

} // namespace

TEST(Fault, ServiceKilledWhileStreaming) {
    test_system own{{"--heartbeat", "600000"}};
    own.start_camera(small());
    own.start_service();
    auto camera = std::make_unique<open_camera>();
    camera->start();
    ASSERT_TRUE(camera->next_frame(5000));
    EVENT_HANDLE lost = camera->event_of(camera->device->get(), EVENT_ERROR);
    own.stop_service(SIGKILL);
    must_learn_of_the_loss(*camera, lost);
    must_end("a register access", [&] {
        PORT_HANDLE port = nullptr;
        static_cast<void>(camera->lib->DevGetPort(camera->device->get(), &port));
        uint32_t value = 0;
        size_t size = sizeof value;
        EXPECT_EQ(camera->lib->GCReadPort(port, 0xA00, &value, &size), GC_ERR_IO);
    });
    must_end("the end of the acquisition",
             [&] { EXPECT_EQ(camera->lib->DSStopAcquisition(camera->stream->get(), 0), GC_ERR_SUCCESS); });
    must_end("closing", [&] { camera.reset(); });

    // For ten minutes the camera takes the dead service for the one in control: the next one goes on from its port.
    own.start_service();
    auto result = own.grab({"--frames", "3", "--verify", "--access", "exclusive"});
    EXPECT_EQ(result["verified"], true) << result;
}

// One that is stopped keeps its sockets and memory; nothing breaks, it just never answers.
TEST(Fault, ServiceStoppedWhileStreaming) {
    for (const bool only_close_the_library : {false, true}) {
        test_system own{{"--heartbeat", "600000"}};
        own.start_camera(small({"--frame-rate", "100", "--loss", "0.05", "--seed", "3"}));
        own.start_service();
        open_camera camera;
        EVENT_HANDLE lost = camera.event_of(camera.device->get(), EVENT_ERROR);
        camera.start();
        ASSERT_TRUE(camera.next_frame(5000));
        own.service().signal(SIGSTOP);
        // Far more requests than the queue has room for.
        for (int i = 0; i < 150; ++i) ASSERT_TRUE(camera.next_frame(5000)) << "frame " << i;
        if (only_close_the_library) {
            must_end("closing the library", [&] { EXPECT_EQ(camera.lib->GCCloseLib(), GC_ERR_SUCCESS); });
        } else {
            must_end("the end of the acquisition",
                     [&] { EXPECT_EQ(camera.lib->DSStopAcquisition(camera.stream->get(), 0), GC_ERR_SUCCESS); });
            must_learn_of_the_loss(camera, lost);
        }
        own.service().signal(SIGCONT);
    }
}

TEST(Fault, CameraKilledWhileStreaming) {
    small_system own;
    open_camera camera;
    EVENT_HANDLE lost = camera.event_of(camera.device->get(), EVENT_ERROR);
    camera.start();
    ASSERT_TRUE(camera.next_frame(5000));
    own.camera(0).signal(SIGKILL);
    own.camera(0).wait();
    must_learn_of_the_loss(camera, lost);
    must_end("the end of the acquisition",
             [&] { EXPECT_EQ(camera.lib->DSStopAcquisition(camera.stream->get(), 0), GC_ERR_SUCCESS); });
}

// Something in the consumer's process closes a descriptor too many, and the stream's socket is no socket any more.
TEST(Fault, StreamSocketTakenByTheConsumer) {
    small_system own;
    open_camera camera;
    EVENT_HANDLE told = camera.event_of(camera.device->get(), EVENT_ERROR);
    camera.start();
    ASSERT_TRUE(camera.next_frame(5000));
    const auto grabbing = [&] {
        INFO_DATATYPE type = 0;
        bool8_t value = 0;
        size_t size = sizeof value;
        EXPECT_EQ(camera.lib->DSGetInfo(camera.stream->get(), STREAM_INFO_IS_GRABBING, &type, &value, &size),
                  GC_ERR_SUCCESS);
        return value != 0;
    };
    const int descriptor = only_datagram_socket();
    ASSERT_GE(descriptor, 0);
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(dup2(nothing, descriptor), descriptor);
    close(nothing);
    ErrorRecord record{};
    size_t size = sizeof record;
    must_end("the report of the end",
             [&] { EXPECT_EQ(camera.lib->EventGetData(told, &record, &size, 15000), GC_ERR_SUCCESS); });
    EXPECT_EQ(record.id, GC_ERR_IO);
    EXPECT_TRUE(std::string_view{record.text}.starts_with("Reception of the stream ended: ")) << record.text;
    while (camera.next_frame(0)) {
    }
    EXPECT_TRUE(grabbing()) << "until the consumer stops";
    must_end("the end of the acquisition", [&] { camera.stop(); });
    EXPECT_FALSE(grabbing());
    EXPECT_EQ(close(descriptor), 0) << "it was the consumer's own by then";
    camera.start();
    EXPECT_TRUE(camera.next_frame(5000));
    must_end("the end of the second acquisition", [&] { camera.stop(); });
}

TEST(Fault, ConsumerKilledWhileStreamingFreesTheCamera) {
    small_system own;
    auto victim = own.start_consumer({"grab", "--frames", "1000000", "--access", "exclusive", "--json", "--output",
                                      (own.folder() / "pictures").string()});
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(own.folder() / "pictures"); })) << "no frame came";
    victim.signal(SIGKILL);
    EXPECT_EQ(victim.wait(), -SIGKILL);
    // At once: the service sees the end of the connection, nobody waits for the camera's heartbeat.
    auto result = own.grab({"--frames", "3", "--verify", "--access", "exclusive"});
    EXPECT_EQ(result["verified"], true) << result;
}
