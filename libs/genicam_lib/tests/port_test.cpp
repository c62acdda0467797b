// Ports: bound to a device, to memory or to a copy of it, or to nothing.
#include "support.h"

#include <atomic>
#include <thread>

namespace GenICam::testing {
namespace {

std::unique_ptr<IGenICamDoc> unbound(const std::string& nodes, const std::string& port_children = "") {
    return create_document("<R>" + notation::xml(nodes) + "<Port Name=\"Device\">" + port_children + "</Port></R>");
}

std::span<std::byte> bytes_of(auto& container) { return std::as_writable_bytes(std::span{container}); }

TEST(Port, UnboundAnswersSo) {
    const auto doc = unbound("Reg R@0");
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
    const auto doc = unbound("Reg R@0");
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
        const auto doc = unbound("Reg R@0 | StringReg T: Address 0, Length 4",
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
    const auto doc = unbound("Reg R@0");
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

TEST(Port, ChunkDataIsReadThroughItsPort) {
    const auto doc = create_document(std::string_view{
        "<R><Port Name='P'><ChunkID>4f6e</ChunkID></Port><Port Name='B'><pChunkID>I</pChunkID></Port><Port Name='C'/>"
        "<Integer Name='I'><Value>17</Value></Integer><IntReg Name='Last'><Address>-4</Address><Length>4</Length>"
        "<pPort>P</pPort></IntReg><IntReg Name='Size'><Address>0x7FFFFFFFFFFFFFF0</Address><Length>8</Length>"
        "<Endianess>LittleEndian</Endianess><pPort>P</pPort></IntReg></R>"});
    auto* port = doc->find<IPort>("P");
    EXPECT_THAT(port->get_chunk_id(0), Gives(0x4F6Eu));
    EXPECT_THAT(doc->find<IPort>("B")->get_chunk_id(0), Gives(17u));
    EXPECT_THAT(doc->find<IPort>("C")->get_chunk_id(0), Fails(not_implemented));
    for (const unsigned char size : {8, 12}) {
        std::vector<unsigned char> chunk(size);
        chunk.back() = size;
        ASSERT_THAT(port->bind_readonly(bytes_of(chunk), bind_flags::invalidate), Passes());
        EXPECT_THAT(doc->find<IInteger>("Last")->get_val(0), Gives(size));
        EXPECT_THAT(doc->find<IInteger>("Size")->get_val(0), Gives(size));
    }
}

// A device that gives less than asked for is an error, not a value of zeros.
TEST(Port, AShortReadIsAnError) {
    struct short_device final : IDevicePort {
        result<std::size_t> read(int64_t, std::span<std::byte>, unsigned) override { return 2; }
        std::error_code write(int64_t, std::span<const std::byte>, unsigned) override { return {}; }
    } device;
    const auto doc = unbound("Reg R@0");
    ASSERT_THAT(doc->find<IPort>("Device")->bind(&device, 0), Passes());
    EXPECT_THAT(doc->find<IInteger>("R")->get_val(0), Fails(generic_error));
    EXPECT_THAT(doc->find<IInteger>("R")->get_val(cache_only), Fails(not_in_cache));
}

// Reads, writes and rebinding from several threads: what is read is of one copy.
TEST(Port, ServesSeveralThreads) {
    constexpr int size = 1 << 18;
    const auto doc = unbound("Reg B@0");
    auto* port = doc->find<IPort>("Device");
    std::vector<unsigned char> copies[] = {std::vector<unsigned char>(size, 1), std::vector<unsigned char>(size, 2)};
    ASSERT_THAT(port->bind(bytes_of(copies[0]), bind_flags::copy), Passes());
    constexpr int enough = 6000;
    std::atomic<int> reads{0}, wrong{0};
    std::thread reader{[&] {
        std::vector<std::byte> data(size - 4);
        for (; reads < enough; ++reads) {
            if (!port->read(4, data, 0) || data.front() != data.back()) ++wrong;
        }
    }};
    std::thread writer{[&] {
        auto* const number = doc->find<IInteger>("B");
        for (int i = 0; reads < enough; ++i) {
            (void)number->set_val(i, 0);
            (void)number->get_val(0);
        }
    }};
    for (int i = 0; reads < enough; ++i) (void)port->bind(bytes_of(copies[i % 2]), bind_flags::copy);
    reader.join();
    writer.join();
    EXPECT_EQ(wrong, 0);
}

// What a read changes is the port's, which has locks.
TEST(Port, ValuesAreReadFromSeveralThreads) {
    const auto doc = unbound("Reg A@0 | IntSwissKnife Twice: pVariable@X A, Formula X*2 |"
                             "IntConverter Less: pVariable@X A, FormulaTo FROM+1, FormulaFrom TO-X, "
                             "pValue Twice |"
                             "MaskedIntReg Low: Address 0, Length 4, LSB 0, MSB 7, Sign Unsigned, "
                             "Endianess LittleEndian | StringReg Text: Address 4, Length 4");
    std::array<unsigned char, 8> memory{5, 0, 0, 0, 'a', 'b', 'c', 0};
    ASSERT_THAT(doc->find<IPort>("Device")->bind(bytes_of(memory), 0), Passes());
    std::atomic<int> wrong{0};
    const auto read = [&] {
        const auto expect = [&](const char* name, int64_t value, unsigned flags) {
            if (doc->find<IInteger>(name)->get_val(flags) != value) ++wrong;
        };
        for (unsigned i = 0; i < 500; ++i) {
            const unsigned flags = i % 3 == 0 ? access_flags::bypass_cache : 0;
            expect("Twice", 10, flags);
            expect("Less", 5, flags);
            expect("Low", 5, flags);
            if (doc->find<IString>("Text")->get_val(flags) != "abc") ++wrong;
            if (!doc->find_node("Less")->is_available()) ++wrong;
        }
    };
    std::thread others[] = {std::thread{read}, std::thread{read}};
    read();
    for (std::thread& other : others) other.join();
    EXPECT_EQ(wrong, 0);
}

} // namespace
} // namespace GenICam::testing
