// What the consumer does with features, on a document and a device made up here.
#include <cli/host_checks.h>
#include <cli/installation_checks.h>
#include <cli/nearest_names.h>
#include <cli/node_map.h>
#include <cli/setting.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <unistd.h>

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
}

TEST_F(CommandLine, AnErrorNamesTheFormulaAtFault) {
    std::string error;
    EXPECT_EQ(cli::value_text(node("Bad"), error), "");
    EXPECT_NE(error.find("Formula '2 * X' of 'Knife', character 5"), error.npos) << error;
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
    const auto root = std::filesystem::path{testing::TempDir()} / fmt::format("orv-host-{}", getpid());
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
    std::filesystem::remove_all(root);
}

struct conversion {
    const char* name;
    const char* from;
    const char* to;
    std::string_view in, out; // 2 x 2 pixels; an empty `out`: refused
};
class Convert : public testing::TestWithParam<conversion> {};

// Applications load each entry: what is there twice shows each camera twice.
TEST(InstallationChecks, TellWhatAListOfProducersDoes) {
    namespace fs = std::filesystem;
    char name[] = "/tmp/orv-test-XXXXXX";
    const fs::path root = mkdtemp(name);
    for (const char* file : {"a/orv-gentl-gev.cti", "b/orv-gentl-gev.cti", "c/other.cti", "c/other.txt"}) {
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
    fs::remove_all(root);
}

TEST_P(Convert, WritesThePictureOrRefuses) {
    const auto& [name, from, to, in, out] = GetParam();
    const auto folder = std::filesystem::path{testing::TempDir()} / fmt::format("orv-convert-{}-{}", name, getpid());
    std::filesystem::create_directories(folder);
    const auto source = folder / "in.raw", target = folder / "out.raw";
    std::ofstream{source, std::ios::binary} << in;
    const std::string command =
        fmt::format("'{}/orv-gentl' convert '{}' --from {} --to {} --width 2 --height 2 -o '{}' "
                    ">'{}/log' 2>&1",
                    ORV_BIN_DIR, source.string(), from, to, target.string(), folder.string());
    const int status = std::system(command.c_str());
    std::ifstream file{target, std::ios::binary};
    const std::string written{std::istreambuf_iterator<char>{file}, {}};
    EXPECT_EQ(status == 0, !out.empty());
    EXPECT_EQ(written, out);
    std::ifstream log{folder / "log"};
    const std::string said{std::istreambuf_iterator<char>{log}, {}};
    EXPECT_EQ(said.find("there is one to") != said.npos, std::string_view{name} == "never_through_grey") << said;
    std::filesystem::remove_all(folder);
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
    {"no_way_at_all", "YCbCr422_10p", "Mono8", "abcdefghij"sv, ""sv},
    {"never_through_grey", "YUV422_8", "I420", "abcdefgh"sv, ""sv},
};
INSTANTIATE_TEST_SUITE_P(Pictures, Convert, testing::ValuesIn(conversions),
                         [](const auto& each) { return std::string{each.param.name}; });

} // namespace
