// What the consumer does with features, on a document and a device made up here.
#include <cli/node_map.h>

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
    EXPECT_EQ(refusal([&] { cli::set_from_text(node("Locked"), "5"); }), "Cannot set feature 'Locked': locked");
    EXPECT_EQ(device.writes, 0);
}

TEST_F(CommandLine, AnErrorNamesTheFormulaAtFault) {
    std::string error;
    EXPECT_EQ(cli::value_text(node("Bad"), error), "");
    EXPECT_NE(error.find("Formula '2 * X' of 'Knife', character 5"), error.npos) << error;
}

struct conversion {
    const char* name;
    const char* from;
    const char* to;
    std::string_view in, out; // 2 x 2 pixels; an empty `out`: refused
};
class Convert : public testing::TestWithParam<conversion> {};

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
