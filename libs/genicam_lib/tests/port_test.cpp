// Bindings and the register cache, seen through a device that counts.
#include "support.h"

#include "impl/register_cache.h"

#include <atomic>
#include <thread>

namespace GenICam::testing {
namespace {

std::unique_ptr<IGenICamDoc> unbound(const std::string& nodes, const std::string& port_children = "") {
    return create_document("<R>" + nodes + "<Port Name=\"Device\">" + port_children + "</Port></R>");
}

std::span<std::byte> bytes_of(auto& container) { return std::as_writable_bytes(std::span{container}); }

TEST(Port, UnboundAnswersSo) {
    const auto doc = unbound(int_reg("R", 0));
    auto* port = doc->find<IPort>("Device");
    EXPECT_FALSE(port->is_bound());
    std::byte data[4];
    EXPECT_THAT(port->read(0, data, 0), Fails(port_not_bound));
    EXPECT_THAT(port->write(0, data, 0), Refuses(port_not_bound));
    EXPECT_THAT(doc->find<IInteger>("R")->get_val(0), Fails(port_not_bound));
}

TEST(Port, MemoryAddresses) {
    const auto doc = unbound("");
    auto* port = doc->find<IPort>("Device");
    std::array<unsigned char, 16> memory{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    ASSERT_THAT(port->bind(bytes_of(memory), 0), Passes());
    EXPECT_TRUE(port->is_bound());
    std::byte data[8];
    EXPECT_THAT(port->read(4, data, 0), Gives(8u));
    EXPECT_EQ(data[0], std::byte{4});
    // Below zero counts from the end.
    EXPECT_THAT(port->read(-8, data, 0), Gives(8u));
    EXPECT_EQ(data[7], std::byte{15});
    EXPECT_THAT(port->read(-7, data, 0), Fails(index_out_of_range));
    EXPECT_THAT(port->read(-17, std::span{data}.first(1), 0), Fails(index_out_of_range));
    EXPECT_THAT(port->read(9, data, 0), Fails(index_out_of_range));
    EXPECT_THAT(port->read(std::numeric_limits<int64_t>::min(), data, 0), Fails(index_out_of_range));
    EXPECT_THAT(port->read(std::numeric_limits<int64_t>::max() - 1, data, 0), Fails(index_out_of_range));
    EXPECT_THAT(port->write(9, data, 0), Refuses(index_out_of_range));
    EXPECT_THAT(port->write(-16, data, 0), Passes());
    EXPECT_EQ(memory[0], 8);
    EXPECT_EQ(memory[8], 8); // untouched by the refused write
}

TEST(Port, ReservedAddressesOfMemory) {
    const auto doc = unbound("");
    auto* port = doc->find<IPort>("Device");
    std::array<unsigned char, 10> memory{};
    ASSERT_THAT(port->bind_readonly(bytes_of(memory), 0), Passes());
    uint64_t value = 1;
    const auto into = std::as_writable_bytes(std::span{&value, 1});
    EXPECT_THAT(port->read(0x7FFFFFFFFFFFFFF0, into, 0), Gives(8u));
    EXPECT_EQ(value, 10u);
    EXPECT_THAT(port->read(0x7FFFFFFFFFFFFFFF, into, 0), Gives(8u));
    EXPECT_EQ(value, 0u);
    EXPECT_THAT(port->read(0x7FFFFFFFFFFFFFF0, into.first(4), 0), Fails(invalid_parameter));
    EXPECT_THAT(port->read(0x7FFFFFFFFFFFFFFF, into.first(4), 0), Fails(invalid_parameter));
    // Memory of no bytes has no address at all.
    ASSERT_THAT(port->bind(std::span<std::byte>{}, 0), Passes());
    EXPECT_TRUE(port->is_bound());
    EXPECT_THAT(port->read(0x7FFFFFFFFFFFFFF0, into, 0), Fails(port_not_bound));
    EXPECT_THAT(port->read(0, into.first(0), 0), Fails(port_not_bound));
    EXPECT_THAT(port->write(0, into.first(0), 0), Refuses(port_not_bound));
}

TEST(Port, DeviceAndMemoryExcludeEachOther) {
    log_capture log;
    const auto doc = unbound("");
    auto* port = doc->find<IPort>("Device");
    counting_device device;
    std::array<unsigned char, 4> memory{};
    EXPECT_THAT(port->bind(static_cast<IDevicePort*>(nullptr), 0), Refuses(invalid_parameter));
    ASSERT_THAT(port->bind(&device, 0), Passes());
    EXPECT_THAT(port->bind(&device, 0), Refuses(access_denied));
    EXPECT_THAT(port->bind(bytes_of(memory), 0), Refuses(access_denied));
    EXPECT_THAT(port->bind_readonly(bytes_of(memory), 0), Refuses(access_denied));
    port->unbind(0);
    EXPECT_FALSE(port->is_bound());
    ASSERT_THAT(port->bind(bytes_of(memory), 0), Passes());
    ASSERT_THAT(port->bind_readonly(bytes_of(memory), 0), Passes());
    EXPECT_THAT(port->bind(&device, 0), Refuses(access_denied));
    EXPECT_THAT(log.lines,
                ::testing::ElementsAre("1 Device. Failed binding port because port was already bound.",
                                       "1 Device. Failed to bind, because port is already bound to a device port.",
                                       "1 Device. Failed to bind, because port is already bound to a device port.",
                                       "1 Device. Failed binding port because port was already bound."));
}

TEST(Port, ReadOnlyMemoryIsNeverWritten) {
    const auto doc = unbound(int_reg("R", 0));
    auto* port = doc->find<IPort>("Device");
    std::array<unsigned char, 4> memory{1, 2, 3, 4};
    ASSERT_THAT(port->bind_readonly(bytes_of(memory), 0), Passes());
    EXPECT_THAT(doc->find<IInteger>("R")->set_val(0, 0), Refuses(access_denied));
    EXPECT_THAT(port->write(100, bytes_of(memory), 0), Refuses(access_denied));
    EXPECT_EQ(memory[0], 1);
    ASSERT_THAT(port->bind(bytes_of(memory), 0), Passes());
    EXPECT_THAT(doc->find<IInteger>("R")->set_val(0, 0), Passes());
    EXPECT_EQ(memory[0], 0);
}

TEST(Port, ACopyIsIndependentOfTheCaller) {
    for (const bool by_document : {false, true}) {
        const auto doc = unbound(int_reg("R", 0) + "<StringReg Name=\"T\"><Address>0</Address><Length>4</Length>"
                                                   "<pPort>Device</pPort></StringReg>",
                                 by_document ? "<CacheChunkData>Yes</CacheChunkData>" : "");
        auto* port = doc->find<IPort>("Device");
        auto* text = doc->find<IString>("T");
        std::array<unsigned char, 4> memory{'a', 0, 0, 0};
        ASSERT_THAT(port->bind(bytes_of(memory), by_document ? 0 : bind_flags::copy), Passes());
        memory[0] = 9;
        EXPECT_THAT(doc->find<IInteger>("R")->get_val(0), Gives('a'));
        EXPECT_THAT(text->get_val(0), Gives("a"));
        // A larger copy grows the buffer, and nothing is cached in front of it, neither read nor written.
        std::array<unsigned char, 64> larger{'b'};
        ASSERT_THAT(port->bind(bytes_of(larger), bind_flags::copy), Passes());
        EXPECT_THAT(doc->find<IInteger>("R")->get_val(0), Gives('b'));
        EXPECT_THAT(text->get_val(0), Gives("b"));
        EXPECT_THAT(text->set_val("c", 0), Passes());
        ASSERT_THAT(port->bind(bytes_of(larger), bind_flags::copy), Passes());
        EXPECT_THAT(text->get_val(0), Gives("b"));
    }
}

TEST(Port, ReboundMemoryNeedsItsFlagsToBeSeen) {
    const auto doc = unbound(int_reg("R", 0));
    auto* port = doc->find<IPort>("Device");
    auto* node = doc->find<IInteger>("R");
    int calls = 0;
    node->set_on_invalidated([&](INode&) { ++calls; });
    std::array<unsigned char, 4> first{1}, second{2}, third{3};
    ASSERT_THAT(port->bind_readonly(bytes_of(first), 0), Passes());
    EXPECT_THAT(node->get_val(0), Gives(1));
    ASSERT_THAT(port->bind_readonly(bytes_of(second), 0), Passes());
    EXPECT_THAT(node->get_val(0), Gives(1)); // still from the cache
    ASSERT_THAT(port->bind_readonly(bytes_of(second), bind_flags::invalidate), Passes());
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(node->get_val(0), Gives(2));
    ASSERT_THAT(port->bind_readonly(bytes_of(third), bind_flags::clear_cache), Passes());
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(node->get_val(0), Gives(3));
    port->unbind(bind_flags::invalidate);
    EXPECT_EQ(calls, 2);
}

TEST(Port, ChunkIds) {
    const auto doc = create_document(std::string_view{
        "<R><Port Name=\"A\"><ChunkID>4f6e</ChunkID></Port><Port Name=\"B\"><pChunkID>I</pChunkID></Port>"
        "<Port Name=\"C\"/><Integer Name=\"I\"><Value>17</Value></Integer></R>"});
    EXPECT_THAT(doc->find<IPort>("A")->get_chunk_id(0), Gives(0x4F6Eu));
    EXPECT_THAT(doc->find<IPort>("B")->get_chunk_id(0), Gives(17u));
    EXPECT_THAT(doc->find<IPort>("C")->get_chunk_id(0), Fails(not_implemented));
}

TEST(Port, ChunkDataIsReadThroughItsPort) {
    const auto doc = create_document(std::string_view{
        "<R><Port Name=\"P\"><ChunkID>1</ChunkID></Port><IntReg Name=\"Last\"><Address>-4</Address><Length>4</Length>"
        "<pPort>P</pPort></IntReg><IntReg Name=\"Size\"><Address>0x7FFFFFFFFFFFFFF0</Address><Length>8</Length>"
        "<Endianess>LittleEndian</Endianess><pPort>P</pPort></IntReg></R>"});
    auto* port = doc->find<IPort>("P");
    std::array<unsigned char, 8> small{0, 0, 0, 0, 0, 0, 1, 2};
    ASSERT_THAT(port->bind_readonly(bytes_of(small), bind_flags::invalidate), Passes());
    EXPECT_THAT(doc->find<IInteger>("Last")->get_val(0), Gives(0x0102));
    EXPECT_THAT(doc->find<IInteger>("Size")->get_val(0), Gives(8));
    std::array<unsigned char, 12> large{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 4};
    ASSERT_THAT(port->bind_readonly(bytes_of(large), bind_flags::invalidate), Passes());
    EXPECT_THAT(doc->find<IInteger>("Last")->get_val(0), Gives(0x0304));
    EXPECT_THAT(doc->find<IInteger>("Size")->get_val(0), Gives(12));
}

// A device that gives less than asked for is an error, not a value of zeros.
TEST(Port, AShortReadIsAnError) {
    struct short_device final : IDevicePort {
        result<std::size_t> read(int64_t, std::span<std::byte>, unsigned) override { return 2; }
        std::error_code write(int64_t, std::span<const std::byte>, unsigned) override { return {}; }
    } device;
    const auto doc = unbound(int_reg("R", 0));
    ASSERT_THAT(doc->find<IPort>("Device")->bind(&device, 0), Passes());
    EXPECT_THAT(doc->find<IInteger>("R")->get_val(0), Fails(generic_error));
    EXPECT_THAT(doc->find<IInteger>("R")->get_val(cache_only), Fails(not_in_cache));
}

struct cache_case {
    const char* name;
    const char* mode;    // "Cachable", empty for none
    const char* element; // register class
    uint16_t options;
    int reads_of_two;      // device reads of two plain reads
    int reads_after_write; // device reads of one read after a write
};

class CachingMode : public ::testing::TestWithParam<cache_case> {};

TEST_P(CachingMode, DecidesWhoReachesTheDevice) {
    const auto& p = GetParam();
    const std::string cachable = *p.mode ? std::string{"<Cachable>"} + p.mode + "</Cachable>" : "";
    const std::string element{p.element};
    document sut{"<" + element + " Name=\"R\"><Address>0</Address><Length>4</Length><pPort>Device</pPort>" + cachable +
                     "</" + element + ">",
                 p.options};
    const auto read = [&] {
        if (auto* integer = sut.doc->find<IInteger>("R")) return integer->get_val(0).has_value();
        return sut.real("R").get_val(0).has_value();
    };
    const auto write = [&] {
        if (auto* integer = sut.doc->find<IInteger>("R")) return integer->set_val(1, 0);
        return sut.real("R").set_val(1, 0);
    };
    EXPECT_TRUE(read());
    EXPECT_TRUE(read());
    EXPECT_EQ(sut.device.reads, p.reads_of_two);
    EXPECT_THAT(write(), Passes());
    const int before = sut.device.reads;
    EXPECT_TRUE(read());
    EXPECT_EQ(sut.device.reads - before, p.reads_after_write);
}

// The defaults differ on purpose: integers trust the cache after a write, floats ask the device what it made of it.
INSTANTIATE_TEST_SUITE_P(All, CachingMode,
                         ::testing::Values(cache_case{"IntDefault", "", "IntReg", 0, 1, 0},
                                           cache_case{"IntThrough", "WriteThrough", "IntReg", 0, 1, 0},
                                           cache_case{"IntAround", "WriteAround", "IntReg", 0, 1, 1},
                                           cache_case{"IntNone", "NoCache", "IntReg", 0, 2, 1},
                                           cache_case{"FloatDefault", "", "FloatReg", 0, 1, 1},
                                           cache_case{"FloatThrough", "WriteThrough", "FloatReg", 0, 1, 0},
                                           cache_case{"MaskedDefault", "", "MaskedIntReg", 0, 1, 0},
                                           cache_case{"ForcedNone", "", "IntReg", force_no_cache_option, 2, 1},
                                           cache_case{"ForcedButOwn", "WriteThrough", "IntReg", force_no_cache_option,
                                                      1, 0},
                                           cache_case{"LowOptionByteHasNoEffect", "", "IntReg", 0x00FF, 1, 0}),
                         case_name{});

TEST(Cache, StructEntriesAskTheirOwnThenTheStructure) {
    const auto reads_of_two = [](const char* own, const char* parent) {
        const document sut{std::string{"<StructReg><Address>0</Address><Length>4</Length><pPort>Device</pPort>"} +
                           parent + "<StructEntry Name=\"R\"><Bit>0</Bit>" + own + "</StructEntry></StructReg>"};
        EXPECT_TRUE(sut.integer("R").get_val(0));
        EXPECT_TRUE(sut.integer("R").get_val(0));
        return sut.device.reads;
    };
    EXPECT_EQ(reads_of_two("", ""), 2);
    EXPECT_EQ(reads_of_two("", "<Cachable>WriteThrough</Cachable>"), 1);
    EXPECT_EQ(reads_of_two("<Cachable>NoCache</Cachable>", "<Cachable>WriteThrough</Cachable>"), 2);
    EXPECT_EQ(reads_of_two("<Cachable>WriteAround</Cachable>", ""), 1);
}

TEST(Cache, Flags) {
    document sut{int_reg("R", 0) + int_reg("None", 8, "<Cachable>NoCache</Cachable>")};
    auto& node = sut.integer("R");
    EXPECT_THAT(node.get_val(cache_only), Fails(not_in_cache));
    EXPECT_THAT(node.set_val(1, cache_only), Refuses(not_in_cache));
    EXPECT_EQ(sut.device.reads + sut.device.writes, 0);
    EXPECT_THAT(node.get_val(bypass_cache), Gives(0));
    EXPECT_THAT(node.get_val(cache_only), Fails(not_in_cache)); // a bypassing read stores nothing
    EXPECT_THAT(node.get_val(0), Gives(0));
    EXPECT_THAT(node.set_val(5, cache_only), Passes());
    EXPECT_EQ(sut.device.writes, 0);
    EXPECT_THAT(node.get_val(0), Gives(5));
    EXPECT_THAT(node.get_val(bypass_cache), Gives(0));
    EXPECT_THAT(node.set_val(6, bypass_cache), Passes());
    EXPECT_THAT(node.get_val(0), Gives(6)); // a bypassing write is not kept, but drops what was
    // A register that is not cached has no cache to be held to.
    EXPECT_THAT(sut.integer("None").get_val(cache_only), Gives(0));
}

TEST(Cache, AFailedTransferIsNotRemembered) {
    document sut{int_reg("R", 0)};
    sut.device.broken = true;
    EXPECT_THAT(sut.integer("R").get_val(0), Fails(timeout));
    EXPECT_THAT(sut.integer("R").set_val(1, 0), Refuses(timeout));
    sut.device.broken = false;
    EXPECT_THAT(sut.integer("R").get_val(0), Gives(0));
}

std::vector<int> cached(const impl::register_cache& cache, int64_t address, std::size_t length) {
    std::vector<std::byte> data(length);
    if (!cache.read(address, data)) return {};
    std::vector<int> out;
    for (const std::byte b : data) out.push_back(std::to_integer<int>(b));
    return out;
}

void store(impl::register_cache& cache, int64_t address, std::vector<unsigned char> bytes) {
    cache.store(address, std::as_bytes(std::span{bytes}));
}

TEST(RegisterCache, FindsByTheVeryAddress) {
    impl::register_cache cache;
    store(cache, 0x10, {1, 2, 3, 4});
    store(cache, 0x20, {5, 6});
    store(cache, -8, {7});
    EXPECT_EQ(cached(cache, 0x10, 4), (std::vector{1, 2, 3, 4}));
    EXPECT_EQ(cached(cache, 0x10, 2), (std::vector{1, 2}));
    EXPECT_TRUE(cached(cache, 0x20, 3).empty());
    EXPECT_EQ(cached(cache, 0x20, 2), (std::vector{5, 6}));
    EXPECT_EQ(cached(cache, -8, 1), (std::vector{7}));
    EXPECT_TRUE(cached(cache, 0x12, 1).empty());
    EXPECT_FALSE(cache.contains(0x11, 1));
    EXPECT_TRUE(cache.contains(0x20, 2));
    EXPECT_FALSE(cache.contains(0x20, 3));
    cache.clear();
    EXPECT_FALSE(cache.contains(0x10, 1));
}

TEST(RegisterCache, AnEqualAddressTakesTheNewLength) {
    impl::register_cache cache;
    store(cache, 0x10, {1, 2, 3, 4});
    store(cache, 0x10, {9, 8});
    EXPECT_TRUE(cached(cache, 0x10, 4).empty());
    EXPECT_EQ(cached(cache, 0x10, 2), (std::vector{9, 8}));
    cache.invalidate(0x12, 2); // beyond the new length
    EXPECT_TRUE(cache.contains(0x10, 1));
    cache.invalidate(0x11, 1);
    EXPECT_FALSE(cache.contains(0x10, 1));
}

TEST(RegisterCache, ShorterOverlapsAreReplacedLongerOnesStay) {
    impl::register_cache cache;
    store(cache, 0x10, {1, 1, 1, 1});
    store(cache, 0x12, {2, 2, 2, 2});
    EXPECT_FALSE(cache.contains(0x10, 1));
    store(cache, 0x14, {3, 3});
    EXPECT_TRUE(cache.contains(0x12, 1));
    store(cache, 0x10, {4, 4, 4, 4, 4, 4, 4, 4});
    EXPECT_FALSE(cache.contains(0x12, 1));
    EXPECT_FALSE(cache.contains(0x14, 1));
    EXPECT_TRUE(cache.contains(0x10, 1));
}

TEST(RegisterCache, InvalidatesWhatOverlaps) {
    struct range_case {
        int64_t address;
        uint64_t length;
        std::vector<int64_t> left;
    };
    for (const auto& [address, length, left] : {
             range_case{0x10, 4, {0x0C, 0x14}},
             range_case{0x13, 1, {0x0C, 0x14}},
             range_case{0x0F, 1, {0x10, 0x14}},
             range_case{0x0E, 0x100, {}},
             range_case{0x18, 8, {0x0C, 0x10, 0x14}},
             range_case{0, 0x0C, {0x0C, 0x10, 0x14}},
             range_case{std::numeric_limits<int64_t>::min(), UINT64_MAX, {}},
         }) {
        impl::register_cache cache;
        for (const int64_t at : {0x10, 0x0C, 0x14}) store(cache, at, {1, 2, 3, 4});
        cache.invalidate(address, length);
        std::vector<int64_t> found;
        for (const int64_t at : {0x0C, 0x10, 0x14}) {
            if (cache.contains(at, 1)) found.push_back(at);
        }
        EXPECT_EQ(found, left) << address << " " << length;
    }
    // An entry that reaches up from below is found behind a shorter one in between.
    impl::register_cache cache;
    store(cache, 0x10, {1, 2, 3, 4, 5, 6, 7, 8});
    store(cache, 0x14, {1, 2});
    cache.invalidate(0x16, 2);
    EXPECT_FALSE(cache.contains(0x10, 1));
    EXPECT_TRUE(cache.contains(0x14, 1));
}

// Reads, writes and rebinding from several threads: each value read was one of those written.
TEST(Port, ServesSeveralThreads) {
    const auto doc = unbound(int_reg("A", 0) + int_reg("B", 4));
    auto* port = doc->find<IPort>("Device");
    std::array<unsigned char, 8> first{}, second{};
    ASSERT_THAT(port->bind(bytes_of(first), bind_flags::copy), Passes());
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::thread reader{[&] {
        while (!stop) {
            std::byte data[4];
            const auto count = port->read(0, data, 0);
            if (count && data[0] != data[3]) ++wrong;
        }
    }};
    std::thread rebinder{[&] {
        while (!stop) (void)port->bind(bytes_of(second), bind_flags::copy);
    }};
    for (int i = 0; i < 2000; ++i) {
        std::byte data[4];
        std::ranges::fill(data, static_cast<std::byte>(i));
        (void)doc->find<IInteger>("B")->set_val(i, 0);
        (void)doc->find<IInteger>("B")->get_val(0);
    }
    stop = true;
    reader.join();
    rebinder.join();
    EXPECT_EQ(wrong, 0);
}

} // namespace
} // namespace GenICam::testing
