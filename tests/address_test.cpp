// Cameras that are given addresses: on the wrong subnet, at another's address, beside somebody who answers for one.
#include "service_network.h"

#include <gige/gvcp.h>
#include <gvcp/address_probe.h>
#include <objects/address_assignment.h>
#include <objects/device_object.h>
#include <objects/interface_object.h>
#include <support/eventually.h>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace {

using namespace test_support;
namespace reg = gige::gvcp::reg;

constexpr uint32_t net = 0x0A632700;     // 10.99.39.0/29: hosts 1 to 6
constexpr uint32_t foreign = 0xC0A84D05; // 192.168.77.5
constexpr uint64_t first_mac = 0x02000000BEE0;

// For this thread and those that it starts.
bool drop_raw_sockets() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    if (::syscall(SYS_capget, &header, data) != 0) return false;
    for (auto set : {&__user_cap_data_struct::effective, &__user_cap_data_struct::permitted})
        data[0].*set &= ~(1U << CAP_NET_RAW);
    return ::syscall(SYS_capset, &header, data) == 0;
}

class Addresses : public ServiceNetwork {
protected:
    // A camera with an interface of its own, as real ones have.
    std::unique_ptr<camera_sim::camera> start_at(uint32_t address, int end, uint64_t mac) {
        camera_sim::camera_options options;
        options.address = address;
        options.interface = "cable";
        options.mac = mac;
        options.serial = std::to_string(mac & 0xFF);
        options.reboot_ms = 50;
        return start_camera(options, end);
    }
    struct service {
        explicit service() {
            ::service::service_core::options options;
            options.discovery = {.interval = milliseconds{100}, .window = milliseconds{50}, .misses = 40};
            core = std::make_shared<::service::service_core>(std::move(options));
            session = std::make_shared<::service::client_session>([](uint64_t) {}, std::nullopt);
            interface = std::make_unique<::service::interface_object>(core, session, "cable");
        }
        [[nodiscard]] std::optional<ipc_rpc::device_desc> listed(uint64_t mac) const {
            const auto list = interface->enum_devices();
            for (const auto& each : *list)
                if (each.net_info.mac_address == mac) return each;
            return std::nullopt;
        }
        // The status that the list comes to show.
        [[nodiscard]] bool becomes(uint64_t mac, ipc_rpc::reachable_status status) const {
            return eventually([&] {
                const auto now = listed(mac);
                return now && now->reachable_status == static_cast<uint32_t>(status);
            });
        }
        [[nodiscard]] std::error_code execute(uint64_t mac, const std::string& function) const {
            return error_of(interface->execute(listed(mac)->id, function));
        }
        [[nodiscard]] std::error_code force(uint64_t mac, uint32_t address, uint32_t mask = 0xFFFFFFF8,
                                            uint32_t gateway = 0) const {
            return error_of(interface->force_ip(mac, address, mask, gateway));
        }
        [[nodiscard]] std::error_code open(uint64_t mac) const {
            return error_of(interface->open_device(listed(mac)->id, ipc_rpc::open_access::control));
        }
        std::shared_ptr<::service::service_core> core;
        std::shared_ptr<::service::client_session> session;
        std::unique_ptr<::service::interface_object> interface;
    };
    // One camera, here or of a foreign subnet, that the service has found. This host's gateway is 10.99.39.2.
    template <class Body>
    void with_camera(uint32_t address, Body body) {
        give(hosts.consumer_side(), "10.99.39.1/29");
        ASSERT_TRUE(hosts.run(hosts.consumer_side(), {"ip", "route", "add", "default", "via", "10.99.39.2"}));
        camera = start_at(address, hosts.camera_side(), first_mac);
        ASSERT_TRUE(camera);
        at(hosts.consumer_side(), [&] {
            const service running;
            ASSERT_TRUE(running.becomes(first_mac, address == foreign ? ipc_rpc::reachable_status::unreachable
                                                                      : ipc_rpc::reachable_status::reachable));
            body(running);
        });
    }
};

struct search_case {
    const char* function;
    bool raw_sockets;
};

void PrintTo(const search_case& given, std::ostream* out) { *out << given.function << given.raw_sockets; }

class FreeAddress : public Addresses, public testing::WithParamInterface<search_case> {};

// Of the network's six addresses one is this host's, one the gateway's, two are answered for, one is a camera's.
TEST_P(FreeAddress, TheOneThatNobodyHasIsGiven) {
    const auto& given = GetParam();
    give(hosts.consumer_side(), "10.99.39.1/29");
    ASSERT_TRUE(hosts.run(hosts.consumer_side(), {"ip", "route", "add", "default", "via", "10.99.39.2"}));
    const int other_side = hosts.add_camera_side();
    ASSERT_GE(other_side, 0) << hosts.why_not();
    for (const char* answered : {"10.99.39.3/32", "10.99.39.4/32"})
        ASSERT_TRUE(hosts.run(other_side, {"ip", "address", "add", answered, "dev", "lo"}));
    const auto neighbour = start_at(net + 5, other_side, first_mac + 1);
    camera = start_at(foreign, hosts.camera_side(), first_mac);
    ASSERT_TRUE(camera && neighbour);
    at(hosts.consumer_side(), [&] {
        if (!given.raw_sockets) {
            ASSERT_TRUE(drop_raw_sockets());
        }
        const service running;
        ASSERT_TRUE(running.becomes(first_mac + 1, ipc_rpc::reachable_status::reachable));
        ASSERT_TRUE(running.becomes(first_mac, ipc_rpc::reachable_status::unreachable));
        EXPECT_EQ(running.open(first_mac), std::errc::host_unreachable);
        EXPECT_EQ(running.execute(first_mac, "IPConfigAssignFreeAnything"), std::errc::function_not_supported);

        EXPECT_FALSE(running.execute(first_mac, given.function));
        EXPECT_EQ(camera->address(), net + 6);
        EXPECT_NE(hosts.run(hosts.consumer_side(), {"sh", "-c", "ip neighbour show | grep -q '^10.99.39.4 '"}),
                  given.raw_sockets)
            << "ARP probes leave no trace, the kernel's question does";
        EXPECT_EQ(running.listed(first_mac)->net_info.netmask, 0xFFFFFFF8U);
        EXPECT_EQ(running.listed(first_mac)->net_info.gateway, net + 2);
        EXPECT_FALSE(running.open(first_mac));
        EXPECT_EQ(running.execute(first_mac, "IPConfigAssignFreeTemporaryIP"), std::errc::address_not_available);

        const bool persistent = given.function == std::string{"IPConfigAssignFreePersistentIP"};
        const bool dhcp = given.function == std::string{"IPConfigDHCPEnable"};
        const uint32_t configured = camera->peek(reg::ip_config_current);
        EXPECT_EQ((configured & gige::gvcp::bits::ip_persistent) != 0, persistent);
        EXPECT_EQ(camera->peek(reg::persistent_address), persistent ? net + 6 : 0);
        if (dhcp) {
            EXPECT_NE(configured & gige::gvcp::bits::ip_dhcp, 0U);
        }
        if (!persistent) return;
        camera->reboot();
        ASSERT_TRUE(eventually([&] { return camera->stats().reboots == 1; }));
        EXPECT_TRUE(eventually([&] { return !running.open(first_mac); })) << "after its start";
        EXPECT_EQ(camera->address(), net + 6);
    });
}

INSTANTIATE_TEST_SUITE_P(Functions, FreeAddress,
                         testing::Values(search_case{"IPConfigAssignFreeTemporaryIP", true},
                                         search_case{"IPConfigAssignFreeTemporaryIP", false},
                                         search_case{"IPConfigAssignFreePersistentIP", true},
                                         search_case{"IPConfigDHCPEnable", true}),
                         [](const auto& chosen) {
                             return std::string{chosen.param.function} + (chosen.param.raw_sockets ? "" : "NotRoot");
                         });

TEST_F(Addresses, ForceIPTakesNobodysAddressAndTellsWhereTheCameraDidNotCome) {
    ASSERT_TRUE(hosts.run(hosts.camera_side(), {"ip", "address", "add", "10.99.39.3/32", "dev", "lo"}));
    with_camera(foreign, [&](const service& running) {
        EXPECT_EQ(running.force(first_mac, net + 1), std::errc::address_in_use) << "this host's own";
        EXPECT_EQ(running.force(first_mac, net + 3), std::errc::address_in_use) << "another host answers for it";
        EXPECT_EQ(camera->address(), foreign);
        EXPECT_FALSE(running.force(first_mac, net + 4));
        EXPECT_EQ(camera->address(), net + 4);
        EXPECT_FALSE(running.force(first_mac, net + 4)) << "where it is already";
        EXPECT_FALSE(running.open(first_mac));
        camera->set_deaf(true);
        EXPECT_TRUE(running.force(first_mac, net + 6));
    });
}

TEST_F(Addresses, ForceIPGivesNoCameraWhatIsNoHostsAddress) {
    with_camera(foreign, [&](const service& running) {
        const struct {
            uint32_t address, mask, gateway;
            const char* what;
        } cases[]{
            {net, 0xFFFFFFF8, 0, "the network's"},
            {net + 7, 0xFFFFFFF8, 0, "its broadcast address"},
            {net + 7, 0xFFFFFF00, 0, "the broadcast address of the interface's network, whatever the mask says"},
            {0x0A6328FF, 0xFFFFFF00, 0, "the broadcast address of a network that this host is not in"},
            {0xE0000001, 0xFFFFFFF8, 0, "a multicast address"},
            {0xFFFFFFFF, 0xFFFFFFF8, 0, "everybody's"},
            {net + 2, 0xFFFFFFF8, 0, "this host's gateway"},
            {net + 4, 0xFFFFFFF8, net + 4, "the gateway that it names"},
            {net + 4, 0xFF00FF00, 0, "one with a mask that has gaps"},
        };
        for (const auto& each : cases) {
            EXPECT_EQ(running.force(first_mac, each.address, each.mask, each.gateway), std::errc::invalid_argument)
                << each.what;
        }
        EXPECT_EQ(camera->address(), foreign);
    });
}

// A camera that is slow with its network, and whose acknowledge did not come through before.
TEST_F(Addresses, ACameraThatMovesWithoutAWordIsWaitedFor) {
    with_camera(foreign, [&](const service& running) {
        camera_sim::fault_options late;
        late.pending_every = 1;
        late.pending_ms = 60'000;
        camera->set_faults(late);
        std::thread network{[&] {
            EXPECT_TRUE(eventually([&] { return camera->address() == net + 4; }));
            camera->set_silent(true);
            std::this_thread::sleep_for(milliseconds{3500}); // longer than the command is repeated, and a second
            camera->set_faults({});
            camera->set_silent(false);
        }};
        EXPECT_FALSE(running.force(first_mac, net + 4));
        network.join();
    });
}

// Two that look for an address at a time, of which one's camera does not come.
TEST_F(Addresses, CamerasDoNotWaitForOneAnotherAndAnEndedClientForNothing) {
    give(hosts.consumer_side(), "10.99.39.1/29");
    const int other_side = hosts.add_camera_side();
    ASSERT_GE(other_side, 0) << hosts.why_not();
    camera = start_at(foreign, hosts.camera_side(), first_mac);
    const auto other = start_at(0xC0A84D06, other_side, first_mac + 1);
    ASSERT_TRUE(camera && other);
    at(hosts.consumer_side(), [&] {
        const service running;
        for (const uint64_t mac : {first_mac, first_mac + 1})
            ASSERT_TRUE(running.becomes(mac, ipc_rpc::reachable_status::unreachable));
        camera->set_deaf(true);
        const std::string its_id = running.listed(first_mac)->id;
        const ::service::interface_object client{running.core, running.session, "cable"};
        ::service::interface_object leaving{running.core, running.session, "cable"};
        std::atomic<bool> over = false;
        std::thread one{[&] {
            // Its camera is off the list soon; it waits for its arrival all the same.
            EXPECT_FALSE(client.force_ip(first_mac, net + 6, 0xFFFFFFF8, 0));
            over = true;
        }};
        EXPECT_FALSE(running.force(first_mac + 1, net + 5));
        EXPECT_FALSE(over) << "the second camera had to wait for the first";
        EXPECT_EQ(other->address(), net + 5);
        std::thread two{[&] {
            const auto done = leaving.force_ip(first_mac, net + 4, 0xFFFFFFF8, 0);
            ASSERT_FALSE(done);
            EXPECT_EQ(done.error(), std::errc::operation_canceled);
        }};
        leaving.abandon();
        two.join();
        EXPECT_FALSE(over) << "it waited for its turn though its client is gone";
        one.join();
        camera->set_deaf(false);
        ASSERT_TRUE(running.becomes(first_mac, ipc_rpc::reachable_status::unreachable));

        // A search under way, too.
        ::service::interface_object gone{running.core, running.session, "cable"};
        camera->set_deaf(true);
        std::thread search{[&] {
            const auto done = gone.execute(its_id, "IPConfigAssignFreeTemporaryIP");
            ASSERT_FALSE(done);
            EXPECT_EQ(done.error(), std::errc::operation_canceled);
        }};
        std::this_thread::sleep_for(milliseconds{100});
        gone.abandon();
        search.join();
    });
}

// This host's address has gone since the interface was looked at: what could not be asked for is not free.
TEST_F(Addresses, WithoutRawSocketsAnAddressThatCannotBeAskedForIsNotFree) {
    give(hosts.consumer_side(), "10.99.39.1/29");
    at(hosts.consumer_side(), [&] {
        ASSERT_TRUE(drop_raw_sockets());
        gige::network_interface cable;
        const auto listed = gige::enumerate_interfaces();
        if (!listed) throw std::system_error(listed.error());
        for (const auto& each : *listed)
            if (each.name == "cable") cable = each;
        ASSERT_EQ(cable.subnets.size(), 1U);
        const std::array wanted{net + 4};
        EXPECT_TRUE(gvcp_master::addresses_in_use(cable, net + 1, wanted, {}));
        ASSERT_TRUE(hosts.run(hosts.consumer_side(), {"ip", "address", "del", "10.99.39.1/29", "dev", "cable"}));
        EXPECT_FALSE(gvcp_master::addresses_in_use(cable, net + 1, wanted, {}));
    });
}

// A request that had to wait was made with what the camera was before the one in front of it had moved it.
TEST_F(Addresses, AWaitingRequestMeetsTheCameraWhereItIsNow) {
    with_camera(net + 5, [&](const service& running) {
        const auto before = *find(running.core->discovery(), first_mac);
        EXPECT_FALSE(running.force(first_mac, net + 4));
        EXPECT_FALSE(::service::run_address_function(*running.core, "cable", before, "IPConfigDHCPEnable", {}));
        EXPECT_EQ(camera->address(), net + 4);
        EXPECT_NE(camera->peek(reg::ip_config_current) & gige::gvcp::bits::ip_dhcp, 0U);
    });
}

// Whoever opened the one could get the other.
TEST_F(Addresses, TwoCamerasOfOneAddressAreUnreachableUntilOneIsMoved) {
    give(hosts.consumer_side(), "10.99.39.1/29");
    const int other_side = hosts.add_camera_side();
    ASSERT_GE(other_side, 0) << hosts.why_not();
    camera = start_at(net + 5, hosts.camera_side(), first_mac);
    const auto twin = start_at(net + 5, other_side, first_mac + 1);
    ASSERT_TRUE(camera && twin);
    at(hosts.consumer_side(), [&] {
        const service running;
        for (const uint64_t mac : {first_mac, first_mac + 1}) {
            ASSERT_TRUE(running.becomes(mac, ipc_rpc::reachable_status::unreachable));
            EXPECT_EQ(running.open(mac), std::errc::host_unreachable);
        }
        EXPECT_FALSE(running.execute(first_mac, "IPConfigAssignFreeTemporaryIP"));
        EXPECT_NE(camera->address(), twin->address());
        for (const uint64_t mac : {first_mac, first_mac + 1})
            EXPECT_TRUE(running.becomes(mac, ipc_rpc::reachable_status::reachable));
    });
}

// On a busy machine either may miss some searches.
TEST_F(Addresses, TwoCamerasOfOneAddressAreNotTakenForAReplacement) {
    give(hosts.consumer_side(), "10.99.39.1/29");
    const int other_side = hosts.add_camera_side();
    ASSERT_GE(other_side, 0) << hosts.why_not();
    camera = start_at(net + 5, hosts.camera_side(), first_mac);
    ASSERT_TRUE(camera);
    at(hosts.consumer_side(), [&] {
        discovery finder{{.interval = std::chrono::minutes{10}, .window = milliseconds{50}}, {}};
        const auto share = [&] {
            EXPECT_TRUE(finder.scan(milliseconds{5000}));
            const auto one = find(finder, first_mac);
            const auto other = find(finder, first_mac + 1);
            return one && other && one->shares_address && other->shares_address;
        };
        ASSERT_TRUE(eventually([&] { return finder.scan(milliseconds{5000}) && find(finder, first_mac); }));
        camera->set_silent(true);
        const auto twin = start_at(net + 5, other_side, first_mac + 1);
        ASSERT_TRUE(twin);
        ASSERT_TRUE(eventually([&] { return finder.scan(milliseconds{5000}) && find(finder, first_mac + 1); }));
        EXPECT_FALSE(share()) << "the second camera is there instead of the first, which is listed yet";
        camera->set_silent(false);
        EXPECT_TRUE(eventually(share));
        twin->set_silent(true);
        for (int i = 0; i < 5; ++i) EXPECT_TRUE(share());
    });
}

TEST_F(Addresses, AnInterfaceOfManyNetworksThatGoesDownComesBackWithItsCameras) {
    for (int i = 40; i < 80; ++i) give(hosts.consumer_side(), "10.99." + std::to_string(i) + ".1/24");
    with_camera(net + 5, [&](const service& running) {
        EXPECT_FALSE(running.execute(first_mac, "IPConfigAssignFreeTemporaryIP"));
        EXPECT_EQ(camera->address() & 0xFFFFFFF8, net) << "it stays in its network, which is the last";
        EXPECT_FALSE(running.open(first_mac));
        ASSERT_TRUE(hosts.run(hosts.consumer_side(), {"ip", "link", "set", "cable", "down"}));
        EXPECT_TRUE(eventually([&] { return running.interface->enum_devices()->empty(); }));
        ASSERT_TRUE(hosts.run(hosts.consumer_side(), {"ip", "link", "set", "cable", "up"}));
        ASSERT_TRUE(running.becomes(first_mac, ipc_rpc::reachable_status::reachable));
        EXPECT_FALSE(running.open(first_mac));
    });
}

} // namespace
