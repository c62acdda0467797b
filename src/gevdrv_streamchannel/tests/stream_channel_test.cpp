// The stream channel over a control channel that a script answers, with a real socket on the other side.
#include "receiver_fixture.h"

#include <gevdrv_streamchannel/stream_channel_impl.h>

#include <gds_shared/gigecam_error.h>
#include <gige/udp_socket.h>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <condition_variable>
#include <map>
#include <mutex>

using namespace gev::streamchannel;
using namespace gev::streamchannel::test;
using gds_shared::gigecam_errc;

namespace {

constexpr uint32_t loopback_address = 0x7F000001;
constexpr uint32_t channel_base = 2 * 64; // of channel 2
constexpr uint32_t capability = 0x092C;
constexpr uint32_t scp = 0x0D00 + channel_base;
constexpr uint32_t scps = 0x0D04 + channel_base;
constexpr uint32_t scda = 0x0D18 + channel_base;
constexpr uint32_t scsp = 0x0D1C + channel_base;
constexpr uint32_t do_not_fragment = 0x40000000;

struct register_access {
    char kind; // 'r' or 'w'
    uint32_t address;
    uint32_t value = 0; // written
    bool operator==(const register_access&) const = default;
};
void PrintTo(const register_access& a, std::ostream* out) { *out << a.kind << std::hex << a.address << "=" << a.value; }

// A camera's stream registers; a test packet leaves within the write that fires it.
class camera final : public gev::controlchannel::IControlChannelPort {
public:
    std::map<uint32_t, uint32_t> registers;
    std::vector<register_access> log;
    size_t fails_at = SIZE_MAX; // index in the log
    uint32_t failing_address = 0;
    bool takes_what_fails = false; // a write is done, and its answer is lost
    uint32_t path = 9000;
    bool has_no_size = false; // whatever is written
    gige::udp_socket control = *gige::udp_socket::open({loopback_address, 0});
    gige::udp_socket source = *gige::udp_socket::open({loopback_address, 0});

    std::expected<uint32_t, std::error_code> read_reg(uint32_t address, uint32_t, uint32_t) override {
        if (note({'r', address})) return std::unexpected(make_error_code(gigecam_errc::busy));
        return address == scps && has_no_size ? 0 : registers[address];
    }
    std::error_code write_reg(uint32_t address, uint32_t value, uint32_t, uint32_t) override {
        const bool failing = note({'w', address, value});
        if (!failing || takes_what_fails) registers[address] = value & 0x7FFFFFFF;
        if (failing) return make_error_code(gigecam_errc::busy);
        const uint32_t size = value & 0xFFFF;
        if (address == scps && (value & 0x80000000) != 0 && size <= path) send(std::vector<std::byte>(size - 28));
        return {};
    }
    std::error_code read_mem(uint32_t, std::span<std::byte>, uint32_t, uint64_t) override { return {}; }
    std::error_code write_mem(uint32_t, std::span<const std::byte>, uint32_t, uint64_t) override { return {}; }

    void send(std::span<const std::byte> datagram) {
        EXPECT_FALSE(control.send({registers[scda], static_cast<uint16_t>(registers[scp])}, datagram));
    }
    [[nodiscard]] std::vector<register_access> written() const {
        std::vector<register_access> result;
        for (const register_access& each : log) {
            if (each.kind == 'w') result.push_back(each);
        }
        return result;
    }

private:
    bool note(const register_access& what) {
        log.push_back(what);
        return log.size() - 1 == fails_at || what.address == failing_address;
    }
};

struct channel_setup {
    camera device;
    std::unique_ptr<GenICam::IGenICamDoc> document;
    channel_start_params params;
    std::mutex mutex; // guards what follows
    std::condition_variable changed;
    std::vector<std::byte> memory = std::vector<std::byte>(1000);
    std::vector<frame_info> frames;
    std::unique_ptr<stream_channel_impl> sut; // goes first

    explicit channel_setup(int32_t max_packet_size = 0, const std::string& nodes = {}) {
        params.get_frame = [this] { return frame_context{&memory, memory.data(), memory.size()}; };
        params.deliver = [this](const frame_info& info, const frame_receive_stats&) {
            const std::lock_guard guard{mutex};
            frames.push_back(info);
            changed.notify_all();
        };
        params.payload_size = 100;
        if (!nodes.empty())
            document = GenICam::create_document("<RegisterDescription>" + nodes + "</RegisterDescription>");
        make(max_packet_size);
    }
    void make(int32_t max_packet_size = 0) {
        sut = std::make_unique<stream_channel_impl>(
            stream_channel_impl::create_params{2,
                                               max_packet_size,
                                               loopback_address,
                                               {asio::ip::address_v4{loopback_address}, device.control.local().port}},
            device, document.get());
    }
};

bool received_anything(const gige::udp_socket& socket) {
    std::array<std::byte, 64> buffer;
    gige::endpoint from;
    return socket.receive(buffer, from).has_value();
}

} // namespace

// The camera is told where to send before it is asked for test packets, and to stop whichever way the channel ends.
TEST(StreamChannel, OpensAndClosesInOrder) {
    for (const bool by_destructor : {false, true}) {
        channel_setup b;
        b.params.fixed_packet_size = 1400;
        ASSERT_FALSE(b.sut->connect(b.params));
        EXPECT_TRUE(b.sut->is_connected());
        const uint32_t port = b.device.registers[scp];
        EXPECT_NE(port, 0U);
        EXPECT_EQ(b.device.log, (std::vector<register_access>{{'r', capability},
                                                              {'w', scda, loopback_address},
                                                              {'w', scp, port},
                                                              {'w', scps, do_not_fragment | 1400},
                                                              {'r', scps}}));
        for (uint32_t id = 0; id < 3; ++id) b.device.send(packet_of(1, id, {.count = 1}));
        {
            std::unique_lock held{b.mutex};
            ASSERT_TRUE(b.changed.wait_for(held, std::chrono::seconds{10}, [&] { return !b.frames.empty(); }));
            EXPECT_EQ(b.frames[0].flags, 0U);
            EXPECT_EQ(b.memory[99], pixel(1, 99));
        }
        b.device.log.clear();
        if (by_destructor) {
            b.sut.reset();
        } else {
            b.sut->disconnect();
            EXPECT_FALSE(b.sut->is_connected());
        }
        EXPECT_EQ(b.device.log, (std::vector<register_access>{{'w', scp, 0}}));
    }
}

TEST(StreamChannel, WhileNotConnectedOperationsSaySo) {
    channel_setup b;
    const std::error_code none = make_error_code(gigecam_errc::option_not_available);
    const auto expect_none = [&] {
        for (const std::error_code answer : {b.sut->flush(), b.sut->reset_receiver(), b.sut->set_resend_params({}),
                                             b.sut->get_resend_params().error(), b.sut->query_packet_size(1).error()}) {
            EXPECT_EQ(answer, none);
        }
    };
    expect_none();
    b.params.fixed_packet_size = 1400;
    ASSERT_FALSE(b.sut->connect(b.params));
    EXPECT_TRUE(b.sut->get_resend_params());
    ASSERT_FALSE(b.sut->connect(b.params)) << "closes the one that is open";
    b.sut->disconnect();
    b.sut->disconnect();
    expect_none();
    EXPECT_EQ(b.sut->query_packet_size(0), 1400U);
}

// Whichever register access fails: a channel that is not connected afterwards leaves no stream behind, and nothing is
// written once the address could not be.
TEST(StreamChannel, AFailedConnectLeavesNoStream) {
    for (const auto& [fixed, taken] :
         {std::pair{1400U, false}, std::pair{1400U, true}, std::pair{0U, false}, std::pair{0U, true}}) {
        size_t accesses = 0;
        size_t failed = 0;
        for (size_t k = 0; k == 0 || k < accesses; ++k) {
            SCOPED_TRACE(testing::Message() << "access " << k << " fails, fixed size " << fixed << ", taken " << taken);
            channel_setup b;
            b.device.takes_what_fails = taken;
            b.device.registers[capability] = 0x80000000;
            b.make();
            b.params.fixed_packet_size = fixed;
            b.device.log.clear();
            if (k > 0) b.device.fails_at = k - 1; // the first round only counts
            const std::error_code error = b.sut->connect(b.params);
            if (k == 0) accesses = b.device.log.size() + 1;
            EXPECT_EQ(b.sut->is_connected(), !error);
            if (!error) continue;
            ++failed;
            EXPECT_EQ(error, make_error_code(gigecam_errc::busy));
            EXPECT_EQ(b.device.registers[scp], 0U);
            const register_access& at = b.device.log[k - 1];
            EXPECT_TRUE(at.address != scda || b.device.log.size() == k);
        }
        EXPECT_GE(failed, 4U) << "of the accesses that must not fail";
    }
}

TEST(StreamChannel, AProcessWithoutDescriptorsGetsAnError) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer itself looks at exceptions through pipes";
#endif
    channel_setup b;
    b.params.fixed_packet_size = 1400;
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    const rlimit none{0, usual.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_NO_THROW(EXPECT_EQ(b.sut->connect(b.params).value(), EMFILE));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
    EXPECT_FALSE(b.sut->is_connected());
    EXPECT_TRUE(b.device.written().empty());
    EXPECT_FALSE(b.sut->connect(b.params));
}

TEST(StreamChannel, TheSourcePortIsSpokenToWhereThereIsOne) {
    for (const bool has : {false, true}) {
        for (const bool set : {false, true}) {
            channel_setup b;
            b.device.registers[capability] = has ? 0x80000000 : 0x7FFFFFFF;
            b.device.registers[scsp] = 0x80000000 | (set ? b.device.source.local().port : 0);
            b.make();
            b.params.fixed_packet_size = 1400;
            ASSERT_FALSE(b.sut->connect(b.params));
            EXPECT_EQ(received_anything(b.device.source), has && set);
            EXPECT_EQ(received_anything(b.device.control), !(has && set));
        }
    }
}

// Which sizes are set and tested, by what is asked for and what is known.
TEST(StreamChannel, ThePacketSizeIsChosenFromWhatIsKnown) {
    const std::string node =
        "<Integer Name=\"GevSCPSPacketSize\"><Value>0</Value><Min>576</Min><Max>8014</Max></Integer>";
    const std::string small_minimum =
        "<Integer Name=\"GevSCPSPacketSize\"><Value>0</Value><Min>99</Min><Max>8014</Max></Integer>";
    const std::string hidden = "<Integer Name=\"GevSCPSPacketSize\"><pIsAvailable>No</pIsAvailable><Value>0</Value>"
                               "<Min>576</Min><Max>8014</Max></Integer><Integer Name=\"No\"><Value>0</Value></Integer>";
    struct row {
        int32_t max_packet_size;
        uint32_t fixed;
        int32_t preferred;
        std::string nodes;
        uint32_t path;
        uint32_t expected; // 0: an error
        size_t most_tests;
    };
    const row rows[] = {
        {0, 700, 3000, node, 9000, 700, 0},   {0, 0, 3000, node, 9000, 3000, 1},
        {0, 0, 3000, node, 2000, 2000, 16},   // no longer carried
        {2500, 0, 3000, node, 9000, 2500, 1}, // more than is allowed: not tried
        {0, 0, 1510, node, 9000, 8014, 1},    // of the sizes that are left out
        {0, 0, 0, node, 9000, 8014, 1},       {0, 0, 0, hidden, 65535, 9216, 1},
        {0, 0, 0, {}, 65535, 9216, 1},        {-5, 0, 0, {}, 9014, 9012, 16},
        {1500, 0, 0, {}, 0, 1500, 0},         {0, 0, 0, small_minimum, 9000, 0, 0},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.max_packet_size << " " << r.fixed << " " << r.preferred << " over "
                                        << r.path);
        channel_setup b{r.max_packet_size, r.nodes};
        b.device.path = r.path;
        b.params.fixed_packet_size = r.fixed;
        b.params.preferred_packet_size = r.preferred;
        EXPECT_EQ(!b.sut->connect(b.params), r.expected != 0);
        size_t tests = 0;
        for (const register_access& each : b.device.written())
            tests += each.address == scps && (each.value & 0x80000000) != 0;
        EXPECT_LE(tests, r.most_tests);
        if (r.expected == 0) {
            EXPECT_EQ(b.device.registers[scp], 0U);
            continue;
        }
        EXPECT_EQ(b.sut->query_packet_size(0), r.expected);
        EXPECT_EQ(b.device.registers[scps], do_not_fragment | r.expected);
    }
}

// Nothing that could be received.
TEST(StreamChannel, ASizeWithoutDataOpensNothing) {
    const std::string node =
        "<Integer Name=\"GevSCPSPacketSize\"><Value>0</Value><Min>576</Min><Max>8014</Max></Integer>";
    for (const std::string& nodes : {std::string{}, node}) {
        for (const auto& [fixed, preferred] : {std::pair{0U, 0}, {0U, 1500}, {1400U, 0}}) {
            channel_setup b{0, nodes};
            b.device.has_no_size = true;
            b.params.fixed_packet_size = fixed;
            b.params.preferred_packet_size = preferred;
            EXPECT_EQ(b.sut->connect(b.params), make_error_code(gigecam_errc::invalid_parameter));
            EXPECT_FALSE(b.sut->is_connected());
            EXPECT_EQ(b.device.registers[scp], 0U);
        }
    }
}

// As the camera says now, not as it said when somebody looked.
TEST(StreamChannel, ThePacketSizeFeatureMayHaveBecomeAvailable) {
    channel_setup b{0, "<Integer Name=\"GevSCPSPacketSize\"><pIsAvailable>There</pIsAvailable><Value>0</Value>"
                       "<Min>1500</Min><Max>4000</Max></Integer><IntReg Name=\"There\"><Address>0</Address>"
                       "<Length>4</Length><pPort>Device</pPort></IntReg><Port Name=\"Device\"/>"};
    std::array<std::byte, 4> memory{};
    ASSERT_FALSE(b.document->find<GenICam::IPort>("Device")->bind(std::span{memory}, 0));
    EXPECT_FALSE(b.document->find_node("GevSCPSPacketSize")->is_available());
    memory[3] = std::byte{1};
    b.make();
    ASSERT_FALSE(b.sut->connect(b.params));
    EXPECT_EQ(b.sut->query_packet_size(0), 4000U);
}
