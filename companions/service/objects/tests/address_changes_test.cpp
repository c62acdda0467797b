// A camera gets another address only when it is nobody's, and nobody gets it meanwhile.
#include "objects_fixture.h"

#include <objects/address_turns.h>

#include <future>

namespace service {
namespace {

namespace boot = gige::gvcp::reg;

TEST_F(Objects, NobodysCameraIsMovedUnderHisHands) {
    auto options = small_camera(1);
    options.serial = std::to_string(::getpid()); // another camera with the same would change the id
    cam = start(options);
    auto everywhere = quick_search();
    everywhere.loopback = true;
    start_core({1}, everywhere);
    const uint32_t address = cam->address();
    std::string id;
    for (const auto& each : one->list())
        if (each.net_info.ip == address) id = each.id;
    const auto all_are_refused = [&](const char* who) {
        const auto refused_before = cam->stats().requests_refused;
        EXPECT_EQ(error_of(one->interface.force_ip(cam->mac(), own_address(9), 0xFF000000, 0)),
                  gigecam_errc::access_denied)
            << who;
        for (const char* function :
             {"IPConfigAssignFreeTemporaryIP", "IPConfigAssignFreePersistentIP", "IPConfigDHCPEnable"}) {
            EXPECT_EQ(error_of(one->interface.execute(id, function)), gigecam_errc::access_denied)
                << who << ' ' << function;
        }
        EXPECT_EQ(cam->stats().requests_refused, refused_before) << "it did not have to refuse: " << who;
        EXPECT_EQ(cam->address(), address);
    };
    {
        const auto foreign = ::gvcp_master::open(*cam); // another host's, since the last search perhaps
        ASSERT_TRUE(foreign);
        all_are_refused("another host");
    }
    {
        const auto device = other->open(address);
        all_are_refused("another client of the service");
    }
    EXPECT_TRUE(one->interface.force_ip(cam->mac(), own_address(9), 0xFF000000, 0));
}

// What a client has open may be missing in the list that the request is made for.
TEST_F(Objects, ACameraThatIsHeldAndNotListedIsNotMoved) {
    std::atomic<bool> hidden = false;
    const scripted_camera shy{own_address(1), [&](scripted_camera&, const scripted_camera::request& got) {
                                  return got.header.code == gige::gvcp::command::discovery && hidden;
                              }};
    start_core({1});
    const uint64_t mac = one->list().front().net_info.mac_address;
    const auto device = other->open(own_address(1));
    hidden = true;
    ASSERT_TRUE(eventually([&] { return one->list().empty(); }));
    EXPECT_EQ(one->interface.force_ip(mac, own_address(9), 0xFF000000, 0).error(), gigecam_errc::access_denied);
}

// The search for a free address takes its time, in which others open the camera.
TEST_F(Objects, ACameraThatIsTakenMeanwhileIsNotMoved) {
    std::atomic<bool> asked = false;
    const gige::endpoint another{own_address(8), 1};
    scripted_camera taken{own_address(1), [&](scripted_camera& self, const scripted_camera::request& got) {
                              if (!got.is(gige::gvcp::command::read_reg, boot::privilege) || asked.exchange(true))
                                  return false;
                              self.serve(got); // nobody's yet
                              self.hand_control_to(another);
                              self.set(boot::privilege, gige::gvcp::bits::control);
                              return true;
                          }};
    asked = true; // by the search
    start_core({1}, rare_search(milliseconds{25}));
    const auto camera = [&] { return core->discovery().list().front().devices.front(); };
    ASSERT_TRUE(eventually([&] { return core->discovery().scan(milliseconds{5000}) && camera().answers; }));
    asked = false;
    EXPECT_EQ(error_of(one->interface.force_ip(camera().mac, own_address(9), 0xFF000000, 0)),
              gigecam_errc::access_denied);
    EXPECT_TRUE(asked);
}

TEST_F(Objects, ACameraThatIsBeingMovedIsNotOpened) {
    start_core_and_camera();
    const std::string id = one->list().front().id;
    {
        const address_turns::turn turn{core->addresses(), cam->mac(), {}};
        EXPECT_EQ(error_of(one->interface.open_device(id, open_access::control)), gigecam_errc::busy);
        EXPECT_EQ(cam->peek(boot::privilege), 0U);
        EXPECT_TRUE(one->interface.open_device(id, open_access::read_only)) << "who reads has nothing to lose";
    }
    EXPECT_TRUE(one->interface.open_device(id, open_access::control));
}

// In the moment in which both begin, one of them is to have it.
TEST_F(Objects, ACameraThatIsBeingOpenedIsNotMoved) {
    std::future<std::error_code> moving;
    std::atomic<bool> asked = false;
    std::atomic<uint64_t> mac = 0;
    scripted_camera wanted{own_address(1), [&](scripted_camera&, const scripted_camera::request& got) {
                               if (!got.is(gige::gvcp::command::write_reg, boot::privilege) || asked) return false;
                               moving = std::async(std::launch::async, [&] {
                                   return error_of(other->interface.force_ip(mac, own_address(9), 0xFF000000, 0));
                               });
                               moving.wait(); // it need not ask the camera
                               asked = true;
                               return false;
                           }};
    start_core({1});
    mac = one->list().front().net_info.mac_address;
    EXPECT_TRUE(one->open(own_address(1)));
    ASSERT_TRUE(asked);
    EXPECT_EQ(moving.get(), gigecam_errc::busy);
}

TEST_F(Objects, AfterForceIpTheListHasTheNewAddress) {
    cam = start(small_camera(1));
    start_core({1}, {.networks = false,
                     .loopback = true, // finds it wherever it is
                     .interval = std::chrono::hours{1},
                     .window = milliseconds{300}});
    EXPECT_TRUE(one->interface.force_ip(cam->mac(), own_address(2), 0xFF000000, 0));
    EXPECT_EQ(one->state(own_address(2)), 0U);
}

} // namespace
} // namespace service
