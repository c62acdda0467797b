// The consumer for people in every situation that a line gets into: exit code, text and JSON, one row each.
#include "support/consumer_shell.h"

#include <gmock/gmock.h>

#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

using namespace test_support;
using cli::cause;
using testing::HasSubstr;
using namespace consumer;

namespace {

// One of doctor's, of its answer in JSON; null when there is none of this name.
nlohmann::json finding_of(const std::string& check, const std::string& answer) {
    const auto all = nlohmann::json::parse(answer, nullptr, false);
    if (all.is_object())
        for (const auto& each : all["checks"])
            if (each["check"] == check) return each;
    ADD_FAILURE() << "no '" << check << "' in " << answer;
    return {{"check", ""}, {"grade", ""}, {"found", ""}, {"remedy", ""}};
}

} // namespace

TEST(CommandLine, FaultsInTheArguments) {
    const test_system own;
    // Numbers, each kind of option at least once.
    const struct {
        const char *line, *says;
    } numbers[]{
        {"grab --frames 0", "--frames: '0' is no whole number of 1 or more"},
        {"grab --buffers -1", "--buffers: '-1' is no whole number from 1 to 100000"},
        {"grab --buffers 18446744073709551615", "--buffers: '18446744073709551615' is no whole number from 1 to"},
        {"grab --save -1", "--save: '-1' is no whole number of 0 or more"},
        {"grab --frame-timeout -1", "--frame-timeout: '-1' is no whole number from 1 to 1000000000"},
        {"grab --reconnect -1", "--reconnect: '-1' is no whole number from 0 to"},
        {"grab --hold -1", "--hold: '-1' is no whole number from 0 to"},
        {"grab --trigger nan", "--trigger: 'nan' is no number from 0.001 to 100000"},
        {"list --timeout -1", "--timeout: '-1' is no whole number from 0 to 3600000"},
        {"watch --seconds -1", "--seconds: '-1' is no whole number from 0 to"},
        {"doctor --watch --count -1", "--count: '-1' is no whole number of 0 or more"},
        {"doctor --watch --interval 0", "--interval: '0' is no number from 0.05 to 3600"},
        {"action --device-key 1 --group-key 1 --group-mask 1 --at -1", "--at: '-1' is no whole number of 0 or more"},
        {"action --device-key 1 --group-key -1 --group-mask 1", "--group-key: '-1' is no whole number from 0 to"},
        {"events --count -1", "--count: '-1' is no whole number of 0 or more"},
        {"events --wait -2", "--wait: '-2' is no whole number from -1 to"},
        {"exec X --wait -5", "--wait: '-5' is no whole number from 0 to"},
        {"plan --rate abc", "--rate: 'abc' is no number from 0.001 to 1000000"},
        {"firmware X --longest 0", "--longest: '0' is no whole number from 1 to"},
        {"convert X --from Mono8 --to RGB8 --width 0 --height 1", "--width: '0' is no whole number from 1 to"},
    };
    for (const auto& [line, says] : numbers) expect_rows(own, {{line, cause::arguments, says}});
    const std::string folder = own.folder(), converted = " --from Mono8 --to RGB8 --width 8 --height 8";
    expect_rows(own,
                {{"convert /dev/zero" + converted, cause::arguments, "name the file to write with --output"},
                 {"convert /no/such" + converted, cause::arguments, "Cannot read '/no/such': No such file"},
                 {"convert " + folder + converted, cause::arguments, "Cannot read '" + folder + "': Is a directory"},
                 {"convert /dev/null" + converted, cause::arguments, "'/dev/null': 8 x 8 pixels of Mono8 take 64"},
                 {"force-ip 300.1.1.1", cause::arguments, "'300.1.1.1' is no IPv4 address"},
                 {"force-ip 10.0.0.1 --mask 3", cause::arguments, "'3' is no IPv4 address"},
                 {"ip persistent --address 300.1.1.1", cause::arguments, "'300.1.1.1' is no IPv4 address"},
                 {"load /dev/null", cause::arguments, "There is no setting in '/dev/null'"},
                 {"features --changed /dev/null", cause::arguments, "There is no setting in '/dev/null'"},
                 {"env --systemd --sh", cause::arguments, "excludes"},
                 {"env --cti " + folder, cause::no_library, "'" + folder + "' is a folder"}});
    expect_rows(own, {{"nonsense", cause::arguments, "nonsense"},
                      {"--device left get Width", cause::arguments, "'--device' stands before the command"},
                      {"ip shwo", cause::arguments, "There is no command 'ip shwo'. Did you mean 'show"},
                      {"force-ip 10.0.0.255", cause::arguments, "the broadcast address of its network"},
                      {"firmware ''", cause::arguments, "Cannot read '': No such file"},
                      {"set Width 1 2", cause::arguments, "'Width' is no NAME=VALUE"},
                      {"grab --set Width", cause::arguments, "'Width' is no NAME=VALUE"},
                      {"events --set Width", cause::arguments, "'Width' is no NAME=VALUE"},
                      {"grab --format Mono99", cause::arguments, "'Mono99' is no pixel format"},
                      {"load /no/such", cause::arguments, "Cannot read '/no/such'"},
                      {"list --cti /no/such.cti", cause::no_library, "There is no file '/no/such.cti'"},
                      {"list --cti /dev/null", cause::no_library, "Cannot load '/dev/null'"}});
    EXPECT_THAT(run(own, "cd '" + folder + "'; echo >x.cti; '" + program + "' list --cti x.cti").errors,
                HasSubstr("Cannot load '" + folder + "/x.cti'"));
    // The flag is known behind the command too, whose arguments are wrong.
    expect_error(run(own, "orv-gentl list --nonsense --json").json(), cause::arguments, "--nonsense", "behind");
    const answer version = run(own, "orv-gentl --version");
    EXPECT_EQ(version.exit_code, 0);
    EXPECT_THAT(version.output, HasSubstr("1.3.1.860"));
}

TEST(CommandLine, HelpListsOptionsWhereTheyDoSomething) {
    const test_system own;
    const struct {
        const char *command, *option;
        bool has;
    } rows[]{
        {"get", "--access", true},       {"info", "--device", true},        {"info", "--access", false},
        {"force-ip", "--access", false}, {"ip show", "--access", false},    {"firmware", "--access", false},
        {"env", "--cti", true},          {"env", "--interface", false},     {"env", "--timeout", false},
        {"self-test", "--cti", true},    {"self-test", "--timeout", false}, {"list", "--device", true},
    };
    for (const auto& [command, option, has] : rows)
        EXPECT_EQ(run(own, std::string{"orv-gentl "} + command + " --help").output.contains(option), has)
            << command << ' ' << option;
}

// Beside stand-ins for the other two programs.
TEST(CommandLine, SelfTestTellsWhatItSaw) {
    const test_system own;
    const std::string folder = own.folder() / "bin";
    std::filesystem::create_directory(folder);
    std::filesystem::copy_file(program, folder + "/orv-gentl");
    const auto with = [&](const std::string& body, const std::string& place = "") {
        for (const std::string each : {"/orv-gev-camera-sim", "/orv-gentl-gev-service"}) {
            std::ofstream{folder + each} << "#!/bin/sh\n" << body << '\n';
            std::filesystem::permissions(folder + each, std::filesystem::perms{0755});
        }
        return run(own, place + " '" + folder + "/orv-gentl' self-test --cti /dev/null");
    };
    EXPECT_THAT(with("exit 1").errors, HasSubstr("The simulated camera does not start: it ended without a word."));
    EXPECT_THAT(with("", "TMPDIR=/dev/null").errors, HasSubstr("Cannot make a folder in '/dev/null': Not a directory"));
    const std::string deep = folder + '/' + std::string(80, 'x'); // beyond what a socket's path may have
    std::filesystem::create_directory(deep);
    EXPECT_THAT(with("echo $ORV_GENTL_RUNTIME_DIR; exit 1", "TMPDIR=" + deep).errors, HasSubstr("start: /tmp/orv-"));
    const answer unloaded = with("echo ready; exec sleep 60");
    EXPECT_EQ(unloaded.output, "ok  simulated camera\nok  service\n");
    EXPECT_THAT(unloaded.errors, HasSubstr("Cannot load '/dev/null'"));
}

TEST(CommandLine, WithoutAService) {
    const test_system own;
    const std::string folder = own.folder();
    const std::string socket = folder + "/orv-gentl-gev_service_pipe_1.3.1.860_rel";
    for (const char* line : {"list", "info", "features", "get Width", "set Width=1", "grab", "save file", "exec X"}) {
        SCOPED_TRACE(line);
        expect_rows(own, {{line, cause::no_service, "'" + folder + "' ($ORV_GENTL_RUNTIME_DIR): No such file"}});
    }
    expect_rows(own, {{"list", cause::no_service, "Start it: orv-gentl-gev-service"},
                      {"list", cause::no_service,
                       "Failed to connect to service via service-pipe 'orv-gentl-gev_service_pipe_1.3.1.860_rel'. CTI "
                       "version '1.3.1.860'."}});
    const answer nowhere = run(own, "ORV_GENTL_RUNTIME_DIR=/no/such orv-gentl list");
    EXPECT_EQ(nowhere.exit_code, cli::row_of(cause::no_service).exit_code);
    EXPECT_THAT(nowhere.errors, HasSubstr("there is no folder '/no/such' ($ORV_GENTL_RUNTIME_DIR)"));
    EXPECT_THAT(nowhere.errors, HasSubstr("mkdir -m 700 '/no/such'"));

    std::ofstream{own.folder() / "settings.json"} << R"({"log_level": 6})";
    const auto settings = [&](const std::string& file) {
        return finding_of(
            "settings files",
            run(own, "XDG_CONFIG_HOME=/no/such ORV_GENTL_GEV_PROP_INIT=" + file + " orv-gentl doctor --json").output);
    };
    const auto used = settings(folder + "/settings.json"), missing = settings("/no/such");
    EXPECT_EQ(used["grade"], "ok");
    EXPECT_THAT(used["found"].get<std::string>(), testing::EndsWith(folder + "/settings.json"));
    EXPECT_EQ(missing["grade"], "advice");
    EXPECT_THAT(missing["found"].get<std::string>(), HasSubstr("Settings file '/no/such' of ORV_GENTL_GEV_PROP_INIT"));
    std::ofstream{own.folder() / "log.json"} << R"({"service_log_file": "/no/such/log"})";
    EXPECT_EQ(settings(folder + "/log.json")["found"], "'service_log_file': there is no folder '/no/such'");

    // What is wrong with the library keeps nothing else from being looked at; commands can be pasted.
    const auto all = run(own, "env -u GENICAM_GENTL64_PATH '" + program + "' doctor --json").json();
    for (const auto& each : all["checks"]) {
        const std::string remedy = each["remedy"];
        if (remedy.starts_with("eval ") || remedy.starts_with("nmcli ")) {
            std::ofstream{own.folder() / "remedy"} << remedy;
            EXPECT_EQ(run(own, "sh -n '" + folder + "/remedy'").exit_code, 0) << remedy;
        }
    }
    const answer no_library = run(own, "orv-gentl doctor --json --cti /no/such.cti");
    EXPECT_EQ(finding_of("library", no_library.output)["grade"], "bad");
    EXPECT_EQ(finding_of("settings files", no_library.output)["grade"], "ok");

    std::istringstream lines{run(own, "orv-gentl doctor").output};
    for (std::string line; std::getline(lines, line);)
        EXPECT_TRUE(line.starts_with("ok ") || line.starts_with("advice ") || line.starts_with("BAD ") ||
                    line.starts_with("   "))
            << line;
    std::ofstream{own.folder() / "orv-gentl-gev_service_pipe_1.2_rel"} << "no socket";
    EXPECT_THAT(run(own, "orv-gentl list").errors, testing::Not(HasSubstr("other versions")));
    std::ofstream{socket} << "a file in the socket's place";
    expect_rows(own, {{"list", cause::no_service, "the socket in"}});
}

TEST(CommandLine, OfAnotherUser) {
    if (geteuid() != 0) GTEST_SKIP() << "takes root, to be somebody else";
    test_system own;
    own.start_service();
    // The folder is closed to all others; the answer's file was opened before.
    const answer refused = run(own, "setpriv --reuid 65534 --regid 65534 --clear-groups '" + program + "' list");
    EXPECT_EQ(refused.exit_code, cli::row_of(cause::no_service).exit_code) << refused.errors;
    EXPECT_THAT(refused.errors, HasSubstr("It belongs to user 'root'"));

    test_system grouped{{"--group", "daemon"}};
    grouped.start_service();
    std::filesystem::permissions(grouped.folder(), std::filesystem::perms{0755});
    const answer outside = run(grouped, "setpriv --reuid 65534 --regid 65534 --clear-groups '" + program + "' list");
    EXPECT_EQ(outside.exit_code, cli::row_of(cause::no_service).exit_code) << outside.errors;
    EXPECT_THAT(outside.errors, HasSubstr("Its group is 'daemon': sudo adduser"));
    const answer ill =
        run(grouped, "setpriv --reuid 65534 --regid 65534 --clear-groups '" + program + "' doctor --json");
    const auto found = finding_of("local service", ill.output);
    EXPECT_EQ(found["remedy"], "Its group is 'daemon': sudo adduser USER daemon, and log in again.");
    EXPECT_THAT(found["found"].get<std::string>(), testing::Not(HasSubstr("adduser")));
}

// A host with the installed units, as far as this program sees of it: the folders of systemd, of accounts and of
// sockets are the test's own.
TEST(CommandLine, BesideTheInstalledUnits) {
    const test_system own;
    if (geteuid() != 0 || run(own, "unshare -m true").exit_code != 0 || !std::filesystem::exists("/usr/bin/systemctl"))
        GTEST_SKIP() << "takes root with namespaces of mounts, and a systemctl to put the test's own over";
    const std::string folder = own.folder();
    std::filesystem::permissions(own.folder(), std::filesystem::perms{0755});
    std::filesystem::create_directory(folder + "/session");
    std::ofstream{folder + "/unit"} << "[Socket]\nSocketGroup=daemon\n"
                                       "ListenSequentialPacket=/run/orv-gentl-gev/orv-gentl-gev_service_pipe_1.2_rel\n";
    std::ofstream{folder + "/group"} << "root:x:0:\ndaemon:x:1:nobody\nnogroup:x:65534:\n";
    std::ofstream{folder + "/systemctl"} << "#!/bin/sh\n[ $1 = show ] || { echo active; exit; }\n"
                                            "echo ActiveState=activating; echo SubState=auto-restart\n"
                                            "echo Result=exit-code; echo NRestarts=7\n";
    std::filesystem::permissions(folder + "/systemctl", std::filesystem::perms{0755});
    const auto within = [&](const std::string& set_up, const std::string& as, const std::string& words) {
        std::ofstream{folder + "/script"} << "set -e\ncd '" << folder
                                          << "'\nmount -t tmpfs none /run\nmount -t tmpfs none /usr/local/lib\n"
                                             "mkdir -p /run/systemd/system /usr/local/lib/systemd/system\n"
                                             "cp unit /usr/local/lib/systemd/system/orv-gentl-gev.socket\n"
                                             "mount --bind systemctl /usr/bin/systemctl\n"
                                          << set_up << "\nexec env -u ORV_GENTL_RUNTIME_DIR XDG_RUNTIME_DIR=" << folder
                                          << "/session " << as << " '" << program << "' " << words << '\n';
        return run(own, "unshare -m sh '" + folder + "/script'");
    };
    const std::string nobody = "setpriv --reuid 65534 --regid 65534 ";
    EXPECT_THAT(within("", "", "list").errors, HasSubstr("Start it: sudo systemctl start orv-gentl-gev.socket"));
    EXPECT_THAT(within("ln -s " + folder + " /run/orv-gentl-gev", "", "list").errors,
                HasSubstr("in '" + folder + "/session' ($XDG_RUNTIME_DIR)"));

    const answer ill = within("", "", "doctor --json");
    const auto failing = finding_of("orv-gentl-gev.service", ill.output);
    EXPECT_EQ(failing["grade"], "bad");
    EXPECT_EQ(finding_of("orv-gentl-gev.socket", ill.output)["found"],
              "'/usr/local/lib/systemd/system/orv-gentl-gev.socket' is another version's: it listens at "
              "'/run/orv-gentl-gev/orv-gentl-gev_service_pipe_1.2_rel'");
    EXPECT_EQ(failing["found"], "ends and is started again (exit-code, 7 times)");
    EXPECT_THAT(failing["remedy"].get<std::string>(), HasSubstr("journalctl -u orv-gentl-gev.service"));
    EXPECT_EQ(finding_of("local service", ill.output)["remedy"], "Start it: sudo systemctl start orv-gentl-gev.socket");

    // A drop-in names another group than the file, and systemd tells.
    std::ofstream{folder + "/edited"} << "#!/bin/sh\ncase $* in *SocketGroup*) echo LoadState=loaded; echo "
                                         "'Listen=/run/x (SequentialPacket)'; echo SocketGroup=daemon;; esac\n";
    std::filesystem::permissions(folder + "/edited", std::filesystem::perms{0755});
    const std::string edited = "sed -i s/=daemon/=orv-gentl/ /usr/local/lib/systemd/system/*\n"
                               "mount --bind edited /usr/bin/systemctl";
    const std::string mask = "ln -sf /dev/null /usr/local/lib/systemd/system/orv-gentl-gev.socket";
    const std::string unmask = "sudo systemctl unmask orv-gentl-gev.socket && sudo systemctl ";
    EXPECT_THAT(within(mask, "", "list").errors, HasSubstr("Start it: " + unmask + "start orv-gentl-gev.socket"));
    const struct {
        std::string set_up;
        const char *groups, *grade, *found, *remedy;
    } rows[]{
        {edited, "--clear-groups", "bad", "user 'nobody' is no member",
         "sudo adduser nobody daemon   # and log in again"},
        {"", "--clear-groups", "bad", "user 'nobody' is no member", "sudo adduser nobody daemon   # and log in again"},
        {"mount --bind group /etc/group", "--clear-groups", "bad", "a member, but this login is from before",
         "log in again (a desktop: out of the session and in)"},
        {"mount --bind group /etc/group", "--init-groups", "ok", "a member", ""},
    };
    for (const auto& each : rows) {
        SCOPED_TRACE(each.found);
        const auto found =
            finding_of("group 'daemon'", within(each.set_up, nobody + each.groups, "doctor --json").output);
        EXPECT_EQ(found["grade"], each.grade);
        EXPECT_EQ(found["found"], each.found);
        EXPECT_EQ(found["remedy"], each.remedy);
    }
}

TEST(CommandLine, TheVariableIsSetOnceHoweverOftenItIsAsked) {
    const test_system own;
    const answer twice = run(own, "export GENICAM_GENTL64_PATH=/others; for i in 1 2; do eval \"$('" + program +
                                      "' env --sh)\"; done; echo $GENICAM_GENTL64_PATH; unset GENICAM_GENTL64_PATH; "
                                      "set -u; eval \"$('" +
                                      program + "' env --sh)\"; echo /others:$GENICAM_GENTL64_PATH");
    std::istringstream lines{twice.output};
    std::string beside, alone;
    std::getline(lines, beside);
    std::getline(lines, alone);
    EXPECT_EQ(beside, alone) << twice.errors;
    EXPECT_THAT(beside, HasSubstr("/others:/"));
    const std::string odd = own.folder() / "a b%$x\"", shown = own.folder().string() + "/a b";
    std::filesystem::create_directory(odd);
    std::ofstream{odd + "/x.cti"}.flush();
    const std::string env = "'" + program + "' env --cti '" + odd + "/x.cti' ";
    EXPECT_EQ(run(own, "unset GENICAM_GENTL64_PATH; eval \"$(" + env + ")\"; echo $GENICAM_GENTL64_PATH").output,
              odd + '\n');
    for (const auto& [place, line] :
         {std::pair{"--systemd", "Environment=\"GENICAM_GENTL64_PATH=" + shown + "%%$x\\\"\"\n"},
          {"--docker", "ENV GENICAM_GENTL64_PATH=\"" + shown + "%\\$x\\\"\"\n"},
          {"--python", "h.add_file(\"" + shown + "%$x\\\"/x.cti\")\n"}})
        EXPECT_EQ(run(own, env + place).output, line);
}

TEST(CommandLine, WithoutACamera) {
    test_system own;
    own.start_service();
    expect_rows(own, {{"get Width", cause::no_camera, "No camera was found. 'orv-gentl doctor' tells why."},
                      {"info --device left", cause::no_camera, "so none is 'left'"},
                      {"list --device left", cause::no_camera, "so none is 'left'"},
                      {"list --interface eth77", cause::no_camera, "There is no interface 'eth77'. There are:"},
                      {"info --interface eth77", cause::no_camera, "There is no interface 'eth77'"},
                      {"features --module interface --device left", cause::no_camera, "so none is 'left'"}});
    EXPECT_EQ(run(own, "orv-gentl list").exit_code, 0);
    const answer elsewhere = run(own, "cd '" + own.folder().string() +
                                          "'; mkdir none; ORV_GENTL_RUNTIME_DIR=$PWD/none orv-gentl doctor --json");
    const std::string remedy = finding_of("other services on this host", elsewhere.output)["remedy"];
    EXPECT_THAT(remedy, testing::StartsWith("export ORV_GENTL_RUNTIME_DIR='"));
    EXPECT_THAT(remedy, HasSubstr("'" + own.folder().string() + "'"));
    const answer linked = run(own, "cd '" + own.folder().string() + "/none'; ln -s .. l; ORV_GENTL_RUNTIME_DIR=l '" +
                                       program + "' doctor --json");
    EXPECT_THAT(finding_of("other services on this host", linked.output)["why"].get<std::string>(),
                testing::Not(HasSubstr("where none listens")));
    EXPECT_EQ(run(own, "env -i '" + program + "' --version").exit_code, 0);
    EXPECT_EQ(run(own, "env -u HOME -u XDG_CONFIG_HOME -u XDG_CACHE_HOME '" + program + "' list").exit_code, 0);
}

TEST(CommandLine, TwoCamerasThatAreAlike) {
    test_system own;
    own.start_camera({"--user-name", "left"});
    own.start_camera({"--user-name", "left"});
    own.start_service();
    expect_rows(own, {{"get Width --device left", cause::ambiguous, "2 cameras fit 'left'"},
                      {"set Width=8 --device left", cause::ambiguous, "Orv-SimCam-CAM1"},
                      {"info --device SimCam", cause::ambiguous, "2 cameras fit 'SimCam'"},
                      {"get Width", cause::ambiguous, "2 cameras fit; say which by --device"},
                      {"get Width --device right", cause::no_camera, "No camera is 'right'. There are:"},
                      {"list --device right", cause::no_camera, "No camera is 'right'. There are:"},
                      {"ip show --device right", cause::no_camera, "No camera is 'right'. There are:"}});
    for (const std::string& one : {std::string{"CAM1"}, std::string{"Orv-SimCam-CAM1"}, own.camera_address(1)}) {
        const answer found = run(own, "orv-gentl get DeviceSerialNumber --device " + one);
        EXPECT_EQ(found.output, "CAM1\n") << one << found.errors;
        const auto shown = run(own, "orv-gentl ip show --json --device " + one).json();
        EXPECT_EQ(shown["devices"].size(), 1U) << one << shown;
        auto listed = run(own, "orv-gentl list --json --device " + one).json();
        EXPECT_EQ(listed["devices"].size(), 1U) << one << listed;
    }
    auto listed = run(own, "orv-gentl list --json").json();
    ASSERT_EQ(listed["devices"].size(), 2U) << listed;
    EXPECT_EQ(listed["devices"][1]["address"], own.camera_address(1));
    const std::string mac = listed["devices"][1]["mac"];
    EXPECT_EQ(run(own, "orv-gentl get DeviceSerialNumber --device " + mac).output, "CAM1\n") << mac;
}

TEST(CommandLine, NamesOfCamerasCommandNoTerminalAndNoShell) {
    test_system own;
    own.start_camera(small({"--user-name", "\x1b[2J\xC2\x9B\n\xC3\xA4\xFF", "--model", "it's *"}));
    own.start_service();
    const std::string name = "\\x1B[2J\\xC2\\x9B\\x0A\xC3\xA4\\xFF";
    EXPECT_THAT(run(own, "orv-gentl list").output, HasSubstr(" " + name + " "));
    EXPECT_THAT(run(own, "orv-gentl get Width --device none").errors, HasSubstr("name '" + name + "'  on lo"));
    EXPECT_THAT(run(own, "orv-gentl plan --link 100").output, HasSubstr("--device 'Orv-it'\\''s *-CAM0' "));
}

TEST(CommandLine, BesideAnotherController) {
    small_system own;
    const open_camera holder;
    expect_rows(own, {{"set Width=160", cause::busy, "Camera 'Orv-SimCam-CAM0' is in use"},
                      {"grab", cause::busy, "(pid " + std::to_string(getpid()) + ", running since 2"},
                      {"get Width --access control", cause::busy, "'features' and 'describe' work beside it"}});
    auto refused = run(own, "orv-gentl features --json --access exclusive").json()["error"];
    EXPECT_EQ(refused["producer"], "gevdrv-status: ERR_GEV_STATUS_WRITE_PROTECT") << refused;
    EXPECT_EQ(run(own, "orv-gentl get Width").output, "320\n");
    EXPECT_EQ(run(own, "orv-gentl describe Width").exit_code, 0);
    EXPECT_EQ(run(own, "orv-gentl features").exit_code, 0);
}

TEST(CommandLine, FeaturesThatAreNotOrDoNot) {
    small_system own;
    expect_rows(own, {{"get Widht", cause::feature, "There is no feature 'Widht'. Did you mean 'Width"},
                      {"set Width=1", cause::feature, "It takes 8 to 2448 in steps of 8."},
                      {"set Width=wide", cause::feature, "'wide' is no integer for feature 'Width'"},
                      {"set PixelFormat=Mono88", cause::feature, "has no entry 'Mono88'. Did you mean 'Mono8"},
                      {"set DeviceSerialNumber=1", cause::feature, "Cannot set feature 'DeviceSerialNumber'"},
                      {"exec Width", cause::feature, "is a Integer, not a command"},
                      {"get Width AcquisitionStart", cause::feature, "'AcquisitionStart': it is a Command"},
                      {"events --wait 100", cause::no, "No event within 100 ms."},
                      {"grab --set Width=1", cause::feature, "It takes 8 to 2448"},
                      {"get Width TriggerSoftwar", cause::feature, "Did you mean 'TriggerSoftware'"}});
    EXPECT_EQ(run(own, "orv-gentl grab --set Width=1").output, "") << "no table of a run that was none";
    const answer two = run(own, "orv-gentl set --json Width=160 Height=99999");
    auto object = two.json();
    EXPECT_EQ(object["set"], nlohmann::json::parse(R"([{"name": "Width", "asked": "160", "value": 160}])")) << object;
    expect_error(object, cause::feature, "'Height'", "what came before is told");
    // Real types, and addresses as addresses.
    auto values =
        run(own, "orv-gentl get --json Width ExposureTime ChunkModeActive PixelFormat GevCurrentIPAddress").json();
    EXPECT_EQ(values["features"]["Width"], 160) << values;
    EXPECT_TRUE(values["features"]["ExposureTime"].is_number_float()) << values;
    EXPECT_TRUE(values["features"]["ChunkModeActive"].is_boolean()) << values;
    EXPECT_EQ(values["features"]["PixelFormat"], "Mono8") << values;
    EXPECT_EQ(values["features"]["GevCurrentIPAddress"], own.camera_address(0)) << values;
    EXPECT_EQ(run(own, "orv-gentl set GevPersistentIPAddress=10.1.2.3").output, "GevPersistentIPAddress = 10.1.2.3\n");
    auto table = run(own, "orv-gentl get --json LUTValueAll").json();
    EXPECT_GT(table["features"]["LUTValueAll"].get<std::string>().size(), 128U) << "no register is cut";
}

// Alphabetically the value would come before its selector.
TEST(CommandLine, SettingsOfAGrabKeepTheirOrder) {
    small_system own;
    const answer grabbed =
        run(own, "orv-gentl grab --frames 1 --quiet --set EventSelector=ExposureEnd --set EventNotification=On "
                 "--set Width=160 --set Width=200 --json");
    EXPECT_EQ(grabbed.exit_code, 0) << grabbed.errors;
    EXPECT_EQ(grabbed.json()["width"], 200);
    EXPECT_THAT(run(own, "orv-gentl save").output, HasSubstr("EventNotification[EventSelector=ExposureEnd]=On\n"));
}

TEST(CommandLine, OutputThatCannotBeWritten) {
    small_system own;
    const int expected = cli::row_of(cause::output).exit_code;
    const std::string pipe = own.folder() / "pipe";
    for (const std::string line :
         {"list", "info", "features", "get Width", "set Width=160", "save", "--help", "--version", "grab --frames 2",
          "doctor", "ip show", "events --notify ExposureEnd --acquire"}) {
        for (const std::string& form : {line, std::string{"--json " + line}}) {
            const answer full = run(own, "orv-gentl " + form + " >/dev/full");
            EXPECT_EQ(full.exit_code, form == "--json save" ? cli::row_of(cause::arguments).exit_code : expected)
                << form << '\n'
                << full.errors;
            EXPECT_THAT(full.errors, HasSubstr(form == "--json save" ? "file of their own" : "No space left")) << form;
        }
        EXPECT_EQ(run(own, "orv-gentl " + line + " >&-").exit_code, expected) << line;
        // The reader has gone: a pipe that is open for writing alone.
        const answer broken = run(own, "rm -f '" + pipe + "'; mkfifo '" + pipe + "'; exec 3<>'" + pipe + "' 4>'" +
                                           pipe + "' 3<&-; orv-gentl " + line + " >&4");
        EXPECT_EQ(broken.exit_code, expected) << line << '\n' << broken.errors;
        EXPECT_THAT(broken.errors, HasSubstr("Broken pipe")) << line;
    }
    EXPECT_THAT(run(own, "orv-gentl grab --frames 2 >/dev/full").errors, HasSubstr("160x240")) << "it is summed up";
    EXPECT_EQ(run(own, "orv-gentl set Width=160 Width=1 >/dev/full").exit_code, cli::row_of(cause::feature).exit_code)
        << "the first reason";
    expect_rows(own, {{"grab --frames 2 --output /proc/none", cause::output, "Cannot make folder '/proc/none'"},
                      {"save /proc/none", cause::output, "Cannot write '/proc/none'"},
                      {"save /dev/full", cause::output, "Cannot write '/dev/full': No space left"}});
    auto blocked = run(own, "orv-gentl grab --json --quiet --frames 2 --output /proc/none").json();
    EXPECT_EQ(blocked["frames_delivered"], 0) << "it is known before the camera starts: " << blocked;
}

TEST(CommandLine, AFullDiskEndsAGrabThatIsSummedUp) {
    if (geteuid() != 0) GTEST_SKIP() << "takes root, to mount a small disk";
    small_system own{{"--frame-rate", "100"}};
    const std::string disk = own.folder() / "disk";
    const answer full = run(
        own, "mkdir '" + disk + "'; unshare -m bash -c \"mount -t tmpfs -o size=200k none '" + disk +
                 "' || exit 99; '" + program + "' grab --json --quiet --raw --frames 100000 --save 50000 --output '" +
                 disk + "'; code=\\$?; find '" + disk +
                 "' -type f '(' -name '.*' -o -name '*.raw' ! -size 76800c ')' | wc -l; exit \\$code\"");
    if (full.exit_code == 99) GTEST_SKIP() << "no mounts here: " << full.errors;
    EXPECT_EQ(full.exit_code, cli::row_of(cause::output).exit_code) << full.errors;
    std::istringstream lines{full.output};
    std::string first, halves;
    std::getline(lines, first);
    std::getline(lines, halves);
    auto object = nlohmann::json::parse(first, nullptr, false);
    expect_error(object, cause::output, "No space left", "a full disk");
    EXPECT_GE(object["frames_delivered"], 2) << object;
    EXPECT_GE(object["files"].size(), 1U) << object;
    EXPECT_EQ(halves, "0") << "no half-written files stay";
}

namespace {

struct end_of_a_run {
    const char* name;
    std::string options;
    void (*strike)(test_system& own, process& consumer);
    cause why;
    std::string text;
    bool has_frames;
};
void PrintTo(const end_of_a_run& given, std::ostream* out) { *out << given.name; }
class EndOfARun : public testing::TestWithParam<end_of_a_run> {};

constexpr auto waiting = "--set TriggerSelector=FrameStart --set TriggerMode=On --set TriggerSource=Software ";

} // namespace

// Whatever ends it: at once, with its cause, and with what had come.
TEST_P(EndOfARun, IsToldWithWhatCame) {
    const auto& [name, options, strike, why, text, has_frames] = GetParam();
    small_system own;
    shell_line line{own, "exec '" + program + "' grab --json --frames 100000 --frame-timeout 600000 " + options};
    // The first progress is of the first frame, or of the first wait.
    ASSERT_TRUE(line.wait_for_errors("/100000 frames")) << line.errors();
    strike(own, line.process());
    const answer ended = line.wait();
    EXPECT_EQ(ended.exit_code, cli::row_of(why).exit_code) << ended.errors;
    auto object = ended.json();
    expect_error(object, why, text, name);
    EXPECT_EQ(object["frames_delivered"] > 0, has_frames) << object;
    EXPECT_EQ(object["interrupted"], why == cause::interrupted) << object;
    if (why != cause::interrupted) return;
    // Stopped and given back: the next one has it at once, in a camera that stands still.
    const open_camera next;
    const auto status = run(own, "orv-gentl get AcquisitionStatus");
    EXPECT_EQ(status.output, "false\n") << status.errors;
}

INSTANTIATE_TEST_SUITE_P(
    CommandLine, EndOfARun,
    testing::Values(
        end_of_a_run{"ctrl_c_while_frames_come", "", [](auto&, auto& consumer) { consumer.signal(SIGINT); },
                     cause::interrupted, "Interrupted.", true},
        end_of_a_run{"sigterm_while_frames_come", "", [](auto&, auto& consumer) { consumer.signal(SIGTERM); },
                     cause::interrupted, "Interrupted.", true},
        end_of_a_run{"ctrl_c_while_nothing_comes", waiting, [](auto&, auto& consumer) { consumer.signal(SIGINT); },
                     cause::interrupted, "Interrupted.", false},
        end_of_a_run{"ctrl_c_while_a_buffer_is_held", "--hold 1000000000",
                     [](auto&, auto& consumer) { consumer.signal(SIGINT); }, cause::interrupted, "Interrupted.", true},
        end_of_a_run{"camera_gone", "", [](auto& own, auto&) { own.camera(0).signal(SIGKILL); }, cause::lost,
                     "Device lost", true},
        end_of_a_run{"service_gone", "", [](auto& own, auto&) { own.service().signal(SIGKILL); }, cause::lost,
                     "Camera 'Orv-SimCam-CAM0' or its service went after", true}),
    [](const auto& chosen) { return std::string{chosen.param.name}; });

TEST(CommandLine, NoFramesHaveAReason) {
    test_system own;
    own.start_camera(small());
    own.start_camera(small({"--loss", "1"}));
    own.start_service();
    const std::string first = "grab --quiet --frame-timeout 700 --device CAM0 ";
    expect_rows(
        own, {{first + waiting, cause::timeout, "waits for a trigger FrameStart from Software"},
              {first + "--set TriggerMode=Off --set AcquisitionMode=SingleFrame", cause::timeout,
               "AcquisitionMode is SingleFrame: the camera sends 1 and stops"},
              {first + "--set AcquisitionMode=Continuous --set AcquisitionFrameRate=0.5", cause::timeout,
               "AcquisitionFrameRate is 0.5: a frame takes 2.0 s"},
              {"grab --quiet --frame-timeout 100 --device CAM0 --set AcquisitionMode=Continuous "
               "--set AcquisitionFrameRate=2",
               cause::timeout, "AcquisitionFrameRate is 2: a frame takes 500.0 ms"},
              {"grab --quiet --frame-timeout 700 --device CAM1", cause::timeout, "no packet comes from the camera"}});
}

TEST(CommandLine, PicturesKeepTheirBits) {
    test_system own;
    own.start_camera({"--width", "64", "--height", "16", "--pixel-format", "Mono12"});
    own.start_camera({"--width", "64", "--height", "16", "--pixel-format", "Mono12p"});
    own.start_service();
    const auto files_of = [&](const char* device, const std::string& options) {
        const answer grabbed = run(own, std::string{"orv-gentl grab --json --quiet --frames 1 --device "} + device +
                                            " --output '" + own.folder().string() + "/pictures' " + options);
        EXPECT_EQ(grabbed.exit_code, 0) << grabbed.errors;
        return grabbed.json()["files"];
    };
    auto png = files_of("CAM0", "");
    ASSERT_EQ(png.size(), 1U);
    const std::string bytes = read_file(png[0]["path"].get<std::string>());
    ASSERT_GT(bytes.size(), 26U);
    EXPECT_EQ(bytes[24], 16) << "bit depth of the PNG";
    EXPECT_NE(bytes.find("sBIT\x0C"), std::string::npos);
    EXPECT_EQ(png[0]["note"], "samples of 12 bits moved up by 4 to fill 16");
    EXPECT_THAT(png[0]["path"].get<std::string>(),
                testing::ContainsRegex("Orv-SimCam-CAM0-[0-9]{8}-[0-9]{6}[.][0-9]{3}-000001[.]png"));
    auto packed = files_of("CAM1", "");
    EXPECT_EQ(packed[0]["pixel_format"], "Mono16");
    EXPECT_EQ(packed[0]["note"], "converted from Mono12p to Mono16");
    // Both cameras show the same first picture: the same file but for what only one of them tells.
    auto tiff = files_of("CAM0", "--as tiff"), tiff16 = files_of("CAM1", "--as tiff");
    const std::string plain = read_file(tiff[0]["path"].get<std::string>());
    const std::string raised = read_file(tiff16[0]["path"].get<std::string>());
    constexpr size_t begin = 8, pixels = 64 * 16; // behind the header
    ASSERT_GT(plain.size(), begin + 2 * pixels);
    ASSERT_GT(raised.size(), begin + 2 * pixels);
    const auto sample = [](const std::string& file, size_t i) {
        return static_cast<unsigned char>(file[begin + 2 * i]) | static_cast<unsigned char>(file[begin + 2 * i + 1])
                                                                     << 8;
    };
    for (size_t i = 0; i < pixels; ++i) ASSERT_EQ(sample(raised, i) >> 4, sample(plain, i)) << i;
    auto raw = files_of("CAM1", "--as raw");
    std::filesystem::path side = raw[0]["path"].get<std::string>();
    EXPECT_EQ(std::filesystem::file_size(side), pixels * 3 / 2);
    auto about = nlohmann::json::parse(read_file(side.replace_extension(".json")), nullptr, false);
    EXPECT_EQ(about["pixel_format"], "Mono12p") << about;
    EXPECT_EQ(about["width"], 64) << about;
    EXPECT_EQ(about["device"], "Orv-SimCam-CAM1") << about;
}

TEST(CommandLine, SettingsAreSavedComparedAndLoaded) {
    small_system own;
    const std::string file = "'" + (own.folder() / "saved.txt").string() + "'";
    ASSERT_EQ(run(own, "orv-gentl set EventSelector=Test 'EventNotification[EventSelector=ExposureEnd]=On' "
                       "EventSelector=Test Width=640 OffsetX=1000")
                  .exit_code,
              0);
    const answer saved = run(own, "orv-gentl save " + file);
    ASSERT_EQ(saved.exit_code, 0) << saved.errors;
    const std::string text = read_file(own.folder() / "saved.txt");
    EXPECT_THAT(text, HasSubstr("\nEventNotification[EventSelector=ExposureEnd]=On\n"));
    EXPECT_THAT(text, HasSubstr("\nEventNotification[EventSelector=Test]=Off\n"));
    EXPECT_EQ(run(own, "orv-gentl get EventSelector").output, "Test\n") << "the walk puts selectors back";
    EXPECT_EQ(run(own, "orv-gentl save").output.substr(60), text.substr(60)) << "but for the date";
    const answer same = run(own, "orv-gentl features --changed " + file);
    EXPECT_EQ(same.output, "");
    EXPECT_THAT(same.errors, HasSubstr("Everything is as in"));

    // OffsetX=1000 needs the Width that the camera has not yet, or no longer.
    ASSERT_EQ(
        run(own, "orv-gentl set OffsetX=0 Width=2448 'EventNotification[EventSelector=ExposureEnd]=Off'").exit_code, 0);
    const answer changed = run(own, "orv-gentl features --changed " + file);
    EXPECT_THAT(changed.output, HasSubstr("Width = 2448   (saved: 640)"));
    EXPECT_THAT(changed.output, HasSubstr("EventNotification[EventSelector=ExposureEnd] = Off   (saved: On)"));
    const answer loaded = run(own, "orv-gentl load " + file);
    EXPECT_EQ(loaded.exit_code, 0) << loaded.errors << loaded.output;
    EXPECT_THAT(run(own, "orv-gentl features --changed " + file).errors, HasSubstr("Everything is as in"));

    std::ofstream{own.folder() / "odd.txt"} << "# two that cannot be\nWidth=7\nNone=1\nHeight=120\n";
    const answer odd = run(own, "orv-gentl load --json '" + (own.folder() / "odd.txt").string() + "'");
    auto object = odd.json();
    expect_error(object, cause::feature, "2 of 3 settings did not take", "odd");
    EXPECT_EQ(object["taken"], 1) << object;
    EXPECT_EQ(object["not_taken"][0]["name"], "Width") << object;
    EXPECT_THAT(object["not_taken"][1]["found"].get<std::string>(), HasSubstr("There is no feature 'None'")) << object;
    EXPECT_EQ(run(own, "orv-gentl get Height").output, "120\n");
}

TEST(CommandLine, ThePageForUsersHasEveryCause) {
    const std::string page = read_file(built::source("docs/tools.md"));
    for (const cli::cause_row& each : cli::all_causes()) {
        EXPECT_THAT(page, HasSubstr("| " + std::to_string(each.exit_code) + " | `" + each.name + "` |"));
    }
}
