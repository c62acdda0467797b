// What the consumer does with features, on a document and a device made up here.
#include <cli/consumer/nearest_names.h>
#include <cli/consumer/node_map.h>
#include <cli/consumer/setting.h>
#include <cli/host/host_checks.h>
#include <cli/host/installation_checks.h>
#include <cli/losses/loss_verdict.h>
#include <cli/pictures/picture_converter.h>
#include <cli/posix/kernel_counters.h>
#include <support/built.h>
#include <support/temporary_folder.h>
#include <support/test_system.h>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <img_pipe/filter_table.h>
#include <ipc_rpc/services.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string_view>

namespace {

using namespace std::chrono_literals;

// One command register, which clears itself at the read that `busy_reads` counts down to.
struct slow_device final : GenICam::IDevicePort {
    GenICam::result<std::size_t> read(int64_t, std::span<std::byte> data, unsigned) override {
        ++reads;
        std::ranges::fill(data, std::byte{0});
        if (busy_reads != 0) data[3] = std::byte{1};
        if (busy_reads > 0) --busy_reads;
        return data.size();
    }
    std::error_code write(int64_t, std::span<const std::byte>, unsigned) override {
        ++writes;
        return {};
    }
    int busy_reads = 0; // below 0: for ever
    int reads = 0;
    int writes = 0;
};

struct CommandLine : testing::Test {
    CommandLine() {
        doc = GenICam::create_document(std::string_view{
            "<R><IntReg Name=\"Reg\"><Address>0</Address><Length>4</Length><pPort>Device</pPort></IntReg>"
            "<Command Name=\"C\"><pValue>Reg</pValue><CommandValue>1</CommandValue></Command>"
            "<Integer Name=\"Locked\"><pValue>Reg</pValue><pIsLocked>One</pIsLocked></Integer>"
            "<Integer Name=\"Chained\"><pValue>Reg</pValue><pIsLocked>Chained_Locked</pIsLocked></Integer>"
            "<IntSwissKnife Name=\"Chained_Locked\"><pVariable Name=\"A\">TLParamsLocked</pVariable>"
            "<pVariable Name=\"B\">Sequencer_Val</pVariable><pVariable Name=\"C\">Gate</pVariable>"
            "<Formula>A || B || C</Formula></IntSwissKnife>"
            "<Integer Name=\"Sequencer_Val\"><pValue>Sequencer</pValue></Integer>"
            "<Integer Name=\"Sequencer\"><ToolTip>Steps</ToolTip><Value>3</Value></Integer>"
            "<Integer Name=\"Gate\"><ToolTip>Not on</ToolTip><Value>0</Value></Integer>"
            "<Integer Name=\"TLParamsLocked\"><Visibility>Invisible</Visibility><Value>0</Value></Integer>"
            "<Integer Name=\"Bad\"><pValue>Knife</pValue></Integer>"
            "<IntSwissKnife Name=\"Knife\"><Formula>2 * X</Formula></IntSwissKnife>"
            "<Integer Name=\"Ip\"><Value>0</Value><Min>0</Min><Max>4294967295</Max>"
            "<Representation>IPV4Address</Representation></Integer>"
            "<Integer Name=\"Mac\"><Value>0</Value><Representation>MACAddress</Representation></Integer>"
            "<Integer Name=\"Step\"><Value>4</Value><Min>4</Min><Max>16</Max><Inc>4</Inc></Integer>"
            "<Register Name=\"Long\"><Address>8</Address><Length>100</Length><pPort>Device</pPort></Register>"
            "<Integer Name=\"One\"><Value>1</Value></Integer><Port Name=\"Device\"/></R>"});
        EXPECT_FALSE(doc->find<GenICam::IPort>("Device")->bind(&device, 0));
    }
    template <class F>
    static std::string refusal(F&& function) {
        try {
            function();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return {};
    }
    GenICam::INode& node(const char* name) { return *doc->find_node(name); }

    slow_device device;
    std::unique_ptr<GenICam::IGenICamDoc> doc;
};

TEST_F(CommandLine, WaitsForACommandAndSaysWhenItIsNotDone) {
    device.busy_reads = 3;
    cli::execute(node("C"));
    EXPECT_EQ(device.writes, 1);
    cli::wait_until_done(node("C"), 1h);
    EXPECT_EQ(device.reads, 4);
    device.busy_reads = -1;
    EXPECT_EQ(refusal([&] { cli::wait_until_done(node("C"), 20ms); }),
              "Command 'C' was sent and is not done after 20 ms; --wait gives it more time.");
}

TEST_F(CommandLine, ALockedFeatureIsNotWritten) {
    EXPECT_EQ(refusal([&] { cli::set_from_text(node("Locked"), "5"); }),
              "Cannot set feature 'Locked': locked by 'One'");
    EXPECT_EQ(device.writes, 0);
    // Through formulas and registers to what is on and has a text for people.
    EXPECT_EQ(refusal([&] { cli::set_from_text(node("Chained"), "5"); }),
              "Cannot set feature 'Chained': locked by 'Sequencer' (3)");
    cli::set_from_text(node("TLParamsLocked"), "1");
    EXPECT_EQ(refusal([&] { cli::set_from_text(node("Chained"), "5"); }),
              "Cannot set feature 'Chained': locked by 'TLParamsLocked' (set while pictures are taken) or "
              "'Sequencer' (3)");
}

TEST_F(CommandLine, AnErrorNamesTheFormulaAtFault) {
    std::string error;
    EXPECT_EQ(cli::value_text(node("Bad"), error), "");
    EXPECT_NE(error.find("Formula '2 * X' of 'Knife', character 5"), error.npos) << error;
    EXPECT_NE(refusal([&] { static_cast<void>(cli::read_back(node("Bad"))); }).find("Formula '2 * X'"), error.npos);
}

struct written {
    const char* name;
    const char* feature;
    const char* text;
    const char* refusal; // part of it; empty: taken
    const char* reads;   // as JSON
};
class Write : public CommandLine, public testing::WithParamInterface<written> {};

TEST_P(Write, TakesTheTextOrSaysWhatWouldDo) {
    const written& given = GetParam();
    const std::string refused = refusal([&] { cli::set_from_text(node(given.feature), given.text); });
    EXPECT_EQ(refused.empty(), *given.refusal == 0) << refused;
    EXPECT_NE(refused.find(given.refusal), refused.npos) << refused;
    std::string error;
    EXPECT_EQ(cli::value_json(node(given.feature), error).dump(), given.reads) << error;
}

constexpr written writes[] = {
    {"address", "Ip", "192.168.0.255", "", "\"192.168.0.255\""},
    {"address_as_number", "Ip", "0x0A000001", "", "\"10.0.0.1\""},
    {"address_too_large", "Ip", "1.2.3.256", "'1.2.3.256' is no integer", "\"0.0.0.0\""},
    {"address_too_short", "Ip", "1.2.3", "'1.2.3' is no integer", "\"0.0.0.0\""},
    {"address_too_long", "Ip", "1.2.3.4.5", "is no integer", "\"0.0.0.0\""},
    {"mac", "Mac", "02:00:7f:00:00:0A", "", "\"02:00:7F:00:00:0A\""},
    {"between_steps", "Step", "6", "It takes 4 to 16 in steps of 4.", "4"},
    {"too_large", "Step", "20", "It takes 4 to 16 in steps of 4.", "4"},
};
INSTANTIATE_TEST_SUITE_P(Features, Write, testing::ValuesIn(writes),
                         [](const auto& each) { return std::string{each.param.name}; });

TEST_F(CommandLine, ARegisterIsShownWhole) {
    std::string error;
    EXPECT_EQ(cli::value_text(node("Long"), error).size(), 200U) << error;
    EXPECT_NE(refusal([&] { cli::set_from_text(node("Long"), "00"); }).find("It has 100 bytes."), std::string::npos);
}

TEST(Names, TheNearestIsFound) {
    const std::vector<std::string> known{"Width", "Height", "WidthMax", "ExposureTime", "ExposureAuto"};
    const std::pair<const char*, std::vector<std::string>> rows[]{{"Widht", {"Width"}},
                                                                  {"width", {"Width", "WidthMax"}},
                                                                  {"exposure", {"ExposureTime", "ExposureAuto"}},
                                                                  {"Gain", {}}};
    for (const auto& [wanted, nearest] : rows) EXPECT_EQ(cli::nearest_names(wanted, known), nearest) << wanted;
}

TEST(Settings, TheirTextIsTakenApart) {
    const auto parsed = cli::parse_setting("Value[A=1,B=x=y]=c=d]");
    EXPECT_EQ(parsed.name, "Value");
    EXPECT_EQ(parsed.value, "c=d]");
    EXPECT_EQ(parsed.selectors, (std::vector<std::pair<std::string, std::string>>{{"A", "1"}, {"B", "x=y"}}));
    EXPECT_EQ(parsed.left_side(), "Value[A=1,B=x=y]");
    for (const char* bad : {"", "A", "=1", "A[", "A[B=1]", "A[B]=1", "A[=1]=1", "A[B=1]x=1", "[B=1]=1"})
        EXPECT_THROW(static_cast<void>(cli::parse_setting(bad)), cli::failure) << bad;
}

// The kernel filters by the larger of the interface's number and that of all.
TEST(HostChecks, GradeWhatTheKernelDoes) {
    const test_support::temporary_folder temporary;
    const auto& root = temporary.path;
    const auto write = [&](const char* file, const std::string& text) {
        std::filesystem::create_directories((root / file).parent_path());
        std::ofstream{root / file} << text << '\n';
    };
    const cli::kernel_files kernel{root / "net", root / "class"};
    using enum cli::grade;
    for (const auto& [bytes, grade] :
         {std::pair{"212992", bad}, {"4194304", advice}, {"10485760", ok}, {"33554432", ok}, {"", bad}}) {
        write("net/core/rmem_max", bytes);
        std::vector<cli::finding> found;
        check_receive_buffer(kernel, found);
        EXPECT_EQ(found.at(0).of, grade) << bytes;
        EXPECT_EQ(found.at(0).remedy.empty(), grade == ok) << bytes;
    }
    write("class/eth0/operstate", "up");
    write("class/eth1/operstate", "down");
    const struct {
        const char *own, *all, *mtu;
        cli::grade filter, size;
    } rows[]{{"0", "0", "1500", ok, advice},
             {"1", "0", "9000", advice, ok},
             {"0", "1", "8999", advice, advice},
             {"1", "2", "9216", ok, ok},
             {"2", "1", "9000", ok, ok}};
    for (const auto& [own, all, mtu, filter, size] : rows) {
        write("net/ipv4/conf/eth0/rp_filter", own);
        write("net/ipv4/conf/all/rp_filter", all);
        write("class/eth0/mtu", mtu);
        std::vector<cli::finding> found;
        check_interfaces(kernel, found);
        ASSERT_EQ(found.size(), 2U) << "an interface that is down is not judged";
        EXPECT_EQ(found[0].of, size) << mtu;
        EXPECT_EQ(found[1].of, filter) << own << ' ' << all;
    }
    // A point in a name is a slash to sysctl.
    write("class/eth0.100/operstate", "up");
    write("net/ipv4/conf/eth0.100/rp_filter", "1");
    std::vector<cli::finding> found;
    check_interfaces(kernel, found);
    EXPECT_TRUE(found.back().remedy.ends_with("sudo sysctl net.ipv4.conf.eth0/100.rp_filter=2")) << found.back().remedy;
}

// Lines as the kernel writes them, and what is none.
TEST(KernelCounters, AreReadFromTheKernelsTexts) {
    const auto sockets = cli::parse_udp_sockets(
        "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode ref pointer "
        "drops\n"
        "  124: 0A00007F:0F74 00000000:0000 07 00000000:00001A00 00:00000000 00000000  1000        0 4242 2 "
        "00000000deadbeef 17\n"
        "12345: 00000000:BC8F 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 99 2 "
        "0000000000000000 0\n"
        "  cut: 0A00007F:0F75 00000000:0000 07\n\n");
    ASSERT_EQ(sockets.size(), 2U);
    EXPECT_EQ(sockets[0].address, 0x7F00000AU);
    EXPECT_EQ(sockets[0].port, 3956);
    EXPECT_EQ(sockets[0].waiting, 0x1A00U);
    EXPECT_EQ(sockets[0].user, 1000U);
    EXPECT_EQ(sockets[0].inode, 4242U);
    EXPECT_EQ(sockets[0].drops, 17U);
    EXPECT_EQ(cli::find_socket(sockets, 0x7F00000A, 3956), &sockets[0]);
    EXPECT_EQ(cli::find_socket(sockets, 0x01020304, 48271), &sockets[1]) << "bound to any address";
    EXPECT_EQ(cli::find_socket(sockets, 0x7F00000B, 3956), nullptr);

    const auto queue = cli::parse_softnet("0000000a 00000002 00000001 00000000\n00000010 00000000 0000000f\nxyz\n");
    EXPECT_EQ(queue.processed, 26U);
    EXPECT_EQ(queue.dropped, 2U);
    EXPECT_EQ(queue.squeezed, 16U);

    const auto thread = cli::parse_schedstat("5000000000 250000000 42\n");
    ASSERT_TRUE(thread);
    EXPECT_EQ(thread->ran, 5'000'000'000U);
    EXPECT_EQ(thread->waited, 250'000'000U);
    EXPECT_FALSE(cli::parse_schedstat("nonsense"));

    for (const char* name : {"rx_dropped", "rx_missed_errors", "rx_no_buffer_count", "rx_crc_errors", "rx0_drops",
                             "rx_out_of_buffer_drop", "port.rx_dropped"})
        EXPECT_TRUE(cli::tells_of_loss(name)) << name;
    for (const char* name : {"rx_packets", "tx_dropped", "tx_errors", "rx_bytes", "collisions", "multicast"})
        EXPECT_FALSE(cli::tells_of_loss(name)) << name;

    const auto services =
        ipc_rpc::parse_unix_sockets("Num       RefCount Protocol Flags    Type St Inode Path\n"
                                    "0000000000000000: 00000002 00000000 00010000 0005 01 77 /run/a b/stem_1.2\n"
                                    "0000000000000000: 00000003 00000000 00000000 0005 03 78 /run/a b/stem_1.2\n"
                                    "0000000000000000: 00000002 00000000 00010000 0005 01 79 @stem_abstract\n"
                                    "0000000000000000: 00000002 00000000 00010000 0005 01 80 /run/other\n"
                                    "0000000000000000: 00000002 00000000 00010000 0005 01 81\n",
                                    "stem");
    ASSERT_EQ(services.size(), 1U) << "those that listen, with a path";
    EXPECT_EQ(services[0].path, "/run/a b/stem_1.2");
    EXPECT_EQ(services[0].inode, 77U);
}

namespace {

using facts = cli::loss_evidence;
using change = std::function<void(facts&)>;

change drops(uint64_t count) {
    return [=](facts& s) { s.socket_drops = count; };
}
change buffer(uint64_t size) {
    return [=](facts& s) { s.socket_buffer = size; };
}
change card(const char* counter, uint64_t count, uint64_t ring = 0, uint64_t limit = 0) {
    return [=](facts& s) {
        s.card_drops = {{counter, count}};
        if (ring != 0) s.ring_size = ring, s.ring_limit = limit;
    };
}
void late(facts& s) { s.thread_waited = 3; }
void mended(facts& s) { s.packets_received = s.packets_expected; }
void no_packets(facts& s) { s.frames_complete = 0, s.packets_expected = s.packets_received = 0; }
change passes(uint32_t size) {
    return [=](facts& s) { s.largest_that_passes = size; };
}
change packets_of(uint32_t size) {
    return [=](facts& s) { s.packet_size = size; };
}

struct loss_case {
    const char* name;
    std::vector<change> happens;
    cli::loss_cause cause;
    const char* remedy; // a part of it
};
void PrintTo(const loss_case& given, std::ostream* out) { *out << given.name; }
class Loss : public testing::TestWithParam<loss_case> {};

// A stream of 4 s that lost something, with nothing that tells of it.
cli::loss_evidence plain_stream() {
    cli::loss_evidence seen;
    seen.seconds = 4;
    seen.frames_complete = 390;
    seen.payload_size = 1'000'000;
    seen.packet_size = 9000;
    seen.buffers = 10;
    seen.packets_expected = 45'000;
    seen.packets_received = 44'000;
    seen.packets_asked_again = seen.packets_late = 0;
    seen.socket_drops = seen.host_queue_drops = seen.host_queue_squeezed = 0;
    seen.socket_buffer = 10 << 20;
    seen.socket_buffer_limit = 212'992;
    seen.thread_ran = 0.5;
    seen.thread_waited = 0.1;
    seen.interface = "eth0";
    seen.mtu = 9000;
    return seen;
}

} // namespace

TEST_P(Loss, IsTracedToItsPlace) {
    cli::loss_evidence evidence = plain_stream();
    for (const change& each : GetParam().happens) each(evidence);
    const cli::loss_verdict verdict = cli::judge(evidence);
    EXPECT_STREQ(cli::name_of(verdict.cause), cli::name_of(GetParam().cause)) << verdict.sentence;
    EXPECT_NE(verdict.remedy.find(GetParam().remedy), std::string::npos) << verdict.remedy;
    EXPECT_EQ(verdict.remedy.empty(), verdict.cause == cli::loss_cause::nothing);
}

using cause = cli::loss_cause;
const loss_case losses[] = {
    {"none", {mended}, cause::nothing, ""},
    {"before_this_host", {}, cause::network, "GevSCPD"},
    {"mended_by_resends", {mended, [](facts& s) { s.packets_asked_again = 7; }}, cause::network, "GevSCPD"},
    {"of_a_library_without_counters",
     {[](facts& s) { s.packets_received = s.packets_expected = {}, s.frames_incomplete = 3; }},
     cause::network,
     "cable"},
    {"small_buffer", {drops(1000), buffer(208 << 10)}, cause::socket_buffer, "sysctl net.core.rmem_max"},
    {"small_buffer_and_a_late_thread",
     {drops(1000), buffer(208 << 10), late},
     cause::socket_buffer,
     "sysctl net.core.rmem_max"},
    {"buffer_that_the_system_does_not_limit",
     {drops(1000), buffer(208 << 10), [](facts& s) { s.socket_buffer_limit = 32 << 20; }},
     cause::socket_buffer,
     "the application asked for less"},
    {"fair_buffer_and_a_late_thread", {drops(1000), buffer(4 << 20), late}, cause::receive_thread, "limits.d"},
    {"large_buffer_overflows", {drops(1000)}, cause::receive_thread, "limits.d"},
    {"thread_that_never_rests",
     {drops(1000), [](facts& s) { s.thread_ran = 3.95; }},
     cause::receive_thread,
     "larger packets"},
    {"underruns_outweigh_a_few_drops",
     {drops(20), [](facts& s) { s.underruns = 100; }},
     cause::consumer,
     "--buffers 20"},
    {"drops_outweigh_an_underrun",
     {drops(20'000), [](facts& s) { s.underruns = 1; }},
     cause::receive_thread,
     "limits.d"},
    {"card_with_room_for_a_ring",
     {card("rx_missed_errors", 900, 256, 4096)},
     cause::card,
     "sudo ethtool -G eth0 rx 4096"},
    {"card_at_its_limit", {card("rx_crc_errors", 900, 4096, 4096)}, cause::card, "another cable"},
    {"card_that_dropped_what_nobody_wanted", {card("rx_dropped", 5)}, cause::network, "GevSCPD"},
    {"card_that_dropped_where_nothing_is_missing", {mended, card("rx_dropped", 5)}, cause::nothing, ""},
    {"queue_of_the_host", {[](facts& s) { s.host_queue_drops = 900; }}, cause::host_queue, "netdev_max_backlog"},
    {"nothing_came_of_this_size", {no_packets, packets_of(1484), passes(1300)}, cause::path_mtu, "eth0 mtu 1500"},
    {"only_leaders_and_trailers_came",
     {[](facts& s) { s.frames_complete = 0, s.frames_incomplete = 5, s.packets_received = 15; },
      [](facts& s) { s.packets_asked_again = 795; }, packets_of(1484), passes(1300)},
     cause::path_mtu,
     "ip link set eth0 mtu 1500"},
    {"nothing_came_over_a_narrow_interface",
     {no_packets, [](facts& s) { s.mtu = 1300; }},
     cause::path_mtu,
     "ip link set eth0 mtu 1500"},
    {"nothing_comes_at_all", {no_packets, passes(0)}, cause::no_packets, "firewall"},
    {"the_camera_sends_no_pictures", {no_packets, passes(9000)}, cause::no_packets, "Trigger"},
    {"beside_a_consumer_that_tells_nothing",
     {[](facts& s) { s = {}, s.frames_known = false, s.socket_drops = 0; }},
     cause::nothing,
     ""},
};
INSTANTIATE_TEST_SUITE_P(Explain, Loss, testing::ValuesIn(losses),
                         [](const auto& each) { return std::string{each.param.name}; });

struct conversion {
    const char* name;
    const char* from;
    const char* to;
    std::string_view in, out; // 2 lines; an empty `out`: refused
    int width = 2;
    std::string_view instead = {}; // what the refusal names, in the words that --to takes
};
class Convert : public testing::TestWithParam<conversion> {};

// Applications load each entry: what is there twice shows each camera twice.
TEST(InstallationChecks, TellWhatAListOfProducersDoes) {
    namespace fs = std::filesystem;
    const test_support::temporary_folder temporary;
    const auto& root = temporary.path;
    for (const char* file :
         {"a/orv-gentl-gev.cti", "b/orv-gentl-gev.cti", "c/other.cti", "c/other.txt", "plain/orv-gentl-gev.cti"}) {
        fs::create_directories((root / file).parent_path());
        std::ofstream{root / file} << "x";
    }
    fs::create_symlink(root / "a", root / "link");
    using cli::grade;
    const struct {
        std::string list;
        std::vector<std::pair<grade, std::string>> found; // what is said, in this order
    } cases[] = {
        {"{}/a", {{grade::ok, "{}/a/orv-gentl-gev.cti"}}},
        {"{}/a/orv-gentl-gev.cti:{}/c", {{grade::ok, "{}/a/orv-gentl-gev.cti"}, {grade::ok, "{}/c/other.cti"}}},
        {"{}/b", {{grade::advice, "'{}/b/orv-gentl-gev.cti' of another installation"}}},
        {"{}/plain", {{grade::advice, "'{}/plain/orv-gentl-gev.cti', the plain one"}}},
        {"", {{grade::advice, "not set here"}}},
        {"::{}/c:", {{grade::advice, "without this library"}, {grade::ok, "{}/c/other.cti"}}},
        {"{}/a:{}/none", {{grade::advice, "'{}/none' does not exist"}, {grade::ok, "{}/a/orv-gentl-gev.cti"}}},
        {"{}/a:{}/link",
         {{grade::advice, "'{}/a/orv-gentl-gev.cti' is named 2 times"}, {grade::ok, "{}/a/orv-gentl-gev.cti"}}},
        {"{}/a:{}/b", {{grade::bad, "2 of this library: {}/a/orv-gentl-gev.cti, {}/b/orv-gentl-gev.cti"}}},
    };
    const auto here = [&](std::string text) {
        for (size_t at = 0; (at = text.find("{}")) != text.npos;) text.replace(at, 2, root.string());
        return text;
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.list);
        std::vector<cli::finding> findings;
        cli::check_producer_path(here(each.list), root / "a/orv-gentl-gev.cti", findings);
        ASSERT_EQ(findings.size(), each.found.size());
        for (size_t i = 0; i < findings.size(); ++i) {
            EXPECT_EQ(findings[i].of, each.found[i].first);
            EXPECT_EQ(findings[i].found, here(each.found[i].second));
        }
    }
}

TEST_P(Convert, WritesThePictureOrRefuses) {
    const auto& [name, from, to, in, out, width, instead] = GetParam();
    const test_support::temporary_folder temporary;
    const auto& folder = temporary.path;
    const auto source = folder / "in.raw", target = folder / "out.raw";
    std::ofstream{source, std::ios::binary} << in;
    const std::string command = fmt::format("'{}' convert '{}' --from {} --to {} --width {} --height 2 -o '{}' "
                                            ">'{}/log' 2>&1",
                                            test_support::built::program("orv-gentl"), source.string(), from, to, width,
                                            target.string(), folder.string());
    EXPECT_EQ(std::system(command.c_str()) == 0, !out.empty());
    using test_support::read_file;
    EXPECT_EQ(read_file(target), out);
    const std::string said = read_file(folder / "log"), way = "; there is one to ";
    EXPECT_EQ(said.find(way) != said.npos, !instead.empty()) << said;
    EXPECT_NE(said.find(instead.empty() ? "" : way + std::string{instead} + '.'), said.npos) << said;
}

// In the built tree, where this test is, the library lies where it does for the program.
TEST(ConvertCommand, TakesTheKernelsBesideTheLibrary) {
    if ((img_pipe::cpu_mask() & img_pipe::cpu::avx2) == 0) GTEST_SKIP() << "none for this processor";
    const cli::picture_converter any{cli::format_from_text("Mono8"), cli::format_from_text("Mono16")};
    const auto library = std::filesystem::canonical(test_support::built::cti);
    EXPECT_EQ(img_pipe::load_filter_library(library.parent_path() / img_pipe::filter_library_name, 0),
              img_pipe::load_result::already_loaded);
}

using namespace std::string_view_literals;
constexpr conversion conversions[] = {
    {"alpha_dropped", "BGRa8", "BGR8", "\1\2\x80\xFF\1\2\x80\xFF\1\2\x80\xFF\1\2\x80\xFF"sv,
     "\1\2\x80\1\2\x80\1\2\x80\1\2\x80"sv},
    {"red_first", "RGB8", "BGR8", "abcabcabcabc"sv, "cbacbacbacba"sv},
    {"widened", "Mono8", "Mono16", "\0\x12\xFFz"sv, "\0\0\x12\x12\xFF\xFFzz"sv},
    {"planes_kept", "I420", "I420", "abcduv"sv, "abcduv"sv},
    {"planes_missing", "I420", "I420", "abcd"sv, ""sv},
    {"half_samples", "RGB565p", "BGR8", "\x1F\0\xE0\x07\0\xF8\xFF\xFF"sv, "\0\0\xFF\0\xFF\0\xFF\0\0\xFF\xFF\xFF"sv},
    {"luma_as_it_is", "YCbCr422_8_CbYCrY", "Mono8",
     "\0a\xFF"
     "b\xFF"
     "c\0d"sv,
     "abcd"sv},
    // The second line begins in the middle of the fifth byte.
    {"lines_joined_bit_to_bit", "Mono12p", "Mono16", "\x23\xC1\xAB\x56\x94\x78\xEF\x2D\x01"sv,
     "\x30\x12\xC0\xAB\x60\x45\x90\x78\xF0\xDE\x20\x01"sv, 3},
    {"no_way_at_all", "YCbCr422_10p", "Mono8", "abcdefghij"sv, ""sv},
    {"never_through_grey", "YUV422_8", "I420", "abcdefgh"sv, ""sv, 2,
     "RGB8, RGBa8, Mono8, Mono16, BGR8, BGRa8, YCbCr422_8"},
};
INSTANTIATE_TEST_SUITE_P(Pictures, Convert, testing::ValuesIn(conversions),
                         [](const auto& each) { return std::string{each.param.name}; });

} // namespace
