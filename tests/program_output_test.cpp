// What the programs say: who connects, what is found and lost, what is wrong with their options and files.
#include "support/built.h"
#include "support/raw_client.h"
#include "support/test_system.h"
#include "support/unix_socket.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <thread>

using namespace test_support;
using namespace std::chrono_literals;

namespace {

// Output and errors of a command that ends by itself.
std::pair<int, std::string> run(const std::string& command) {
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    std::string text;
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) text += static_cast<char>(c);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

class ProgramOutput : public testing::Test {
protected:
    test_system own{{"--log-level", "0"}};
    std::unique_ptr<raw_client> connect(const std::string& name = "raw") {
        return std::make_unique<raw_client>(own.folder(), name);
    }
};

} // namespace

TEST_F(ProgramOutput, WhatIsWrongWithOptionsAndFiles) {
    own.start_camera();
    const std::string service = built::program("orv-gentl-gev-service") + " --no-networks ";
    const std::string camera = built::program("orv-gev-camera-sim") + " --address " + own.camera_address(1) + ' ';
    const std::string broken = own.folder() / "broken.json";
    std::ofstream{broken} << "{";
    const std::string wrong = own.folder() / "wrong.json", list = own.folder() / "list.json";
    std::ofstream{wrong} << R"({"log_level": "1", "log_level_IPC": 8, "service_log_to_console": true,
                                "service_log_file": 3, "of_somebody_else": [1]})";
    std::ofstream{list} << "[1]";
    const auto of_user = own.folder() / "Software/Quillon Optics GmbH/orv-gentl-gev/service.json";
    std::filesystem::create_directories(of_user.parent_path());
    std::ofstream{of_user} << "{";
    // Ends by itself for its group, which comes after the files.
    const std::string ends = service + "--log-level 0 --group no-such-group";
    const std::string quiet = ' ' + service + "--group no-such-group";
    const std::string as_nobody = geteuid() == 0 ? "setpriv --reuid 65534 --regid 65534 --clear-groups " : "";
    struct {
        std::string command;
        std::vector<std::string> texts;
        int code = 1;
    } const rows[]{
        {service + "--heartbeat 100", {"--heartbeat", "'100'", "0, or 500 to 3600000 ms"}, 3},
        {service + "--scan-interval 1", {"--scan-interval", "'1' is no whole number from 50 to 3600000"}, 3},
        {service + "--log-level 9", {"--log-level", "'9' is no whole number from 0 to 6"}, 3},
        {service + "--discover 300.1.1.1", {"--discover", "between 0 and 255"}, 3},
        {service + "--document-folder /no/such", {"--document-folder", "does not exist: /no/such"}, 3},
        {ends, {"There is no group 'no-such-group'."}},
        {"ORV_GENTL_GEV_PROP_INIT=" + broken + ' ' + ends,
         {"Settings file '" + broken + "' is not used, it is no JSON"}},
        // Without --log-level, too: these settings may be what was to switch the log on.
        {"ORV_GENTL_GEV_PROP_INIT=" + broken + quiet, {"Settings file '" + broken + "' is not used, it is no JSON"}},
        {"ORV_GENTL_GEV_PROP_INIT=" + wrong + quiet,
         {"Settings file '" + wrong + "': 'log_level' is not used, it must be a whole number from 0 to 6",
          "'log_level_IPC' is not used", "'service_log_to_console' is not used, it must be a whole number: 0 or 1",
          "'service_log_file' is not used, it must be a text"}},
        {"ORV_GENTL_GEV_PROP_INIT=" + list + quiet, {"Settings file '" + list + "' is not used, it is no JSON object"}},
        {"ORV_GENTL_GEV_PROP_INIT=/no/such/file" + quiet,
         {"Settings file '/no/such/file' of ORV_GENTL_GEV_PROP_INIT is not used: No such file or directory"}},
        {"ORV_GENTL_GEV_PROP_INIT=/usr" + quiet, {"Settings file '/usr' is not used, it is a folder"}},
        {"ORV_GENTL_GEV_DEBUG=9" + quiet,
         {"ORV_GENTL_GEV_DEBUG is not used, it is '9' and must be a number from 0 to 6"}},
        {"ORV_GENTL_GEV_DEBUG=abc" + quiet, {"ORV_GENTL_GEV_DEBUG is not used, it is 'abc'"}},
        {"XDG_CONFIG_HOME=" + own.folder().string() + quiet, {"/service.json' is not used, it is no JSON"}},
        {"ORV_GENTL_GEV_DEBUG_FILE=" + broken + "/log " + ends, {"Failed to open log file '" + broken + "/log'"}},
        {"ORV_GENTL_GEV_DEBUG_FILE=" + own.folder().string() + "/none/log " + service + "--group no-such-group",
         {"there is no folder '" + own.folder().string() + "/none'", "There is no group"}},
        {"ORV_GENTL_RUNTIME_DIR=/usr " + as_nobody + service,
         {"Cannot listen at '/usr/orv-gentl-gev_service_pipe_", "set ORV_GENTL_RUNTIME_DIR"}},
        {"ORV_GENTL_RUNTIME_DIR=/no/such " + service,
         {"Cannot listen at '/no/such/orv-gentl-gev_service_pipe_", "There is no folder '/no/such': mkdir"}},
        {built::program("orv-gev-camera-sim") + " --address " + own.camera_address(0), {"is there a camera already?"}},
        {camera + "--frame-rate 0", {"--frame-rate: '0' is no number from 0.1 to 10000"}, 3},
        {camera + "--loss 2", {"--loss: '2' is no number from 0 to 1"}, 3},
        {camera + "--loss nan", {"--loss: 'nan' is no number"}, 3},
        {camera + "--mac -1", {"--mac: '-1' is no whole number from 0 to"}, 3},
        {camera + "--delay-ms -5", {"--delay-ms: '-5' is no number from 0 to 60000"}, 3},
        {camera + "--tick-frequency 0", {"--tick-frequency: '0' is no whole number from 1 to"}, 3},
        {camera + "--packet-size-step 0", {"--packet-size-step: '0' is no whole number from 1 to 65532"}, 3},
        {camera + "--link-buffer 0", {"--link-buffer: '0' is no whole number from 1 to"}, 3},
        {camera + "--firmware-size -1", {"--firmware-size: '-1' is no whole number from 1 to"}, 3},
        {camera + "--scene grey --light -1:2", {"-1:2 is not FRAME:LEVEL"}, 3},
        {camera + "--pixel-format Mono7", {"Mono7 is not a pixel format"}, 3},
        {camera + "--version", {"orv-gev-camera-sim 1.3.1.860"}, 0},
        {service + "--version", {"orv-gentl-gev-service 1.3.1.860"}, 0},
    };
    for (const auto& [command, texts, expected] : rows) {
        const auto [code, output] = run(command);
        EXPECT_EQ(code, expected) << command;
        for (const std::string& text : texts) EXPECT_TRUE(holds(output, text)) << command << '\n' << output;
    }
    for (const auto& [command, flag] : {std::pair{service, "--no-image-features"}, {camera, "--no-resend"}}) {
        const auto [code, help] = run(command + "--help");
        EXPECT_TRUE(holds(help, flag) && !holds(help, "{false}")) << help;
    }
}

// A full disk under the log, a terminal that is gone: the exit code still tells what is the matter.
TEST_F(ProgramOutput, ErrorOutputThatTakesNothing) {
    const std::string service = built::program("orv-gentl-gev-service") + " --no-networks --log-level 6";
    EXPECT_EQ(run("(" + service + " --group no-such-group 2>/dev/full)").first, 1);
    EXPECT_EQ(run("(" + built::program("orv-gev-camera-sim") + " --address nowhere 2>/dev/full)").first, 3);
}

// Who is told by the socket is told all the same.
TEST_F(ProgramOutput, OutputThatTakesNothing) {
    if (built::sanitized) GTEST_SKIP() << "a sanitizer wants no library before its own";
    const std::string path = own.folder() / "notify";
    const int told = bound_socket(SOCK_DGRAM, path);
    const timeval limit{20, 0};
    setsockopt(told, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    process service{{"/usr/bin/env", "NOTIFY_SOCKET=" + path, "stdbuf", "-oL", built::program("orv-gentl-gev-service"),
                     "--no-networks"},
                    "/dev/full"};
    char text[16]{};
    EXPECT_GT(recv(told, text, sizeof text - 1, 0), 0);
    EXPECT_STREQ(text, "READY=1");
    close(told);
    service.signal(SIGTERM);
    EXPECT_EQ(service.wait(), 0);
}

TEST_F(ProgramOutput, WhatIsSearchedFoundOpenedAndLost) {
    own.start_camera();
    own.start_logged_service();
    const std::string output = own.service().output();
    const auto at = output.find("ready /");
    ASSERT_NE(at, std::string::npos) << output;
    EXPECT_TRUE(std::filesystem::is_socket(output.substr(at + 6, output.find('\n', at) - at - 6))) << output;
    const std::string address = own.camera_address(0);
    const std::string client = "pid " + std::to_string(getpid());
    auto by_hand = connect("by hand");
    static_cast<void>(by_hand->call(0, "create_service_instance"));
    {
        open_camera camera;
        EXPECT_TRUE(eventually([&] { return holds(own.logged(), client + " opened device 'Orv-SimCam-CAM0'."); }));
        own.camera(0).signal(SIGKILL);
        own.camera(0).wait();
        const std::vector<std::string> due{"Looks for cameras on lo: 127.0.0.1",
                                           "Client 'by hand' connected.",
                                           client + " opened interface 'lo'.",
                                           "Found " + address + " on lo: \"Orv\" \"SimCam\", serial \"CAM0\"",
                                           address + " is lost.",
                                           address + " on lo does not answer any more."};
        for (const std::string& text : due)
            EXPECT_TRUE(eventually([&] { return holds(own.logged(), text); })) << text << '\n' << own.logged();
    }
    by_hand.reset();
    EXPECT_TRUE(eventually([&] { return holds(own.logged(), "Client 'by hand' left."); }));
}

// A client that leaves closes its channel and then its queues. The service, held up meanwhile, sees both at once.
TEST_F(ProgramOutput, WhoLeavesIsNotBlamedAndWhoEndsHisQueuesIs) {
    own.start_logged_service();
    std::vector<std::unique_ptr<raw_client>> leaving; // several, as either end may be seen first
    for (int i = 0; i < 6; ++i) leaving.push_back(connect("leaving"));
    const auto ending = connect("ending");
    for (const auto& each : leaving) ASSERT_NE(each->object(0, "create_service_instance"), 0U);
    ASSERT_NE(ending->object(0, "create_service_instance"), 0U);
    const auto end_queue = [](const raw_client& client) {
        client.write_closed(raw_client::send_queue);
        client.write_semaphore(raw_client::send_sent, 1);
    };
    own.service().signal(SIGSTOP);
    for (const auto& each : leaving) {
        each->close_socket();
        end_queue(*each);
    }
    end_queue(*ending);
    own.service().signal(SIGCONT);
    const auto gone = [&](const std::string& name) {
        const std::string log = own.logged(), line = "Client '" + name + "' left.";
        int count = 0;
        for (size_t at = log.find(line); at != log.npos; at = log.find(line, at + 1)) ++count;
        return count;
    };
    EXPECT_TRUE(eventually([&] { return gone("leaving") == 6 && gone("ending") == 1; })) << own.logged();
    EXPECT_FALSE(holds(own.logged(), "Client 'leaving' ended its queues"));
    EXPECT_TRUE(holds(own.logged(), "Client 'ending' ended its queues"));
}

TEST_F(ProgramOutput, NamesStayOnTheirLineOfTheLog) {
    own.start_logged_service();
    raw_client client{own.folder(), "evil\n[forged] line \x1b[31m"};
    static_cast<void>(client.call(0, "no\x1b[31mfunction\n[forged]"));
    client.close_socket();
    std::string log;
    EXPECT_TRUE(eventually([&] { return (log = own.logged()).find("left.") != std::string::npos; }));
    EXPECT_EQ(log.find('\x1b'), std::string::npos);
    EXPECT_EQ(log.find("\n[forged]"), std::string::npos);
    EXPECT_NE(log.find("evil\\x0A[forged]"), std::string::npos) << log;
}

TEST_F(ProgramOutput, LinesThatItCausesAreBoundedAndCounted) {
    own.start_logged_service();
    constexpr int calls = 3000;
    auto client = connect();
    const std::string no_interface = wire_bytes{}.put_text("none").str();
    const auto ask = [&](raw_client& by, int times) {
        const uint64_t service = by.object(0, "create_service_instance");
        for (int i = 0; i < times; ++i) ASSERT_TRUE(by.call(service, "open_interface", no_interface));
    };
    ask(*client, calls);
    EXPECT_NE(own.logged().find("further ones are left out"), std::string::npos);
    client.reset();
    EXPECT_TRUE(eventually([&] { return own.logged().find("were left out") != std::string::npos; }));
    for (int i = 0; i < 400; ++i) { // or each would begin anew
        raw_client fleeting{own.folder(), "fleeting"};
        ask(fleeting, 1);
    }
    const std::string log = own.logged();
    EXPECT_LT(std::ranges::count(log, '\n'), 1000) << "hundreds in ten seconds";
    EXPECT_NE(connect()->object(0, "create_service_instance"), 0U);
}
