// Registers: addresses, lengths, byte orders, bit ranges, texts.
#include "script.h"

namespace GenICam::testing {
namespace {

TEST(Registers, IntegersAreReadAndWrittenAsTheirBytes) {
    const struct {
        const char *more, *bytes, *value, *min, *max; // more: length and kind
    } rows[] = {
        {"Length 4", "12 34 56 78", "0x12345678", "0", "0xFFFFFFFF"},
        {"Length 4, Endianess LittleEndian", "78 56 34 12", "0x12345678", "0", "0xFFFFFFFF"},
        {"Length 2, Sign Signed", "ff fe", "-2", "-32768", "32767"},
        {"Length 3, Endianess LittleEndian, Sign Signed", "fe ff ff", "-2", "-0x800000", "0x7FFFFF"},
        {"Length 1", "ff", "255", "0", "255"},
        {"Length 1, Sign Signed", "80", "-128", "-128", "127"},
        {"Length 8", "ff ff ff ff ff ff ff ff", "-1", "0", "highest"},
        {"Length 8, Endianess LittleEndian, Sign Signed", "01 00 00 00 00 00 00 80", "-9223372036854775807", "lowest",
         "highest"},
    };
    for (const auto& [more, bytes, value, min, max] : rows) {
        SCOPED_TRACE(more);
        document sut{std::string{"IntReg R: Address 0x10, "} + more};
        const auto is = [](const char* what, const char* text) { return std::string{what} + text; };
        script{sut}.run({is("[0x10] := ", bytes), is("R = ", value), is("R.min = ", min), is("R.max = ", max),
                         "R.inc = 1", "[0x10] := 77 77 77 77 77 77 77 77 77", is("R := ", value),
                         is("[0x10] = ", bytes)});
        EXPECT_EQ(sut.device.memory.at(static_cast<int64_t>(0x10 + (std::strlen(bytes) + 1) / 3)), std::byte{0x77});
    }
}

// Without an offset the index counts register lengths.
TEST(Registers, AddressesAreTheSumOfTheirTerms) {
    const std::pair<const char*, int64_t> rows[] = {
        {"Address 16", 0x110},
        {"Address -16", 0xF0},
        {"pAddress Ten, pAddress Three", 0x10D},
        {"IntSwissKnife@K {pVariable@T Three, Formula T * 0x10}", 0x130},
        {"pIndex Three", 0x106},
        {"pIndex@Offset=0x20 Three", 0x160},
        {"pIndex@Offset=0 Three", 0x106},
        {"pIndex@pOffset=Ten Three", 0x11E},
    };
    for (const auto& [terms, address] : rows) {
        document sut{std::string{"Integer Three: Value 3 | Integer Ten: Value 10"
                                 " | IntReg R: Length 2, Address 0x100, "} +
                     terms};
        sut.device.put(address, {0x12, 0x34});
        EXPECT_THAT(sut.integer("R").get_val(0), Gives(0x1234)) << terms;
    }
}

TEST(Registers, AFailingAddressTermIsNamed) {
    for (const auto& [term, element] : {std::pair{"pAddress Bad", "pAddress"}, std::pair{"pIndex Bad", "pIndex"},
                                        std::pair{"pIndex@pOffset=Bad One", "pIndex/@pOffset"}}) {
        document sut{std::string{"Integer Bad: pValue Bad | Integer One: Value 1 | IntReg R: Length 4, "} + term};
        script{sut}.run(
            {"R ! invalid_document", "says 1 RegisterNodeTemplate ('Unknown'). Failed to fetch value from '" +
                                         std::string{element} + "' element."});
    }
}

// The standard counts bits from the top of a big endian register: bit 0 is the mask 0x80000000.
TEST(Registers, MaskedOnesReadAndChangeTheirBits) {
    const struct {
        const char *children, *bytes;
        int64_t value, written;
        const char* bytes_written;
    } rows[] = {
        {"Length 4, Bit 0", "80 00 00 00", 1, 0, "00 00 00 00"},
        {"Length 4, Bit 31", "00 00 00 01", 1, 1, "00 00 00 01"},
        {"Length 4, Bit 0, Endianess LittleEndian", "01 00 00 00", 1, 0, "00 00 00 00"},
        {"Length 4, LSB 23, MSB 8", "aa 12 34 bb", 0x1234, 0xFFFF, "aa ff ff bb"},
        {"Length 4, LSB 8, MSB 23, Endianess LittleEndian", "aa 34 12 bb", 0x1234, 0x5678, "aa 78 56 bb"},
        {"Length 4, LSB 8, MSB 15", "aa 12 bb bb", 0x12, 0x34, "aa 34 bb bb"}, // the other way round
        {"Length 4, LSB 15, MSB 8, Endianess LittleEndian", "aa 12 bb bb", 0x12, 0x34, "aa 34 bb bb"},
        {"Length 4, LSB 31, MSB 28, Sign Signed", "00 00 00 0f", -1, -8, "00 00 00 08"},
        {"Length 4, LSB 31, MSB 28", "00 00 00 10", 0, 0x123, "00 00 00 13"}, // the value is cut
        {"Length 0, Bit 0", "80 00 00 00", 1, 0, "00 00 00 00"},              // as of 4
        {"Length 4, LSB 1", "80 00 00 00", 1, 0, "00 00 00 00"},              // as bit 0
        {"Length 4, Bit 40", "01 02 03 04", 0, 1, "01 02 03 04"},             // none of its bits
        {"Length 2, LSB 0, MSB 15, Endianess LittleEndian", "34 12 09 09 09", 0x1234, 0x5678, "78 56 09 09 09"},
        {"Length 2, LSB 14, MSB 0", "aa bb 09 09 09", 0x555D, 0x1234, "24 69 09 09 09"},
        {"Length 8, LSB 63, MSB 32", "01 02 03 04 05 06 07 08 09", 0x05060708, 0x11121314,
         "01 02 03 04 11 12 13 14 09"},
        {"Length 8, LSB 32, MSB 63, Sign Signed, Endianess LittleEndian", "01 02 03 04 fe ff ff ff 09", -2, -3,
         "01 02 03 04 fd ff ff ff 09"},
    };
    for (const auto& [children, bytes, value, written, bytes_written] : rows) {
        SCOPED_TRACE(children);
        document sut{std::string{"MaskedIntReg R: Address 0, "} + children};
        script{sut}.run({std::string{"[0] := "} + bytes, "R/bypass_cache = " + std::to_string(value),
                         "R/bypass_cache := " + std::to_string(written), std::string{"[0] = "} + bytes_written});
    }
}

const script_case registers[] = {
    // Nothing checks that a value fits: the low bytes go out.
    {"IntegersAreCutToTheirLength", "IntReg R: Address 0, Length 2", {"R := 0x123456", "[0] = 34 56 00"}},
    {"BadLengthsAreErrorsOfTheAccess",
     "IntReg Nine: Address 0, Length 9 | IntReg Zero: Address 0, Length 0 | FloatReg F: Address 0, Length 2"
     " | StringReg Wild: Address 0, Length 0x7FFFFFFFFFFFFFFF",
     {"Nine ! index_out_of_range", "says 1 Nine. Invalid Length value=9 out of range [1;8].",
      "Zero := 0 ! index_out_of_range", "says 1 Zero. Invalid Length value=0 out of range [1;8].",
      "F ! index_out_of_range", "says 1 F. Invalid length value (2). For a FloatReg this must be either 4 or 8.",
      "F := 0 ! index_out_of_range", "Wild ! index_out_of_range", "Wild := a ! index_out_of_range", "reads = 0",
      "writes = 0"}},
    {"FloatsOfBothSizesAndOrders",
     "FloatReg B4: Address 0, Length 4 | FloatReg L8: Address 8, Length 8, Endianess LittleEndian",
     {"B4 := 1.5", "L8 := -2", "[0] = 3f c0 00 00", "[8] = 00 00 00 00 00 00 00 c0", "B4 = 1.5", "L8 = -2", "B4 := 0.1",
      "B4 = 0.10000000149011612", "B4.inc ! not_implemented", "B4.max = 1.7976931348623157e308"}},
    {"LengthMayComeFromANode",
     "IntReg R: Address 0, pLength L | Integer L: Value 2",
     {"[0] := 01 02 03 04", "R/bypass_cache = 0x0102", "L := 3", "R/bypass_cache = 0x010203", "R.max = 0xFFFFFF"}},
    {"WithoutAPort",
     "<IntReg Name='I'><Address>0</Address><Length>4</Length></IntReg>"
     "<FloatReg Name='F'><Address>0</Address><Length>4</Length></FloatReg>"
     "<MaskedIntReg Name='M'><Address>0</Address><Length>8</Length></MaskedIntReg>"
     "<StringReg Name='S'><Address>0</Address><Length>4</Length></StringReg>",
     {"I ! invalid_document", "I := 0 ! invalid_document", "F ! invalid_document", "M ! invalid_document",
      "S ! invalid_document"}},
    // Neither needs the address.
    {"LimitsFollowFromLengthAndSign",
     "IntReg I: pAddress Gone, Length 2 | MaskedIntReg M: pAddress Gone, LSB 31, MSB 28"
     " | MaskedIntReg S: Address 0, Length 4, LSB 31, MSB 28, Sign Signed | Reg Gone@0",
     {"breaks", "I.max = 0xFFFF", "M.min = 0", "M.max = 15", "S.min = -8", "S.max = 7", "reads = 0"}},
    {"StructEntriesShareWhatTheStructureHas",
     "Integer L: Value 4 | StructReg: Address 0x20, pLength L, Endianess LittleEndian, StructEntry@Low {LSB 0, MSB 7},"
     " StructEntry@High {LSB 24, MSB 31, Sign Signed, AccessMode RO}",
     {"[0x20] := 11 22 33 ff", "Low = 0x11", "High = -1", "Low := 0x55", "[0x20] = 55 22 33 ff",
      "High := 1 ! access_denied"}},
    {"StructEntriesTakeWhatTheyDoNotState",
     "Integer No: Value 0 | Integer Yes: Value 1 | Reg Trigger@8"
     " | StructReg: Address 16, Length 4, AccessMode RO, StructEntry@Read {Bit 0}, "
     "StructEntry@Own {Bit 1, AccessMode RW}"
     " | StructReg: Address 20, Length 4, pIsImplemented No, StructEntry@Missing {Bit 0}"
     " | StructReg: Address 24, Length 4, pIsAvailable No, StructEntry@Off {Bit 0}, "
     "StructEntry@On {Bit 1, pIsAvailable Yes}"
     " | StructReg: Address 28, Length 4, pIsLocked Yes, AccessMode WO, StructEntry@Locked {Bit 0}"
     " | StructReg: Address 32, Length 4, Cachable WriteThrough, pInvalidator Trigger, "
     "StructEntry@Kept {LSB 31, MSB 24}",
     {"Read := 1 ! access_denied", "Own := 1", "Missing := 1 ! node_not_implemented", "Off := 1 ! node_not_available",
      "On := 1", "Locked := 1 ! node_locked", "Kept = 0", "[32] := 00 00 00 07", "Kept = 0", "Trigger := 1",
      "Kept = 7"}},
    {"TextsEndAtTheFirstNul",
     "StringReg R: Address 0, Length 6, Cachable NoCache",
     {"[0] := 61 62 00 78 79 7a", "R = ab", "R.max_length = 6"}},
    {"TextsAreWrittenAsFarAsTheyFit",
     "StringReg R: Address 0, Length 4",
     {"[0] := 3f 3f 3f 3f", "R := ab", "[0] = 61 62 00 3f", "[0] := 3f 3f 3f 3f", "R := ", "[0] = 00 3f 3f 3f",
      "R := abcd", "[0] = 61 62 63 64", "R/raw_string := xy", "[0] = 78 79 63 64", "R := abcde ! value_out_of_range"}},
    {"TextsWrittenThrough",
     "StringReg R: Address 0, Length 4, Cachable WriteThrough",
     {"R/cache_only ! not_in_cache", "R = ", "R = ", "reads = 1", "R := ab", "R = ab", "reads = 0", "[0] := 78",
      "R/bypass_cache = xb"}},
    {"TextsWrittenAround",
     "StringReg R: Address 0, Length 4, Cachable WriteAround",
     {"R = ", "R = ", "reads = 1", "R := ab", "R = ab", "reads = 1"}},
    {"TextsNotCached",
     "StringReg R: Address 0, Length 4, Cachable NoCache",
     {"R = ", "R = ", "reads = 2", "R := ab", "R = ab", "reads = 1"}},
    {"ATextWrittenToTheCacheAlone",
     "StringReg R: Address 0, Length 4",
     {"R/cache_only := ab", "R = ab", "reads = 0", "writes = 0"}},
    {"TextsAreForgottenAndDropNumbersOfTheirBytes",
     "StringReg R: Address 0, Length 4, pInvalidator T | Reg T@8 | Reg Same@0",
     {"R = ", "Same = 0", "[0] := 6e 65 77", "R = ", "T := 1", "R = new", "Same = 0x77656e", "R := A",
      "Same = 0x770041"}},
};
INSTANTIATE_TEST_SUITE_P(Registers, Document, ::testing::ValuesIn(registers), case_name{});

TEST(Registers, PlainBytes) {
    document sut{"Register R: Address 0x10, Length 6"};
    auto& node = sut.node<IRegister>("R");
    sut.device.put(0x10, {1, 2, 3, 4, 5, 6});
    std::byte all[6];
    EXPECT_THAT(node.get(all, 0), Passes());
    EXPECT_EQ(all[5], std::byte{6});
    const std::byte some[2] = {std::byte{9}, std::byte{8}};
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
    EXPECT_EQ(sut.device.reads, reads + 1);
    const document unbound{"<Register Name='R'><Address>0</Address><Length>6</Length></Register>"};
    EXPECT_THAT(unbound.node<IRegister>("R").get(all, 0), Refuses(not_implemented));
}

TEST(Registers, ATextOfNoBytesWritesNone) {
    document sut{"StringReg T: Address 16, Length 0"};
    EXPECT_THAT(sut.node<IString>("T").set_val("", 0), Passes());
    EXPECT_TRUE(sut.device.memory.empty());
    EXPECT_THAT(sut.node<IString>("T").set_val("a", 0), Refuses(value_out_of_range));
}

TEST(Registers, TextsKeepTheirNulsWhenRaw) {
    document sut{"StringReg R: Address 0, Length 4"};
    auto& node = sut.node<IString>("R");
    sut.device.put(0, {'?', '?', '?', '?'});
    EXPECT_THAT(node.set_val(std::string_view("a\0b", 3), 0), Passes());
    EXPECT_THAT(node.get_val(raw_string), Gives(std::string("a\0b?", 4)));
}

} // namespace
} // namespace GenICam::testing
