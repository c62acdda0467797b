// The commands that say much: that their JSON follows the schema, and that what they say is so.
#include "support/consumer_shell.h"

#include <cli/consumer/settings_file.h>

#include <gmock/gmock.h>

#include <signal.h>

#include <algorithm>
#include <fstream>
#include <regex>

using namespace test_support;
using cli::cause;
using testing::HasSubstr;
using namespace consumer;

// One of each command that no row above has; what they answer is compared with the schema.
TEST(CommandLine, EveryAnswerFollowsTheSchema) {
    small_system own{{"--device-version", "1.0.0"}};
    const std::string folder = own.folder();
    const std::string firmware = folder + "/new.fwpack", raw = folder + "/frame.raw", document = folder + "/d.xml";
    process package{{built::program("orv-gev-camera-sim"), "--make-firmware", firmware, "--firmware-version", "2.0"},
                    folder + "/package"};
    ASSERT_EQ(package.wait(), 0);
    std::ofstream{raw} << std::string(64, 'x');
    std::ofstream{document} << "<R><Category Name=\"Root\"><pFeature>A</pFeature></Category>"
                               "<Integer Name=\"A\"><Value>1</Value></Integer></R>";
    for (const std::string line : {"list",
                                   "info",
                                   "features",
                                   "describe PixelFormat",
                                   "describe Nothing",
                                   "get Width LUTValueAll",
                                   "set Width=160",
                                   "exec UserSetLoad",
                                   "save FOLDER/saved",
                                   "features --changed FOLDER/saved",
                                   "load FOLDER/saved",
                                   "doctor",
                                   "env",
                                   "self-test",
                                   "convert FOLDER/frame.raw --from Mono8 --to Mono16 --width 8 --height 8",
                                   "xml FOLDER/d.xml --time",
                                   "ip show",
                                   "grab --frames 2 --quiet --chunks --verify",
                                   "action --device-key 0 --group-key 0 --group-mask 1",
                                   "events --notify Test --exec TestEventGenerate --count 1",
                                   "watch --seconds 1",
                                   "watch --seconds 1 --access readonly",
                                   "plan --link 1000",
                                   "plan --link 1",
                                   "plan",
                                   "support-bundle FOLDER/bundle",
                                   "support-bundle /proc/none/x.tgz",
                                   "firmware FOLDER/new.fwpack"}) {
        std::string command = std::regex_replace(line, std::regex{"FOLDER"}, folder);
        const answer got = run(own, "orv-gentl --json " + command);
        EXPECT_THAT(got.output, testing::StartsWith("{")) << line << got.errors;
    }
    std::string reasons;
    EXPECT_FALSE(follow_the_schema("list\t{\"devices\":[]}\n", reasons)) << "a member is missing";
    EXPECT_THAT(reasons, HasSubstr("'interfaces' is a required property"));
    EXPECT_FALSE(follow_the_schema("get\t{\"features\":{},\"more\":1}\n", reasons)) << "one that nobody told";
    EXPECT_FALSE(follow_the_schema("", reasons)) << "nothing was compared";
}

// Categories that all list each other, selectors without limits, at the end of all numbers and behind one another, and
// a chunk's port whose id cannot be read while the ports are bound.
TEST(CommandLine, ADocumentMadeToHurtIsShownAndSaved) {
    test_system own;
    const std::string file = own.folder() / "hostile.xml";
    constexpr int categories = 30;
    std::string text = "<RegisterDescription><Category Name='Root'><pFeature>C0</pFeature><pFeature>Gain</pFeature>"
                       "<pFeature>Top</pFeature><pFeature>Wide</pFeature></Category>";
    for (int i = 0; i < categories; ++i) {
        text += "<Category Name='C" + std::to_string(i) + "'>";
        for (int other = 0; other < categories; ++other) text += "<pFeature>C" + std::to_string(other) + "</pFeature>";
        text += "<pFeature>Gain</pFeature></Category>";
    }
    constexpr int switches = 40; // of two places each
    for (int i = 0; i < switches; ++i)
        text += "<Boolean Name='S" + std::to_string(i) + "'><Value>0</Value><pSelected>Wide</pSelected></Boolean>";
    std::ofstream{file} << text << R"(
<Integer Name="Wide"><Value>3</Value></Integer>
<Integer Name="Any"><Value>0</Value><pSelected>Gain</pSelected></Integer>
<Integer Name="Gain"><Value>5</Value></Integer>
<Integer Name="Last"><Value>9223372036854775805</Value><Min>9223372036854775805</Min><Max>9223372036854775807</Max>
  <Inc>2</Inc><pSelected>Top</pSelected></Integer>
<Integer Name="Top"><Value>7</Value></Integer>
<Port Name="Chunk"><pChunkID>Id</pChunkID></Port>
<IntReg Name="Id"><Address>0</Address><Length>4</Length><pPort>Device</pPort></IntReg>
<IntReg Name="InChunk"><Address>0</Address><Length>4</Length><pPort>Chunk</pPort></IntReg>
<Port Name="Device"/></RegisterDescription>)";
    own.start_camera({"--document", file});
    own.start_service();
    const answer shown = run(own, "orv-gentl features");
    EXPECT_EQ(shown.exit_code, 0) << shown.errors;
    EXPECT_THAT(shown.output, HasSubstr("[C29]\n"));
    EXPECT_LT(std::ranges::count(shown.output, '\n'), 2 * categories * categories) << "each entered once";
    const answer saved = run(own, "orv-gentl save " + (own.folder() / "saved").string());
    EXPECT_EQ(saved.exit_code, 0) << saved.errors;
    EXPECT_THAT(saved.errors, HasSubstr("Gain: Any has too many choices"));
    EXPECT_THAT(saved.errors, HasSubstr("Left out: Wide: its selectors have more than 65536 choices together\n"));
    const std::string settings = read_file(own.folder() / "saved");
    EXPECT_THAT(settings, HasSubstr("Top[Last=9223372036854775805]=7\nTop[Last=9223372036854775807]=7\n"));
    EXPECT_THAT(settings, Not(HasSubstr("Wide")));
    const answer chunk = run(own, "orv-gentl get InChunk");
    EXPECT_NE(chunk.exit_code, 0) << chunk.output;
    EXPECT_THAT(chunk.errors, HasSubstr("not bound"));
}

TEST(CommandLine, WatchShowsWhoeverStreamsAndWhoIsHeld) {
    test_system own;
    own.start_camera(small({"--frame-rate", "50"}));
    own.start_camera(small({"--frame-rate", "50"}));
    own.start_service();
    const open_camera holder{test_system::serial(1)};
    shell_line line{own, "exec '" + program + "' watch --json"};
    ASSERT_TRUE(line.process().wait_for_output("\"second\""));
    line.process().signal(SIGINT);
    const answer ended = line.wait();
    EXPECT_EQ(ended.exit_code, cli::row_of(cause::interrupted).exit_code) << ended.errors;
    const std::string last = ended.output.substr(ended.output.rfind('\n', ended.output.size() - 2) + 1);
    auto sum = nlohmann::json::parse(last, nullptr, false);
    expect_error(sum, cause::interrupted, "Interrupted.", "watch");
    EXPECT_EQ(sum["kind"], "sum");
    ASSERT_EQ(sum["cameras"].size(), 2U) << sum;
    EXPECT_EQ(sum["cameras"][0]["state"], "streaming") << sum;
    EXPECT_GT(sum["cameras"][0]["frames"], 0) << sum;
    EXPECT_EQ(sum["cameras"][1]["state"], "held") << sum;
    EXPECT_EQ(sum["cameras"][1]["temperature_c"], 41.5) << "it is read beside its holder: " << sum;
    // Stopped and given back.
    const open_camera next{holder, test_system::serial(0)};
    EXPECT_EQ(run(own, "orv-gentl get AcquisitionStatus --device CAM0").output, "false\n");

    shell_line gone{own, "exec '" + program + "' watch --json --device CAM1 --access readonly"};
    ASSERT_TRUE(gone.process().wait_for_output("\"second\""));
    own.camera(1).signal(SIGKILL);
    const answer lost = gone.wait();
    EXPECT_EQ(lost.exit_code, cli::row_of(cause::lost).exit_code) << lost.errors;
}

TEST(CommandLine, APlanThatCannotBe) {
    test_system own;
    own.start_camera({"--width", "640", "--height", "480"});
    own.start_camera({"--width", "640", "--height", "480"});
    own.start_service();
    expect_rows(own, {{"plan", cause::arguments, "Interface 'lo' does not tell its speed: give it with --link"},
                      {"plan --interface eth77 --link 1000", cause::no_camera, "There is no interface 'eth77'"},
                      {"plan --link 200 --rate 90", cause::no, "It does not fit: the cameras need 59.97 MB/s"},
                      {"plan --link 200 --rate 90 --apply", cause::no, "It does not fit"}});
    EXPECT_EQ(run(own, "orv-gentl get DeviceLinkThroughputLimitMode --device CAM0").output, "Off\n")
        << "nothing is written";
    const open_camera holder{test_system::serial(1)};
    expect_rows(own, {{"plan --link 300 --apply", cause::busy, "Camera 'Orv-SimCam-CAM1' is in use"}});
    EXPECT_EQ(run(own, "orv-gentl get DeviceLinkThroughputLimitMode --device CAM0").output, "Off\n") << "all or none";
    EXPECT_EQ(run(own, "orv-gentl plan --link 300").exit_code, 0) << "cameras in use are read";
}

TEST(CommandLine, ASupportBundleHoldsWhatItSays) {
    small_system own;
    const std::string folder = own.folder(), archive = folder + "/bundle.tar.gz";
    const answer packed = run(own, "export HOME='" + folder + "' ORV_GENTL_GEV_DEBUG_FILE='" + folder +
                                       "/pipe' GENICAM_GENTL64_PATH='" + folder +
                                       "/x' SOME_TOKEN=secret; mkfifo ~/pipe; orv-gentl "
                                       "support-bundle --json '" +
                                       archive + "'");
    ASSERT_EQ(packed.exit_code, 0) << packed.errors;
    auto object = packed.json();
    EXPECT_EQ(object["written"], true);
    ASSERT_EQ(run(own, "cd '" + folder + "' && tar xzf bundle.tar.gz").exit_code, 0);
    const std::filesystem::path inside = folder + "/bundle";
    for (const auto& file : object["files"]) {
        const std::string name = file["name"];
        EXPECT_EQ(std::filesystem::file_size(inside / name), file["bytes"].get<uint64_t>()) << name;
        EXPECT_THAT(packed.errors, HasSubstr("  " + name + " (")) << "it is told before";
    }
    const std::string camera = "cameras/lo/Orv-SimCam-CAM0/";
    EXPECT_THAT(read_file(inside / (camera + "registers.txt")),
                HasSubstr("0x00D8  serial number                  \"CAM0\"\n"));
    EXPECT_THAT(read_file(inside / (camera + "document.xml")), HasSubstr("RegisterDescription"));
    EXPECT_THAT(read_file(inside / (camera + "features.json")), HasSubstr("\"AcquisitionFrameRate\""));
    EXPECT_THAT(read_file(inside / "doctor.json"), HasSubstr("\"checks\":["));
    EXPECT_THAT(read_file(inside / "network/sysctl.txt"), HasSubstr("core/rmem_max = "));
    const std::string environment = read_file(inside / "environment.txt");
    EXPECT_THAT(environment, HasSubstr("GENICAM_GENTL64_PATH=~/x\n")) << "the home folder is masked";
    EXPECT_THAT(environment, testing::Not(HasSubstr("secret")));
    EXPECT_THAT(read_file(inside / "manifest.json"), HasSubstr("cannot read '~/pipe'"));
    expect_rows(own, {{"support-bundle '" + folder + "/bundle'", cause::output, "is there already"},
                      {"support-bundle /proc/none/x.tar.gz", cause::output, "Cannot write '/proc/none/x.tar.gz'"},
                      {"support-bundle /dev/full/x", cause::output, "/dev/full"}});
    // Without a camera, or a service, the rest is of use all the same.
    own.stop_service(SIGTERM);
    std::ofstream{folder + "/settings.json"} << R"({"service_log_file": ")" + folder + R"(/said.log"})";
    std::ofstream{folder + "/said.log"} << "what the service said\n";
    std::ofstream{folder + "/journalctl"} << "#!/bin/sh\necho '-- No entries --'\n";
    std::filesystem::permissions(folder + "/journalctl", std::filesystem::perms{0755});
    const answer without = run(own, "PATH='" + folder + "' ORV_GENTL_GEV_PROP_INIT='" + folder +
                                        "/settings.json' orv-gentl support-bundle --json '" + folder + "/rest'");
    EXPECT_THAT(without.errors, HasSubstr("logs/journal.txt: no entries"));
    EXPECT_EQ(read_file(folder + "/rest/logs/service.log"), "what the service said\n");
    EXPECT_GT(std::filesystem::file_size(folder + "/rest/network/addresses.txt"), 0U) << "of a program in /usr/sbin";
    EXPECT_EQ(without.exit_code, 0) << without.errors;
    EXPECT_THAT(without.output, HasSubstr("No service runs"));
    EXPECT_FALSE(std::filesystem::exists(folder + "/rest/cameras"));
}

// What is read of a camera that has gone is no answer with errors in it: no part of its settings is saved as the whole.
TEST(CommandLine, ACameraThatWentIsLost) {
    small_system own;
    open_camera camera;
    const cli::node_map& nodes = camera.remote();
    own.camera(0).signal(SIGKILL);
    own.camera(0).wait();
    const auto cause_of = [](auto&& call) {
        try {
            static_cast<void>(call());
        } catch (const cli::failure& reason) {
            return reason.why();
        }
        return cause::no;
    };
    std::vector<std::string> left_out;
    const auto save = [&] { return cli::collect_settings(nodes, left_out); };
    EXPECT_THAT(cause_of(save), testing::AnyOf(cause::timeout, cause::lost));
    ASSERT_TRUE(eventually([&] { return cause_of([&] { return camera.integer("Width"); }) == cause::lost; }));
    EXPECT_EQ(cause_of(save), cause::lost);
    EXPECT_EQ(cause_of([&] { return cli::describe(cli::require_node(nodes, "Width")); }), cause::lost);
    EXPECT_EQ(cause_of([&] { return cli::compare_settings(nodes, {{{}, "Width", "8"}}); }), cause::lost);
}

TEST(CommandLine, EventsEndWithTheirCause) {
    const struct {
        void (*strike)(test_system& own, process& consumer);
        cause why;
    } rows[]{{[](auto& own, auto&) { own.camera(0).signal(SIGKILL); }, cause::lost},
             {[](auto& own, auto&) { own.service().signal(SIGKILL); }, cause::lost},
             {[](auto&, auto& consumer) { consumer.signal(SIGTERM); }, cause::interrupted}};
    for (const auto& [strike, why] : rows) {
        small_system own;
        shell_line line{own, "exec '" + program + "' events --json --notify Test --exec TestEventGenerate"};
        ASSERT_TRUE(line.process().wait_for_output("\n"));
        strike(own, line.process());
        const answer ended = line.wait();
        EXPECT_EQ(ended.exit_code, cli::row_of(why).exit_code) << ended.errors;
        expect_error(nlohmann::json::parse(ended.output.substr(ended.output.find('\n')), nullptr, false), why, "", "");
    }
}

TEST(CommandLine, DoctorsWatchFindsACameraThatComesBack) {
    small_system own;
    shell_line line{own, "exec '" + program + "' doctor --watch --interval 0.1"};
    ASSERT_TRUE(line.process().wait_for_output("no stream"));
    own.camera(0).signal(SIGKILL);
    own.camera(0).wait();
    ASSERT_TRUE(line.process().wait_for_output("does not answer"));
    own.restart_camera(0, small());
    EXPECT_TRUE(eventually([&] {
        const std::string output = line.process().output();
        return output.rfind("no stream") > output.rfind("does not answer");
    })) << line.process().output();
    own.service().signal(SIGKILL);
    const answer ended = line.wait();
    EXPECT_EQ(ended.exit_code, cli::row_of(cause::lost).exit_code) << ended.output << ended.errors;
}

// Of a stream that goes on behind the picture the rest is left, and its writer told.
TEST(CommandLine, ConvertReadsOnePicture) {
    const test_system own;
    const std::string folder = own.folder();
    const answer converted = run(own, "(head -c 1000000 /dev/zero; echo $? >'" + folder +
                                          "/head') | orv-gentl convert /dev/stdin --from Mono8 --to RGB8 --width 8 "
                                          "--height 8 --output '" +
                                          folder + "/picture'");
    EXPECT_EQ(converted.exit_code, 0) << converted.errors;
    EXPECT_EQ(std::filesystem::file_size(folder + "/picture"), 3 * 64U);
    EXPECT_NE(read_file(folder + "/head"), "0\n");
}
