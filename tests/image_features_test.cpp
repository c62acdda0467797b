// The software features that the service adds to a camera's document, and the way of automatic values to the camera:
// real service, simulated camera, the library by dlopen or the service's protocol spoken by the test.
#include "support/raw_client.h"
#include "support/test_system.h"

#include <GenICam/log.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <fstream>
#include <limits>
#include <source_location>
#include <thread>

using test_support::eventually;
using test_support::raw_client;
using test_support::test_system;
using test_support::wire_bytes;
using namespace GenICam;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

// Offsets as the library reads them, once more by their numbers: the two ends are built apart.
constexpr size_t master_enable = 12, auto_exposure = 104, current_exposure = 120, exposure_max = 128, auto_gain = 136,
                 current_gain = 140, auto_iris = 152, auto_balance = 188, balance_once = 192, current_balance = 196,
                 result_gain = 296, result_exposure = 300, result_iris = 304, result_balance = 312,
                 balance_finished = 324, current_iris = 160, gamma_value = 20, saturation = 24, matrix = 44,
                 frame_rate = 96;
constexpr uint64_t software = 0x1000100000000;
// Of the simulated camera.
constexpr uint64_t exposure_register = 0x10058, exposure_auto_register = 0x10060, gain_register = 0x100C0;

int count_of(const std::string& text, const std::string& part) {
    int count = 0;
    for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size())) ++count;
    return count;
}

// The block that the service shares with the clients of its only camera.
class mapped_block final {
public:
    explicit mapped_block(int service_pid) {
        for (const std::string& each : names(service_pid)) {
            const int file = shm_open(("/" + each).c_str(), O_RDWR, 0);
            if (file < 0) continue;
            void* const mapped = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
            close(file);
            if (mapped != MAP_FAILED) bytes = static_cast<std::byte*>(mapped);
        }
        if (bytes == nullptr) throw std::runtime_error("no settings block");
    }
    ~mapped_block() { munmap(bytes, 4096); }
    mapped_block(const mapped_block&) = delete;
    mapped_block& operator=(const mapped_block&) = delete;
    [[nodiscard]] static std::vector<std::string> names(int service_pid) {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator{"/dev/shm"}) {
            const std::string name = entry.path().filename();
            if (name.find("settings-") != name.npos && name.find(std::to_string(service_pid) + "_") != name.npos)
                found.push_back(name);
        }
        return found;
    }
    template <class T>
    [[nodiscard]] T get(size_t at) const {
        return std::atomic_ref{*reinterpret_cast<T*>(bytes + at)}.load();
    }
    template <class T>
    void set(size_t at, T value) const {
        std::atomic_ref{*reinterpret_cast<T*>(bytes + at)}.store(value);
    }

private:
    std::byte* bytes = nullptr;
};

class log_capture final : public ILogSink {
public:
    log_capture() { set_log_sink(this); }
    ~log_capture() override { set_log_sink(nullptr); }
    bool is_enabled(int) const noexcept override { return true; }
    void write(int, std::string_view text, const std::source_location&) override { lines.emplace_back(text); }
    std::vector<std::string> lines;
};

std::string text_of(const cli::node_map& nodes, const std::string& name) {
    std::string error;
    std::string text = cli::value_text(cli::require_node(nodes, name), error);
    return error.empty() ? text : "! " + error;
}

bool takes(const cli::node_map& nodes, const std::string& name, const std::string& value) {
    try {
        cli::set_from_text(cli::require_node(nodes, name), value);
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

std::vector<std::string> feature_names(const IGenICamDoc& document) {
    std::vector<std::string> names;
    for (const INode* node : document.get_root_features()) names.emplace_back(node->get_name());
    return names;
}

// The only camera's document as the library gets it.
std::string document_of(test_support::open_camera& camera) {
    GenTL::PORT_HANDLE port = nullptr;
    camera.lib->check("DevGetPort", camera.lib->DevGetPort(camera.device->get(), &port));
    unsigned long long address = 0, length = 0;
    const std::string url = camera.remote().url();
    if (std::sscanf(url.c_str() + url.find(';'), ";%llx;%llx", &address, &length) != 2) return {};
    std::string text(length, '\0');
    size_t size = length;
    camera.lib->check("GCReadPort", camera.lib->GCReadPort(port, address, text.data(), &size));
    text.resize(std::min(text.size(), text.find('\0')));
    return text;
}

// One camera, opened with control by the service's own protocol.
class ImageFeatures : public testing::Test {
protected:
    void start(std::vector<std::string> camera_options = {}) {
        if (!own) own = std::make_unique<test_system>(std::vector<std::string>{"--log-level", "3"});
        camera_options.insert(camera_options.end(), {"--width", "320", "--height", "240"});
        own->start_camera(camera_options);
        own->start_logged_service();
    }
    void start_with_document(const std::string& text) {
        own = std::make_unique<test_system>(std::vector<std::string>{"--log-level", "3"});
        const auto path = own->folder() / "document.xml";
        std::ofstream{path, std::ios::binary} << text;
        start({"--document", path});
    }
    // The simulated camera's own document.
    static std::string own_document() {
        test_system other{{"--no-image-features"}};
        other.start_camera({"--width", "320", "--height", "240"});
        other.start_service();
        test_support::open_camera camera{test_system::serial(0)};
        return document_of(camera);
    }
    static uint64_t open(raw_client& with, uint32_t access) {
        const uint64_t service = with.object(0, "create_service_instance");
        const auto list = with.call(service, "enum_interfaces");
        for (uint64_t offset = 12, left = list ? list->at<uint32_t>(8) : 0; left != 0; --left) {
            std::string texts[3];
            for (std::string& text : texts) {
                text = list->bytes.substr(offset + 4, list->at<uint32_t>(offset));
                offset += 4 + text.size();
            }
            offset += 224;
            const uint64_t interface = with.object(service, "open_interface", wire_bytes{}.put_text(texts[0]).str());
            const auto devices = with.call(interface, "enum_devices");
            if (!devices || devices->at<uint32_t>(8) == 0) continue;
            const std::string id = devices->bytes.substr(16, devices->at<uint32_t>(12));
            return with.object(interface, "open_device", wire_bytes{}.put_text(id).put(access).str());
        }
        return 0;
    }
    void open_raw() {
        client = std::make_unique<raw_client>(own->folder(), "raw");
        device = open(*client, 2);
        ASSERT_NE(device, 0U);
        urls();
        stream = client->object(device, "acquire_stream_channel");
        ASSERT_NE(stream, 0U);
        block = std::make_unique<mapped_block>(own->service().pid());
    }
    std::string urls() {
        const auto answer = client->call(device, "get_url_info_list");
        return answer ? answer->bytes : std::string{};
    }
    template <class T>
    T camera_value(uint64_t address) { // big-endian, as the camera has it
        const auto answer =
            client->call(device, "read_mem",
                         wire_bytes{}.put(address).put(uint64_t{sizeof(T)}).put(uint32_t{0}).put(uint64_t{3000}).str());
        std::string bytes = answer && answer->error() == 0 ? answer->bytes.substr(12, sizeof(T)) : std::string{};
        bytes.resize(sizeof(T));
        if (address < software) std::ranges::reverse(bytes);
        T value{};
        std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }
    template <class T>
    uint64_t write(uint64_t address, T value) { // the error, 0 for none
        std::string bytes(reinterpret_cast<const char*>(&value), sizeof value);
        if (address < software) std::ranges::reverse(bytes);
        wire_bytes call;
        call.put(address).put_text(bytes).put(uint32_t{0}).put(uint64_t{3000});
        const auto answer = client->call(device, "write_mem", call.str());
        return answer ? answer->error() & 0xFFFFFFFF : ~uint64_t{}; // the upper half repeats the sign
    }
    void switch_on(size_t function) {
        EXPECT_EQ(write(software + master_enable, uint32_t{1}), 0U);
        EXPECT_EQ(write(software + function, uint32_t{1}), 0U);
    }
    void send_results() { EXPECT_TRUE(client->send_call(stream, "send_write_auto_values_cmd", {}, 1)); }
    std::unique_ptr<test_system> own; // made when no other is in use: the newest is the process's
    std::unique_ptr<raw_client> client;
    uint64_t device = 0;
    uint64_t stream = 0;
    std::unique_ptr<mapped_block> block;
};

} // namespace

TEST_F(ImageFeatures, AreFeaturesOfTheCameraAndKeepTheirLimits) {
    start({"--pixel-format", "BayerRG8"});
    test_support::open_camera camera{test_system::serial(0)};
    const cli::node_map& nodes = camera.remote();
    const auto names = feature_names(nodes.document());
    for (const char* name :
         {"SoftwareImageProcessingEnable", "AutoExposure", "AutoGain", "AutoWhiteBalance", "AutoRegionWidth",
          "SoftwareGamma", "SoftwareSaturation", "SoftwareColorMatrixValue", "SoftwareToneMapping", "SoftwareOverlay"})
        EXPECT_THAT(names, Contains(name));
    EXPECT_THAT(names, Not(Contains("AutoIris"))) << "the camera has none";

    const mapped_block shared{own->service().pid()};
    EXPECT_EQ(shared.get<float>(gamma_value), 1);
    EXPECT_EQ(shared.get<float>(saturation), 100);
    EXPECT_EQ(shared.get<float>(matrix + 16), 1);
    EXPECT_EQ(shared.get<float>(current_exposure), 10000);
    EXPECT_EQ(shared.get<double>(frame_rate), 30);
    EXPECT_EQ(text_of(nodes, "AutoExposureMaximum"), "1000000");

    EXPECT_TRUE(takes(nodes, "AutoExposureMaximum", "20000"));
    EXPECT_EQ(shared.get<float>(exposure_max), 20000);
    EXPECT_FALSE(takes(nodes, "AutoExposureMinimum", "20001")) << "above the maximum";
    EXPECT_FALSE(takes(nodes, "AutoExposureMaximum", "1000001")) << "above the camera's";
    EXPECT_FALSE(takes(nodes, "SoftwareHue", "181"));
    EXPECT_TRUE(takes(nodes, "SoftwareColorMatrixSelector", "Gain12"));
    EXPECT_TRUE(takes(nodes, "SoftwareColorMatrixValue", "-0.25"));
    EXPECT_EQ(shared.get<float>(matrix + 4 * 5), -0.25F);
    EXPECT_TRUE(takes(nodes, "AutoExposure", "true"));
    EXPECT_EQ(shared.get<uint32_t>(auto_exposure), 1U);

    EXPECT_TRUE(takes(nodes, "AutoWhiteBalance", "Once"));
    EXPECT_EQ(shared.get<uint32_t>(balance_once), 1U);
    shared.set(balance_finished, uint32_t{1});
    EXPECT_EQ(text_of(nodes, "AutoWhiteBalance"), "Off") << "it is over";
    EXPECT_EQ(shared.get<uint32_t>(balance_once), 0U);
    EXPECT_TRUE(takes(nodes, "AutoWhiteBalance", "Continuous"));
    EXPECT_EQ(shared.get<uint32_t>(auto_balance), 1U);

    // Another client of the same camera sees the same, and may not write.
    const auto reader = own->run_consumer({"get", "--access", "readonly", "AutoExposureMaximum"});
    EXPECT_THAT(reader.output, HasSubstr("20000"));
    EXPECT_NE(own->run_consumer({"set", "--access", "readonly", "AutoExposureMaximum", "30000"}).exit_code, 0);
    EXPECT_EQ(shared.get<float>(exposure_max), 20000);
    EXPECT_EQ(mapped_block::names(own->service().pid()).size(), 1U);
}

TEST_F(ImageFeatures, ANewControllerBeginsNeutral) {
    start();
    open_raw();
    raw_client onlooker{own->folder(), "raw"}; // keeps the block alive
    ASSERT_NE(open(onlooker, 1), 0U);
    EXPECT_EQ(write(software + gamma_value, 2.0F), 0U);
    switch_on(auto_exposure);
    EXPECT_TRUE(client->close_object(stream));
    EXPECT_TRUE(client->close_object(device));
    open_raw();
    EXPECT_EQ(mapped_block::names(own->service().pid()).size(), 1U);
    EXPECT_EQ(block->get<uint32_t>(auto_exposure), 0U);
    EXPECT_EQ(block->get<float>(gamma_value), 1);
    EXPECT_EQ(block->get<float>(current_exposure), 10000);
}

TEST_F(ImageFeatures, RegistersTakeNothingElse) {
    start();
    open_raw();
    constexpr uint64_t invalid_parameter = 0x80008002, invalid_address = 0x80008003, write_protect = 0x80008004;
    EXPECT_EQ(write(software + gamma_value, std::numeric_limits<float>::quiet_NaN()), invalid_parameter);
    EXPECT_EQ(write(software + gamma_value, std::numeric_limits<float>::infinity()), invalid_parameter);
    EXPECT_EQ(write(software + auto_exposure, uint32_t{2}), invalid_parameter);
    EXPECT_EQ(write(software + current_exposure, 1.0F), write_protect);
    EXPECT_EQ(write(software + gamma_value, uint64_t{0}), invalid_address) << "two registers at once";
    EXPECT_EQ(write(software + gamma_value + 2, 1.0F), invalid_address);
    EXPECT_EQ(write(software + result_exposure, 1.0F), invalid_address) << "the library's";
    EXPECT_EQ(write(~uint64_t{3}, 1.0F), invalid_address);
    EXPECT_EQ(write(software + exposure_max, 9.0F), invalid_parameter) << "below the minimum, which is the camera's";
    EXPECT_EQ(write(software + exposure_max - 4, 1.1e6F), invalid_parameter) << "a minimum above the maximum";
    EXPECT_EQ(block->get<float>(gamma_value), 1);
    // Nothing of it came to the camera.
    EXPECT_EQ(camera_value<double>(exposure_register), 10000);
    own->camera(0).signal(SIGTERM);
    own->camera(0).wait();
    EXPECT_THAT(own->camera(0).output(), HasSubstr("\"requests_refused\":0"));
}

TEST_F(ImageFeatures, TheDocumentIsMadeOnce) {
    for (const bool zipped : {false, true}) {
        SCOPED_TRACE(zipped);
        test_system each;
        each.start_camera(zipped ? std::vector<std::string>{"--zip"} : std::vector<std::string>{});
        each.start_service();
        test_support::open_camera camera{test_system::serial(0)};
        const std::string text = document_of(camera);
        EXPECT_TRUE(text.ends_with("</RegisterDescription>\n")) << "the length in the URL is the document's";
        EXPECT_THAT(feature_names(camera.remote().document()), Contains("AutoExposure"));
        EXPECT_EQ(text, document_of(camera));
    }
    start();
    open_raw();
    const std::string first = urls();
    EXPECT_THAT(first, HasSubstr("local:orv_simcam_1_0_0_"));
    EXPECT_EQ(write(software + auto_exposure, uint32_t{1}), 0U);
    EXPECT_EQ(urls(), first);
}

TEST_F(ImageFeatures, CanBeSwitchedOff) {
    const std::string text = own_document();
    EXPECT_THAT(text, HasSubstr("ExposureTime"));
    EXPECT_THAT(text, Not(HasSubstr("SoftwareImageProcessing")));
}

TEST_F(ImageFeatures, ACamerasOwnFeaturesStayItsOwn) {
    std::string text = own_document();
    const size_t end = text.rfind("</RegisterDescription>");
    ASSERT_NE(end, text.npos);
    text.insert(end, R"(<Integer Name="AutoExposure"><Value>17</Value></Integer>
<Integer Name="SoftwareColorMatrixSelector"><Value>3</Value></Integer>)");
    start_with_document(text);
    test_support::open_camera camera{test_system::serial(0)};
    const auto names = feature_names(camera.remote().document());
    EXPECT_EQ(text_of(camera.remote(), "AutoExposure"), "17");
    for (const char* name : {"AutoExposure", "AutoExposureMaximum", "AutoExposureCurrent", "SoftwareColorMatrixValue",
                             "SoftwareColorMatrixSelector"})
        EXPECT_THAT(names, Not(Contains(name)));
    for (const char* name : {"AutoGain", "AutoGainMaximum", "SoftwareColorMatrixEnable"})
        EXPECT_THAT(names, Contains(name));
}

TEST_F(ImageFeatures, ADocumentThatCannotBeUsedIsServedAsItIs) {
    start_with_document("<RegisterDescription><Category Name=\"Root\"><pFeature>");
    open_raw();
    EXPECT_THAT(urls(), HasSubstr("Local:orv_simcam_1_0_0.xml;100000;"));
    EXPECT_THAT(urls(), HasSubstr("Local:orv_simcam_1_0_0.xml;100000;"));
    EXPECT_EQ(count_of(own->logged(), "served without software features"), 1);
    EXPECT_EQ(write(software + gamma_value, 2.0F), 0U);
}

TEST_F(ImageFeatures, ResultsReachTheCamera) {
    start();
    open_raw();
    switch_on(auto_gain);
    block->set(result_exposure, 777.0F); // of a function that is off
    block->set(result_gain, 8.04F);
    send_results();
    EXPECT_TRUE(eventually([&] { return block->get<float>(current_gain) == 8.0F; })) << "a multiple of its increment";
    EXPECT_EQ(camera_value<uint32_t>(gain_register), 80U);
    EXPECT_EQ(camera_value<double>(exposure_register), 10000);

    switch_on(auto_exposure);
    EXPECT_EQ(block->get<float>(result_exposure), 10000) << "what was computed before it was switched on is forgotten";
    block->set(result_exposure, 5e6F);
    send_results();
    EXPECT_TRUE(eventually([&] { return block->get<float>(current_exposure) == 1e6F; })) << "the camera's maximum";
    EXPECT_EQ(camera_value<double>(exposure_register), 1e6);

    block->set(result_exposure, std::numeric_limits<float>::quiet_NaN());
    block->set(result_gain, 2.0F);
    send_results();
    EXPECT_TRUE(eventually([&] { return block->get<float>(current_gain) == 2.0F; }));
    EXPECT_EQ(camera_value<double>(exposure_register), 1e6);

    for (int i = 1; i <= 100; ++i) {
        block->set(result_exposure, 1000.0F + static_cast<float>(i));
        send_results();
    }
    EXPECT_TRUE(eventually([&] { return camera_value<double>(exposure_register) == 1100; })) << "the newest wins";
    EXPECT_EQ(count_of(own->logged(), "given up"), 0);
}

TEST_F(ImageFeatures, WhatOthersWriteIsSeen) {
    start();
    open_raw();
    switch_on(auto_exposure);
    EXPECT_EQ(write(exposure_register, 1234.0), 0U);
    EXPECT_TRUE(eventually([&] { return block->get<float>(current_exposure) == 1234; }));
    EXPECT_EQ(block->get<float>(result_exposure), 1234) << "no order to change it back";
}

TEST_F(ImageFeatures, TheCamerasValueIsReadWhenAFunctionBegins) {
    start();
    open_raw();
    EXPECT_EQ(write(exposure_register, 4321.0), 0U); // nobody looks
    EXPECT_EQ(block->get<float>(current_exposure), 10000);
    switch_on(auto_exposure);
    EXPECT_TRUE(eventually([&] { return block->get<float>(current_exposure) == 4321; })) << "without a result";
}

TEST_F(ImageFeatures, NothingIsWrittenWithoutTheMasterEnable) {
    start();
    open_raw();
    EXPECT_EQ(write(software + auto_gain, uint32_t{1}), 0U);
    block->set(result_gain, 5.0F);
    send_results();
    std::this_thread::sleep_for(std::chrono::milliseconds{200}); // for what would be wrong
    EXPECT_EQ(camera_value<uint32_t>(gain_register), 0U);
    switch_on(auto_exposure);
    EXPECT_EQ(block->get<float>(result_gain), block->get<float>(current_gain)) << "what was computed then is forgotten";
}

// A camera that answers late is tried again, and after three times in a row left alone until something is switched.
// While it is not asked, after one time, nothing counts.
TEST_F(ImageFeatures, ALateCameraIsTriedThreeTimes) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the pauses below are between the service's time-outs, which a sanitizer stretches";
#endif
    using std::chrono::milliseconds;
    start();
    open_raw();
    switch_on(auto_exposure);
    const auto late_once = [&](float result) {
        own->camera(0).signal(SIGSTOP);
        block->set(result_exposure, result);
        send_results();
        std::this_thread::sleep_for(milliseconds{1600}); // longer than an answer is waited for
        for (int i = 0; i < 10; ++i) send_results();
        std::this_thread::sleep_for(milliseconds{50});
        own->camera(0).signal(SIGCONT);
    };
    late_once(2001);
    EXPECT_TRUE(eventually([&] {
        send_results();
        return block->get<float>(current_exposure) == 2001;
    }));
    EXPECT_EQ(count_of(own->logged(), "is given up"), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(count_of(own->logged(), "is given up"), 0);
        late_once(3001.0F + static_cast<float>(i));
        std::this_thread::sleep_for(milliseconds{1000}); // it is asked again
    }
    EXPECT_EQ(count_of(own->logged(), "is given up"), 1);
}

TEST_F(ImageFeatures, ALockedFeatureIsWaitedFor) {
    start();
    open_raw();
    switch_on(auto_exposure);
    EXPECT_EQ(write(exposure_auto_register, uint32_t{2}), 0U); // the camera steers it by itself
    for (int i = 0; i < 5; ++i) {
        block->set(result_exposure, 2000.0F + static_cast<float>(i));
        send_results();
        EXPECT_TRUE(eventually([&] { return count_of(own->logged(), "Automatic exposure of") == 1; }));
    }
    EXPECT_EQ(camera_value<double>(exposure_register), 10000);
    EXPECT_EQ(write(exposure_auto_register, uint32_t{0}), 0U);
    send_results();
    EXPECT_TRUE(eventually([&] { return camera_value<double>(exposure_register) == 2004; }));
    EXPECT_EQ(count_of(own->logged(), "Automatic exposure of"), 1);
}

TEST_F(ImageFeatures, ACameraThatRefusesIsLeftAlone) {
    std::string text = own_document();
    const size_t feature = text.find("<Float Name=\"ExposureTime\"");
    const size_t limit = text.find("<Max>", feature) + 5;
    text.replace(limit, text.find('<', limit) - limit, "5000000"); // more than it takes
    start_with_document(text);
    open_raw();
    switch_on(auto_exposure);
    switch_on(auto_gain);
    for (int i = 1; i <= 6; ++i) {
        block->set(result_exposure, 2e6F + static_cast<float>(1000 * i));
        block->set(result_gain, static_cast<float>(i)); // comes behind it: seen, the exposure is over
        send_results();
        EXPECT_TRUE(eventually([&] { return block->get<float>(current_gain) == static_cast<float>(i); }));
    }
    EXPECT_EQ(count_of(own->logged(), "Automatic exposure of"), 1) << own->logged();
    EXPECT_EQ(camera_value<double>(exposure_register), 10000);

    EXPECT_EQ(write(software + auto_exposure, uint32_t{0}), 0U);
    EXPECT_EQ(write(software + auto_exposure, uint32_t{1}), 0U);
    EXPECT_TRUE(eventually([&] {
        block->set(result_exposure, 2000.0F);
        send_results();
        return camera_value<double>(exposure_register) == 2000;
    })) << "switched on anew, it is tried again";
    own->camera(0).signal(SIGTERM);
    own->camera(0).wait();
    EXPECT_THAT(own->camera(0).output(), HasSubstr("\"requests_refused\":1"));
}

// Each feature writes its own place in the block, in the width and unit of its own, and no other.
TEST_F(ImageFeatures, EachFeatureHasItsOwnPlace) {
    std::string text = own_document();
    const size_t end = text.rfind("</RegisterDescription>");
    ASSERT_NE(end, text.npos);
    text.insert(end, R"(<Integer Name="Iris"><Value>3</Value><Min>-100</Min><Max>100</Max></Integer>
<Integer Name="Focus"><Value>7</Value><Min>0</Min><Max>1000</Max></Integer>)");
    own = std::make_unique<test_system>(std::vector<std::string>{"--log-level", "3"});
    const auto path = own->folder() / "document.xml";
    std::ofstream{path, std::ios::binary} << text;
    start({"--document", path, "--pixel-format", "BayerRG8"});
    test_support::open_camera camera{test_system::serial(0)};
    const cli::node_map& nodes = camera.remote();
    const mapped_block shared{own->service().pid()};
    const auto flag = std::pair{"true", uint32_t{1}};
    const auto place = [&](const char* name, size_t at, auto value) {
        SCOPED_TRACE(name);
        constexpr size_t words = 344 / 4;
        std::array<uint32_t, words> before{};
        for (size_t i = 0; i < words; ++i) before[i] = shared.get<uint32_t>(4 * i);
        EXPECT_TRUE(takes(nodes, name, value.first)) << value.first;
        EXPECT_EQ(shared.get<decltype(value.second)>(at), value.second);
        for (size_t i = 0; i < words; ++i) {
            if (4 * i >= at && 4 * i < at + sizeof value.second) continue;
            EXPECT_EQ(shared.get<uint32_t>(4 * i), before[i]) << "at " << 4 * i;
        }
    };
    place("SoftwareOverlay", 0, flag);
    place("SoftwareBrightness", 16, std::pair{"-17", int32_t{-17}});
    place("SoftwareGamma", 20, std::pair{"0.5", 0.5F});
    place("SoftwareSaturation", 24, std::pair{"150", 150.0F});
    place("SoftwareHue", 28, std::pair{"-90", -90.0F});
    place("SoftwareSharpness", 32, std::pair{"-9", int32_t{-9}});
    place("SoftwareDenoise", 36, std::pair{"11", int32_t{11}});
    place("SoftwareColorMatrixEnable", 40, flag);
    place("SoftwareColorMatrixValue", 44, std::pair{"1.5", 1.5F});
    place("SoftwareToneMapping", 80, flag);
    place("SoftwareToneMappingIntensity", 84, std::pair{"2", 2.0F});
    place("SoftwareToneMappingGlobalBrightness", 88, std::pair{"0.25", 0.25F});
    place("AutoExposureLimitByFrameRate", 108, flag);
    place("AutoBrightnessTarget", 112, std::pair{"99", uint32_t{99}});
    place("AutoExposureMinimum", 124, std::pair{"50", 50.0F});
    place("AutoExposureMaximum", 128, std::pair{"5000", 5000.0F});
    place("AutoGainMinimum", 144, std::pair{"1", 1.0F});
    place("AutoGainMaximum", 148, std::pair{"9", 9.0F});
    place("AutoIrisMinimum", 168, std::pair{"-50", int64_t{-50}});
    place("AutoIrisMaximum", 176, std::pair{"60", int64_t{60}});
    place("AutoIrisSeparate", 184, flag);
    place("AutoFocusRegionEnable", 248, flag);
    place("AutoRegionEnable", 252, flag);
    place("AutoRegionOffsetX", 256, std::pair{"11", int64_t{11}});
    place("AutoRegionOffsetY", 264, std::pair{"12", int64_t{12}});
    place("AutoRegionWidth", 272, std::pair{"13", int64_t{13}});
    place("AutoRegionHeight", 280, std::pair{"14", int64_t{14}});
    place("SoftwareImageProcessingEnable", 12, flag);
    EXPECT_EQ(text_of(nodes, "AutoExposureCurrent"), "10000");
}

TEST_F(ImageFeatures, AnExposureInAnotherUnit) {
    const std::string text = own_document();
    struct row {
        const char* unit;
        float wanted_us;
        double in_unit;
    };
    for (const auto& [unit, wanted_us, in_unit] : {row{"ns", 5, 5000}, row{"ms", 20000, 20}, row{"s", 1e8F, 100}}) {
        SCOPED_TRACE(unit);
        std::string changed = text;
        const size_t at = changed.find("<Unit>us</Unit>", changed.find("<Float Name=\"ExposureTime\""));
        ASSERT_NE(at, changed.npos);
        changed.replace(at + 6, 2, unit);
        client.reset();
        block.reset();
        start_with_document(changed);
        open_raw();
        switch_on(auto_exposure);
        block->set(result_exposure, wanted_us);
        send_results();
        EXPECT_TRUE(eventually([&] { return block->get<float>(current_exposure) == wanted_us; }));
        EXPECT_EQ(camera_value<double>(exposure_register), in_unit);
    }
}

// A camera of the first edition of the standard: raw numbers, a selector in a register, an iris.
TEST_F(ImageFeatures, OtherNamesAndUnitsOfCameras) {
    const auto int_register = [](const char* name, const char* address) {
        return std::string{"<IntReg Name=\""} + name + "\"><Address>" + address +
               "</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>"
               "<Sign>Signed</Sign><Endianess>BigEndian</Endianess></IntReg>";
    };
    start_with_document(
        R"(<?xml version="1.0" encoding="ISO-8859-1"?>
<RegisterDescription SchemaMajorVersion="1" SchemaMinorVersion="0" SchemaSubMinorVersion="1"
  ModelName="M" VendorName="V" ToolTip="caf)"
        "\xE9"
        R"(" xmlns="http://www.genicam.org/GenApi/Version_1_0">
<Group Comment="all"><Category Name="Root"><pFeature>ExposureTimeRaw</pFeature></Category>
<Integer Name="ExposureTimeRaw"><pValue>E</pValue><Min>1</Min><Max>4000</Max></Integer>
<Float Name="ExposureTimeBaseAbs"><ImposedAccessMode>RO</ImposedAccessMode><Value>20</Value><Unit>us</Unit></Float>
<Enumeration Name="GainSelector"><EnumEntry Name="Tap1"><Value>1</Value></EnumEntry>
  <EnumEntry Name="AnalogAll"><Value>3</Value></EnumEntry><pValue>GS</pValue></Enumeration>
<IntReg Name="G"><Address>0x30000200</Address><pIndex Offset="4">GS</pIndex><Length>4</Length>
  <AccessMode>RW</AccessMode><pPort>Device</pPort><Sign>Signed</Sign><Endianess>BigEndian</Endianess></IntReg>
<Integer Name="GainRaw"><pValue>G</pValue><Min>1</Min><Max>40</Max><Inc>3</Inc></Integer>
<Enumeration Name="BalanceRatioSelector"><EnumEntry Name="Red"><Value>0</Value></EnumEntry>
  <EnumEntry Name="Blue"><Value>2</Value></EnumEntry><EnumEntry Name="None"><Value>7</Value></EnumEntry>
  <pValue>S</pValue></Enumeration>
<Float Name="BalanceRatioAbs"><pValue>B</pValue><Min>0.5</Min><Max>4</Max></Float>
<FloatReg Name="B"><Address>0x30000100</Address><pIndex Offset="4">S</pIndex><Length>4</Length>
  <AccessMode>RW</AccessMode><pPort>Device</pPort><Endianess>BigEndian</Endianess></FloatReg>
<Integer Name="Iris"><pValue>I</pValue><Min>-100</Min><Max>100</Max></Integer>
<Enumeration Name="PixelFormat"><EnumEntry Name="BayerRG8"><Value>0</Value></EnumEntry><Value>0</Value></Enumeration>
<Port Name="Device"/>)" +
        int_register("E", "0x30000000") + int_register("GS", "0x30000010") + int_register("S", "0x30000008") +
        int_register("I", "0x3000000C") + "</Group></RegisterDescription>");
    open_raw();
    EXPECT_EQ(write(uint64_t{0x30000008}, uint32_t{7}), 0U);
    EXPECT_EQ(write(uint64_t{0x30000010}, uint32_t{1}), 0U);
    for (const size_t function : {auto_exposure, auto_gain, auto_iris, auto_balance})
        EXPECT_EQ(write(software + (function == auto_balance ? 0x400 : function),
                        uint32_t{function == auto_balance ? 2U : 1U}),
                  0U);
    EXPECT_EQ(write(software + master_enable, uint32_t{1}), 0U);
    block->set(result_exposure, 1030.0F);
    block->set(result_gain, 12.0F);
    block->set(result_iris, int64_t{-70});
    block->set(result_balance, 1.0F);
    block->set(result_balance + 4, 1.25F);
    block->set(result_balance + 8, 2.5F);
    send_results();
    // The current value: what the camera made of it, in the block's unit.
    EXPECT_TRUE(eventually([&] { return block->get<float>(current_balance + 8) == 2.5F; }));
    EXPECT_EQ(block->get<float>(current_exposure), 1040);
    EXPECT_EQ(camera_value<int32_t>(0x30000000), 52);
    EXPECT_EQ(camera_value<int32_t>(0x3000020C), 13)
        << "one more than a multiple of 3; of the gain of the whole picture";
    EXPECT_EQ(camera_value<int32_t>(0x30000204), 0) << "no other gain is touched";
    EXPECT_EQ(camera_value<int32_t>(0x30000010), 1) << "the selector is as it was";
    EXPECT_EQ(camera_value<int32_t>(0x3000000C), -70);
    EXPECT_EQ(block->get<int64_t>(current_iris), -70);
    EXPECT_EQ(camera_value<float>(0x30000100), 0.8F) << "against green, which the camera leaves at 1";
    EXPECT_EQ(camera_value<float>(0x30000108), 2.0F);
    EXPECT_EQ(camera_value<int32_t>(0x30000008), 7) << "the selector is as it was";
}

// Numbers whose unit no document tells: gains of more steps than decibels can be, and proportional white balance gains.
TEST_F(ImageFeatures, RawNumbersOfCameras) {
    const auto int_register = [](const char* name, const char* address, const char* more = "") {
        return std::string{"<IntReg Name=\""} + name + "\"><Address>" + address + "</Address>" + more +
               "<Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>"
               "<Sign>Signed</Sign><Endianess>BigEndian</Endianess></IntReg>";
    };
    for (const bool green : {true, false}) {
        SCOPED_TRACE(green);
        start_with_document(
            R"(<RegisterDescription ModelName="M" VendorName="V" SchemaMajorVersion="1" SchemaMinorVersion="1"
  SchemaSubMinorVersion="0" xmlns="http://www.genicam.org/GenApi/Version_1_1">
<Category Name="Root"><pFeature>GainRaw</pFeature></Category>
<Integer Name="GainRaw"><pValue>G</pValue><Min>0</Min><Max>960</Max></Integer>
<Enumeration Name="BalanceRatioSelector"><EnumEntry Name="Red"><Value>0</Value></EnumEntry>)" +
            std::string{green ? R"(<EnumEntry Name="Green"><Value>1</Value></EnumEntry>)" : ""} +
            R"(<EnumEntry Name="Blue"><Value>2</Value></EnumEntry><pValue>S</pValue></Enumeration>
<Integer Name="BalanceRatioRaw"><pValue>C</pValue><Min>0</Min><Max>255</Max></Integer>
<IntConverter Name="C"><FormulaTo>FROM - 80</FormulaTo><FormulaFrom>TO + 80</FormulaFrom><pValue>B</pValue>
  <Slope>Increasing</Slope></IntConverter>
<Enumeration Name="PixelFormat"><EnumEntry Name="BayerRG8"><Value>0</Value></EnumEntry><Value>0</Value></Enumeration>
<Port Name="Device"/>)" +
            int_register("G", "0x30000004") + int_register("S", "0x30000008") +
            int_register("B", "0x30000100", "<pIndex Offset=\"4\">S</pIndex>") + "</RegisterDescription>");
        open_raw();
        EXPECT_EQ(block->get<uint32_t>(116), green ? 0U : 1U) << "without green this host applies the gains";
        EXPECT_EQ(write(software + auto_gain, uint32_t{1}), 0U);
        EXPECT_EQ(write(software + 0x400, uint32_t{2}), 0U);
        EXPECT_EQ(write(software + master_enable, uint32_t{1}), 0U);
        block->set(result_gain, 12.0F);
        block->set(result_balance, 1.5F);
        block->set(result_balance + 4, 1.0F);
        block->set(result_balance + 8, 1.25F);
        send_results();
        EXPECT_TRUE(eventually([&] { return block->get<float>(current_balance + 8) == 1.25F; }));
        EXPECT_EQ(camera_value<int32_t>(0x30000004), 240) << "960 steps for 48 dB at most";
        EXPECT_EQ(camera_value<int32_t>(0x30000100), green ? 40 : 0) << "half as much again as 80";
        EXPECT_EQ(camera_value<int32_t>(0x30000104), 0);
        EXPECT_EQ(camera_value<int32_t>(0x30000108), green ? 20 : 0);
        client.reset();
        block.reset();
    }
}

// Of the three makers, and our own.
TEST_F(ImageFeatures, MergedDocumentsLoadEverywhere) {
    const std::string own_text = own_document();
    own = std::make_unique<test_system>();
    std::vector<std::filesystem::path> files{own->folder() / "own.xml"};
    std::ofstream{files[0], std::ios::binary} << own_text;
    if (const char* folder = std::getenv("ORV_TEST_DOCUMENTS")) {
        for (const auto& entry : std::filesystem::directory_iterator{folder})
            if (entry.path().extension() == ".xml") files.push_back(entry.path());
    }
    for (const auto& file : files) {
        SCOPED_TRACE(file.filename());
        test_system each;
        each.start_camera({"--document", file});
        each.start_service();
        test_support::open_camera camera{test_system::serial(0)};
        const log_capture log;
        const IGenICamDoc& document = camera.remote().document();
        EXPECT_THAT(log.lines, IsEmpty());
        EXPECT_THAT(feature_names(document), Contains("SoftwareGamma"));
        document.for_each_node([](INode* node) { EXPECT_EQ(node->get_fault(), "") << node->get_name(); });
#ifdef ORV_ARAVIS_LOAD
        const auto merged = each.folder() / "merged.xml";
        std::ofstream{merged, std::ios::binary} << document_of(camera);
        test_support::process load{{ORV_ARAVIS_LOAD, merged}, each.folder() / "aravis"};
        EXPECT_EQ(load.wait(), 0) << load.output();
        EXPECT_THAT(load.output(), HasSubstr("\nSoftwareGamma\n"));
#endif
    }
}

// Through the whole producer: what is switched on shows in the pictures, and the camera follows what was measured.
TEST_F(ImageFeatures, ShowInThePicturesAndSteerTheCamera) {
    start({"--frame-rate", "50"});
    const auto mean_of_last = [&](const std::string& name, std::vector<std::string> settings, const char* frames) {
        const auto folder = own->folder() / name;
        std::vector<std::string> options{"--frames", frames, "--save", "3", "--raw", "--output", folder.string()};
        for (std::string& each : settings) options.insert(options.end(), {"--set", std::move(each)});
        const auto result = own->grab(options);
        EXPECT_EQ(result.value("frames_complete", -1), std::stoi(frames)) << result;
        if (result.value("files", nlohmann::json::array()).empty()) return -1.0;
        std::ifstream in{result["files"].back().at("path").get<std::string>(), std::ios::binary};
        double sum = 0, count = 0;
        for (char c = 0; in.get(c); ++count) sum += static_cast<unsigned char>(c);
        return count == 0 ? -1.0 : sum / count;
    };
    const double plain = mean_of_last("plain", {"SoftwareBrightness=64"}, "3");
    ASSERT_GT(plain, 0);
    const double bright = mean_of_last("bright", {"SoftwareImageProcessingEnable=true", "SoftwareBrightness=64"}, "3");
    EXPECT_GT(bright, plain + 20) << "a quarter of full scale, but for what is white already";

    const double dark = mean_of_last("dark", {"ExposureTime=1000"}, "3");
    EXPECT_LT(dark, plain / 2);
    const double steered = mean_of_last(
        "steered", {"ExposureTime=1000", "SoftwareImageProcessingEnable=true", "AutoExposure=true"}, "150");
    EXPECT_GT(steered, dark * 2);
    open_raw();
    EXPECT_GT(camera_value<double>(exposure_register), 2000);
}
