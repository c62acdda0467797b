// Where packets are lost: each cause provoked with the real parts, and named. Triggers and cameras that come back.
#include "support/consumer_shell.h"
#include "support/two_hosts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <thread>

using namespace test_support;
using namespace consumer;
using testing::HasSubstr;
using namespace std::chrono_literals;

namespace {

nlohmann::json json_of(const std::string& text) {
    auto object = nlohmann::json::parse(text, nullptr, false);
    EXPECT_TRUE(object.is_object()) << text;
    return object.is_object() ? object : nlohmann::json::object();
}

void expect_cause(nlohmann::json& result, const std::string& cause, const std::string& remedy) {
    ASSERT_TRUE(result.contains("explain") && result["explain"].is_object()) << result;
    EXPECT_EQ(result["explain"]["cause"], cause) << result["explain"];
    EXPECT_THAT(result["explain"]["remedy"].get<std::string>(), HasSubstr(remedy)) << result["explain"];
}

const std::string small_buffer = "LD_PRELOAD='" + built::test_tool("libsmall_buffer.so") + "' ";
const std::vector<std::string> large_pictures{"--width", "2448", "--height", "2048", "--frame-rate", "30"};

} // namespace

TEST(Explain, NothingLost) {
    small_system own;
    auto result = own.grab({"--frames", "10", "--explain"});
    expect_cause(result, "nothing", "");
    auto& seen = result["explain"]["evidence"];
    EXPECT_EQ(seen["packets_received"], seen["packets_expected"]) << seen;
    EXPECT_GT(seen["packets_received"], 10) << seen;
    EXPECT_GE(seen["socket_buffer"], 100'000) << seen;
    EXPECT_EQ(seen["interface"], "lo") << seen;
}

TEST(Explain, ACameraThatDrops) {
    test_system own;
    own.start_camera(
        {"--width", "640", "--height", "480", "--frame-rate", "20", "--loss", "0.05", "--max-packet-size", "1500"});
    own.start_service();
    auto result = own.grab({"--frames", "30", "--explain"});
    expect_cause(result, "network", "GevSCPD");
    EXPECT_GT(result["explain"]["evidence"]["packets_asked_again"], 50) << result;
    EXPECT_EQ(result["explain"]["evidence"]["socket_drops"], 0) << result;
}

TEST(Explain, ASocketBufferThatIsTooSmall) {
    if (built::sanitized) GTEST_SKIP() << "a sanitizer's runtime must be loaded first";
    test_system own;
    own.start_camera(large_pictures);
    own.start_service();
    shell_line consumer{own, small_buffer + "'" + program + "' grab --frames 30 --json --quiet --explain"};
    consumer.process().wait();
    auto result = json_of(consumer.process().output());
    expect_cause(result, "socket_buffer", "sysctl net.core.rmem_max=");
    EXPECT_LE(result["explain"]["evidence"]["socket_buffer"], 64 << 10) << result;
    EXPECT_GT(result["explain"]["evidence"]["socket_drops"], 0) << result;
}

TEST(Explain, AWatchBesideTheConsumer) {
    if (built::sanitized) GTEST_SKIP() << "a sanitizer's runtime must be loaded first";
    test_system own;
    own.start_camera(large_pictures);
    own.start_service();
    shell_line consumer{own, "exec env " + small_buffer + "'" + program + "' grab --frames 100000"};
    ASSERT_TRUE(consumer.wait_for_errors("/100000 frames")) << consumer.errors();
    auto watch = own.start_consumer({"doctor", "--watch", "--json", "--interval", "0.2"});
    ASSERT_TRUE(watch.wait_for_output("\n")) << watch.output();
    std::this_thread::sleep_for(500ms); // of the stream that is watched
    watch.signal(SIGINT);
    EXPECT_EQ(watch.wait(), cli::row_of(cli::cause::no).exit_code) << watch.output();
    consumer.process().signal(SIGINT);
    consumer.process().wait();
    std::istringstream lines{watch.output()};
    uint64_t drops = 0;
    nlohmann::json last;
    for (std::string each; std::getline(lines, each);) {
        last = json_of(each);
        if (!last.contains("cameras")) continue;
        ASSERT_EQ(last["cameras"].size(), 1U) << last;
        auto& camera = last["cameras"][0];
        EXPECT_EQ(camera["receiver"], "orv-gentl (pid " + std::to_string(consumer.process().pid()) + ")") << camera;
        drops += camera["socket_drops"].get<uint64_t>();
    }
    EXPECT_GT(drops, 0U) << watch.output();
    ASSERT_TRUE(last.contains("sum")) << watch.output();
    EXPECT_EQ(last["sum"][0]["cause"], "socket_buffer") << last;
    EXPECT_THAT(last["sum"][0]["sentence"].get<std::string>(), HasSubstr("dropped at this host's socket")) << last;
}

TEST(Explain, AConsumerThatHoldsItsBuffers) {
    small_system own{{"--frame-rate", "60"}};
    auto result = own.grab({"--frames", "10", "--buffers", "3", "--hold", "150", "--explain"});
    expect_cause(result, "consumer", "--buffers ");
    EXPECT_GT(result["explain"]["evidence"]["underruns"], 10) << result;
}

// A path that carries less than the least that is looked for: pictures vanish, and so do large test packets.
TEST(Explain, APathThatIsTooNarrow) {
    small_system own{{"--mtu", "1300"}};
    auto result = own.grab({"--frames", "3", "--explain"});
    expect_cause(result, "path_mtu", "mtu 1500");
    EXPECT_EQ(result["explain"]["evidence"]["largest_test_packet"], 1300) << result;
}

TEST(Explain, AnInterfaceThatIsTooNarrow) {
    two_hosts hosts;
    if (!hosts.ready()) GTEST_SKIP() << hosts.why_not();
    hosts.set_mtu(1500, 1280);
    test_system own;
    own.spread_over(hosts.camera_side(), hosts.consumer_side(), two_hosts::net);
    own.start_camera(small());
    own.start_service();
    auto result = own.grab({"--frames", "3", "--explain"});
    expect_cause(result, "path_mtu", "sudo ip link set cable mtu 1500");
    EXPECT_THAT(result["explain"]["sentence"].get<std::string>(), HasSubstr("cable itself carries 1280")) << result;
}

// All on one processor, with the priority that a thread has without privilege, or less.
TEST(Explain, AReceiveThreadThatIsStarved) {
    if (geteuid() != 0) GTEST_SKIP() << "takes root, to give the buffer its size and give up the priority";
    if (std::thread::hardware_concurrency() < 2) GTEST_SKIP() << "takes a second processor for the camera";
    cpu_set_t all;
    sched_getaffinity(0, sizeof all, &all);
    int processor = 0;
    while (!CPU_ISSET(processor, &all)) ++processor;
    const std::string there = "taskset -c " + std::to_string(processor) + ' ';
    test_system own;
    own.start_camera(large_pictures);
    own.start_service();
    shell_line consumer{own, "exec " + there + "setpriv --bounding-set=-sys_nice --inh-caps=-sys_nice nice -n 19 '" +
                                 program + "' grab --json --frames 100000 --explain"};
    ASSERT_TRUE(consumer.wait_for_errors("/100000 frames")) << consumer.errors();
    {
        std::vector<process> others;
        for (int i = 0; i < 3; ++i) {
            // Bounded, should the test die.
            others.emplace_back(
                std::vector<std::string>{"bash", "-c", "exec timeout 20 " + there + "bash -c 'while :; do :; done'"},
                own.folder() / ("other-" + std::to_string(i)));
        }
        std::this_thread::sleep_for(3s);
        consumer.process().signal(SIGINT);
        std::this_thread::sleep_for(1s); // the end, too, needs a processor: it comes when the others have gone
    }
    consumer.process().wait();
    auto result = json_of(consumer.process().output());
    EXPECT_EQ(result["interrupted"], true) << consumer.errors();
    expect_cause(result, "receive_thread", "limits.d");
    EXPECT_GT(result["explain"]["evidence"]["receive_thread_waited_s"], 0.5) << result;
}

TEST(Trigger, FramesComeAtTheRateAndTheCameraIsPutBack) {
    small_system own;
    ASSERT_EQ(own.run_consumer({"set", "TriggerSource=Action1", "TriggerSelector=FrameStart"}).exit_code, 0);
    auto result = own.grab({"--frames", "20", "--trigger", "50", "--verify"});
    EXPECT_EQ(result["verified"], true) << result;
    EXPECT_GE(result["triggers_sent"], 20) << result;
    const auto after = own.run_consumer({"get", "TriggerMode", "TriggerSource", "--json"});
    EXPECT_EQ(json_of(after.output).value("features", nlohmann::json{}),
              nlohmann::json::parse(R"({"TriggerMode": "Off", "TriggerSource": "Action1"})"))
        << after.output;
}

TEST(Trigger, ACameraWithoutOneSaysWhatIsMissing) {
    test_system own;
    const std::string document = own.folder() / "plain.xml";
    std::ofstream{document}
        << R"(<RegisterDescription ModelName="M" VendorName="V" StandardNameSpace="None" SchemaMajorVersion="1"
 SchemaMinorVersion="1" SchemaSubMinorVersion="0" MajorVersion="1" MinorVersion="0" SubMinorVersion="0"
 ProductGuid="1" VersionGuid="2"><Category Name="Root"><pFeature>PayloadSize</pFeature></Category>
<Integer Name="PayloadSize"><Value>1000</Value></Integer><Port Name="Device"/></RegisterDescription>)";
    own.start_camera({"--document", document});
    own.start_service();
    auto result = own.grab({"--frames", "1", "--trigger", "10"});
    EXPECT_EQ(result["error"]["cause"], "feature") << result;
    EXPECT_THAT(result["error"].value("text", ""), HasSubstr("there is no command 'TriggerSoftware'"));
}

TEST(Reconnect, WhatWentAndCameBackGoesOn) {
    for (const bool camera : {true, false}) {
        SCOPED_TRACE(camera ? "camera" : "service");
        small_system own{{"--frame-rate", "20"}};
        shell_line consumer{own, "exec '" + program + "' grab --json --verify --frames 60 --reconnect --set Width=160"};
        ASSERT_TRUE(consumer.wait_for_errors("/60 frames")) << consumer.errors();
        auto& gone = camera ? own.camera(0) : own.service();
        gone.signal(SIGKILL);
        gone.wait();
        ASSERT_TRUE(consumer.wait_for_errors("Waiting for camera 'Orv-SimCam-CAM0'")) << consumer.errors();
        if (camera)
            own.restart_camera(0, small({"--frame-rate", "20"}));
        else
            own.start_service();
        const int code = consumer.process().wait();
        auto result = json_of(consumer.process().output());
        EXPECT_EQ(result["reconnects"], 1) << result;
        EXPECT_EQ(result["frames_delivered"], 60) << result;
        EXPECT_EQ(result["verify_failures"], 0) << result;
        // What the camera was sending when it went stays incomplete.
        EXPECT_LE(result["frames_incomplete"], camera ? 1 : 0) << result;
        const bool whole = result["frames_incomplete"] == 0;
        EXPECT_EQ(result["verified"], whole) << result;
        EXPECT_EQ(code, whole ? 0 : cli::row_of(cli::cause::incomplete).exit_code) << consumer.errors();
        EXPECT_EQ(own.run_consumer({"get", "Width"}).output, "160\n") << "set again";
    }
}

TEST(Reconnect, PatienceEnds) {
    small_system own{{"--frame-rate", "50"}};
    shell_line consumer{own, "exec '" + program + "' grab --json --frames 100000 --reconnect 1"};
    ASSERT_TRUE(consumer.wait_for_errors("/100000 frames")) << consumer.errors();
    own.camera(0).signal(SIGKILL);
    EXPECT_EQ(consumer.process().wait(), cli::row_of(cli::cause::lost).exit_code) << consumer.errors();
    auto result = json_of(consumer.process().output());
    EXPECT_THAT(result["error"].value("text", ""), HasSubstr("It did not come back within 1 s."));
}

// Two services, each with a folder and consumers of its own, and one camera.
TEST(SecondService, IsToldAndNamedAsTheHolder) {
    small_system own;
    const std::string folder = own.folder() / "second";
    std::filesystem::create_directories(folder);
    const std::string there = "ORV_GENTL_RUNTIME_DIR='" + folder + "' ";
    shell_line second{own, "exec env " + there + "'" + built::program("orv-gentl-gev-service") +
                               "' --no-networks --discover " + own.camera_address(0)};
    ASSERT_TRUE(second.process().wait_for_output("ready")) << second.errors();
    const std::string first = "Another service listens at '" + own.folder().string() + "/orv-gentl-gev_service_pipe";
    EXPECT_THAT(second.errors(), HasSubstr(first));
    EXPECT_THAT(second.errors(), HasSubstr("(pid " + std::to_string(own.service().pid()) + " of user "));

    // The same folder: refused, with who is there.
    shell_line third{own, "'" + built::program("orv-gentl-gev-service") + "' --no-networks"};
    EXPECT_NE(third.process().wait(), 0);
    EXPECT_THAT(third.errors(), HasSubstr("running already: it listens at '" + own.folder().string()));
    EXPECT_THAT(third.errors(), HasSubstr("(pid " + std::to_string(own.service().pid()) + " of user "));

    shell_line holder{own, "exec env " + there + "'" + program + "' grab --frames 100000"};
    ASSERT_TRUE(holder.wait_for_errors("/100000 frames")) << holder.errors();
    const std::string by = "orv-gentl-gev-service (pid " + std::to_string(second.process().pid()) + ", user ";
    auto refused = own.ask({"set", "Width=160"});
    EXPECT_EQ(refused["error"]["cause"], "busy") << refused;
    EXPECT_THAT(refused["error"].value("text", ""), HasSubstr(by));
    nlohmann::json listed;
    eventually([&] { return (listed = own.ask({"list"}))["devices"][0].contains("holder"); }); // with the next search
    EXPECT_THAT(listed["devices"][0].value("holder", ""), HasSubstr(by)) << listed;
    EXPECT_THAT(own.run_consumer({"list"}).output, HasSubstr("HELD BY"));
    auto findings = own.ask({"doctor"});
    std::string others;
    for (auto& each : findings["checks"])
        if (each["check"] == "other services on this host") others = each["found"];
    EXPECT_THAT(others, HasSubstr("'" + folder + "/orv-gentl-gev_service_pipe")) << findings;
    EXPECT_THAT(others, testing::Not(HasSubstr("'" + own.folder().string() + "/orv-gentl-gev_service_pipe")));
}
