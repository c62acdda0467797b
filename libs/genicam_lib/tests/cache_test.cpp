// What is read from the device and what from the cache: by counting reads, and by comparing with reads past the cache.
#include "script.h"

#include "impl/register_cache.h"

#include <functional>

namespace GenICam::testing {
namespace {

// Registers of 1 to 8 bytes over the same 12 bytes, in each caching mode: whatever is read or written before, a cached
// read equals one past the cache.
TEST(OverlappingRegisters, AreReadAsTheyStandInTheDevice) {
    std::string nodes = "StringReg Text: Address 0, Length 16 | Register Bytes: Address 3, Length 2";
    std::vector<std::string> names;
    for (const std::string at : {"0", "2", "4", "6"}) {
        for (const std::string length : {"1", "2", "4", "8"}) {
            for (const std::string mode : {"WriteThrough", "WriteAround", "NoCache"}) {
                names.push_back("R" + at + "_" + length + mode);
                nodes += " | IntReg " + names.back() + ": Address " + at + ", Length " + length + ", Cachable " + mode;
            }
        }
    }
    document sut{nodes};
    sut.device.put(0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    auto& text = sut.node<IString>("Text");
    const auto compare = [&](const std::string& after) {
        const auto one = [&](const std::string& name) {
            auto& node = sut.integer(name);
            const auto plain = node.get_val(0);
            EXPECT_EQ(plain, node.get_val(bypass_cache)) << name << " after " << after;
        };
        std::ranges::for_each(names, one);
        std::for_each(names.rbegin(), names.rend(), one);
        EXPECT_EQ(text.get_val(0), text.get_val(bypass_cache)) << after;
        EXPECT_EQ(text.get_val(raw_string), text.get_val(raw_string | bypass_cache)) << after;
    };
    compare("nothing");
    int64_t value = 0x1122334455667788;
    for (const std::string& name : names) {
        for (const unsigned flags : {0U, unsigned{bypass_cache}}) {
            EXPECT_THAT(sut.integer(name).set_val(value += 0x0101010101010101, flags), Passes());
            compare(name);
        }
    }
    for (const char* words : {"", "abc", "0123456789abcdef"}) {
        EXPECT_THAT(text.set_val(words, 0), Passes());
        compare(words);
    }
    EXPECT_THAT(text.set_val("xy", raw_string), Passes());
    compare("raw");
    const std::byte two[2] = {std::byte{0x77}, std::byte{0x66}};
    EXPECT_THAT(sut.node<IRegister>("Bytes").set(two, 0), Passes());
    compare("bytes");
    EXPECT_THAT(sut.node<IPort>("Device").write(5, two, 0), Passes());
    compare("the port");
}

// The device changes while it is read, as another thread's write would have it: what was read is not kept.
TEST(OverlappingRegisters, AWriteDuringAReadIsNotOvertaken) {
    document sut{"Reg A@0 | Reg Around@0: Cachable NoCache | StringReg Text: Address 0, Length 4"};
    auto& number = sut.integer("A");
    auto& text = sut.node<IString>("Text");
    for (const char* writer : {"A", "Around"}) {
        const auto write = [&](int64_t value) {
            return [&, value] { EXPECT_THAT(sut.integer(writer).set_val(value, 0), Passes()); };
        };
        auto& port = sut.node<IPort>("Device");
        port.unbind(bind_flags::clear_cache | bind_flags::invalidate);
        ASSERT_THAT(port.bind(&sut.device, 0), Passes());
        sut.device.after_read = write(0x4142);
        (void)number.get_val(0);
        EXPECT_THAT(number.get_val(0), Gives(0x4142)) << writer;
        sut.device.after_read = write(0x4344);
        (void)text.get_val(0);
        EXPECT_THAT(text.get_val(0), Gives("DC")) << writer;
    }
}

// The address cannot be read at the moment when the register is invalidated: what was cached must not come back.
TEST(OverlappingRegisters, AnInvalidationWithoutAnAddressIsNotLost) {
    document sut{"IntReg Value: pAddress Base, Length 4, pInvalidator Trigger | Reg Base@0x100: Cachable NoCache"
                 " | Reg Trigger@0x200"};
    script{sut}.run({"Value = 0", "[0] := 01", "breaks at 0x100", "Trigger := 1", "mends", "Value = 0x1000000"});
}

// The defaults differ on purpose: integers trust the cache after a write, floats ask the device what it made of it.
TEST(Cache, TheModeDecidesWhoReachesTheDevice) {
    const struct {
        const char* node;
        uint16_t options;
        int of_two, after_write; // device reads of two plain reads, and of one after a write
    } rows[] = {
        {"Reg R@0", 0, 1, 0},
        {"Reg R@0: Cachable WriteThrough", 0, 1, 0},
        {"Reg R@0: Cachable WriteAround", 0, 1, 1},
        {"Reg R@0: Cachable NoCache", 0, 2, 1},
        {"FloatReg R: Address 0, Length 4", 0, 1, 1},
        {"FloatReg R: Address 0, Length 4, Cachable WriteThrough", 0, 1, 0},
        {"Reg R@0", force_no_cache_option, 2, 1},
        {"Reg R@0: Cachable WriteThrough", force_no_cache_option, 1, 0},
        {"Reg R@0", 0x00FF, 1, 0}, // the low byte of the options has no effect
    };
    for (const auto& [node, options, of_two, after_write] : rows) {
        SCOPED_TRACE(::testing::Message{} << node << ' ' << options);
        document sut{node, options};
        script{sut}.run({"R = 0", "R = 0", "reads = " + std::to_string(of_two), "R := 1", "reads = 0", "R = 1",
                         "reads = " + std::to_string(after_write)});
    }
}

const std::string structure = "StructReg: Address 0, Length 4, Endianess LittleEndian, ";

const script_case cached_values[] = {
    {"OfAStructEntryIsOff", structure + "StructEntry@R {Bit 0}", {"R = 0", "R = 0", "reads = 2"}},
    {"OfAStructEntryIsTheStructures",
     structure + "Cachable WriteThrough, StructEntry@R {Bit 0}",
     {"R = 0", "R = 0", "reads = 1"}},
    {"OfAStructEntryIsItsOwn",
     structure + "Cachable WriteThrough, StructEntry@R {Bit 0, Cachable NoCache}",
     {"R = 0", "R = 0", "reads = 2"}},
    // A bypassing read stores nothing; a bypassing write is not kept, but drops what was. A register that is not cached
    // has no cache to be held to.
    {"ObeysTheFlags",
     "Reg R@0 | Reg None@8: Cachable NoCache",
     {"R/cache_only ! not_in_cache", "R/cache_only := 1 ! not_in_cache", "reads = 0", "writes = 0",
      "R/bypass_cache = 0", "R/cache_only ! not_in_cache", "R = 0", "R/cache_only := 5", "writes = 0", "R = 5",
      "R/bypass_cache = 0", "R/bypass_cache := 6", "R = 6", "None/cache_only = 0"}},
    {"DoesNotRememberAFailedTransfer", "Reg R@0", {"breaks", "R ! timeout", "R := 1 ! timeout", "mends", "R = 0"}},
};
INSTANTIATE_TEST_SUITE_P(Cache, Document, ::testing::ValuesIn(cached_values), case_name{});

// The bytes of an entry, one digit each; empty when there is none.
std::string cached(const impl::register_cache& cache, int64_t address, std::size_t length) {
    std::vector<std::byte> data(length);
    std::string out;
    if (!cache.read(address, data)) return out;
    for (const std::byte b : data) out += std::to_string(std::to_integer<int>(b));
    return out;
}

void store(impl::register_cache& cache, int64_t address, std::vector<unsigned char> bytes) {
    cache.store(address, std::as_bytes(std::span{bytes}));
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

// A table read and written through an index has more addresses than are worth keeping.
TEST(RegisterCache, KeepsABoundedNumberOfEntries) {
    impl::register_cache cache;
    constexpr int64_t most = impl::register_cache::maximum_entries;
    for (int64_t at = 0; at < most + 1000; ++at) {
        store(cache, at * 4, {static_cast<unsigned char>(at % 10), 2, 3, 4});
        ASSERT_LE(cache.entry_count(), impl::register_cache::maximum_entries);
        ASSERT_EQ(cached(cache, at * 4, 1), std::to_string(at % 10));
    }
    EXPECT_GE(cache.entry_count(), 1000u);
    // What is no longer valid gives way first.
    cache.clear();
    for (int64_t at = 0; at < most + 1000; ++at) {
        store(cache, at * 4, {1, 2, 3, 4});
        if (at >= 100) cache.invalidate(at * 4, 1);
    }
    EXPECT_LT(cache.entry_count(), impl::register_cache::maximum_entries);
    EXPECT_TRUE(cache.contains(0, 4));
    EXPECT_TRUE(cache.contains(99 * 4, 4));
}

// Each invalidation looks at the texts kept, so there are none that are not valid, and not too many.
TEST(RegisterCache, KeepsValidTextsOnlyAndNotTooMany) {
    impl::register_cache cache;
    std::vector<impl::text_entry> texts(3 * impl::register_cache::maximum_texts);
    EXPECT_EQ(cache.text_count(), 0u);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        cache.keep(texts[i], static_cast<int64_t>(i) * 8, "12345678");
        EXPECT_TRUE(texts[i].is_kept());
    }
    EXPECT_EQ(cache.text_count(), impl::register_cache::maximum_texts);
    const auto kept = [&] {
        return static_cast<std::size_t>(std::ranges::count_if(texts, &impl::text_entry::is_kept));
    };
    EXPECT_EQ(kept(), cache.text_count());
    const auto first = std::ranges::find_if(texts, &impl::text_entry::is_kept);
    cache.keep(*first, first->address, "new");
    EXPECT_EQ(cache.text_count(), impl::register_cache::maximum_texts) << "kept twice";
    cache.invalidate(first->address + 2, 1);
    EXPECT_FALSE(first->is_kept());
    cache.invalidate(texts.back());
    EXPECT_FALSE(texts.back().is_kept());
    EXPECT_EQ(kept(), cache.text_count());
    cache.invalidate(0, UINT64_MAX);
    EXPECT_EQ(kept(), 0u);
    EXPECT_EQ(cache.text_count(), 0u);
    cache.keep(*first, 0, "ab");
    cache.clear();
    EXPECT_FALSE(first->is_kept());
    EXPECT_EQ(cache.text_count(), 0u);
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

} // namespace
} // namespace GenICam::testing
