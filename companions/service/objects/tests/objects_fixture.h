// A service's objects with two clients, and cameras on loopback.
#pragma once

#include <gvcp/tests/test_cameras.h>
#include <objects/device_object.h>
#include <objects/interface_object.h>
#include <support/temporary_folder.h>

#include <algorithm>
#include <atomic>

namespace service {

using namespace gvcp_master;
using gds_shared::gigecam_errc;
using ipc_rpc::open_access;

class Objects : public testing::Test {
protected:
    static constexpr uint32_t not_listed = 99;
    struct client {
        explicit client(const std::shared_ptr<service_core>& core)
            : session{std::make_shared<client_session>(
                  [this](uint64_t number) {
                      if (number < 64) raised |= uint64_t{1} << number;
                  },
                  std::nullopt)},
              interface {
            core, session, "lo"
        } {
        }
        [[nodiscard]] std::vector<ipc_rpc::device_desc> list() const { return *interface.enum_devices(); }
        [[nodiscard]] uint32_t state(uint32_t address) const {
            for (const auto& each : list())
                if (each.net_info.ip == address) return each.control_state;
            return not_listed;
        }
        [[nodiscard]] std::shared_ptr<device_object> open(uint32_t address, open_access access = open_access::control) {
            for (const auto& each : list()) {
                if (each.net_info.ip != address) continue;
                return interface.open_device(each.id, access).value();
            }
            throw std::runtime_error("no such camera");
        }
        std::atomic<uint64_t> raised = 0;
        std::shared_ptr<client_session> session;
        interface_object interface;
    };

    // A camera is listed for seconds though a busy machine keeps it from answering.
    static discovery::options quick_search() {
        return {.networks = false, .interval = milliseconds{50}, .window = milliseconds{25}, .misses = 40};
    }
    // None comes by itself.
    static discovery::options rare_search(milliseconds window) {
        return {.networks = false, .interval = std::chrono::hours{1}, .window = window};
    }
    void start_core(std::initializer_list<uint32_t> cameras, discovery::options search = quick_search()) {
        service_core::options options;
        options.discovery = std::move(search);
        options.port_folder = folder;
        options.image_features = software_features;
        options.documents = documents;
        for (const uint32_t n : cameras) options.discovery.addresses.push_back(own_address(n));
        core = std::make_shared<service_core>(std::move(options));
        one.emplace(core);
        other.emplace(core);
        // Not their number: who looks on all of loopback sees the cameras of tests that run beside this one.
        const auto listed = [&](uint32_t n) { return one->state(own_address(n)) != not_listed; };
        ASSERT_TRUE(eventually([&] { return std::ranges::all_of(cameras, listed); }));
    }
    // With one camera, that nobody has control of.
    void start_core_and_camera() {
        cam = start(small_camera(1));
        start_core({1});
    }

    bool software_features = false; // documents are as the cameras have them
    document_policy documents;
    const test_support::temporary_folder temporary;
    const std::filesystem::path& folder = temporary.path;
    std::unique_ptr<camera_sim::camera> cam;
    std::shared_ptr<service_core> core;
    std::optional<client> one, other;
};

inline constexpr uint32_t held = ipc_rpc::control_state_held;

} // namespace service
