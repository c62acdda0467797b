// Registers: addresses, lengths, byte orders, bit ranges, texts.
#include "support.h"

namespace GenICam::testing {
namespace {

std::string reg(const std::string& element, const std::string& children) {
    return "<" + element + " Name=\"R\"><pPort>Device</pPort>" + children + "</" + element + ">";
}

struct integer_case {
    const char* name;
    int length;
    const char* more;
    std::vector<int> bytes;
    int64_t value;
    int64_t min;
    int64_t max;
};

class IntegerRegister : public ::testing::TestWithParam<integer_case> {};

TEST_P(IntegerRegister, ReadsAndWritesItsBytes) {
    const auto& p = GetParam();
    document sut{reg("IntReg", "<Address>0x10</Address><Length>" + std::to_string(p.length) + "</Length>" + p.more)};
    sut.device.put(0x10, p.bytes);
    EXPECT_THAT(sut.integer("R").get_val(0), Gives(p.value));
    EXPECT_THAT(sut.integer("R").get_min(0), Gives(p.min));
    EXPECT_THAT(sut.integer("R").get_max(0), Gives(p.max));
    EXPECT_THAT(sut.integer("R").get_inc(0), Gives(1));
    sut.device.memory.clear();
    EXPECT_THAT(sut.integer("R").set_val(p.value, 0), Passes());
    EXPECT_EQ(sut.device.bytes(0x10, p.bytes.size()), p.bytes);
    EXPECT_EQ(sut.device.memory.size(), p.bytes.size());
}

constexpr const char* little = "<Endianess>LittleEndian</Endianess>";
constexpr const char* little_signed = "<Endianess>LittleEndian</Endianess><Sign>Signed</Sign>";
constexpr const char* big_signed = "<Sign>Signed</Sign>";

INSTANTIATE_TEST_SUITE_P(
    All, IntegerRegister,
    ::testing::Values(integer_case{"Big4", 4, "", {0x12, 0x34, 0x56, 0x78}, 0x12345678, 0, 0xFFFFFFFF},
                      integer_case{"Little4", 4, little, {0x78, 0x56, 0x34, 0x12}, 0x12345678, 0, 0xFFFFFFFF},
                      integer_case{"BigSigned2", 2, big_signed, {0xFF, 0xFE}, -2, -32768, 32767},
                      integer_case{"LittleSigned3", 3, little_signed, {0xFE, 0xFF, 0xFF}, -2, -0x800000, 0x7FFFFF},
                      integer_case{"One", 1, "", {0xFF}, 255, 0, 255},
                      integer_case{"OneSigned", 1, big_signed, {0x80}, -128, -128, 127},
                      integer_case{"Eight",
                                   8,
                                   "",
                                   {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
                                   -1,
                                   0,
                                   std::numeric_limits<int64_t>::max()},
                      integer_case{"EightSigned",
                                   8,
                                   little_signed,
                                   {1, 0, 0, 0, 0, 0, 0, 0x80},
                                   std::numeric_limits<int64_t>::min() + 1,
                                   std::numeric_limits<int64_t>::min(),
                                   std::numeric_limits<int64_t>::max()}),
    case_name{});

// Nothing checks that a value fits: the low bytes go out.
TEST(Registers, IntegersAreCutToTheirLength) {
    const document sut{reg("IntReg", "<Address>0</Address><Length>2</Length>")};
    EXPECT_THAT(sut.integer("R").set_val(0x123456, 0), Passes());
    EXPECT_EQ(sut.device.bytes(0, 3), (std::vector{0x34, 0x56, 0}));
}

TEST(Registers, BadLengthsAreErrorsOfTheAccess) {
    struct bad_length {
        const char* element;
        const char* length;
        const char* message;
    };
    for (const auto& [element, length, message] :
         {bad_length{"IntReg", "9", "1 R. Invalid Length value=9 out of range [1;8]."},
          bad_length{"IntReg", "0", "1 R. Invalid Length value=0 out of range [1;8]."},
          bad_length{"FloatReg", "2", "1 R. Invalid length value (2). For a FloatReg this must be either 4 or 8."}}) {
        log_capture log;
        const document sut{reg(element, std::string{"<Address>0</Address><Length>"} + length + "</Length>")};
        EXPECT_THAT(log.lines, ::testing::IsEmpty());
        if (auto* integer = sut.doc->find<IInteger>("R")) {
            EXPECT_THAT(integer->get_val(0), Fails(index_out_of_range));
            EXPECT_THAT(integer->set_val(0, 0), Refuses(index_out_of_range));
        } else {
            EXPECT_THAT(sut.real("R").get_val(0), Fails(index_out_of_range));
            EXPECT_THAT(sut.real("R").set_val(0, 0), Refuses(index_out_of_range));
        }
        EXPECT_THAT(log.lines, ::testing::ElementsAre(message, message));
        EXPECT_EQ(sut.device.reads + sut.device.writes, 0);
    }
}

TEST(Registers, FloatsOfBothSizesAndOrders) {
    document sut{"<FloatReg Name=\"B4\"><Address>0</Address><Length>4</Length><pPort>Device</pPort></FloatReg>"
                 "<FloatReg Name=\"L8\"><Address>8</Address><Length>8</Length><pPort>Device</pPort>"
                 "<Endianess>LittleEndian</Endianess></FloatReg>"};
    EXPECT_THAT(sut.real("B4").set_val(1.5, 0), Passes());
    EXPECT_THAT(sut.real("L8").set_val(-2.0, 0), Passes());
    EXPECT_EQ(sut.device.bytes(0, 4), (std::vector{0x3F, 0xC0, 0, 0}));
    EXPECT_EQ(sut.device.bytes(8, 8), (std::vector{0, 0, 0, 0, 0, 0, 0, 0xC0}));
    EXPECT_THAT(sut.real("B4").get_val(0), Gives(1.5));
    EXPECT_THAT(sut.real("L8").get_val(0), Gives(-2.0));
    EXPECT_THAT(sut.real("B4").set_val(0.1, 0), Passes());
    EXPECT_THAT(sut.real("B4").get_val(0), Gives(static_cast<double>(0.1f)));
    EXPECT_THAT(sut.real("B4").get_inc(0), Fails(not_implemented));
    EXPECT_THAT(sut.real("B4").get_max(0), Gives(std::numeric_limits<double>::max()));
}

struct address_case {
    const char* name;
    const char* children;
    int64_t address;
};

class RegisterAddress : public ::testing::TestWithParam<address_case> {};

TEST_P(RegisterAddress, IsTheSumOfItsTerms) {
    document sut{reg("IntReg", std::string{"<Length>2</Length>"} + GetParam().children) +
                 "<Integer Name=\"Three\"><Value>3</Value></Integer><Integer Name=\"Ten\"><Value>10</Value></Integer>"};
    sut.device.put(GetParam().address, {0x12, 0x34});
    EXPECT_THAT(sut.integer("R").get_val(0), Gives(0x1234));
}

INSTANTIATE_TEST_SUITE_P(
    All, RegisterAddress,
    ::testing::Values(
        address_case{"Sum", "<Address>0x100</Address><Address>16</Address>", 0x110},
        address_case{"Linked", "<Address>0x100</Address><pAddress>Ten</pAddress><pAddress>Three</pAddress>", 0x10D},
        address_case{"Knife",
                     "<Address>0x100</Address><IntSwissKnife Name=\"K\"><pVariable Name=\"T\">Three</pVariable>"
                     "<Formula>T * 0x10</Formula></IntSwissKnife>",
                     0x130},
        // Without an offset the index counts register lengths.
        address_case{"Index", "<Address>0x100</Address><pIndex>Three</pIndex>", 0x106},
        address_case{"IndexOffset", "<Address>0x100</Address><pIndex Offset=\"0x20\">Three</pIndex>", 0x160},
        address_case{"IndexZeroOffset", "<Address>0x100</Address><pIndex Offset=\"0\">Three</pIndex>", 0x106},
        address_case{"IndexLinkedOffset", "<Address>0x100</Address><pIndex pOffset=\"Ten\">Three</pIndex>", 0x11E},
        address_case{"IndexBothOffsets", "<Address>0x100</Address><pIndex Offset=\"2\" pOffset=\"Ten\">Three</pIndex>",
                     0x124},
        address_case{"Negative", "<Address>0x100</Address><Address>-16</Address>", 0xF0}),
    case_name{});

TEST(Registers, AFailingAddressTermIsNamed) {
    struct term_case {
        const char* term;
        const char* element;
    };
    for (const auto& [term, element] :
         {term_case{"<pAddress>Bad</pAddress>", "pAddress"}, term_case{"<pIndex>Bad</pIndex>", "pIndex"},
          term_case{"<pIndex pOffset=\"Bad\">One</pIndex>", "pIndex/@pOffset"}}) {
        const document sut{reg("IntReg", std::string{"<Length>4</Length>"} + term) +
                           "<IntReg Name=\"Bad\"><Address>0</Address><Length>4</Length></IntReg>"
                           "<Integer Name=\"One\"><Value>1</Value></Integer>"};
        log_capture log;
        EXPECT_THAT(sut.integer("R").get_val(0), Fails(invalid_document));
        EXPECT_THAT(log.lines,
                    ::testing::ElementsAre("1 RegisterNodeTemplate ('Unknown'). Failed to fetch value from '" +
                                           std::string{element} + "' element."));
    }
}

TEST(Registers, LengthMayComeFromANode) {
    document sut{reg("IntReg", "<Address>0</Address><pLength>L</pLength>") +
                 "<Integer Name=\"L\"><Value>2</Value></Integer>"};
    sut.device.put(0, {1, 2, 3, 4});
    EXPECT_THAT(sut.integer("R").get_val(bypass_cache), Gives(0x0102));
    EXPECT_THAT(sut.integer("L").set_val(3, 0), Passes());
    EXPECT_THAT(sut.integer("R").get_val(bypass_cache), Gives(0x010203));
    EXPECT_THAT(sut.integer("R").get_max(0), Gives(0xFFFFFF));
}

TEST(Registers, WithoutAPortAnswerInvalidDocument) {
    const document sut{"<IntReg Name=\"I\"><Address>0</Address><Length>4</Length></IntReg>"
                       "<FloatReg Name=\"F\"><Address>0</Address><Length>4</Length></FloatReg>"
                       "<MaskedIntReg Name=\"M\"><Address>0</Address><Length>8</Length></MaskedIntReg>"
                       "<StringReg Name=\"S\"><Address>0</Address><Length>4</Length></StringReg>"
                       "<Register Name=\"R\"><Address>0</Address><Length>4</Length></Register>"};
    EXPECT_THAT(sut.integer("I").get_val(0), Fails(invalid_document));
    EXPECT_THAT(sut.integer("I").set_val(0, 0), Refuses(invalid_document));
    EXPECT_THAT(sut.real("F").get_val(0), Fails(invalid_document));
    EXPECT_THAT(sut.integer("M").get_val(0), Fails(invalid_document));
    EXPECT_THAT(sut.node<IString>("S").get_val(0), Fails(invalid_document));
    std::byte data[4];
    EXPECT_THAT(sut.node<IRegister>("R").get(data, 0), Refuses(not_implemented));
    EXPECT_THAT(sut.node<IRegister>("R").set(data, 0), Refuses(not_implemented));
}

struct masked_case {
    const char* name;
    const char* children;
    std::vector<int> bytes;
    int64_t value;
    int64_t written;
    std::vector<int> bytes_written;
};

class MaskedRegister : public ::testing::TestWithParam<masked_case> {};

TEST_P(MaskedRegister, ReadsAndChangesItsBits) {
    const auto& p = GetParam();
    document sut{reg("MaskedIntReg", std::string{"<Address>0</Address>"} + p.children)};
    sut.device.put(0, p.bytes);
    EXPECT_THAT(sut.integer("R").get_val(bypass_cache), Gives(p.value));
    EXPECT_THAT(sut.integer("R").set_val(p.written, bypass_cache), Passes());
    EXPECT_EQ(sut.device.bytes(0, p.bytes_written.size()), p.bytes_written);
}

INSTANTIATE_TEST_SUITE_P(
    All, MaskedRegister,
    ::testing::Values(
        // The standard counts bits from the top of a big endian register: bit 0 is the mask 0x80000000.
        masked_case{"BigBit0", "<Length>4</Length><Bit>0</Bit>", {0x80, 0, 0, 0}, 1, 0, {0, 0, 0, 0}},
        masked_case{"BigBit31", "<Length>4</Length><Bit>31</Bit>", {0, 0, 0, 1}, 1, 1, {0, 0, 0, 1}},
        masked_case{"LittleBit0",
                    "<Length>4</Length><Bit>0</Bit><Endianess>LittleEndian</Endianess>",
                    {1, 0, 0, 0},
                    1,
                    0,
                    {0, 0, 0, 0}},
        masked_case{"BigRange",
                    "<Length>4</Length><LSB>23</LSB><MSB>8</MSB>",
                    {0xAA, 0x12, 0x34, 0xBB},
                    0x1234,
                    0xFFFF,
                    {0xAA, 0xFF, 0xFF, 0xBB}},
        masked_case{"LittleRange",
                    "<Length>4</Length><LSB>8</LSB><MSB>23</MSB><Endianess>LittleEndian</Endianess>",
                    {0xAA, 0x34, 0x12, 0xBB},
                    0x1234,
                    0x5678,
                    {0xAA, 0x78, 0x56, 0xBB}},
        masked_case{"Signed",
                    "<Length>4</Length><LSB>31</LSB><MSB>28</MSB><Sign>Signed</Sign>",
                    {0, 0, 0, 0x0F},
                    -1,
                    -8,
                    {0, 0, 0, 0x08}},
        masked_case{"ValueIsCutToTheField",
                    "<Length>4</Length><LSB>31</LSB><MSB>28</MSB>",
                    {0, 0, 0, 0x10},
                    0,
                    0x123,
                    {0, 0, 0, 0x13}},
        masked_case{"LengthZeroIsFour", "<Length>0</Length><Bit>0</Bit>", {0x80, 0, 0, 0}, 1, 0, {0, 0, 0, 0}},
        masked_case{"NoBitsIsBit0", "<Length>4</Length><LSB>1</LSB>", {0x80, 0, 0, 0}, 1, 0, {0, 0, 0, 0}},
        masked_case{"OutsideTheRegisterIsEmpty", "<Length>4</Length><Bit>40</Bit>", {1, 2, 3, 4}, 0, 1, {1, 2, 3, 4}},
        masked_case{"LittleOfTwo",
                    "<Length>2</Length><LSB>0</LSB><MSB>15</MSB><Endianess>LittleEndian</Endianess>",
                    {0x34, 0x12, 9, 9, 9, 9},
                    0x1234,
                    0x5678,
                    {0x78, 0x56, 9, 9, 9, 9}},
        masked_case{"BigOfTwo",
                    "<Length>2</Length><LSB>14</LSB><MSB>0</MSB>",
                    {0xAA, 0xBB, 9, 9, 9, 9},
                    0x555D,
                    0x1234,
                    {0x24, 0x69, 9, 9, 9, 9}},
        masked_case{"BigOfEight",
                    "<Length>8</Length><LSB>63</LSB><MSB>32</MSB>",
                    {1, 2, 3, 4, 5, 6, 7, 8, 9},
                    0x05060708,
                    0x11121314,
                    {1, 2, 3, 4, 0x11, 0x12, 0x13, 0x14, 9}},
        masked_case{"LittleOfEight",
                    "<Length>8</Length><LSB>32</LSB><MSB>63</MSB><Sign>Signed</Sign>"
                    "<Endianess>LittleEndian</Endianess>",
                    {1, 2, 3, 4, 0xFE, 0xFF, 0xFF, 0xFF, 9},
                    -2,
                    -3,
                    {1, 2, 3, 4, 0xFD, 0xFF, 0xFF, 0xFF, 9}}),
    case_name{});

TEST(Registers, MaskedLimitsFollowTheWidth) {
    const document sut{reg("MaskedIntReg", "<Address>0</Address><Length>4</Length><LSB>31</LSB><MSB>28</MSB>") +
                       "<MaskedIntReg Name=\"S\"><Address>0</Address><Length>4</Length><LSB>31</LSB><MSB>28</MSB>"
                       "<Sign>Signed</Sign><pPort>Device</pPort></MaskedIntReg>"};
    EXPECT_THAT(sut.integer("R").get_min(0), Gives(0));
    EXPECT_THAT(sut.integer("R").get_max(0), Gives(15));
    EXPECT_THAT(sut.integer("S").get_min(0), Gives(-8));
    EXPECT_THAT(sut.integer("S").get_max(0), Gives(7));
}

TEST(Registers, StructEntriesShareWhatTheStructureHas) {
    document sut{"<Integer Name=\"L\"><Value>4</Value></Integer>"
                 "<StructReg><Address>0x20</Address><pLength>L</pLength><pPort>Device</pPort>"
                 "<Endianess>LittleEndian</Endianess>"
                 "<StructEntry Name=\"Low\"><LSB>0</LSB><MSB>7</MSB></StructEntry>"
                 "<StructEntry Name=\"High\"><LSB>24</LSB><MSB>31</MSB><Sign>Signed</Sign>"
                 "<AccessMode>RO</AccessMode></StructEntry></StructReg>"};
    sut.device.put(0x20, {0x11, 0x22, 0x33, 0xFF});
    EXPECT_THAT(sut.integer("Low").get_val(0), Gives(0x11));
    EXPECT_THAT(sut.integer("High").get_val(0), Gives(-1));
    EXPECT_THAT(sut.integer("Low").set_val(0x55, 0), Passes());
    EXPECT_EQ(sut.device.bytes(0x20, 4), (std::vector{0x55, 0x22, 0x33, 0xFF}));
    EXPECT_THAT(sut.integer("High").set_val(1, 0), Refuses(access_denied));
}

TEST(Registers, PlainBytes) {
    document sut{reg("Register", "<Address>0x10</Address><Length>6</Length>")};
    auto& node = sut.node<IRegister>("R");
    sut.device.put(0x10, {1, 2, 3, 4, 5, 6});
    std::byte all[6];
    EXPECT_THAT(node.get(all, 0), Passes());
    EXPECT_EQ(all[5], std::byte{6});
    std::byte some[2] = {std::byte{9}, std::byte{8}};
    EXPECT_THAT(node.set(some, 0), Passes());
    EXPECT_EQ(sut.device.bytes(0x10, 3), (std::vector{9, 8, 3}));
    std::byte more[7];
    EXPECT_THAT(node.get(more, 0), Refuses(invalid_parameter));
    EXPECT_THAT(node.set(more, 0), Refuses(invalid_parameter));
    EXPECT_THAT(node.get_length(0), Gives(6u));
    EXPECT_THAT(node.get_address(0), Gives(0x10));
    EXPECT_EQ(node.get_port(), sut.doc->find<IPort>("Device"));
    // Never cached.
    const int reads = sut.device.reads;
    EXPECT_THAT(node.get(all, 0), Passes());
    EXPECT_THAT(node.get(all, 0), Passes());
    EXPECT_EQ(sut.device.reads, reads + 2);
}

TEST(StringRegister, EndsAtTheFirstNul) {
    document sut{reg("StringReg", "<Address>0</Address><Length>6</Length><Cachable>NoCache</Cachable>")};
    auto& node = sut.node<IString>("R");
    sut.device.put(0, {'a', 'b', 0, 'x', 'y', 'z'});
    EXPECT_THAT(node.get_val(0), Gives("ab"));
    EXPECT_THAT(node.get_val(raw_string), Gives(std::string("ab\0xyz", 6)));
    EXPECT_THAT(node.get_max_length(0), Gives(6u));
}

TEST(StringRegister, WritesWhatFits) {
    document sut{reg("StringReg", "<Address>0</Address><Length>4</Length>")};
    auto& node = sut.node<IString>("R");
    const auto fill = [&] { sut.device.put(0, {'?', '?', '?', '?'}); };
    fill();
    EXPECT_THAT(node.set_val("ab", 0), Passes());
    EXPECT_EQ(sut.device.bytes(0, 4), (std::vector<int>{'a', 'b', 0, '?'}));
    fill();
    EXPECT_THAT(node.set_val("", 0), Passes());
    EXPECT_EQ(sut.device.bytes(0, 2), (std::vector<int>{0, '?'}));
    fill();
    EXPECT_THAT(node.set_val("abcd", 0), Passes());
    EXPECT_EQ(sut.device.bytes(0, 4), (std::vector<int>{'a', 'b', 'c', 'd'}));
    fill();
    EXPECT_THAT(node.set_val("ab", raw_string), Passes());
    EXPECT_EQ(sut.device.bytes(0, 3), (std::vector<int>{'a', 'b', '?'}));
    fill();
    EXPECT_THAT(node.set_val(std::string_view("a\0b", 3), 0), Passes());
    EXPECT_EQ(sut.device.bytes(0, 4), (std::vector<int>{'a', 0, 'b', '?'}));
    EXPECT_THAT(node.set_val("abcde", 0), Refuses(value_out_of_range));
}

struct string_cache_case {
    const char* mode;
    int reads_of_two;
    int reads_after_write;
};

TEST(StringRegister, KeepsItsLastText) {
    for (const auto& [mode, reads_of_two, reads_after_write] :
         {string_cache_case{"WriteThrough", 1, 0}, string_cache_case{"WriteAround", 1, 1},
          string_cache_case{"NoCache", 2, 1}}) {
        SCOPED_TRACE(mode);
        document sut{
            reg("StringReg", std::string{"<Address>0</Address><Length>4</Length><Cachable>"} + mode + "</Cachable>")};
        auto& node = sut.node<IString>("R");
        const auto reads_of = [&](const char* expected) {
            const int before = sut.device.reads;
            EXPECT_THAT(node.get_val(0), Gives(expected));
            return sut.device.reads - before;
        };
        if (reads_of_two == 1) {
            EXPECT_THAT(node.get_val(cache_only), Fails(not_in_cache));
        }
        EXPECT_EQ(reads_of("") + reads_of(""), reads_of_two);
        EXPECT_THAT(node.set_val("ab", 0), Passes());
        EXPECT_EQ(reads_of("ab"), reads_after_write);
        sut.device.put(0, {'x'});
        EXPECT_THAT(node.get_val(bypass_cache), Gives("xb"));
    }
}

TEST(StringRegister, CacheOnlyWriteStaysHere) {
    document sut{reg("StringReg", "<Address>0</Address><Length>4</Length>")};
    EXPECT_THAT(sut.node<IString>("R").set_val("ab", cache_only), Passes());
    EXPECT_THAT(sut.node<IString>("R").get_val(0), Gives("ab"));
    EXPECT_EQ(sut.device.reads + sut.device.writes, 0);
}

TEST(StringRegister, ForgetsWhenOthersInvalidateItAndDropsNumbersOfItsBytes) {
    document sut{reg("StringReg", "<Address>0</Address><Length>4</Length><pInvalidator>T</pInvalidator>") +
                 int_reg("T", 8) + int_reg("Same", 0)};
    auto& node = sut.node<IString>("R");
    EXPECT_THAT(node.get_val(0), Gives(""));
    EXPECT_THAT(sut.integer("Same").get_val(0), Gives(0));
    sut.device.put(0, {'n', 'e', 'w'});
    EXPECT_THAT(node.get_val(0), Gives(""));
    EXPECT_THAT(sut.integer("T").set_val(1, 0), Passes());
    EXPECT_THAT(node.get_val(0), Gives("new"));
    EXPECT_THAT(sut.integer("Same").get_val(0), Gives('n' | 'e' << 8 | 'w' << 16));
    EXPECT_THAT(node.set_val("A", 0), Passes());
    EXPECT_THAT(sut.integer("Same").get_val(0), Gives('A' | 'w' << 16));
}

TEST(StringRegister, AWildLengthIsAnError) {
    const document sut{reg("StringReg", "<Address>0</Address><Length>0x7FFFFFFFFFFFFFFF</Length>")};
    EXPECT_THAT(sut.node<IString>("R").get_val(0), Fails(index_out_of_range));
    EXPECT_THAT(sut.node<IString>("R").set_val("a", 0), Refuses(index_out_of_range));
}

} // namespace
} // namespace GenICam::testing
