// The consumer for people, on cameras that the network has not made ready: what it says, and what mends it.
#include "support/test_system.h"
#include "support/two_hosts.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <algorithm>

using namespace test_support;
using namespace GenTL;

TEST(NetworkCommands, ACameraOnTheWrongSubnetIsNamedAndMended) {
    two_hosts hosts;
    if (!hosts.ready()) GTEST_SKIP() << hosts.why_not();
    ASSERT_TRUE(hosts.run(hosts.camera_side(), {"ip", "address", "flush", "dev", "cable"}));
    for (const std::string which : {"all", "cable"})
        ASSERT_TRUE(hosts.run(hosts.consumer_side(), {"sysctl", "-qw", "net.ipv4.conf." + which + ".rp_filter=0"}));
    test_system own;
    own.spread_over(hosts.camera_side(), hosts.consumer_side(), "192.168.77.");
    own.start_camera({"--interface", "cable", "--width", "320", "--height", "240"});
    own.start_service_by_broadcast();

    const auto ill = own.run_consumer({"doctor"});
    EXPECT_NE(ill.exit_code, 0);
    EXPECT_TRUE(holds(ill.output, "orv-gentl ip temporary --device Orv") && holds(ill.output, "192.168.77.10"))
        << ill.output;
    const auto refused = own.run_consumer({"get", "Width", "--json"});
    EXPECT_EQ(refused.exit_code, 2);
    EXPECT_TRUE(holds(refused.output, "Failed to open unreachable device.")) << refused.output;
    const auto shown = own.ask({"ip", "show"})["devices"];
    ASSERT_EQ(shown.size(), 1U);
    EXPECT_EQ(shown[0]["reachable"], "Unreachable");
    EXPECT_EQ(shown[0]["address"], "192.168.77.10");

    const auto taken = own.run_consumer({"force-ip", "198.18.0.1", "--json"});
    EXPECT_TRUE(taken.exit_code == 2 && holds(taken.output, "in use")) << taken.output;
    const auto forced = own.run_consumer({"force-ip", "198.18.0.44", "--json"});
    EXPECT_EQ(forced.exit_code, 0) << forced.output;
    EXPECT_EQ(nlohmann::json::parse(forced.output)["address"], "198.18.0.44");
    const auto found = own.run_consumer({"ip", "persistent", "--json"});
    EXPECT_EQ(found.exit_code, 0) << found.output;
    const std::string address = nlohmann::json::parse(found.output)["address"];
    EXPECT_TRUE(address.starts_with("198.18.0.") && address != "198.18.0.44") << address;
    const auto after = own.ask({"ip", "show"})["devices"][0];
    EXPECT_EQ(after["reachable"], "Reachable");
    EXPECT_EQ(after["persistent_address"], address);
    EXPECT_EQ(after["persistent_on"], "true");
    EXPECT_EQ(own.run_consumer({"get", "Width"}).output, "320\n");
    EXPECT_FALSE(holds(own.run_consumer({"doctor"}).output, "ip temporary"));

    const auto keep = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"ip", "persistent", "--json", "--address"});
        return own.run_consumer(words);
    };
    const struct {
        std::vector<std::string> words;
        const char* says;
        int exit_code = 3; // of the command line
    } refused_ones[]{
        {{"198.18.0.255"}, "the broadcast address of its network"},
        {{"198.18.0.0"}, "the address of its network"},
        {{"224.0.0.5"}, "a multicast address"},
        {{"0.0.0.0"}, "no host's address"},
        {{"198.18.0.50", "--mask", "255.0.255.0"}, "its mask has gaps"},
        {{"198.18.0.50", "--gateway", "198.18.0.50"}, "the gateway's address"},
        {{"198.18.0.50", "--gateway", "198.18.1.1"}, "the gateway lies in another network"},
        {{"198.18.0.1"}, "in use", 2},
        {{"198.18.0.256"}, "is no IPv4 address"},
        {{"198.18.255.255", "--mask", "255.255.0.0"}, "the broadcast address of its network"},
    };
    for (const auto& each : refused_ones) {
        const auto answer = keep(each.words);
        EXPECT_EQ(answer.exit_code, each.exit_code) << each.words.front();
        EXPECT_TRUE(holds(answer.output, each.says)) << answer.output;
    }
    // The consumer does not know the interface's network, the service does: it is smaller than the mask says.
    const auto aside = own.run_consumer({"force-ip", "198.18.0.255", "--mask", "255.255.0.0", "--json"});
    EXPECT_TRUE(aside.exit_code == 2 && holds(aside.output, "set aside")) << aside.output;
    EXPECT_EQ(own.ask({"ip", "show"})["devices"][0]["address"], address);
    const auto kept = keep({"198.18.0.50", "--gateway", "198.18.0.7"});
    EXPECT_EQ(kept.exit_code, 0) << kept.output;
    EXPECT_EQ(nlohmann::json::parse(kept.output)["address"], "198.18.0.50");
    const auto chosen = own.ask({"ip", "show"})["devices"][0];
    EXPECT_EQ(chosen["persistent_address"], "198.18.0.50");
    EXPECT_EQ(chosen["persistent_mask"], "255.255.255.0");
    EXPECT_EQ(chosen["persistent_on"], "true");
}

TEST(NetworkCommands, ACameraThatSomebodyHasIsNotMovedAndThatIsTheReasonGiven) {
    small_system own;
    const open_camera user;
    const auto refused = own.run_consumer({"force-ip", "198.18.0.44", "--json"});
    EXPECT_EQ(refused.exit_code, 8);
    EXPECT_TRUE(holds(refused.output, "somebody controls the camera")) << refused.output;
    EXPECT_FALSE(holds(refused.output, "198.18.0.44") || holds(refused.output, "Invalid")) << refused.output;
    EXPECT_EQ(own.ask({"ip", "show"})["devices"][0]["address"], own.camera_address(0));
}

TEST(NetworkCommands, EventsArePrintedWithTheFeaturesOfTheirPort) {
    small_system own{{"--frame-rate", "50"}};
    const auto single = own.run_consumer({"events", "--json", "--set", "EventNotification[EventSelector=Test]=On",
                                          "--exec", "TestEventGenerate", "--count", "1", "--wait", "5000"});
    ASSERT_EQ(single.exit_code, 0) << single.output;
    const auto event = nlohmann::json::parse(single.output);
    EXPECT_EQ(event["id"], "9000");
    EXPECT_EQ(event["name"], "Test");
    EXPECT_NE(event["features"]["EventTestTimestamp"], "0");
    const auto frames =
        own.run_consumer({"events", "--notify", "ExposureEnd", "--acquire", "--count", "3", "--wait", "5000"});
    ASSERT_EQ(frames.exit_code, 0) << frames.output;
    for (int i = 1; i <= 3; ++i)
        EXPECT_TRUE(holds(frames.output, "EventExposureEndFrameID=" + std::to_string(i) + " ")) << frames.output;
}

TEST(NetworkCommands, OneActionTriggersEveryCameraOnceAndWrongKeysNone) {
    test_system own;
    // Loopback is everybody's: the key is this process's.
    const std::string key = std::to_string(0x10000 + getpid());
    constexpr size_t count = 3;
    for (size_t i = 0; i < count; ++i) own.start_camera(small({"--frame-rate", "5", "--action-device-key", key}));
    own.start_service();
    std::vector<std::unique_ptr<open_camera>> cameras;
    for (size_t i = 0; i < count; ++i) {
        cameras.push_back(i == 0 ? std::make_unique<open_camera>()
                                 : std::make_unique<open_camera>(*cameras[0], test_system::serial(i)));
        auto& remote = cameras[i]->remote();
        for (const auto& [name, value] : {std::pair{"TriggerMode", "On"},
                                          {"TriggerSource", "Action1"},
                                          {"ActionGroupKey", "77"},
                                          {"ActionGroupMask", "1"}})
            cli::set_from_text(cli::require_node(remote, name), value);
        cameras[i]->start();
    }
    const auto act = [&](const std::string& device, const char* group, const char* mask,
                         std::optional<uint64_t> at = std::nullopt) {
        std::vector<std::string> words{"action", "--interface",  "lo", "--device-key", device, "--group-key",
                                       group,    "--group-mask", mask};
        if (at) words.insert(words.end(), {"--at", std::to_string(*at)});
        EXPECT_EQ(own.run_consumer(words).exit_code, 0);
    };
    act(key + "0", "77", "1");
    act(key, "78", "1");
    act(key, "77", "2");
    // Of each camera the next frame, which is of the block given; their timestamps. The clocks of cameras of one host
    // are its own, until they are reset.
    const auto next_frames = [&](uint64_t block) {
        std::vector<uint64_t> times;
        for (const auto& camera : cameras) {
            EVENT_NEW_BUFFER_DATA data{};
            size_t size = sizeof data;
            const auto& lib = *camera->lib;
            EXPECT_EQ(lib.EventGetData(camera->new_buffer, &data, &size, 10'000), GC_ERR_SUCCESS);
            const auto info = [&](BUFFER_INFO_CMD command) {
                return cli::ask_value<uint64_t>(lib, "DSGetBufferInfo", [&](auto* type, void* value, size_t* length) {
                    return lib.DSGetBufferInfo(camera->stream->get(), data.BufferHandle, command, type, value, length);
                });
            };
            EXPECT_EQ(info(BUFFER_INFO_FRAMEID), block);
            times.push_back(info(BUFFER_INFO_TIMESTAMP));
            EXPECT_EQ(lib.DSQueueBuffer(camera->stream->get(), data.BufferHandle), GC_ERR_SUCCESS);
        }
        return times;
    };
    act(key, "77", "3");
    next_frames(1);
    const auto now_of = [&](open_camera& camera) {
        camera.execute("GevTimestampControlLatch");
        return static_cast<uint64_t>(camera.integer("GevTimestampValue"));
    };
    uint64_t latest = 0;
    for (const auto& camera : cameras) latest = std::max(latest, now_of(*camera));
    const uint64_t due = latest + 1'500'000'000; // ticks, which are nanoseconds
    act(key, "77", "1", due);
    // One that acted twice at first, or at once now, has the second frame before that.
    for (const uint64_t time : next_frames(2)) EXPECT_GE(time, due);
    // What comes late comes before the stop, which each camera hears by the same socket.
    for (const auto& camera : cameras) camera->stop();
    cameras.clear();
    for (size_t i = 0; i < count; ++i) {
        const auto stats = own.end_camera(i);
        EXPECT_EQ(stats["actions"], 2U) << "two were its own: " << stats;
        EXPECT_EQ(stats["frames_sent"], 2U) << stats;
    }
}

// A consumer that waits on module events is told of a camera that comes or goes; nobody asks meanwhile.
TEST(ListChanges, ReachAConsumerThatWaits) {
    test_system own;
    own.start_camera();
    own.start_service();
    const open_camera first{test_system::serial(0), nullptr, DEVICE_ACCESS_READONLY};
    const auto& lib = *first.lib;
    EVENT_HANDLE event = first.event_of(first.interface->get(), EVENT_MODULE);
    // Not each event is the camera's that is waited for: the list also changed when it was opened.
    const auto told_of = [&](size_t cameras) {
        return eventually([&] {
            std::byte data[1024];
            size_t size = sizeof data;
            EXPECT_EQ(lib.EventGetData(event, data, &size, 10'000), GC_ERR_SUCCESS);
            return cli::list_devices(lib, *first.interface, "lo", 200).size() == cameras;
        });
    };
    own.camera(0).signal(SIGKILL);
    EXPECT_TRUE(told_of(0));
    own.camera(0).wait();
    own.restart_camera(0);
    EXPECT_TRUE(told_of(1));
    lib.check("GCUnregisterEvent", lib.GCUnregisterEvent(first.interface->get(), EVENT_MODULE));
}
