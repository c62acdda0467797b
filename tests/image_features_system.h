// The software features that the service adds to a camera's document: real service, simulated camera, the library by
// dlopen or the service's protocol spoken by the test.
#pragma once

#include "support/raw_client.h"
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace test_support {

// Offsets as the library reads them, once more by their numbers: the two ends are built apart.
namespace at {
inline constexpr size_t master_enable = 12, gamma_value = 20, saturation = 24, matrix = 44, frame_rate = 96,
                        auto_exposure = 104, balance_in_software = 116, current_exposure = 120, exposure_max = 128,
                        auto_gain = 136, current_gain = 140, auto_iris = 152, current_iris = 160, auto_balance = 188,
                        balance_once = 192, current_balance = 196, result_gain = 296, result_exposure = 300,
                        result_iris = 304, result_balance = 312, balance_finished = 324, by_temperature = 512,
                        balance_mode = 0x400; // the service's own
}
inline constexpr uint64_t software = 0x1000100000000;
// Of the simulated camera.
inline constexpr uint64_t exposure_register = 0x10058, exposure_auto_register = 0x10060, gain_register = 0x100C0;

inline int count_of(const std::string& text, const std::string& part) {
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
            // Whole: services of other tests have numbers that end in the same digits.
            if (name.starts_with("settings-" + std::to_string(service_pid) + "_")) found.push_back(name);
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

inline std::string text_of(const cli::node_map& nodes, const std::string& name) {
    std::string error;
    std::string text = cli::value_text(cli::require_node(nodes, name), error);
    return error.empty() ? text : "! " + error;
}

inline bool takes(const cli::node_map& nodes, const std::string& name, const std::string& value) {
    try {
        cli::set_from_text(cli::require_node(nodes, name), value);
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

inline std::vector<std::string> feature_names(const GenICam::IGenICamDoc& document) {
    std::vector<std::string> names;
    for (const GenICam::INode* node : document.get_root_features()) names.emplace_back(node->get_name());
    return names;
}

// The only camera's document as the library gets it.
inline std::string document_of(open_camera& camera) {
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
class image_features : public testing::Test {
protected:
    void start(std::vector<std::string> camera_options = {}) {
        if (!own) own = std::make_unique<test_system>(std::vector<std::string>{"--log-level", "3"});
        camera_options.insert(camera_options.end(), {"--width", "320", "--height", "240"});
        own->start_camera(camera_options);
        own->start_logged_service();
    }
    void start_with_document(const std::string& text, std::vector<std::string> camera_options = {}) {
        client.reset();
        block.reset();
        own = std::make_unique<test_system>(std::vector<std::string>{"--log-level", "3"});
        const auto path = own->folder() / "document.xml";
        std::ofstream{path, std::ios::binary} << text;
        camera_options.insert(camera_options.end(), {"--document", path});
        start(std::move(camera_options));
    }
    // The simulated camera's own document.
    static std::string own_document(std::vector<std::string> camera_options = {}) {
        test_system other{{"--no-image-features"}};
        camera_options.insert(camera_options.end(), {"--width", "320", "--height", "240"});
        other.start_camera(camera_options);
        other.start_service();
        open_camera camera{test_system::serial(0)};
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
        EXPECT_EQ(write(software + at::master_enable, uint32_t{1}), 0U);
        EXPECT_EQ(write(software + function, uint32_t{1}), 0U);
    }
    void send_results() { EXPECT_TRUE(client->send_call(stream, "send_write_auto_values_cmd", {}, 1)); }
    std::unique_ptr<test_system> own; // made when no other is in use: the newest is the process's
    std::unique_ptr<raw_client> client;
    uint64_t device = 0;
    uint64_t stream = 0;
    std::unique_ptr<mapped_block> block;
};

} // namespace test_support
